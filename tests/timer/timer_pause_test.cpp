// Pausing keeps the position; resuming is a new run from it.
#include "TimerRecorder.h"

#include <gtest/gtest.h>

namespace {

constexpr int kLayer = 4;
constexpr int kBank = 9;

TEST(TimerPause, PauseKeepsPositionAndNextRunFinishesTheRestOfThePass)
{
    const qint64 duration = 1000;
    RecordedTimer t(kLayer, kBank, duration);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitUntil([](const TimerEvents& e) {
        const auto v = reports(e);
        return !v.empty() && v.back() >= 300;
    }));

    t.timer->pauseTimer(true);
    // paused() is emitted by the caller, at once.
    TimerEvents ev = t.rec.events();
    ASSERT_EQ(ev.back().kind, TimerEvent::Paused);
    EXPECT_EQ(ev.back().value, 1);
    EXPECT_EQ(ev.back().thread, std::this_thread::get_id());
    EXPECT_EQ(t.timer->getPlayState(), 1202);
    const qint64 lastBeforePause = reports(ev).back();

    const size_t mark = t.rec.size();
    t.timer->startThread(); // joins the paused loop, then resumes
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));

    ev = t.rec.events();
    EXPECT_TRUE(allFrom(ev, kLayer, kBank));
    // The paused loop ended without a stop report; the second run plays
    // the rest of the pass.
    EXPECT_TRUE(shapeMatches(ev, "started( p)+ paused\\(true\\)( p)? started( p)* 0 stopped"))
        << shapeOf(ev).toStdString();

    const int second = indexOf(ev, TimerEvent::Started, mark);
    ASSERT_GT(second, 0);
    const TimerEvent& resumed = ev[static_cast<size_t>(second)];
    const qint64 base = resumed.value; // the position the second run began at
    EXPECT_GE(base, lastBeforePause);
    EXPECT_LT(base, duration);

    const std::vector<qint64> after = reports(since(ev, static_cast<size_t>(second)));
    if (!after.empty()) {
        const int firstReport = indexOf(ev, TimerEvent::Progress, static_cast<size_t>(second));
        EXPECT_GE(after.front(), base + 20);
        EXPECT_LE(after.front(), base + msBetween(resumed, ev[static_cast<size_t>(firstReport)]) + 1);
        for (qint64 v : after)
            EXPECT_LT(v, duration);
    }
    // The pass ends only when the rest of it has gone by.
    const int end = indexOf(ev, TimerEvent::Stopped);
    EXPECT_GE(msBetween(resumed, ev[static_cast<size_t>(end)]), double(duration - base) - 1);
    EXPECT_EQ(countOf(ev, TimerEvent::Stopped), 1);
}

TEST(TimerPause, PauseFalseOnlyReportsAndThePlayingTimerGoesOn)
{
    RecordedTimer t(kLayer, kBank, 100000);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForReports(0, 1));

    const size_t mark = t.rec.size();
    t.timer->pauseTimer(false);
    EXPECT_EQ(t.timer->getPlayState(), 1201);
    const size_t afterPause = t.rec.size();
    ASSERT_TRUE(t.rec.waitForReports(afterPause, 2));
    EXPECT_EQ(t.timer->getPlayState(), 1201);

    const TimerEvents ev = since(t.rec.events(), mark);
    EXPECT_EQ(stateSignalsOf(ev), "paused(false)");
    EXPECT_TRUE(allFrom(ev, kLayer, kBank));
}

TEST(TimerPause, PauseFalseOnAStoppedTimerOnlyReports)
{
    RecordedTimer t(kLayer, kBank, 1000);
    t.timer->pauseTimer(false);
    const TimerEvents ev = t.rec.events();
    EXPECT_EQ(shapeOf(ev), "paused(false)");
    EXPECT_TRUE(allFrom(ev, kLayer, kBank));
    EXPECT_EQ(t.timer->getPlayState(), 1200);
}

} // namespace
