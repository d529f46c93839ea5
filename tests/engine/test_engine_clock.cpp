// The external clock on the libmpv engine: the player follows the host's time.
#include "EngineFixture.h"

#include "MpvClock.h"

using QtAV::AVPlayer;
using QtAV::MpvClock;

TEST(EngineClockRule, SmallDriftChangesSpeedLargeJumpSeeks)
{
    EXPECT_TRUE(MpvClock::follow(2000, 1000).seek);
    EXPECT_TRUE(MpvClock::follow(1000, 2000).seek);
    EXPECT_FALSE(MpvClock::follow(1100, 1000).seek);
    EXPECT_GT(MpvClock::follow(1100, 1000).speed, 1.0);  // late: faster
    EXPECT_LT(MpvClock::follow(1000, 1100).speed, 1.0);  // early: slower
    EXPECT_EQ(MpvClock::follow(1005, 1000).speed, 1.0);  // close enough
    EXPECT_LE(MpvClock::follow(1249, 1000).speed, 1.0 + MpvClock::kMaxCorrection);
}

TEST_F(EngineTest, ExternalClockJumpSeeksAndDriftBendsSpeed)
{
    AVPlayer* player = loadedPlayer();
    QSignalSpy pos(player, &AVPlayer::positionChanged);
    player->masterClock()->setClockType(QtAV::AVClock::ExternalClock);
    player->pause(false);
    ASSERT_TRUE(waitUntil([&] { return !pos.isEmpty(); }));

    player->masterClock()->updateExternalClock(1500);
    EXPECT_TRUE(waitUntil([&] { return player->position() >= 1450; }))
        << "position " << player->position();

    // A little ahead of the player: it plays faster for a while.
    player->masterClock()->updateExternalClock(player->position() + 100);
    EXPECT_TRUE(waitUntil([&] { return propDouble(player, "speed") > 1.0; }))
        << "speed " << prop(player, "speed").toStdString();

    // Back to the player's own clock: normal speed.
    player->masterClock()->setClockType(QtAV::AVClock::AudioClock);
    EXPECT_TRUE(waitUntil([&] { return qAbs(propDouble(player, "speed") - 1.0) < 1e-6; }));
}

TEST_F(EngineTest, ExternalClockIsIgnoredOnTheOwnClock)
{
    AVPlayer* player = loadedPlayer();
    player->masterClock()->updateExternalClock(1500);
    QTest::qWait(200);
    EXPECT_LT(propDouble(player, "time-pos"), 0.1);
}
