// The play states and what each operation does in each of them: the state it
// leaves and the signals it causes (progress reports aside).
#include "TimerRecorder.h"

#include <gtest/gtest.h>

#include <ostream>

namespace {

constexpr int kStopped = 1200;
constexpr int kPlaying = 1201;
constexpr int kPaused = 1202;

enum class Op { StartThread, Stop, PauseTrue, PauseFalse, Seek, Repeat, Duration };

struct StateRow
{
    const char* name;
    int from;
    Op op;
    int to;
    const char* signalsAfter; // stateSignalsOf the events the operation causes
};

void PrintTo(const StateRow& row, std::ostream* os) { *os << row.name; }

const StateRow kRows[] = {
    {"StoppedStartThreadPlays", kStopped, Op::StartThread, kPlaying, "started"},
    {"StoppedStopIsSilent", kStopped, Op::Stop, kStopped, ""},
    {"StoppedPauseTruePauses", kStopped, Op::PauseTrue, kPaused, "paused(true)"},
    {"StoppedPauseFalseOnlyReports", kStopped, Op::PauseFalse, kStopped, "paused(false)"},
    {"StoppedSeekIsSilent", kStopped, Op::Seek, kStopped, ""},
    {"StoppedRepeatIsSilent", kStopped, Op::Repeat, kStopped, ""},
    {"StoppedDurationIsSilent", kStopped, Op::Duration, kStopped, ""},
    {"PlayingStopEndsTheLoop", kPlaying, Op::Stop, kStopped, "stopped"},
    {"PlayingPauseTruePausesWithoutStop", kPlaying, Op::PauseTrue, kPaused, "paused(true)"},
    {"PlayingPauseFalseKeepsPlaying", kPlaying, Op::PauseFalse, kPlaying, "paused(false)"},
    {"PlayingSeekKeepsPlaying", kPlaying, Op::Seek, kPlaying, ""},
    {"PlayingRepeatKeepsPlaying", kPlaying, Op::Repeat, kPlaying, ""},
    {"PlayingDurationKeepsPlaying", kPlaying, Op::Duration, kPlaying, ""},
    {"PausedStartThreadResumes", kPaused, Op::StartThread, kPlaying, "started"},
    {"PausedStopReportsStopped", kPaused, Op::Stop, kStopped, "stopped"},
    {"PausedPauseTrueStaysPaused", kPaused, Op::PauseTrue, kPaused, "paused(true)"},
    {"PausedPauseFalseStaysPaused", kPaused, Op::PauseFalse, kPaused, "paused(false)"},
    {"PausedSeekStaysPaused", kPaused, Op::Seek, kPaused, ""},
    {"PausedRepeatStaysPaused", kPaused, Op::Repeat, kPaused, ""},
    {"PausedDurationStaysPaused", kPaused, Op::Duration, kPaused, ""},
};

void bringTo(RecordedTimer& t, int state)
{
    if (state == kStopped)
        return;
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Started, 1));
    if (state == kPaused)
        t.timer->pauseTimer(true);
    ASSERT_EQ(t.timer->getPlayState(), state);
}

void apply(UI_Proc_KELMOR_PlayerTimer_Desktop& timer, Op op)
{
    switch (op) {
    case Op::StartThread: timer.startThread(); break;
    case Op::Stop: timer.stopTimer(); break;
    case Op::PauseTrue: timer.pauseTimer(true); break;
    case Op::PauseFalse: timer.pauseTimer(false); break;
    case Op::Seek: timer.setProgressTimer(1000); break;
    case Op::Repeat: timer.setRepeat(3); break;
    case Op::Duration: timer.setDuration(200000); break;
    }
}

class TimerStates : public ::testing::TestWithParam<StateRow>
{
};

TEST_P(TimerStates, OperationLeadsToStateWithItsSignals)
{
    const StateRow& row = GetParam();
    RecordedTimer t(8, 11, 100000);
    bringTo(t, row.from);
    if (HasFatalFailure())
        return;

    const size_t mark = t.rec.size();
    apply(*t.timer, row.op);
    const QString expected = QString::fromLatin1(row.signalsAfter);
    // A stop of a playing timer is reported by its loop, shortly after.
    ASSERT_TRUE(t.rec.waitUntil([&](const TimerEvents& e) {
        return stateSignalsOf(since(e, mark)) == expected;
    })) << stateSignalsOf(since(t.rec.events(), mark)).toStdString();
    EXPECT_EQ(t.timer->getPlayState(), row.to);

    // Nothing else follows: a timer left playing keeps reporting progress and
    // nothing more; any other loop is joined before the final look.
    if (row.to == kPlaying)
        ASSERT_TRUE(t.rec.waitForReports(t.rec.size(), 1));
    else
        t.destroy();
    EXPECT_EQ(stateSignalsOf(since(t.rec.events(), mark)), expected);
    EXPECT_TRUE(allFrom(t.rec.events(), 8, 11));
}

INSTANTIATE_TEST_SUITE_P(Table, TimerStates, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<StateRow>& info) {
                             return std::string(info.param.name);
                         });

} // namespace
