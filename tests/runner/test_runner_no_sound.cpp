// Layers readied and started together on a machine without a sound card or
// sound server, with the engine's default choice of audio output (no --ao):
// no crash, no hang, every layer plays. libmpv's own default order reaches
// SDL's audio, which several cores opening at once crash or hang in; the
// engine's list must never go there. bench/no_sound_soak.sh runs the same
// show 50 times per layer count.
#include "RunnerHarness.h"
#include "ShowText.h"

#include <QFile>
#include <QSet>
#include <gtest/gtest.h>

using namespace runner_test;

namespace {

constexpr int kRepeats = 5;

/// `layers` video layers with sound, readied together, then started together.
QString togetherShow(int layers, const QString& clip)
{
    QString show = openScreen(1, 320, 180);
    for (int layer = 1; layer <= layers; ++layer) {
        show += createLayer(1, layer, clip, QStringLiteral("video"));
        show += addRenderer(1, layer, 1, 0, 0, 320, 180, 640, 360);
    }
    show += step(QStringLiteral("setCurPlayerCount"), QStringLiteral("1"));
    for (int layer = 1; layer <= layers; ++layer)
        show += step(QStringLiteral("playReady"), layerRef(1, layer) + QStringLiteral(", 0, true"));
    show += waitFor(QStringLiteral("sPlayReady"), QStringLiteral("{\"bankId\": 1}"));
    for (int layer = 1; layer <= layers; ++layer)
        show += step(QStringLiteral("play"), layerRef(1, layer));
    show += QStringLiteral("{\"op\": \"wait\", \"ms\": 800}\n");
    return show;
}

void playTogetherWithTheDefaultAudio(int layers)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    const QString show = togetherShow(layers, mediaDir() + QStringLiteral("/clip.mp4"));
    for (int run = 1; run <= kRepeats; ++run) {
        const QString dir = freshWorkDir(QStringLiteral("no-sound-%1-layers").arg(layers));
        QFile file(dir + QStringLiteral("/show.jsonl"));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(show.toUtf8());
        file.close();
        // No --ao: the engine's own choice.
        const ShowRun result = runArgs({QStringLiteral("--no-progress"), file.fileName()}, dir, 30000);
        ASSERT_TRUE(result.finished) << "run " << run << " hung\n" << result.errText.right(3000).toStdString();
        ASSERT_EQ(result.exitCode, 0) << "run " << run << " crashed or failed\n"
                                      << result.errText.right(3000).toStdString();
        EXPECT_TRUE(result.errors().isEmpty()) << "run " << run;
        EXPECT_EQ(result.events().count(QStringLiteral("sPlayReady bankId=1")), 1) << "run " << run;
        // Every layer played: positions past the start from each.
        QSet<int> moved;
        for (const QJsonObject& line : result.lines) {
            if (line.value(QStringLiteral("event")) == QLatin1String("sPositionChanged")
                && line.value(QStringLiteral("position")).toDouble() >= 200)
                moved.insert(line.value(QStringLiteral("layerId")).toInt());
        }
        EXPECT_EQ(moved.size(), layers) << "run " << run;
        // The output in use is named once.
        EXPECT_EQ(result.errText.count(QStringLiteral("mpv: audio output \""))
                      + result.errText.count(QStringLiteral("mpv: no sound output could be opened")),
                  1)
            << "run " << run;
    }
}

TEST(RunnerNoSound, TwoLayersReadiedAndStartedTogether)
{
    playTogetherWithTheDefaultAudio(2);
}

TEST(RunnerNoSound, EightLayersReadiedAndStartedTogether)
{
    playTogetherWithTheDefaultAudio(8);
}

} // namespace
