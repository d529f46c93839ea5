// The timed-item timer: a 20 ms tick loop on a thread of its own.
//
// Lock discipline: stateMutex and progressMutex are never held together, and
// no signal is emitted while either is held (a receiver connected directly
// may call back into the timer). Every scope below takes exactly one of them.
#include "UI_Proc_KELMOR_PlayerTimer_Desktop.h"

#include <QDebug>

#include <chrono>
#include <cstdio>
#include <limits>
#include <pthread.h>
#include <system_error>

namespace {

constexpr int kStopped = 1200;
constexpr int kPlaying = 1201;
constexpr int kPaused = 1202;

// One tick of the loop, as a relative wait on the monotonic clock.
constexpr std::chrono::nanoseconds kTick{20000000};
// Progress is reported on every fifth tick (about ten reports a second).
constexpr int kReportEvery = 5;
constexpr double kNsPerMs = 1000000.0;

/// Monotonic time in nanoseconds.
qint64 nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

/// Milliseconds truncated toward zero, saturated at the ends of qint64 so
/// that a seek near the largest position cannot overflow the conversion.
qint64 toMsec(double ms)
{
    constexpr double kLimit = 9223372036854775807.0; // 2^63 once rounded
    if (ms >= kLimit)
        return std::numeric_limits<qint64>::max();
    if (ms <= -kLimit)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(ms);
}

/// Names the calling thread "ktimer b<bank> l<layer>", cut to the 15
/// characters that the kernel keeps, so that the timers can be told apart in
/// a debugger or in top.
void nameTimerThread(int bankId, int layerId)
{
    char name[16];
    std::snprintf(name, sizeof name, "ktimer b%d l%d", bankId, layerId);
    pthread_setname_np(pthread_self(), name);
}

} // namespace

UI_Proc_KELMOR_PlayerTimer_Desktop::UI_Proc_KELMOR_PlayerTimer_Desktop(int layerId, int bankId,
                                                                     qint64 duration)
    : QObject(nullptr), layerId(layerId), bankId(bankId), duration(duration)
{
}

// The destructor is noexcept (QObject's is), so the self-join error raised
// by joinTimerThread ends the process here: a timer deleted from a slot that
// runs on its own thread would otherwise return into a loop of a dead object.
UI_Proc_KELMOR_PlayerTimer_Desktop::~UI_Proc_KELMOR_PlayerTimer_Desktop()
{
    if (timerThread && timerThread->joinable()) {
        std::lock_guard<std::mutex> lock(stateMutex);
        if (running && playState == kPlaying)
            qDebug() << "PlayerTimer destroyed while playing, stopping its loop: layer" << layerId
                     << "bank" << bankId;
        // Ends a playing loop within one tick, and keeps a loop that has not
        // begun yet from setting running again; either way the join returns.
        closing = true;
        running = false;
    }
    wakeLoop();
    joinTimerThread();
}

void UI_Proc_KELMOR_PlayerTimer_Desktop::waitForTick()
{
    const auto due = std::chrono::steady_clock::now() + kTick;
    std::unique_lock<std::mutex> lock(stateMutex);
    tickWake.wait_until(lock, due, [this] { return !running; });
}

void UI_Proc_KELMOR_PlayerTimer_Desktop::wakeLoop()
{
    // Called after running was cleared under stateMutex: the loop either
    // sees it before it waits or is notified while it waits.
    tickWake.notify_all();
}

void UI_Proc_KELMOR_PlayerTimer_Desktop::joinTimerThread()
{
    if (!timerThread || !timerThread->joinable())
        return;
    if (timerThread->get_id() == std::this_thread::get_id())
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur),
                                "PlayerTimer: joining the timer thread from itself");
    timerThread->join();
    timerThread.reset();
}

void UI_Proc_KELMOR_PlayerTimer_Desktop::startThread()
{
    joinTimerThread();
    // The new thread may run before its object is stored, and a slot on it
    // may read timerThread (a startThread or a delete from a directly
    // connected slot must see its own thread to refuse joining it). Storing
    // it under stateMutex, which the loop takes first thing, orders the two.
    std::lock_guard<std::mutex> lock(stateMutex);
    // The run counts as started from here, not from when the new thread gets
    // going: a stop or a pause that arrives in between then reaches the run
    // (it ends at once) instead of being overwritten by it, and the next
    // startThread never waits for a whole pass.
    launchPending = true;
    running = !closing;
    playState = kPlaying;
    timerThread = std::make_unique<std::thread>([this] {
        nameTimerThread(bankId, layerId);
        startTimer();
    });
}

void UI_Proc_KELMOR_PlayerTimer_Desktop::startTimer()
{
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        if (launchPending) {
            // Launched by startThread, which set the state already; keep
            // what a stop or a pause decided since.
            launchPending = false;
        } else {
            running = !closing;
            playState = kPlaying;
        }
    }
    emit started(layerId, bankId);
    {
        // A run continues from the position the timer holds: 0 after a stop
        // or a finished pass, the reached position after a pause, or a seek.
        std::lock_guard<std::mutex> lock(progressMutex);
        progressBase = currProgress;
        startTime = nowNs();
    }

    int tick = 0;
    while (running) {
        waitForTick();
        {
            std::lock_guard<std::mutex> lock(progressMutex);
            const double elapsedMs = (nowNs() - startTime) / kNsPerMs;
            currProgress = toMsec(elapsedMs + progressBase);
        }
        if (currProgress >= duration) {
            {
                std::lock_guard<std::mutex> lock(progressMutex);
                progressBase = 0;
                currProgress = 0;
            }
            emit setProgressTimered(layerId, bankId, currProgress);
            // The last pass leaves at once; running stays true on purpose
            // (only a stop or a pause clears it).
            if (repeatDone >= repeatCount)
                break;
            {
                std::lock_guard<std::mutex> lock(progressMutex);
                startTime = nowNs();
            }
            std::lock_guard<std::mutex> lock(stateMutex);
            ++repeatDone;
        }
        if (tick % kReportEvery == 0) {
            emit setProgressTimered(layerId, bankId, currProgress);
            tick = 0;
        }
        ++tick;
    }

    // A loop that ended by a pause (state 1202) reports nothing; one that
    // ended while playing reports its stop. The state is switched before the
    // signal so that a receiver of stopped() reads 1200.
    bool reportStop = false;
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        if (playState == kPlaying) {
            playState = kStopped;
            reportStop = true;
        }
    }
    if (reportStop)
        emit stopped(layerId, bankId);
}

void UI_Proc_KELMOR_PlayerTimer_Desktop::stopTimer()
{
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        running = false;
    }
    {
        std::lock_guard<std::mutex> lock(progressMutex);
        progressBase = 0;
        currProgress = 0;
        startTime = nowNs();
    }
    // A playing loop ends now, not at its next tick; woken after the reset,
    // its last tick measures from the reset start time.
    wakeLoop();
    // A paused timer has no loop left to report the stop, so it is reported
    // here; a playing loop reports it itself when it ends.
    bool reportStop = false;
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        if (playState == kPaused) {
            playState = kStopped;
            reportStop = true;
        }
    }
    if (reportStop)
        emit stopped(layerId, bankId);
}

void UI_Proc_KELMOR_PlayerTimer_Desktop::pauseTimer(bool isPause)
{
    if (isPause) {
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            running = false;
            playState = kPaused;
        }
        wakeLoop(); // the loop takes the position reached and ends now
    }
    // Resuming is startThread's job; pauseTimer(false) only reports.
    emit paused(layerId, bankId, isPause);
}

void UI_Proc_KELMOR_PlayerTimer_Desktop::setProgressTimer(qint64 msec)
{
    std::lock_guard<std::mutex> lock(progressMutex);
    currProgress = msec;
    progressBase = msec;
    startTime = nowNs();
}

void UI_Proc_KELMOR_PlayerTimer_Desktop::setRepeat(int count)
{
    std::lock_guard<std::mutex> lock(stateMutex);
    repeatDone = 0;
    repeatCount = count;
}

void UI_Proc_KELMOR_PlayerTimer_Desktop::setDuration(qint64 msec)
{
    duration = msec;
}

qint64 UI_Proc_KELMOR_PlayerTimer_Desktop::getCurrProgress()
{
    return currProgress;
}

qint64 UI_Proc_KELMOR_PlayerTimer_Desktop::getDuration()
{
    return duration;
}

int UI_Proc_KELMOR_PlayerTimer_Desktop::getPlayState()
{
    return playState;
}

bool UI_Proc_KELMOR_PlayerTimer_Desktop::isRunning() const
{
    return running;
}
