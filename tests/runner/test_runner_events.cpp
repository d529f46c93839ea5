// The runner prints the module's events in the order they happen: shows
// whose events are sequenced by waitFor give an exact, repeatable sequence
// (positions and timestamps left out).
#include "RunnerHarness.h"
#include "ShowText.h"

#include <QJsonDocument>
#include <gtest/gtest.h>

using namespace runner_test;

namespace {

TEST(RunnerEvents, StillAndClipLifeGivesExactEventSequence)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    const QString dir = freshWorkDir(QStringLiteral("events-life"));
    QString show;
    show += openScreen(1);
    show += createLayer(1, 1, QStringLiteral("${media}/still-a.png"), QStringLiteral("picture"), 500);
    show += addRenderer(1, 1, 1, 100, 50, 200, 100, 320, 180);
    show += createLayer(1, 2, QStringLiteral("${media}/clip.mp4"), QStringLiteral("video"), 4000);
    show += addRenderer(1, 2, 1, 0, 0, 640, 360, 640, 360);
    show += step(QStringLiteral("setCurPlayerCount"), QStringLiteral("1"));
    show += step(QStringLiteral("playReady"), layerRef(1, 1) + QStringLiteral(", 0, true"));
    show += waitFor(QStringLiteral("sendLoadAllComple"), QStringLiteral("{\"layerId\": 1}"));
    show += step(QStringLiteral("playReady"), layerRef(1, 2) + QStringLiteral(", 0, true"));
    show += waitFor(QStringLiteral("sPlayReady"), QStringLiteral("{\"bankId\": 1}"));
    // The still plays one 500 ms pass on its timer.
    show += step(QStringLiteral("play"), layerRef(1, 1));
    show += waitFor(QStringLiteral("sendPlayerIndex"), QStringLiteral("{\"layerId\": 1, \"bankId\": 1}"));
    // The clip fades in, then out, then is sought close to its end.
    show += step(QStringLiteral("setFadeInOut"), layerRef(1, 2) + QStringLiteral(", false, 300"));
    show += step(QStringLiteral("play"), layerRef(1, 2));
    show += waitFor(QStringLiteral("sFadeinFinished"));
    show += step(QStringLiteral("setFadeInOut"), layerRef(1, 2) + QStringLiteral(", true, 300"));
    show += waitFor(QStringLiteral("sFadeoutFinished"));
    show += step(QStringLiteral("setPosition"), QStringLiteral("1, 2, 3500"));
    show += waitFor(QStringLiteral("sendPlayerIndex"), QStringLiteral("{\"layerId\": 2}"));
    show += step(QStringLiteral("deleteplayerByID"), QStringLiteral("{\"bankId\": 1, \"layerId\": 1}"));
    show += step(QStringLiteral("deleteplayerByID"), QStringLiteral("{\"bankId\": 1, \"layerId\": 2}"));
    // The bank is empty now: ready at once.
    show += step(QStringLiteral("setCurPlayerCount"), QStringLiteral("1"));
    show += QStringLiteral("{\"op\": \"quit\"}\n");

    const ShowRun run = runShow(dir, show);
    ASSERT_TRUE(run.finished) << run.errText.toStdString();
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.badLines.isEmpty()) << run.badLines.join('\n').toStdString();
    EXPECT_TRUE(run.errors().isEmpty())
        << QJsonDocument(run.errors().value(0)).toJson().toStdString();
    EXPECT_EQ(run.events(), QStringList({
                                "sendLoadAllComple layerId=1",
                                "sendLoadAllComple layerId=2",
                                "sPlayReady bankId=1",
                                "sendPlayerIndex bankId=1 layerId=1",
                                "sFadeinFinished",
                                "sFadeoutFinished",
                                "sendPlayerIndex bankId=1 layerId=2",
                                "sPlayReady bankId=1",
                            }));
    // Every step was answered, in order, once.
    QList<int> answered;
    for (const QJsonObject& ok : run.oks())
        answered << ok.value(QStringLiteral("line")).toInt();
    QList<int> expected;
    for (int line = 1; line <= show.count(QLatin1Char('\n')); ++line)
        expected << line;
    EXPECT_EQ(answered, expected);
}

TEST(RunnerEvents, PositionsCarryLayerBankAndPositionAndCanBeThinned)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    const QString show = openScreen(1)
        + createLayer(2, 3, QStringLiteral("${media}/clip.mp4"), QStringLiteral("video"))
        + step(QStringLiteral("setCurPlayerCount"), QStringLiteral("2"))
        + step(QStringLiteral("playReady"), layerRef(2, 3) + QStringLiteral(", 0, false"))
        + waitFor(QStringLiteral("sPlayReady"))
        + QStringLiteral("{\"op\": \"wait\", \"ms\": 1500}\n{\"op\": \"quit\"}\n");

    const ShowRun all = runShow(freshWorkDir(QStringLiteral("events-positions")), show);
    ASSERT_TRUE(all.finished);
    const ShowRun thinned = runShow(freshWorkDir(QStringLiteral("events-thinned")), show,
                                    {QStringLiteral("--position-interval"), QStringLiteral("1000")});
    ASSERT_TRUE(thinned.finished);

    QList<QJsonObject> positions;
    for (const QJsonObject& line : all.lines) {
        if (line.value(QStringLiteral("event")) == QLatin1String("sPositionChanged"))
            positions << line;
    }
    ASSERT_GE(positions.size(), 2); // about every 100 ms while it plays
    for (const QJsonObject& p : positions) {
        EXPECT_EQ(p.value(QStringLiteral("layerId")).toInt(), 3);
        EXPECT_EQ(p.value(QStringLiteral("bankId")).toInt(), 2);
        EXPECT_TRUE(p.value(QStringLiteral("position")).isDouble());
        EXPECT_EQ(p.keys(), QStringList({"bankId", "event", "layerId", "position", "t"}));
    }
    // Thinned: the printed positions of the layer are at least 1000 ms apart.
    QList<double> times;
    for (const QJsonObject& line : thinned.lines) {
        if (line.value(QStringLiteral("event")) == QLatin1String("sPositionChanged"))
            times << line.value(QStringLiteral("t")).toDouble();
    }
    ASSERT_GE(times.size(), 1);
    for (int i = 1; i < times.size(); ++i)
        EXPECT_GE(times.at(i) - times.at(i - 1), 1000.0);
    // The other events are the same either way.
    EXPECT_EQ(all.events(), thinned.events());
}

} // namespace
