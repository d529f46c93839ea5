// Records a timer's signals as they are emitted (direct connections, so on
// the emitting thread, into a mutex-guarded log) and lets a test wait for a
// condition on that log. No event loop is involved, which keeps these tests
// clean under the thread sanitizer (Qt's queued delivery is not instrumented).
#pragma once

#include "UI_Proc_KELMOR_PlayerTimer_Desktop.h"

#include <QString>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

struct TimerEvent
{
    enum Kind { Started, Stopped, Paused, Progress, Repeated, SynchClocked, PlayReadyed, ResetPlayed };
    Kind kind;
    int layerId;
    int bankId;
    // Progress: the reported milliseconds. Paused: 1 for isPause true.
    // Started: the timer's progress when the run began (read in the slot,
    // before the loop takes it as its base).
    qint64 value;
    std::chrono::steady_clock::time_point at;
    std::thread::id thread;
};
using TimerEvents = std::vector<TimerEvent>;

class TimerRecorder
{
public:
    static constexpr std::chrono::milliseconds kWait{20000};

    /// Connects to all eight signals of `timer` directly. The recorder must
    /// outlive the timer.
    void attach(UI_Proc_KELMOR_PlayerTimer_Desktop* timer);

    TimerEvents events() const;
    size_t size() const;
    /// Waits until `pred` holds for the log or `timeout` passes; returns
    /// whether it held.
    bool waitUntil(const std::function<bool(const TimerEvents&)>& pred,
                   std::chrono::milliseconds timeout = kWait) const;
    /// Waits until at least `n` events of `kind` were recorded.
    bool waitForCount(TimerEvent::Kind kind, int n) const;
    /// Waits until at least `n` more nonzero progress reports follow index `from`.
    bool waitForReports(size_t from, int n) const;

private:
    void record(TimerEvent::Kind kind, int layerId, int bankId, qint64 value);

    UI_Proc_KELMOR_PlayerTimer_Desktop* timer = nullptr;
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    TimerEvents log;
};

/// A timer and its recorder, built so that the recorder outlives the timer.
/// Going out of scope stops a still-existing timer first, as an owner must.
struct RecordedTimer
{
    RecordedTimer(int layerId, int bankId, qint64 duration);
    ~RecordedTimer();
    /// Deletes the timer as it is (joining its loop), without stopping it.
    void destroy();

    TimerRecorder rec;
    std::unique_ptr<UI_Proc_KELMOR_PlayerTimer_Desktop> timer;
};

// ---- Reading the log ----

TimerEvents since(const TimerEvents& events, size_t from);
int countOf(const TimerEvents& events, TimerEvent::Kind kind);
/// Nonzero progress values, in order.
std::vector<qint64> reports(const TimerEvents& events);
/// The index of the first event of `kind` at or after `from`, or -1.
int indexOf(const TimerEvents& events, TimerEvent::Kind kind, size_t from = 0);
/// Whether every event carries these ids.
bool allFrom(const TimerEvents& events, int layerId, int bankId);
/// The log as tokens: "started", "stopped", "paused(true)", "paused(false)",
/// "p" for a nonzero progress report, "0" for a progress report of 0, and the
/// signal name for the others; separated by spaces.
QString shapeOf(const TimerEvents& events);
/// shapeOf without the progress tokens.
QString stateSignalsOf(const TimerEvents& events);
/// Whether shapeOf(events) matches `pattern` as a whole.
bool shapeMatches(const TimerEvents& events, const QString& pattern);
/// Milliseconds from a to b.
double msBetween(const TimerEvent& a, const TimerEvent& b);
