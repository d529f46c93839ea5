// Transport on the libmpv engine: open, play, end, repeat, seek, bounds,
// play-ready, stop and reset, checked through the AVPlayer API.
#include "EngineFixture.h"

using QtAV::AVPlayer;

TEST_F(EngineTest, OpenLoadsPausedAndReportsTheStreamFigures)
{
    LogCapture log;
    AVPlayer* player = loadedPlayer();
    const QtAV::PlayerStatistics stats = player->statistics();
    EXPECT_NEAR(stats.video.frame_rate, 25.0, 0.5);
    EXPECT_EQ(stats.video.width, 160);
    EXPECT_EQ(stats.video.height, 90);
    EXPECT_EQ(prop(player, "pause"), QStringLiteral("yes"));
    EXPECT_TRUE(waitUntil([&] { return log.count(QStringLiteral("mpv decoder:")) >= 1; }));
    EXPECT_EQ(player->statistics().video.decoder, QStringLiteral("FFmpeg"));
}

TEST_F(EngineTest, PlayReportsRisingPositionsAndTheEndOnce)
{
    AVPlayer* player = loadedPlayer();
    QSignalSpy pos(player, &AVPlayer::positionChanged);
    QSignalSpy stopped(player, &AVPlayer::stopped);
    player->pause(false);
    ASSERT_TRUE(waitFor(stopped));
    const QList<qint64> list = positions(pos);
    ASSERT_GE(list.size(), 5);
    for (int i = 1; i < list.size(); ++i)
        EXPECT_GE(list[i], list[i - 1]) << "at report " << i;
    EXPECT_GE(list.last(), 1500);
    // The held end is not reported again.
    QTest::qWait(500);
    EXPECT_EQ(stopped.count(), 1);
    EXPECT_EQ(prop(player, "eof-reached"), QStringLiteral("yes"));
}

TEST_F(EngineTest, RepeatTwoPlaysThreePassesWithinTheStopPosition)
{
    AVPlayer* player = loadedPlayer();
    player->setStopPosition(700);
    player->setRepeat(2);
    QSignalSpy pos(player, &AVPlayer::positionChanged);
    QSignalSpy stopped(player, &AVPlayer::stopped);
    player->pause(false);
    ASSERT_TRUE(waitFor(stopped));
    const QList<qint64> list = positions(pos);
    EXPECT_EQ(restarts(list), 2) << "positions: " << QStringList([&] {
        QStringList s;
        for (qint64 p : list) s << QString::number(p);
        return s;
    }()).join(',').toStdString();
    for (qint64 p : list)
        EXPECT_LE(p, 800);
    QTest::qWait(300);
    EXPECT_EQ(stopped.count(), 1);
}

TEST_F(EngineTest, StopPositionEndsThePassEarly)
{
    AVPlayer* player = loadedPlayer();
    player->setStopPosition(800);
    QSignalSpy pos(player, &AVPlayer::positionChanged);
    QSignalSpy stopped(player, &AVPlayer::stopped);
    player->pause(false);
    ASSERT_TRUE(waitFor(stopped));
    ASSERT_FALSE(pos.isEmpty());
    EXPECT_LE(positions(pos).last(), 850);
    EXPECT_NEAR(propDouble(player, "time-pos"), 0.8, 0.1);
}

TEST_F(EngineTest, SeekIsExactAndReportsThePositionAtOnce)
{
    AVPlayer* player = loadedPlayer();
    QSignalSpy pos(player, &AVPlayer::positionChanged);
    player->setPosition(1240);
    ASSERT_EQ(pos.count(), 1); // within the call
    EXPECT_EQ(pos.at(0).at(0).toLongLong(), 1240);
    EXPECT_TRUE(waitUntil([&] { return qAbs(propDouble(player, "time-pos") - 1.24) < 0.021; }))
        << "time-pos " << prop(player, "time-pos").toStdString();
    EXPECT_EQ(player->position(), 1240);
}

TEST_F(EngineTest, PlayReadyHoldsTheFrameAtThePositionThenPlays)
{
    AVPlayer* player = newPlayer();
    QSignalSpy ready(player, &AVPlayer::playReadySucess);
    QSignalSpy loaded(player, &AVPlayer::loaded);
    player->playReady(EngineMedia::clip(), 1000, true);
    ASSERT_TRUE(waitFor(ready));
    EXPECT_EQ(loaded.count(), 1);
    EXPECT_NEAR(propDouble(player, "time-pos"), 1.0, 0.021);
    EXPECT_EQ(prop(player, "pause"), QStringLiteral("yes"));
    EXPECT_EQ(player->position(), 1000);

    // The same source again: no new load, played from 400 ms.
    QSignalSpy pos(player, &AVPlayer::positionChanged);
    player->playReady(400, false);
    ASSERT_TRUE(waitFor(ready, 2));
    EXPECT_EQ(loaded.count(), 1);
    ASSERT_TRUE(waitUntil([&] { return !pos.isEmpty() && positions(pos).last() > 600; }));
    EXPECT_GE(positions(pos).first(), 400);
    EXPECT_EQ(prop(player, "pause"), QStringLiteral("no"));
}

TEST_F(EngineTest, PlayAfterTheEndStartsOverFromTheStartPosition)
{
    AVPlayer* player = loadedPlayer();
    player->setStartPosition(500);
    player->setStopPosition(1000);
    QSignalSpy stopped(player, &AVPlayer::stopped);
    player->pause(false);
    ASSERT_TRUE(waitFor(stopped));

    QSignalSpy pos(player, &AVPlayer::positionChanged);
    player->pause(false);
    ASSERT_TRUE(waitFor(stopped, 2));
    const QList<qint64> list = positions(pos);
    ASSERT_FALSE(list.isEmpty());
    EXPECT_GE(list.first(), 450);
    EXPECT_LT(list.first(), 900);
}

TEST_F(EngineTest, StopPausesAtTheStartAndReportsStopped)
{
    AVPlayer* player = loadedPlayer();
    QSignalSpy pos(player, &AVPlayer::positionChanged);
    player->pause(false);
    ASSERT_TRUE(waitUntil([&] { return !pos.isEmpty() && positions(pos).last() >= 300; }));
    QSignalSpy stopped(player, &AVPlayer::stopped);
    player->stop();
    EXPECT_EQ(stopped.count(), 1);
    EXPECT_TRUE(waitUntil([&] { return propDouble(player, "time-pos") >= 0
                                       && propDouble(player, "time-pos") < 0.05; }));
    EXPECT_EQ(prop(player, "pause"), QStringLiteral("yes"));
    QTest::qWait(300);
    EXPECT_EQ(stopped.count(), 1);
}

TEST_F(EngineTest, ResetPlayReturnsToTheStartPositionPaused)
{
    AVPlayer* player = loadedPlayer();
    player->setStartPosition(300);
    player->setPosition(1500);
    QSignalSpy pos(player, &AVPlayer::positionChanged);
    player->resetPlay(true);
    ASSERT_EQ(pos.count(), 1);
    EXPECT_EQ(pos.at(0).at(0).toLongLong(), 300);
    EXPECT_TRUE(waitUntil([&] { return qAbs(propDouble(player, "time-pos") - 0.3) < 0.021; }));
    EXPECT_EQ(prop(player, "pause"), QStringLiteral("yes"));
}
