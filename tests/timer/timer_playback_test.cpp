// A timer run from start to end: progress reports, pass ends, repeats and
// duration changes.
#include "TimerRecorder.h"

#include <gtest/gtest.h>

namespace {

constexpr int kLayer = 3;
constexpr int kBank = 7;

// Progress is measured on the monotonic clock after five sleeps of at least
// 20 ms each, so consecutive reports of one pass are at least 100 ms apart
// and the first one is at least 20 ms in. These are lower bounds that no
// machine load can break.
void expectReportSpacing(const std::vector<qint64>& values, qint64 from, qint64 duration)
{
    ASSERT_FALSE(values.empty());
    EXPECT_GE(values.front(), from + 20);
    for (size_t i = 1; i < values.size(); ++i)
        EXPECT_GE(values[i] - values[i - 1], 100) << "reports " << i - 1 << " and " << i;
    for (qint64 v : values)
        EXPECT_LT(v, duration);
}

TEST(TimerPlayback, SinglePassReportsProgressThenZeroThenStopped)
{
    RecordedTimer t(kLayer, kBank, 1000);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));

    const TimerEvents ev = t.rec.events();
    EXPECT_TRUE(shapeMatches(ev, "started( p)+ 0 stopped")) << shapeOf(ev).toStdString();
    EXPECT_TRUE(allFrom(ev, kLayer, kBank));
    EXPECT_EQ(ev.front().value, 0); // the run began at 0

    const std::vector<qint64> values = reports(ev);
    expectReportSpacing(values, 0, 1000);
    // At most ticks 1, 6, ..., 46 fall inside a 1000 ms pass.
    EXPECT_LE(values.size(), 10u);

    EXPECT_EQ(t.timer->getPlayState(), 1200);
    EXPECT_EQ(t.timer->getCurrProgress(), 0);
}

TEST(TimerPlayback, LoopSignalsComeFromTheTimerThread)
{
    RecordedTimer t(kLayer, kBank, 300);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));

    const TimerEvents ev = t.rec.events();
    ASSERT_GE(ev.size(), 3u);
    EXPECT_NE(ev.front().thread, std::this_thread::get_id());
    for (const TimerEvent& e : ev)
        EXPECT_EQ(e.thread, ev.front().thread);
}

TEST(TimerPlayback, RepeatTwoPlaysThreePassesEachEndingWithZero)
{
    const qint64 duration = 500;
    RecordedTimer t(kLayer, kBank, duration);
    t.timer->setRepeat(2);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));

    const TimerEvents ev = t.rec.events();
    // A pass end reports 0; when another pass follows and the tick is a
    // reporting tick, 0 comes twice. The last pass end comes once.
    EXPECT_TRUE(shapeMatches(ev, "started( p)+( 0){1,2}( p)+( 0){1,2}( p)+ 0 stopped"))
        << shapeOf(ev).toStdString();
    EXPECT_TRUE(allFrom(ev, kLayer, kBank));

    // Each pass counts from 0 again.
    std::vector<qint64> pass;
    int passes = 0;
    for (size_t i = 1; i < ev.size(); ++i) {
        if (ev[i].kind != TimerEvent::Progress)
            continue;
        if (ev[i].value != 0) {
            pass.push_back(ev[i].value);
        } else if (!pass.empty()) {
            expectReportSpacing(pass, 0, duration);
            pass.clear();
            ++passes;
        }
    }
    EXPECT_EQ(passes, 3);
    EXPECT_EQ(t.timer->getPlayState(), 1200);
}

// With a zero duration every tick ends a pass, which pins the reporting
// ticks down exactly: tick 1 ends pass 1 and reports (0 twice), ticks 2 to 5
// end a pass each, tick 6 ends pass 6 and reports again (0 twice), and tick 7
// ends the seventh and last pass.
TEST(TimerPlayback, ZeroDurationEndsAPassEveryTickAndReportsOnTicksOneAndSix)
{
    RecordedTimer t(kLayer, kBank, 0);
    t.timer->setRepeat(6);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));

    const TimerEvents ev = t.rec.events();
    EXPECT_EQ(shapeOf(ev), "started 0 0 0 0 0 0 0 0 0 stopped");
    EXPECT_TRUE(allFrom(ev, kLayer, kBank));
}

TEST(TimerPlayback, NegativeDurationEndsTheFirstPassInTheFirstTick)
{
    RecordedTimer t(kLayer, kBank, -5);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));
    EXPECT_EQ(shapeOf(t.rec.events()), "started 0 stopped");
}

// repeatDone is reset only by setRepeat: once the passes are used up, a
// fresh run plays a single pass.
TEST(TimerPlayback, FreshRunAfterRepeatsUsedUpPlaysOnePassUntilSetRepeat)
{
    RecordedTimer t(kLayer, kBank, 0);
    t.timer->setRepeat(1);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));
    EXPECT_EQ(shapeOf(t.rec.events()), "started 0 0 0 stopped");

    size_t mark = t.rec.size();
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 2));
    EXPECT_EQ(shapeOf(since(t.rec.events(), mark)), "started 0 stopped");

    mark = t.rec.size();
    t.timer->setRepeat(1);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 3));
    EXPECT_EQ(shapeOf(since(t.rec.events(), mark)), "started 0 0 0 stopped");
}

TEST(TimerPlayback, DurationChangeTakesEffectOnTheNextTick)
{
    RecordedTimer t(kLayer, kBank, 100000);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForReports(0, 1));

    const size_t mark = t.rec.size();
    t.timer->setDuration(1);
    EXPECT_EQ(t.timer->getDuration(), 1);
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));

    // A report computed just before the change may still go out; then the
    // next tick ends the pass.
    EXPECT_TRUE(shapeMatches(since(t.rec.events(), mark), "(p )?0 stopped"))
        << shapeOf(t.rec.events()).toStdString();
}

TEST(TimerPlayback, NewTimerIsStoppedAtZeroWithItsDuration)
{
    UI_Proc_KELMOR_PlayerTimer_Desktop timer(kLayer, kBank, 2500);
    EXPECT_EQ(timer.getPlayState(), 1200);
    EXPECT_EQ(timer.getCurrProgress(), 0);
    EXPECT_EQ(timer.getDuration(), 2500);
    timer.setDuration(-1);
    EXPECT_EQ(timer.getDuration(), -1);
}

} // namespace
