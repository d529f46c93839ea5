// isRunning: whether the current run is to go on, told apart from the play
// state, which an ending loop keeps at playing for a moment.
#include "TimerRecorder.h"

#include <gtest/gtest.h>

namespace {

constexpr int kLayer = 4;
constexpr int kBank = 3;

TEST(TimerRunning, FollowsStartStopAndPause)
{
    RecordedTimer t(kLayer, kBank, 100000);
    EXPECT_FALSE(t.timer->isRunning());

    t.timer->startThread();
    EXPECT_TRUE(t.timer->isRunning()); // from startThread on, before the loop begins
    ASSERT_TRUE(t.rec.waitForReports(0, 1));

    t.timer->stopTimer();
    EXPECT_FALSE(t.timer->isRunning()); // at once, while the loop may still end
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));
    EXPECT_FALSE(t.timer->isRunning());

    t.timer->startThread();
    EXPECT_TRUE(t.timer->isRunning());
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Started, 2));
    t.timer->pauseTimer(true);
    EXPECT_FALSE(t.timer->isRunning());
    EXPECT_EQ(t.timer->getPlayState(), 1202);
}

TEST(TimerRunning, StartRightAfterAStopReplacesTheEndingRun)
{
    RecordedTimer t(kLayer, kBank, 100000);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForReports(0, 1));

    // The stopped loop may still read as playing; a start joins it, and the
    // old run's stop comes before the new run's start.
    t.timer->stopTimer();
    t.timer->startThread();
    EXPECT_TRUE(t.timer->isRunning());
    EXPECT_EQ(t.timer->getPlayState(), 1201);
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Started, 2));
    const int secondStart = indexOf(t.rec.events(), TimerEvent::Started, 1);
    ASSERT_GE(secondStart, 0);
    ASSERT_TRUE(t.rec.waitForReports(static_cast<size_t>(secondStart), 1));
    EXPECT_EQ(stateSignalsOf(t.rec.events()), QStringLiteral("started stopped started"));
}

} // namespace
