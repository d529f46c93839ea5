// A stop or a pause that comes right after startThread, before the new loop
// has begun, still reaches the run: the item does not go on playing and the
// next startThread does not wait for a whole pass. (A pass of an hour makes a
// regression hang until the test's own time limit instead of passing.)
#include "TimerRecorder.h"

#include <gtest/gtest.h>

namespace {

constexpr qint64 kHour = 3600 * 1000;

TEST(TimerLaunch, StopRightAfterStartEndsTheRunWithItsStop)
{
    RecordedTimer t(3, 1, kHour);
    t.timer->startThread();
    EXPECT_EQ(t.timer->getPlayState(), 1201); // counts as playing at once
    t.timer->stopTimer();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));
    EXPECT_EQ(t.timer->getPlayState(), 1200);
    const TimerEvents events = t.rec.events();
    EXPECT_EQ(countOf(events, TimerEvent::Started), 1);
    EXPECT_EQ(countOf(events, TimerEvent::Stopped), 1);
    EXPECT_LT(indexOf(events, TimerEvent::Started), indexOf(events, TimerEvent::Stopped));
    // The next run starts without waiting for the hour-long pass.
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Started, 2));
    t.timer->stopTimer();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 2));
}

TEST(TimerLaunch, PauseRightAfterStartHoldsTheRunWithoutStop)
{
    RecordedTimer t(4, 2, kHour);
    t.timer->startThread();
    t.timer->pauseTimer(true);
    EXPECT_EQ(t.timer->getPlayState(), 1202);
    // Resuming joins the paused run at once and plays again.
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Started, 2));
    EXPECT_EQ(countOf(t.rec.events(), TimerEvent::Stopped), 0);
    EXPECT_EQ(t.timer->getPlayState(), 1201);
    t.timer->stopTimer();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));
    EXPECT_EQ(t.timer->getPlayState(), 1200);
}

} // namespace
