// Creating and destroying timers in every state, many at a time: each
// destruction returns, leaves a balanced record, and (under the sanitizers)
// touches no freed memory and races with nothing.
#include "TestSupport.h"
#include "TimerRecorder.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

enum class Situation { NeverStarted, JustStarted, Playing, Paused, Stopped, RanOut };

const Situation kSituations[] = {Situation::NeverStarted, Situation::JustStarted, Situation::Playing,
                                 Situation::Paused, Situation::Stopped, Situation::RanOut};

void bringInto(RecordedTimer& t, Situation s)
{
    switch (s) {
    case Situation::NeverStarted:
        break;
    case Situation::JustStarted:
        t.timer->startThread();
        break;
    case Situation::Playing:
        t.timer->startThread();
        ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Started, 1));
        break;
    case Situation::Paused:
        t.timer->startThread();
        ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Started, 1));
        t.timer->pauseTimer(true);
        break;
    case Situation::Stopped:
        t.timer->startThread();
        ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Started, 1));
        t.timer->stopTimer();
        break;
    case Situation::RanOut:
        t.timer->setDuration(0);
        t.timer->startThread();
        ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));
        break;
    }
}

// What a timer has reported once it is gone: every run that was not paused
// ended with a stop report, and nothing came after it.
void expectBalancedRecord(const TimerEvents& ev, Situation s, int layerId)
{
    SCOPED_TRACE(layerId);
    EXPECT_TRUE(allFrom(ev, layerId, 40));
    switch (s) {
    case Situation::NeverStarted:
        EXPECT_TRUE(ev.empty());
        break;
    case Situation::Paused:
        EXPECT_EQ(stateSignalsOf(ev), "started paused(true)");
        break;
    default:
        EXPECT_EQ(stateSignalsOf(ev), "started stopped");
        break;
    }
}

TEST(TimerLifetime, ManyTimersDestroyedInEveryStateEndCleanly)
{
    const int rounds = 6;
    std::vector<std::unique_ptr<RecordedTimer>> timers;
    std::vector<Situation> situations;
    for (int round = 0; round < rounds; ++round) {
        for (Situation s : kSituations) {
            const int layerId = static_cast<int>(timers.size());
            timers.push_back(std::make_unique<RecordedTimer>(layerId, 40, 100000));
            situations.push_back(s);
            bringInto(*timers.back(), s);
            ASSERT_FALSE(HasFatalFailure());
        }
    }
    // Destroy them as they are (no stop first), alternately from both ends.
    size_t lo = 0, hi = timers.size();
    while (lo < hi) {
        timers[lo++]->destroy();
        if (lo < hi)
            timers[--hi]->destroy();
    }
    for (size_t i = 0; i < timers.size(); ++i)
        expectBalancedRecord(timers[i]->rec.events(), situations[i], static_cast<int>(i));
}

TEST(TimerLifetime, TimersDeletedRightAfterStartDoNotHang)
{
    for (int i = 0; i < 200; ++i) {
        RecordedTimer t(i, 40, 100000);
        t.timer->setRepeat(1000);
        t.timer->startThread();
        t.destroy();
        expectBalancedRecord(t.rec.events(), Situation::JustStarted, i);
    }
}

TEST(TimerLifetime, ManyPlayingTimersDestroyedTogether)
{
    std::vector<std::unique_ptr<RecordedTimer>> timers;
    for (int i = 0; i < 32; ++i) {
        timers.push_back(std::make_unique<RecordedTimer>(i, 40, 100000));
        timers.back()->timer->startThread();
    }
    for (auto& t : timers)
        ASSERT_TRUE(t->rec.waitForReports(0, 1));
    for (auto& t : timers)
        t->destroy();
    for (size_t i = 0; i < timers.size(); ++i)
        expectBalancedRecord(timers[i]->rec.events(), Situation::Playing, static_cast<int>(i));
}

TEST(TimerLifetime, DestroyingAPlayingTimerLogsThatItStopsTheLoop)
{
    LogCapture log;
    RecordedTimer t(9, 40, 100000);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForReports(0, 1));
    t.destroy();
    EXPECT_EQ(log.count("PlayerTimer destroyed while playing"), 1);
    expectBalancedRecord(t.rec.events(), Situation::Playing, 9);

    // A timer that was stopped or paused first is destroyed silently.
    log.clear();
    RecordedTimer paused(9, 40, 100000);
    bringInto(paused, Situation::Paused);
    paused.destroy();
    RecordedTimer stopped(9, 40, 100000);
    bringInto(stopped, Situation::Stopped);
    ASSERT_TRUE(stopped.rec.waitForCount(TimerEvent::Stopped, 1));
    stopped.destroy();
    EXPECT_EQ(log.count("PlayerTimer destroyed while playing"), 0);
}

} // namespace
