// A play-ready that opens a new source loads it at the asked position in one
// step; nothing else changes by that: repeats start their passes where they
// did, stop goes to the start position, and sources opened later start at the
// start position.
#include "EngineFixture.h"

using QtAV::AVPlayer;

TEST_F(EngineTest, RepeatsAfterAReadyOnANewSourceStartFromTheStartPosition)
{
    AVPlayer* player = newPlayer();
    player->setRepeat(1);
    QSignalSpy ready(player, &AVPlayer::playReadySucess);
    QSignalSpy pos(player, &AVPlayer::positionChanged);
    QSignalSpy stopped(player, &AVPlayer::stopped);
    player->playReady(EngineMedia::clip(), 1500, false);
    ASSERT_TRUE(waitFor(ready));
    ASSERT_TRUE(waitFor(stopped));
    const QList<qint64> list = positions(pos);
    ASSERT_EQ(restarts(list), 1);
    // The second pass ran from the start (0), through 1000 ms.
    qint64 lowest = 10000;
    bool passedOneSecond = false;
    for (int i = 1; i < list.size(); ++i) {
        if (list[i] + 200 < list[i - 1] || lowest < 10000) {
            lowest = std::min(lowest, list[i]);
            passedOneSecond = passedOneSecond || (list[i] >= 1000 && list[i] < 1400);
        }
    }
    EXPECT_LE(lowest, 300);
    EXPECT_TRUE(passedOneSecond);
}

TEST_F(EngineTest, ReadyOnANewSourceKeepsTheStartPositionForLaterSources)
{
    AVPlayer* player = newPlayer();
    player->setStartPosition(500);
    QSignalSpy ready(player, &AVPlayer::playReadySucess);
    player->playReady(EngineMedia::clip(), 1600, true);
    ASSERT_TRUE(waitFor(ready));
    EXPECT_NEAR(propDouble(player, "time-pos"), 1.6, 0.021);
    // A stop goes back to the start position.
    player->stop();
    EXPECT_TRUE(waitUntil([&] { return qAbs(propDouble(player, "time-pos") - 0.5) < 0.021; }))
        << "time-pos " << prop(player, "time-pos").toStdString();
    // A source opened later starts at the start position, also after the
    // start position changed while the ready source was open.
    player->setStartPosition(700);
    QSignalSpy loaded(player, &AVPlayer::loaded);
    player->setFile(EngineMedia::clip());
    ASSERT_TRUE(waitFor(loaded));
    EXPECT_TRUE(waitUntil([&] { return qAbs(propDouble(player, "time-pos") - 0.7) < 0.021; }))
        << "time-pos " << prop(player, "time-pos").toStdString();
}

TEST_F(EngineTest, ReadyBeyondTheEndOfANewSourceIsReady)
{
    AVPlayer* player = newPlayer();
    QSignalSpy ready(player, &AVPlayer::playReadySucess);
    QSignalSpy loaded(player, &AVPlayer::loaded);
    QSignalSpy errors(player, &AVPlayer::mediaError);
    player->playReady(EngineMedia::clip(), 5000, true);
    EXPECT_TRUE(waitFor(ready, 1, 5000));
    EXPECT_EQ(loaded.count(), 1);
    EXPECT_TRUE(errors.isEmpty());
}

TEST_F(EngineTest, ReadyOnANewSourceThenAnotherKeepsBothPositions)
{
    AVPlayer* player = newPlayer();
    QSignalSpy ready(player, &AVPlayer::playReadySucess);
    QSignalSpy loaded(player, &AVPlayer::loaded);
    player->playReady(EngineMedia::clip(), 1200, true);
    ASSERT_TRUE(waitFor(ready));
    EXPECT_NEAR(propDouble(player, "time-pos"), 1.2, 0.021);
    // The same source: a seek, no load.
    player->playReady(EngineMedia::clip(), 300, true);
    ASSERT_TRUE(waitFor(ready, 2));
    EXPECT_NEAR(propDouble(player, "time-pos"), 0.3, 0.021);
    EXPECT_EQ(loaded.count(), 1);
    // Opened again from its start: nothing of the earlier position is left.
    QSignalSpy loaded2(player, &AVPlayer::loaded);
    player->setFile(EngineMedia::clip());
    ASSERT_TRUE(waitFor(loaded2));
    EXPECT_TRUE(waitUntil([&] { return qAbs(propDouble(player, "time-pos")) < 0.03; }))
        << "time-pos " << prop(player, "time-pos").toStdString();
}
