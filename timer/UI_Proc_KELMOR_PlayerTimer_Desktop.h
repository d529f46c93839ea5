// UI_Proc_KELMOR_PlayerTimer_Desktop: the timed-item timer of one layer.
//
// Content without a media clock of its own (a still picture, an office page,
// a stream) gets the behaviour of a timed clip from this timer: it counts the
// item's playing time on a thread of its own, reports progress, repeats the
// item and reports start, pause and stop.
//
// The loop (startTimer) ticks every 20 ms; progress is reported on ticks
// 1, 6, 11, ... of a run (about 20 ms after the start, then every 100 ms).
// Between ticks the loop waits on a condition variable, so that a stop, a
// pause or the destruction wakes it at once: it does that tick's work right
// away and ends, and whoever waits for it (a join) is never held for a tick.
// The end of a pass reports progress 0 at once. With setRepeat(n) an item
// plays n + 1 passes. Play states: 1200 stopped, 1201 playing, 1202 paused.
//
// Threading: every operation is called from the owner's thread (the layer
// service's GUI thread); the loop runs on the timer's own thread and emits
// its signals there, so they reach receivers on other threads queued
// (paused(), and the stopped() of stopping a paused timer, are emitted on the
// caller's thread).
// Two mutexes, never held together: stateMutex guards running, the play-state
// writes and the repeat counts; progressMutex guards the progress fields.
// Signals are emitted with no mutex held. Fields read without a lock by
// design are atomics, so those reads are well defined.
//
// Lifetime: stop or pause the timer before destroying it. A timer destroyed
// while its loop runs stops the loop first (with a debug line) and then joins
// its thread. startThread() throws std::system_error (resource deadlock) when
// called on the timer's own thread; the destructor, being noexcept, ends the
// process (std::terminate) in that case.
#pragma once

#include "KelmorPlayerExport.h"

#include <QObject>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

/// The timer of one layer's timed item (content without a media clock of
/// its own): counts its playing time on a thread of its own in 20 ms ticks,
/// reports progress, repeats the item and reports start, pause and stop.
/// Operations on the owner's thread; play states 1200 stopped, 1201
/// playing, 1202 paused.
class KELMOR_PLAYER_EXPORT UI_Proc_KELMOR_PlayerTimer_Desktop : public QObject
{
    Q_OBJECT
public:
    /// A stopped timer (1200) for the layer, with the length of one pass in
    /// ms; its signals carry `layerId` and `bankId`. No thread runs until
    /// startThread().
    UI_Proc_KELMOR_PlayerTimer_Desktop(int layerId, int bankId, qint64 duration);
    /// Ends a running loop (with a debug line) and joins the timer's thread.
    ~UI_Proc_KELMOR_PlayerTimer_Desktop() override;

    /// Joins a previous loop (waiting for it to end), then runs startTimer on
    /// a new thread; the play state is 1201 from the moment of the call. A
    /// run continues from the position the timer holds. Throws
    /// std::system_error when called on the timer's own thread.
    void startThread();
    /// The loop itself; runs on the calling thread until the run ends.
    void startTimer();
    /// Ends the run and resets the progress to 0.
    void stopTimer();
    /// true pauses (keeping the position); always emits paused().
    void pauseTimer(bool isPause);
    /// Seeks to `msec`: a running loop continues from there.
    void setProgressTimer(qint64 msec);
    /// Extra passes after the first; resets the passes already done.
    void setRepeat(int count);
    /// Sets the length of one pass in ms; a running loop uses it from its
    /// next tick (a length at or below the position reached ends the pass
    /// there).
    void setDuration(qint64 msec);

    /// The position within the current pass, in ms (0 after a stop or a
    /// finished pass). Any thread.
    qint64 getCurrProgress();
    /// The length of one pass, in ms. Any thread.
    qint64 getDuration();
    /// 1200 stopped, 1201 playing, 1202 paused. Any thread.
    int getPlayState();
    /// Whether the current run is to go on: false from a stop, a pause or
    /// the destruction on, even while the ending loop still reads as playing
    /// (1201) for a moment. A run that ends by using up its passes leaves it
    /// true; its play state then tells that it stopped.
    bool isRunning() const;

signals:
    /// A run began (emitted on the loop's thread).
    void started(int layerId, int bankId);
    /// A run ended while playing (its passes used up, or stopTimer()), on
    /// the loop's thread; or stopTimer() stopped a paused timer, on the
    /// caller's thread. A pause emits no stop.
    void stopped(int layerId, int bankId);
    /// pauseTimer(`isPause`) was called (emitted on the caller's thread).
    void paused(int layerId, int bankId, bool isPause);
    /// The position in ms, on the loop's thread: about 20 ms after a run
    /// starts, then every 100 ms, and 0 at once at the end of each pass.
    void setProgressTimered(int layerId, int bankId, qint64 timeMsec);
    // Declared for the service's connections; this timer never emits them.
    /// Never emitted; declared for the layer service's connection.
    void setRepeated(int layerId, int bankId, int count);
    /// Never emitted; declared for the layer service's connection.
    void setSynchClocked(int layerId, int bankId, float timeMsec);
    /// Never emitted; declared for the layer service's connection.
    void playReadyed(int layerId, int bankId, qint64 timeMsec, bool isPause);
    /// Never emitted; declared for the layer service's connection.
    void resetPlayed(int layerId, int bankId, bool isPause);

private:
    /// Joins and deletes the loop's thread; throws when called on it.
    void joinTimerThread();
    /// The loop's wait for its next tick: 20 ms, or less when the run is
    /// ended (running false) in the meantime.
    void waitForTick();
    /// Wakes the loop from its wait after running was set false.
    void wakeLoop();

    const int layerId;                   // constant
    const int bankId;                    // constant
    std::atomic<qint64> duration;        // no lock (atomic)
    std::atomic<qint64> currProgress{0}; // written under progressMutex, read atomically
    std::atomic<bool> running{false};    // written under stateMutex
    std::atomic<int> repeatCount{0};     // written under stateMutex
    std::atomic<int> repeatDone{0};      // written under stateMutex
    qint64 progressBase = 0;             // progressMutex
    bool launchPending = false;          // stateMutex; startThread set the state, the loop has not begun
    std::mutex stateMutex;
    // Waited on by the loop with stateMutex, for its next tick; notified
    // when running goes false (stop, pause, destruction).
    std::condition_variable tickWake;
    qint64 startTime = 0;                // progressMutex; monotonic nanoseconds
    std::mutex progressMutex;
    std::atomic<int> playState{1200};    // written under stateMutex or by the loop
    // Set by the destructor (under stateMutex): a loop that begins after it
    // does not set running again, so deleting a just-started timer cannot hang.
    std::atomic<bool> closing{false};
    std::unique_ptr<std::thread> timerThread; // owner's thread
};
