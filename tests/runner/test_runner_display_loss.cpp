// The X server goes away during a show: the runner ends on its own with the
// documented exit code (3), says why, and leaves a recording that ffprobe
// reads. Each test starts a private Xvfb, runs the runner on it with a
// recording going, and kills the Xvfb.
#include "RunnerHarness.h"
#include "ShowText.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QProcess>
#include <QProcessEnvironment>
#include <QThread>
#include <gtest/gtest.h>

using namespace runner_test;

namespace {

constexpr int kDisplayLostExit = 3;

/// An Xvfb of the test's own, on a display number it picks itself.
class PrivateXServer
{
public:
    ~PrivateXServer() { stop(); }

    bool start()
    {
        m_process.setProcessChannelMode(QProcess::SeparateChannels);
        // -displayfd 1: the server picks a free display and prints its number.
        m_process.start(QStringLiteral("Xvfb"), {QStringLiteral("-displayfd"), QStringLiteral("1"),
                                                 QStringLiteral("-screen"), QStringLiteral("0"),
                                                 QStringLiteral("1280x720x24"),
                                                 QStringLiteral("-nolisten"), QStringLiteral("tcp")});
        if (!m_process.waitForStarted(10000))
            return false;
        QByteArray out;
        while (!out.contains('\n') && m_process.waitForReadyRead(10000))
            out += m_process.readAllStandardOutput();
        bool ok = false;
        const int number = out.trimmed().toInt(&ok);
        if (!ok)
            return false;
        m_display = QStringLiteral(":%1").arg(number);
        return true;
    }

    QString display() const { return m_display; }

    void stop()
    {
        if (m_process.state() == QProcess::NotRunning)
            return;
        m_process.kill();
        m_process.waitForFinished(10000);
    }

private:
    QProcess m_process;
    QString m_display;
};

enum class Platform { Xcb, Offscreen };

struct LossRun
{
    int exitCode = -1;
    bool crashed = false;
    QString errText;
    QList<QJsonObject> lines;
    QString recording;
};

/// Runs a show on a private X server, records screen 1 (windowed or not),
/// kills the server once frames have been recorded, and waits for the end.
/// `extraArgs` go to the runner before its show ("-").
LossRun runAndLoseDisplay(const QString& name, Platform platform, bool windowed,
                          const QStringList& extraArgs = {})
{
    LossRun result;
    const QString dir = freshWorkDir(name);
    PrivateXServer x;
    if (!x.start()) {
        ADD_FAILURE() << "Xvfb did not start";
        return result;
    }
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DISPLAY"), x.display());
    env.remove(QStringLiteral("WAYLAND_DISPLAY"));
    if (platform == Platform::Offscreen)
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    else
        env.remove(QStringLiteral("QT_QPA_PLATFORM"));

    LiveRunner runner;
    runner.process().setProcessEnvironment(env);
    runner.process().setProcessChannelMode(QProcess::SeparateChannels);
    const QStringList args = QStringList{QStringLiteral("--ao"), QStringLiteral("null"),
                                         QStringLiteral("--no-progress"), QStringLiteral("--out"), dir}
        + extraArgs + QStringList{QStringLiteral("-")};
    if (!runner.start(args, dir)) {
        ADD_FAILURE() << "kelmor-show did not start";
        return result;
    }
    const QString show =
        QStringLiteral("{\"op\": \"openScreen\", \"id\": 1, \"width\": 320, \"height\": 180, \"windowed\": %1}\n")
            .arg(windowed ? QStringLiteral("true") : QStringLiteral("false"))
        + createLayer(1, 1, mediaDir() + QStringLiteral("/clip.mp4"), QStringLiteral("video"))
        + addRenderer(1, 1, 1, 0, 0, 320, 180, 640, 360)
        + step(QStringLiteral("play"), layerRef(1, 1))
        + QStringLiteral("{\"op\": \"record\", \"screen\": 1, \"path\": \"rec.mkv\", \"ms\": 60000}\n");
    runner.write(show.toUtf8());
    const QJsonObject recordReply = runner.nextLine(replyToLine(6));
    EXPECT_TRUE(recordReply.contains(QLatin1String("ok"))) << "record step: "
        << recordReply.value(QStringLiteral("error")).toString().toStdString();
    QThread::msleep(1500); // a second and a half of pictures

    x.stop();
    // The offscreen platform has no X events to read: it notices the loss at
    // its next X request, which the end of the show makes at the latest.
    if (platform == Platform::Offscreen)
        runner.write("{\"op\": \"quit\"}\n");
    const bool ended = runner.process().waitForFinished(30000);
    EXPECT_TRUE(ended) << "the runner did not end after the X server went away";
    if (!ended)
        return result;
    result.crashed = runner.process().exitStatus() != QProcess::NormalExit;
    result.exitCode = runner.process().exitCode();
    result.errText = QString::fromUtf8(runner.process().readAllStandardError());
    // The lines read so far, then what was left in the pipe at the end.
    result.lines = runner.seen();
    for (const QByteArray& raw : runner.process().readAllStandardOutput().split('\n')) {
        const QJsonDocument doc = QJsonDocument::fromJson(raw);
        if (doc.isObject())
            result.lines << doc.object();
    }
    result.recording = dir + QStringLiteral("/rec.mkv");
    return result;
}

/// ffprobe's duration of the file, or -1 when ffprobe cannot read it.
double probedDuration(const QString& path)
{
    QProcess probe;
    probe.start(QStringLiteral("ffprobe"), {QStringLiteral("-v"), QStringLiteral("error"),
                                            QStringLiteral("-show_entries"), QStringLiteral("format=duration"),
                                            QStringLiteral("-of"), QStringLiteral("csv=p=0"), path});
    if (!probe.waitForFinished(30000) || probe.exitStatus() != QProcess::NormalExit || probe.exitCode() != 0)
        return -1;
    bool ok = false;
    const double seconds = probe.readAllStandardOutput().trimmed().toDouble(&ok);
    return ok ? seconds : -1;
}

bool hasHostLine(const QList<QJsonObject>& lines, const QString& what)
{
    for (const QJsonObject& line : lines) {
        if (line.value(QStringLiteral("host")).toString() == what)
            return true;
    }
    return false;
}

void expectCleanEnd(const LossRun& run)
{
    EXPECT_FALSE(run.crashed) << "the runner crashed; stderr:\n" << run.errText.toStdString();
    EXPECT_EQ(run.exitCode, kDisplayLostExit) << run.errText.toStdString();
    EXPECT_TRUE(run.errText.contains(QLatin1String("connection to the X server"))) << run.errText.toStdString();
    EXPECT_TRUE(hasHostLine(run.lines, QStringLiteral("displayLost"))) << run.errText.toStdString();
    EXPECT_TRUE(hasHostLine(run.lines, QStringLiteral("recordFinished"))) << run.errText.toStdString();
    const double seconds = probedDuration(run.recording);
    EXPECT_GT(seconds, 0.5) << "ffprobe cannot read " << run.recording.toStdString() << " (size "
                            << QFileInfo(run.recording).size() << ")";
}

} // namespace

TEST(RunnerDisplayLoss, WindowedScreenRecordingIsFinishedAndTheRunEndsWithCode3)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    const LossRun run = runAndLoseDisplay(QStringLiteral("display-loss-windowed"), Platform::Xcb, true);
    expectCleanEnd(run);
    // Output frames were drawn on the render thread (the runner's default).
    EXPECT_TRUE(run.errText.contains(QLatin1String("output frames are drawn on a render thread")))
        << run.errText.toStdString();
}

TEST(RunnerDisplayLoss, OffscreenScreenOnTheX11PlatformEndsTheSameWay)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    expectCleanEnd(runAndLoseDisplay(QStringLiteral("display-loss-offscreen-screen"), Platform::Xcb, false));
}

TEST(RunnerDisplayLoss, OffscreenPlatformEndsTheSameWayAtItsNextXRequest)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    expectCleanEnd(runAndLoseDisplay(QStringLiteral("display-loss-offscreen-platform"), Platform::Offscreen, false));
}

TEST(RunnerDisplayLoss, FramesOnTheGuiThreadEndTheSameWay)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    const LossRun run = runAndLoseDisplay(QStringLiteral("display-loss-gui-thread"), Platform::Xcb,
                                          true, {QStringLiteral("--no-render-thread")});
    expectCleanEnd(run);
    EXPECT_FALSE(run.errText.contains(QLatin1String("output frames are drawn on a render thread")))
        << run.errText.toStdString();
}
