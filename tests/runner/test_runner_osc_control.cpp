// OSC control end to end: kelmor-show with --osc-port, driven by liblo's
// own oscsend as a separate process, its events received by oscdump (two of
// them: one named with --osc-send, one subscribed with /kelmor/subscribe).
// Every controller address is checked by what it changes in the events or
// in a snapshot. Setup steps go in on stdin; waiting is done on events.
#include "RunnerHarness.h"
#include "ShowText.h"
#include "test_runner_osc_support.h"

#include <QColor>
#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QImage>
#include <gtest/gtest.h>

using namespace runner_test;
using namespace osc_test;

namespace {

/// A runner taking steps on stdin and OSC on a free port.
class OscShow
{
public:
    bool start(const QString& dir, const QStringList& more = {})
    {
        m_dir = dir;
        QStringList args{QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--no-progress"),
                         QStringLiteral("--out"), dir, QStringLiteral("--set"),
                         QStringLiteral("media=") + mediaDir(), QStringLiteral("--osc-port"), QStringLiteral("0")};
        if (!live.start(args + more + QStringList{QStringLiteral("-")}, dir))
            return false;
        const QJsonObject listening = live.nextLine(
            [](const QJsonObject& o) { return o.value(QStringLiteral("host")).toString() == QLatin1String("oscListening"); });
        port = quint16(listening.value(QStringLiteral("port")).toInt());
        return port != 0;
    }

    /// Runs setup lines on stdin; false (with a failure) when one fails.
    bool setup(const QString& lines)
    {
        for (const QString& line : lines.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
            const QJsonObject reply = run(line);
            if (!reply.contains(QStringLiteral("ok"))) {
                ADD_FAILURE() << line.toStdString() << " -> " << QJsonDocument(reply).toJson().toStdString();
                return false;
            }
        }
        return true;
    }

    QJsonObject run(const QString& line)
    {
        live.write(line.toUtf8() + '\n');
        return live.nextLine(replyToLine(++m_line));
    }

    /// A snapshot of screen 1.
    QImage snapshot()
    {
        const QString name = QStringLiteral("shot%1.png").arg(++m_shots);
        const QJsonObject reply = run(QStringLiteral("{\"op\": \"snapshot\", \"screen\": 1, \"path\": \"%1\"}").arg(name));
        if (!reply.contains(QStringLiteral("ok")))
            return QImage();
        return QImage(m_dir + QLatin1Char('/') + name);
    }

    /// Takes snapshots until pixel (x, y) is `want` (within a tolerance).
    bool snapshotShows(int x, int y, const QColor& want, int timeoutMs = 8000)
    {
        QDeadlineTimer deadline(timeoutMs);
        QColor have;
        do {
            const QImage image = snapshot();
            if (!image.isNull()) {
                have = image.pixelColor(x, y);
                if (std::abs(have.red() - want.red()) <= 24 && std::abs(have.green() - want.green()) <= 24
                    && std::abs(have.blue() - want.blue()) <= 24)
                    return true;
            }
        } while (!deadline.hasExpired());
        ADD_FAILURE() << "pixel (" << x << ", " << y << ") stays " << have.name().toStdString() << ", expected "
                      << want.name().toStdString();
        return false;
    }

    /// The next position event of (bank, layer) for which `match` holds.
    QJsonObject nextPosition(int bank, int layer, const std::function<bool(qint64)>& match, int timeoutMs = 20000)
    {
        return live.nextLine(
            [&](const QJsonObject& o) {
                return o.value(QStringLiteral("event")).toString() == QLatin1String("sPositionChanged")
                    && o.value(QStringLiteral("bankId")).toInt() == bank
                    && o.value(QStringLiteral("layerId")).toInt() == layer
                    && match(qint64(o.value(QStringLiteral("position")).toDouble()));
            },
            timeoutMs);
    }

    /// Waits until (bank, layer) has sent no position for `quietMs`; the
    /// last position it sent meanwhile (if any) in `last`. False when it keeps sending for 8 s.
    bool becomesQuiet(int bank, int layer, qint64* last = nullptr, int quietMs = 500)
    {
        QDeadlineTimer deadline(8000);
        while (!deadline.hasExpired()) {
            const QJsonObject o = nextPosition(bank, layer, [](qint64) { return true; }, quietMs);
            if (o.isEmpty())
                return true;
            if (last)
                *last = qint64(o.value(QStringLiteral("position")).toDouble());
        }
        return false;
    }

    QJsonObject nextEvent(const QString& name, int timeoutMs = 30000)
    {
        return live.nextLine([&](const QJsonObject& o) { return o.value(QStringLiteral("event")).toString() == name; },
                             timeoutMs);
    }

    LiveRunner live;
    quint16 port = 0;

private:
    QString m_dir;
    int m_line = 0;
    int m_shots = 0;
};

bool isEvent(const DumpLine& line, const char* name)
{
    return line.path == QStringLiteral("/kelmor/event/") + QLatin1String(name);
}

TEST(RunnerOsc, BankAndLayerAddressesShowInTheEventsOfTwoSubscribers)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    OscDump named, subscribed;
    ASSERT_TRUE(named.start());
    ASSERT_TRUE(subscribed.start());
    OscShow show;
    ASSERT_TRUE(show.start(freshWorkDir(QStringLiteral("osc-bank")),
                           {QStringLiteral("--osc-send"), QStringLiteral("127.0.0.1:%1").arg(named.port())}));
    ASSERT_TRUE(show.setup(openScreen(1) + createLayer(1, 1, QStringLiteral("${media}/quadrants.mp4"), QStringLiteral("video"))
                           + addRenderer(1, 1, 1, 0, 0, 320, 180, 640, 360)
                           + createLayer(1, 2, QStringLiteral("${media}/clip.mp4"), QStringLiteral("video"))
                           + addRenderer(1, 2, 1, 320, 0, 320, 180, 640, 360)));
    // Subscribed with positions thinned to one a minute per layer.
    ASSERT_TRUE(oscSend(show.port, QStringLiteral("/kelmor/subscribe"), QStringLiteral("ii"),
                        {QString::number(subscribed.port()), QStringLiteral("60000")}));

    // The bank made ready: both layers load, then the bank is ready; both
    // subscribers hear it.
    ASSERT_TRUE(oscSend(show.port, QStringLiteral("/kelmor/bank/1/ready")));
    EXPECT_FALSE(show.nextEvent(QStringLiteral("sPlayReady")).isEmpty());
    DumpLine line;
    for (OscDump* dump : {&named, &subscribed}) {
        ASSERT_TRUE(dump->next([](const DumpLine& l) { return isEvent(l, "sPlayReady"); }, &line));
        EXPECT_EQ(line.types, QStringLiteral("i"));
        EXPECT_EQ(line.args, QStringList{QStringLiteral("1")});
    }

    // The bank plays: positions of both layers, typed as 64-bit integers.
    ASSERT_TRUE(oscSend(show.port, QStringLiteral("/kelmor/bank/1/play")));
    EXPECT_FALSE(show.nextPosition(1, 1, [](qint64 p) { return p > 0; }).isEmpty());
    EXPECT_FALSE(show.nextPosition(1, 2, [](qint64 p) { return p >= 1200; }).isEmpty());
    ASSERT_TRUE(subscribed.next([](const DumpLine& l) { return isEvent(l, "sPositionChanged"); }, &line));
    EXPECT_EQ(line.types, QStringLiteral("iih"));

    // Seek back, then repeat: past its end the clip starts over instead of ending.
    ASSERT_TRUE(oscSend(show.port, QStringLiteral("/kelmor/layer/1/2/seek"), QStringLiteral("i"), {QStringLiteral("200")}));
    EXPECT_FALSE(show.nextPosition(1, 2, [](qint64 p) { return p < 1000; }).isEmpty());
    ASSERT_TRUE(oscSend(show.port, QStringLiteral("/kelmor/layer/1/2/repeat"), QStringLiteral("i"), {QStringLiteral("1")}));
    ASSERT_TRUE(oscSend(show.port, QStringLiteral("/kelmor/layer/1/2/seek"), QStringLiteral("h"), {QStringLiteral("3500")}));
    EXPECT_FALSE(show.nextPosition(1, 2, [](qint64 p) { return p >= 3500; }).isEmpty());
    EXPECT_FALSE(show.nextPosition(1, 2, [](qint64 p) { return p < 1000; }).isEmpty());

    // One layer made ready again: its load is reported.
    ASSERT_TRUE(oscSend(show.port, QStringLiteral("/kelmor/layer/1/1/ready"), QStringLiteral("iT"), {QStringLiteral("0")}));
    EXPECT_EQ(show.nextEvent(QStringLiteral("sendLoadAllComple")).value(QStringLiteral("layerId")).toInt(), 1);

    // The bank stops: no more positions from either layer.
    ASSERT_TRUE(oscSend(show.port, QStringLiteral("/kelmor/bank/1/stop")));
    EXPECT_TRUE(show.becomesQuiet(1, 2));
    EXPECT_TRUE(show.becomesQuiet(1, 1));

    // Unsubscribed: the next event reaches only the named subscriber.
    ASSERT_TRUE(oscSend(show.port, QStringLiteral("/kelmor/unsubscribe"), QStringLiteral("i"),
                        {QString::number(subscribed.port())}));
    ASSERT_TRUE(oscSend(show.port, QStringLiteral("/kelmor/step"), QStringLiteral("s"),
                        {QStringLiteral("{\"op\": \"setCurPlayerCount\", \"args\": [7]}")}));
    ASSERT_TRUE(named.next([](const DumpLine& l) { return isEvent(l, "sPlayReady") && l.args.value(0) == "7"; }));
    EXPECT_FALSE(subscribed.next([](const DumpLine& l) { return isEvent(l, "sPlayReady") && l.args.value(0) == "7"; },
                                 nullptr, 500));

    // Thinning is per subscriber (both dumps have read every line sent before
    // the last event): the named one had every position.
    auto positionsOfLayer2 = [](const OscDump& dump) {
        int count = 0;
        for (const DumpLine& l : dump.lines())
            count += isEvent(l, "sPositionChanged") && l.args.value(0) == "2" && l.args.value(1) == "1";
        return count;
    };
    EXPECT_GE(positionsOfLayer2(named), 10);
    EXPECT_EQ(positionsOfLayer2(subscribed), 1);

    // A quit from OSC ends the run cleanly (under AddressSanitizer: nothing leaked).
    ASSERT_TRUE(oscSend(show.port, QStringLiteral("/kelmor/step"), QStringLiteral("s"), {QStringLiteral("{\"op\": \"quit\"}")}));
    EXPECT_EQ(show.live.waitForExit(30000), 0);
}

TEST(RunnerOsc, OpacityVisibilityAndFadesShowInSnapshots)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    OscShow show;
    ASSERT_TRUE(show.start(freshWorkDir(QStringLiteral("osc-picture"))));
    ASSERT_TRUE(show.setup(openScreen(1) + createLayer(1, 1, QStringLiteral("${media}/quadrants.mp4"), QStringLiteral("video"))
                           + addRenderer(1, 1, 1, 0, 0, 640, 360, 640, 360)
                           + step(QStringLiteral("setCurPlayerCount"), QStringLiteral("1"))
                           + step(QStringLiteral("playReady"), layerRef(1, 1) + QStringLiteral(", 500, true"))
                           + waitFor(QStringLiteral("sPlayReady"), QStringLiteral("{\"bankId\": 1}"))));
    const QColor red(255, 0, 0), black(0, 0, 0);
    ASSERT_TRUE(show.snapshotShows(160, 90, red));

    const QString layer = QStringLiteral("/kelmor/layer/1/1/");
    ASSERT_TRUE(oscSend(show.port, layer + QStringLiteral("opacity"), QStringLiteral("f"), {QStringLiteral("0")}));
    EXPECT_TRUE(show.snapshotShows(160, 90, black));
    ASSERT_TRUE(oscSend(show.port, layer + QStringLiteral("opacity"), QStringLiteral("d"), {QStringLiteral("1")}));
    EXPECT_TRUE(show.snapshotShows(160, 90, red));

    ASSERT_TRUE(oscSend(show.port, layer + QStringLiteral("visible"), QStringLiteral("F")));
    EXPECT_TRUE(show.snapshotShows(160, 90, black));
    ASSERT_TRUE(oscSend(show.port, layer + QStringLiteral("visible"), QStringLiteral("i"), {QStringLiteral("1")}));
    EXPECT_TRUE(show.snapshotShows(160, 90, red));

    // Volume shows in neither events nor pictures (the audio output is
    // null): its step's reply says it ran.
    OscClient client;
    ASSERT_TRUE(client.open());
    ASSERT_TRUE(client.send(show.port, encode("/kelmor/layer/1/1/volume", [](lo_message m) { lo_message_add_float(m, 50); })));
    const QJsonObject volume = client.nextAnswer();
    EXPECT_EQ(volume.value(QStringLiteral("ok")).toString(), QStringLiteral("setVolumeState"));

    ASSERT_TRUE(oscSend(show.port, layer + QStringLiteral("fadeout"), QStringLiteral("i"), {QStringLiteral("300")}));
    EXPECT_FALSE(show.nextEvent(QStringLiteral("sFadeoutFinished")).isEmpty());
    EXPECT_TRUE(show.snapshotShows(160, 90, black));
    ASSERT_TRUE(oscSend(show.port, layer + QStringLiteral("fadein"), QStringLiteral("i"), {QStringLiteral("300")}));
    EXPECT_FALSE(show.nextEvent(QStringLiteral("sFadeinFinished")).isEmpty());
    EXPECT_TRUE(show.snapshotShows(160, 90, red));
}

TEST(RunnerOsc, PlayPauseAndStopOfATimedItemShowInItsPositions)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    OscShow show;
    ASSERT_TRUE(show.start(freshWorkDir(QStringLiteral("osc-timed"))));
    ASSERT_TRUE(show.setup(createLayer(2, 1, QStringLiteral("${media}/still-a.png"), QStringLiteral("picture"), 8000)));
    const QString layer = QStringLiteral("/kelmor/layer/2/1/");

    auto position = [](const QJsonObject& event) { return qint64(event.value(QStringLiteral("position")).toDouble()); };
    ASSERT_TRUE(oscSend(show.port, layer + QStringLiteral("play")));
    const QJsonObject playing = show.nextPosition(2, 1, [](qint64 p) { return p >= 500; });
    ASSERT_FALSE(playing.isEmpty());

    // Paused: the positions stop, and playing again goes on from there.
    ASSERT_TRUE(oscSend(show.port, layer + QStringLiteral("pause")));
    qint64 paused = position(playing);
    ASSERT_TRUE(show.becomesQuiet(2, 1, &paused));
    EXPECT_GE(paused, 500);
    ASSERT_TRUE(oscSend(show.port, layer + QStringLiteral("play")));
    const QJsonObject resumed = show.nextPosition(2, 1, [](qint64) { return true; });
    ASSERT_FALSE(resumed.isEmpty());
    EXPECT_GE(position(resumed), paused - 100);
    const QJsonObject later = show.nextPosition(2, 1, [&](qint64 p) { return p >= paused + 300; });
    ASSERT_FALSE(later.isEmpty());

    // Stopped: the positions stop, and playing again starts from the beginning.
    ASSERT_TRUE(oscSend(show.port, layer + QStringLiteral("stop")));
    qint64 stopped = position(later);
    ASSERT_TRUE(show.becomesQuiet(2, 1, &stopped));
    ASSERT_TRUE(oscSend(show.port, layer + QStringLiteral("play")));
    const QJsonObject restarted = show.nextPosition(2, 1, [](qint64) { return true; });
    ASSERT_FALSE(restarted.isEmpty());
    EXPECT_LT(position(restarted), stopped - 300);
}

} // namespace
