// Seeking with setProgressTimer, while playing, paused and stopped.
#include "TimerRecorder.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

constexpr int kLayer = 6;
constexpr int kBank = 1;

TEST(TimerSeek, SeekBeyondTheDurationEndsThePassOnTheNextTick)
{
    RecordedTimer t(kLayer, kBank, 3000);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForReports(0, 1));

    const size_t mark = t.rec.size();
    t.timer->setProgressTimer(5000);
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));

    // A reporting tick that had measured just before the seek may still go
    // out (with the old value or with 5000); the tick after it ends the pass,
    // long before the 3000 ms of the item.
    const TimerEvents ev = since(t.rec.events(), mark);
    EXPECT_TRUE(shapeMatches(ev, "(p )?0 stopped")) << shapeOf(ev).toStdString();
    for (qint64 v : reports(ev))
        EXPECT_TRUE(v < 3000 || v == 5000) << v;
    EXPECT_EQ(t.timer->getCurrProgress(), 0);
    EXPECT_EQ(t.timer->getPlayState(), 1200);
}

TEST(TimerSeek, SeekWhilePlayingContinuesFromTheNewPosition)
{
    RecordedTimer t(kLayer, kBank, 100000);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForReports(0, 1));

    t.timer->setProgressTimer(50000);
    EXPECT_EQ(t.timer->getCurrProgress(), 50000);
    const size_t mark = t.rec.size();
    ASSERT_TRUE(t.rec.waitForReports(mark, 2));

    // The first report after the call may have been measured before it.
    const std::vector<qint64> after = reports(since(t.rec.events(), mark));
    EXPECT_GE(after[1], 50000 + 20);
    EXPECT_LT(after[1], 100000);
}

TEST(TimerSeek, SeekToTheLargestPositionEndsThePassWithoutOverflow)
{
    RecordedTimer t(kLayer, kBank, 3000);
    t.timer->setProgressTimer(std::numeric_limits<qint64>::max());
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));
    EXPECT_EQ(shapeOf(t.rec.events()), "started 0 stopped");
    EXPECT_EQ(t.rec.events().front().value, std::numeric_limits<qint64>::max());
}

TEST(TimerSeek, SeekOnAStoppedTimerStartsTheNextRunThere)
{
    const qint64 duration = 1000;
    RecordedTimer t(kLayer, kBank, duration);
    t.timer->setProgressTimer(700);
    EXPECT_EQ(t.timer->getCurrProgress(), 700);
    EXPECT_TRUE(t.rec.events().empty());

    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));
    const TimerEvents ev = t.rec.events();
    EXPECT_TRUE(shapeMatches(ev, "started( p)* 0 stopped")) << shapeOf(ev).toStdString();
    EXPECT_EQ(ev.front().value, 700);
    for (qint64 v : reports(ev)) {
        EXPECT_GE(v, 720);
        EXPECT_LT(v, duration);
    }
    // Only the remaining 300 ms are played.
    EXPECT_GE(msBetween(ev.front(), ev.back()), 300 - 1);
}

TEST(TimerSeek, SeekOnAPausedTimerMovesTheResumePoint)
{
    RecordedTimer t(kLayer, kBank, 100000);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForReports(0, 2));
    t.timer->pauseTimer(true);

    const auto seekCall = std::chrono::steady_clock::now();
    t.timer->setProgressTimer(250);
    const size_t mark = t.rec.size();
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForReports(mark, 1));

    const TimerEvents ev = since(t.rec.events(), mark);
    const int resumed = indexOf(ev, TimerEvent::Started);
    ASSERT_GE(resumed, 0);
    // The paused loop may still finish its tick after the seek, measuring a
    // few milliseconds from it; the resume point is 250 plus at most that.
    const TimerEvent& start = ev[static_cast<size_t>(resumed)];
    const double seekToStart = std::chrono::duration<double, std::milli>(start.at - seekCall).count();
    EXPECT_GE(start.value, 250);
    EXPECT_LE(start.value, 250 + seekToStart + 1);
    EXPECT_GE(reports(since(ev, static_cast<size_t>(resumed))).front(), start.value + 20);
}

} // namespace
