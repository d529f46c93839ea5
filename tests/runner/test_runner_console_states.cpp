// The "state" step tells what each layer is doing in an operator's words:
// created/loaded, ready, playing, paused, stopped and ended, for a clip
// (its player) and a timed item (its timer), and fades while they run.
#include "test_runner_console_kit.h"

#include "ShowText.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <gtest/gtest.h>

using namespace runner_test;

namespace {

class StatePoller
{
public:
    explicit StatePoller(LiveRunner& runner) : m_runner(runner) {}

    /// Layer `bank`/`layer` of a fresh state step's answer.
    QJsonObject layer(int bank, int layer)
    {
        m_runner.write("{\"op\": \"state\"}\n");
        const QJsonObject state = m_runner.nextLine([](const QJsonObject& o) {
            return o.value(QStringLiteral("ok")).toString() == QLatin1String("state");
        });
        for (const QJsonValue& v : state.value(QStringLiteral("layers")).toArray()) {
            const QJsonObject o = v.toObject();
            if (o.value(QStringLiteral("bankId")).toInt() == bank && o.value(QStringLiteral("layerId")).toInt() == layer)
                return o;
        }
        return QJsonObject();
    }

    /// Asks until the layer's `key` reads `value` (10 s at most); the last
    /// value read otherwise.
    QString waitFor(int bank, int layerId, const char* key, const QString& value, int timeoutMs = 10000)
    {
        QElapsedTimer clock;
        clock.start();
        QString last;
        do {
            last = layer(bank, layerId).value(QLatin1String(key)).toString();
            if (last == value)
                return last;
            m_runner.waitForStderr(QStringLiteral("\x01"), 50); // a moment
        } while (clock.elapsed() < timeoutMs);
        return last;
    }

private:
    LiveRunner& m_runner;
};

void send(LiveRunner& runner, const QString& steps)
{
    runner.write(steps.toUtf8());
}

} // namespace

TEST(RunnerConsole, StateFollowsAClipThroughItsLife)
{
    const QString media = mediaDir();
    ASSERT_FALSE(media.isEmpty());
    LiveRunner runner;
    ASSERT_TRUE(runner.start({QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--no-progress"),
                              QStringLiteral("--set"), QStringLiteral("media=") + media, QStringLiteral("-")},
                             freshWorkDir(QStringLiteral("console-clip-states"))));
    StatePoller state(runner);
    send(runner, QStringLiteral("{\"op\": \"openScreen\", \"id\": 1, \"width\": 320, \"height\": 180, \"offscreen\": true}\n")
                     + createLayer(1, 1, QStringLiteral("${media}/quadrants.mp4"), QStringLiteral("video"))
                     + addRenderer(1, 1, 1, 0, 0, 320, 180, 640, 360));
    EXPECT_EQ(state.waitFor(1, 1, "state", QStringLiteral("loaded")), QStringLiteral("loaded"));
    send(runner, QStringLiteral("{\"op\": \"playReady\", \"args\": [%1, 0, true]}\n").arg(layerRef(1, 1)));
    EXPECT_EQ(state.waitFor(1, 1, "state", QStringLiteral("ready")), QStringLiteral("ready"));
    send(runner, QStringLiteral("{\"op\": \"play\", \"args\": [%1]}\n").arg(layerRef(1, 1)));
    EXPECT_EQ(state.waitFor(1, 1, "state", QStringLiteral("playing")), QStringLiteral("playing"));

    // A fade out runs, then ends.
    send(runner, QStringLiteral("{\"op\": \"setFadeInOut\", \"args\": [%1, true, 1500]}\n").arg(layerRef(1, 1)));
    EXPECT_EQ(state.waitFor(1, 1, "fade", QStringLiteral("out")), QStringLiteral("out"));
    ASSERT_FALSE(runner.nextLine([](const QJsonObject& o) {
        return o.value(QStringLiteral("event")).toString() == QLatin1String("sFadeoutFinished");
    }).isEmpty());
    EXPECT_EQ(state.waitFor(1, 1, "fade", QString()), QString());
    EXPECT_EQ(state.layer(1, 1).value(QStringLiteral("opacity")).toDouble(), 0.0);
    send(runner, QStringLiteral("{\"op\": \"setFadeInOut\", \"args\": [%1, false, 1500]}\n").arg(layerRef(1, 1)));
    EXPECT_EQ(state.waitFor(1, 1, "fade", QStringLiteral("in")), QStringLiteral("in"));

    send(runner, QStringLiteral("{\"op\": \"pause\", \"args\": [%1]}\n").arg(layerRef(1, 1)));
    EXPECT_EQ(state.waitFor(1, 1, "state", QStringLiteral("paused")), QStringLiteral("paused"));
    // The console's stop: the module's stop, and back to the start.
    send(runner, QStringLiteral("{\"op\": \"stop\", \"args\": [%1]}\n{\"op\": \"setPosition\", \"args\": [1, 1, 0]}\n")
                     .arg(layerRef(1, 1)));
    EXPECT_EQ(state.waitFor(1, 1, "state", QStringLiteral("stopped")), QStringLiteral("stopped"));

    // Played to the end of its last pass: ended.
    send(runner, QStringLiteral("{\"op\": \"setPosition\", \"args\": [1, 1, 3500]}\n{\"op\": \"play\", \"args\": [%1]}\n")
                     .arg(layerRef(1, 1)));
    ASSERT_FALSE(runner.nextLine([](const QJsonObject& o) {
        return o.value(QStringLiteral("event")).toString() == QLatin1String("sendPlayerIndex");
    }).isEmpty());
    EXPECT_EQ(state.waitFor(1, 1, "state", QStringLiteral("ended")), QStringLiteral("ended"));
    // ... and plays again from the start when told to.
    send(runner, QStringLiteral("{\"op\": \"play\", \"args\": [%1]}\n").arg(layerRef(1, 1)));
    EXPECT_EQ(state.waitFor(1, 1, "state", QStringLiteral("playing")), QStringLiteral("playing"));
    send(runner, "{\"op\": \"quit\"}\n");
    EXPECT_EQ(runner.waitForExit(), 0);
}

TEST(RunnerConsole, StateFollowsATimedItemThroughItsLife)
{
    const QString media = mediaDir();
    ASSERT_FALSE(media.isEmpty());
    LiveRunner runner;
    ASSERT_TRUE(runner.start({QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--no-progress"),
                              QStringLiteral("--set"), QStringLiteral("media=") + media, QStringLiteral("-")},
                             freshWorkDir(QStringLiteral("console-still-states"))));
    StatePoller state(runner);
    send(runner, QStringLiteral("{\"op\": \"openScreen\", \"id\": 1, \"width\": 320, \"height\": 180, \"offscreen\": true}\n")
                     + createLayer(2, 7, QStringLiteral("${media}/still-a.png"), QStringLiteral("picture"), 800)
                     + addRenderer(2, 7, 1, 0, 0, 320, 180, 320, 180));
    EXPECT_EQ(state.waitFor(2, 7, "state", QStringLiteral("loaded")), QStringLiteral("loaded"));
    send(runner, QStringLiteral("{\"op\": \"playReady\", \"args\": [%1, 0, true]}\n").arg(layerRef(2, 7)));
    EXPECT_EQ(state.waitFor(2, 7, "state", QStringLiteral("ready")), QStringLiteral("ready"));

    // Its one pass of 800 ms runs out: ended.
    send(runner, QStringLiteral("{\"op\": \"play\", \"args\": [%1]}\n").arg(layerRef(2, 7)));
    EXPECT_EQ(state.waitFor(2, 7, "state", QStringLiteral("playing")), QStringLiteral("playing"));
    ASSERT_FALSE(runner.nextLine([](const QJsonObject& o) {
        return o.value(QStringLiteral("event")).toString() == QLatin1String("sendPlayerIndex");
    }).isEmpty());
    EXPECT_EQ(state.waitFor(2, 7, "state", QStringLiteral("ended")), QStringLiteral("ended"));

    // Paused on its timer, then stopped half-way: stopped, not ended.
    send(runner, QStringLiteral("{\"op\": \"setDuration\", \"args\": [7, 2, 20000]}\n{\"op\": \"play\", \"args\": [%1]}\n")
                     .arg(layerRef(2, 7)));
    EXPECT_EQ(state.waitFor(2, 7, "state", QStringLiteral("playing")), QStringLiteral("playing"));
    send(runner, QStringLiteral("{\"op\": \"pause\", \"args\": [%1]}\n").arg(layerRef(2, 7)));
    EXPECT_EQ(state.waitFor(2, 7, "state", QStringLiteral("paused")), QStringLiteral("paused"));
    EXPECT_EQ(state.layer(2, 7).value(QStringLiteral("duration")).toInt(), 20000);
    send(runner, QStringLiteral("{\"op\": \"play\", \"args\": [%1]}\n").arg(layerRef(2, 7)));
    EXPECT_EQ(state.waitFor(2, 7, "state", QStringLiteral("playing")), QStringLiteral("playing"));
    send(runner, QStringLiteral("{\"op\": \"stop\", \"args\": [%1]}\n").arg(layerRef(2, 7)));
    EXPECT_EQ(state.waitFor(2, 7, "state", QStringLiteral("stopped")), QStringLiteral("stopped"));
    EXPECT_EQ(state.layer(2, 7).value(QStringLiteral("position")).toInt(), 0);
    send(runner, "{\"op\": \"quit\"}\n");
    EXPECT_EQ(runner.waitForExit(), 0);
}
