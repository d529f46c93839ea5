// Pictures of a screen for the host: PNG snapshots with the grabbed pixels,
// and recordings whose frames ffprobe/ffmpeg read back.
#include "ScreenFixture.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QtMath>

namespace {

/// Runs a program to its end; its standard output, or null on failure.
QByteArray run(const QString& program, const QStringList& args)
{
    QProcess process;
    process.start(program, args);
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0)
        return QByteArray();
    return process.readAllStandardOutput();
}

/// "key=value" lines of ffprobe as a map.
QMap<QString, QString> probe(const QString& path)
{
    const QByteArray out = run(QStringLiteral("ffprobe"),
                               {QStringLiteral("-v"), QStringLiteral("error"),
                                QStringLiteral("-select_streams"), QStringLiteral("v:0"),
                                QStringLiteral("-count_frames"), QStringLiteral("-show_entries"),
                                QStringLiteral("stream=width,height,nb_read_frames:format=duration"),
                                QStringLiteral("-of"), QStringLiteral("default=noprint_wrappers=1"),
                                path});
    QMap<QString, QString> values;
    for (const QByteArray& line : out.split('\n')) {
        const int eq = line.indexOf('=');
        if (eq > 0)
            values.insert(QString::fromLatin1(line.left(eq)), QString::fromLatin1(line.mid(eq + 1)).trimmed());
    }
    return values;
}

/// The frame shown at `seconds`, decoded to RGB; a null image on failure.
QImage frameAt(const QString& path, double seconds, const QSize& size)
{
    const QByteArray raw = run(QStringLiteral("ffmpeg"),
                               {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-ss"),
                                QString::number(seconds, 'f', 3), QStringLiteral("-i"), path,
                                QStringLiteral("-frames:v"), QStringLiteral("1"), QStringLiteral("-f"),
                                QStringLiteral("rawvideo"), QStringLiteral("-pix_fmt"),
                                QStringLiteral("rgb24"), QStringLiteral("-")});
    if (raw.size() != size.width() * size.height() * 3)
        return QImage();
    QImage image(reinterpret_cast<const uchar*>(raw.constData()), size.width(), size.height(),
                 size.width() * 3, QImage::Format_RGB888);
    return image.copy(); // owns its pixels once `raw` is gone
}

/// Whether a pixel decoded from the recording is the colour (the codec's
/// 4:2:0 colour conversion moves solid colours by a few levels).
::testing::AssertionResult decodedAs(const QImage& frame, QColor colour)
{
    if (frame.isNull())
        return ::testing::AssertionFailure() << "no frame decoded";
    const QRgb centre = frame.pixel(frame.width() / 2, frame.height() / 2);
    if (!near(centre, colour, 16))
        return ::testing::AssertionFailure()
            << "centre is " << describe(centre) << ", expected " << colour.name().toStdString();
    return ::testing::AssertionSuccess();
}

} // namespace

class ScreenCaptureTest : public ScreenTest
{
protected:
    static ScreenService& screens() { return ScreenService::getInstance(); }

    /// A picture with detail everywhere, so that any pixel off shows.
    static QImage detailed()
    {
        QImage image = quadrants();
        QPainter p(&image);
        for (int x = 0; x < 320; x += 7)
            p.fillRect(x, 80, 3, 20, QColor(x % 256, 255 - x % 256, 90));
        return image;
    }

    QTemporaryDir m_dir;
};

TEST_F(ScreenCaptureTest, SnapshotPngHoldsTheGrabbedPixels)
{
    ASSERT_TRUE(m_dir.isValid());
    show(pushedPlayer(detailed()), openScreen(1), QRect(10, 5, 300, 170));
    const QImage grabbed = grab(1).convertToFormat(QImage::Format_RGB32);
    ASSERT_EQ(grabbed.size(), QSize(320, 180));
    const QString path = m_dir.filePath(QStringLiteral("snapshot.png"));

    ASSERT_TRUE(screens().saveSnapshot(1, path));

    const QImage read(path);
    ASSERT_FALSE(read.isNull()) << "QImage could not read " << path.toStdString();
    EXPECT_EQ(read.size(), grabbed.size());
    EXPECT_EQ(maxChannelDifference(read.convertToFormat(QImage::Format_RGB32), grabbed), 0);
    EXPECT_TRUE(quadrantsIn(read, QRect(10, 5, 300, 170)));
}

TEST_F(ScreenCaptureTest, SnapshotOfAScreenNotOpenFailsWithADebugLine)
{
    ASSERT_TRUE(m_dir.isValid());
    openScreen(1);
    const QString path = m_dir.filePath(QStringLiteral("none.png"));
    LogCapture log;
    EXPECT_FALSE(screens().saveSnapshot(9, path));
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_EQ(log.count(QStringLiteral("saveSnapshot: screen 9 has no picture")), 1);
}

TEST_F(ScreenCaptureTest, RecordingHoldsThePicturesShownWhileItRan)
{
    ASSERT_TRUE(m_dir.isValid());
    QtAV::AVPlayer* player = pushedPlayer(solid(Qt::red));
    show(player, openScreen(1), QRect(0, 0, 320, 180));
    EXPECT_PIXEL(grab(1), 160, 90, Qt::red);
    const QString path = m_dir.filePath(QStringLiteral("recording.mp4"));
    constexpr int kFps = 30;

    // `outer` brackets the recorder's own clock from outside, `inner` from
    // inside, so the frame count can be checked without trusting the timing.
    QElapsedTimer outer, inner;
    outer.start();
    ASSERT_TRUE(screens().startRecording(1, path, kFps));
    inner.start();
    QTest::qWait(500);
    player->pushFrame(QtAV::VideoFrame(solid(Qt::green)));
    ASSERT_TRUE(waitUntil([] { return near(grab(1).pixel(160, 90), Qt::green, 0); }));
    QTest::qWait(int(std::max<qint64>(0, 1000 - inner.elapsed())));
    const qint64 shortest = inner.elapsed();
    ASSERT_TRUE(screens().stopRecording(1));
    const qint64 longest = outer.elapsed();
    EXPECT_FALSE(screens().stopRecording(1)) << "a second stop found a recording";

    const QMap<QString, QString> info = probe(path);
    ASSERT_FALSE(info.isEmpty()) << "ffprobe could not read " << path.toStdString();
    EXPECT_EQ(info.value(QStringLiteral("width")), QStringLiteral("320"));
    EXPECT_EQ(info.value(QStringLiteral("height")), QStringLiteral("180"));
    // A constant rate from time 0 to the stop: about 30 frames for 1 s, and
    // exactly within what the two clocks allow.
    const int frames = info.value(QStringLiteral("nb_read_frames")).toInt();
    const int fewest = int(shortest * kFps / 1000);
    const int most = int(qCeil(longest * kFps / 1000.0)) + 1;
    EXPECT_GE(frames, fewest) << "recorded " << shortest << "-" << longest << " ms";
    EXPECT_LE(frames, most) << "recorded " << shortest << "-" << longest << " ms";

    const double duration = info.value(QStringLiteral("duration")).toDouble();
    ASSERT_GT(duration, 0.5);
    EXPECT_TRUE(decodedAs(frameAt(path, 0.1, QSize(320, 180)), Qt::red));
    EXPECT_TRUE(decodedAs(frameAt(path, duration - 0.15, QSize(320, 180)), Qt::green));
}

TEST_F(ScreenCaptureTest, RecordingAScreenNotOpenFails)
{
    ASSERT_TRUE(m_dir.isValid());
    openScreen(1);
    const QString path = m_dir.filePath(QStringLiteral("none.mp4"));
    LogCapture log;
    EXPECT_FALSE(screens().startRecording(9, path, 30));
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_EQ(log.count(QStringLiteral("startRecording: screen 9 is not open")), 1);
    EXPECT_FALSE(screens().stopRecording(9));
}
