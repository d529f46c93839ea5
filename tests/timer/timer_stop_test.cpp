// Stopping: who reports the stop in which state, and where progress is left.
#include "TimerRecorder.h"

#include <gtest/gtest.h>

namespace {

constexpr int kLayer = 5;
constexpr int kBank = 2;

TEST(TimerStop, StopOnAPausedTimerReportsStoppedAtOnce)
{
    RecordedTimer t(kLayer, kBank, 100000);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForReports(0, 1));
    t.timer->pauseTimer(true);

    t.timer->stopTimer();
    // Reported by stopTimer itself, on the caller's thread, before it returns.
    TimerEvents ev = t.rec.events();
    ASSERT_EQ(ev.back().kind, TimerEvent::Stopped);
    EXPECT_EQ(ev.back().thread, std::this_thread::get_id());
    EXPECT_EQ(t.timer->getPlayState(), 1200);
    EXPECT_EQ(t.timer->getCurrProgress(), 0);

    t.destroy(); // joins the paused loop: it must not report a second stop
    ev = t.rec.events();
    EXPECT_TRUE(shapeMatches(ev, "started( p)+ paused\\(true\\)( p)? stopped")) << shapeOf(ev).toStdString();
    EXPECT_TRUE(allFrom(ev, kLayer, kBank));
}

TEST(TimerStop, StopOnAPlayingTimerIsReportedByTheLoop)
{
    RecordedTimer t(kLayer, kBank, 100000);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForReports(0, 1));

    t.timer->stopTimer();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));
    EXPECT_EQ(t.timer->getPlayState(), 1200);

    t.destroy();
    const TimerEvents ev = t.rec.events();
    EXPECT_TRUE(shapeMatches(ev, "started( p)+ stopped")) << shapeOf(ev).toStdString();
    EXPECT_TRUE(allFrom(ev, kLayer, kBank));
    // From the loop's thread, not from the caller of stopTimer.
    EXPECT_EQ(ev.back().thread, ev.front().thread);
    EXPECT_NE(ev.back().thread, std::this_thread::get_id());
}

TEST(TimerStop, StopOnAStoppedTimerEmitsNothing)
{
    RecordedTimer t(kLayer, kBank, 0);
    t.timer->setProgressTimer(700);
    t.timer->stopTimer();
    EXPECT_TRUE(t.rec.events().empty());
    EXPECT_EQ(t.timer->getPlayState(), 1200);
    EXPECT_EQ(t.timer->getCurrProgress(), 0); // the stop still resets the position

    // Also once a run has ended by itself.
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));
    const size_t mark = t.rec.size();
    t.timer->stopTimer();
    t.destroy();
    EXPECT_EQ(t.rec.size(), mark);
}

// stopTimer resets the start time; the loop's last tick then measures from
// it, so the progress left behind is the few milliseconds of that tick (or 0
// when the tick had already measured), and the next run starts from there.
TEST(TimerStop, StopOnAPlayingTimerLeavesTheLastTickAndTheNextRunStartsThere)
{
    RecordedTimer t(kLayer, kBank, 100000);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForReports(0, 3));

    const auto stopCall = std::chrono::steady_clock::now();
    t.timer->stopTimer();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));
    TimerEvents ev = t.rec.events();
    const double stopToReport =
        std::chrono::duration<double, std::milli>(ev.back().at - stopCall).count();

    const qint64 left = t.timer->getCurrProgress();
    EXPECT_GE(left, 0);
    EXPECT_LE(left, stopToReport + 1);
    EXPECT_LT(left, reports(ev).back()); // not the position before the stop

    const size_t mark = t.rec.size();
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForReports(mark, 1));
    ev = since(t.rec.events(), mark);
    ASSERT_EQ(ev.front().kind, TimerEvent::Started);
    EXPECT_EQ(ev.front().value, left);
    EXPECT_GE(reports(ev).front(), left + 20);
}

} // namespace
