// A stop, a pause or the destruction of a playing timer wakes its loop at
// once instead of leaving it to finish its 20 ms tick: the caller (the GUI
// thread) is never held for a tick. Many timers are ended one after another,
// so that waiting out even a part of each tick adds up far beyond the
// generous bound, while a woken loop ends in a fraction of a millisecond.
#include "TimerRecorder.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>

#include <memory>
#include <vector>

namespace {

constexpr qint64 kHour = 3600 * 1000;
constexpr int kTimers = 25;
// Functional bound for ending all kTimers runs. Waiting for the ticks takes
// about kTimers x 10 ms or more.
constexpr qint64 kAllEndedBoundMs = 100;

using Timers = std::vector<std::unique_ptr<RecordedTimer>>;

/// kTimers hour-long timers, all playing (their loops are in their ticks).
Timers playingTimers(int bankId)
{
    Timers timers;
    for (int i = 0; i < kTimers; ++i) {
        timers.push_back(std::make_unique<RecordedTimer>(i, bankId, kHour));
        timers.back()->timer->startThread();
    }
    for (auto& t : timers)
        EXPECT_TRUE(t->rec.waitForCount(TimerEvent::Progress, 1));
    return timers;
}

/// How many threads of this process carry a timer's name for the bank.
int timerThreadsOfBank(int bankId)
{
    int count = 0;
    const QString prefix = QStringLiteral("ktimer b%1 l").arg(bankId);
    const QStringList tasks =
        QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& task : tasks) {
        QFile comm(QStringLiteral("/proc/self/task/%1/comm").arg(task));
        if (comm.open(QIODevice::ReadOnly) && QString::fromLatin1(comm.readAll()).startsWith(prefix))
            ++count;
    }
    return count;
}

TEST(TimerWake, DestroyingPlayingTimersDoesNotWaitForTheirTicks)
{
    Timers timers = playingTimers(71);
    ASSERT_EQ(timerThreadsOfBank(71), kTimers);

    QElapsedTimer clock;
    clock.start();
    for (auto& t : timers)
        t->destroy(); // stops the loop and joins its thread
    const qint64 ms = clock.elapsed();

    EXPECT_LT(ms, kAllEndedBoundMs);
    EXPECT_EQ(timerThreadsOfBank(71), 0);
    for (auto& t : timers)
        EXPECT_EQ(stateSignalsOf(t->rec.events()), "started stopped");
}

TEST(TimerWake, StopEndsThePlayingLoopAtOnce)
{
    Timers timers = playingTimers(72);

    QElapsedTimer clock;
    clock.start();
    for (auto& t : timers) {
        t->timer->stopTimer();
        ASSERT_TRUE(t->rec.waitForCount(TimerEvent::Stopped, 1));
    }
    const qint64 ms = clock.elapsed();

    EXPECT_LT(ms, kAllEndedBoundMs);
    for (auto& t : timers)
        EXPECT_EQ(t->timer->getPlayState(), 1200);
}

TEST(TimerWake, ResumeAfterPauseDoesNotWaitForTheOldTick)
{
    Timers timers = playingTimers(73);

    // Resuming joins the paused run's loop; woken by the pause, it is gone
    // (or about to be) by then.
    QElapsedTimer clock;
    clock.start();
    for (auto& t : timers) {
        t->timer->pauseTimer(true);
        t->timer->startThread();
    }
    const qint64 ms = clock.elapsed();

    EXPECT_LT(ms, kAllEndedBoundMs);
    for (auto& t : timers) {
        ASSERT_TRUE(t->rec.waitForCount(TimerEvent::Started, 2));
        EXPECT_EQ(countOf(t->rec.events(), TimerEvent::Stopped), 0);
    }
}

TEST(TimerWake, ATickLongRunStillReportsOnItsFirstTickAndEnds)
{
    // The wait for a tick ends on the tick when nobody wakes the loop: a
    // one-pass item of 50 ms reports on tick 1 (20 ms in), then its end.
    RecordedTimer t(5, 74, 50);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));
    const TimerEvents events = t.rec.events();
    EXPECT_TRUE(shapeMatches(events, QStringLiteral("started (p )?0 stopped")))
        << shapeOf(events).toStdString();
    const int first = indexOf(events, TimerEvent::Progress);
    ASSERT_GE(first, 0);
    EXPECT_GE(msBetween(events.front(), events[first]), 15.0);
}

} // namespace
