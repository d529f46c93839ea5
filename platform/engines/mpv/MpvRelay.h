// Hands libmpv's wake-ups, and the reaper's "core destroyed" notice, over to
// the player's thread.
//
// libmpv calls its wakeup callback on its own threads, where no libmpv
// function may be called. The relay posts one queued drain to the pump (a
// QObject living in the player's thread), which reads the events there with
// mpv_wait_event(handle, 0). Posted calls are addressed to the pump, so Qt
// drops them if the pump is gone by the time they would run.
//
// Lifetime: the relay is shared by the backend, libmpv's callback (a raw
// pointer) and the reaper's job, and outlives the core: the reaper holds a
// reference until mpv_terminate_destroy has returned, after which libmpv
// calls back no more.
#pragma once

#include <QObject>
#include <atomic>
#include <functional>
#include <mutex>

namespace QtAV {

/// Lives in the player's thread; runs the drain it was given.
class MpvEventPump : public QObject
{
public:
    explicit MpvEventPump(std::function<void()> drain) : m_drain(std::move(drain)) {}
    void drain() { m_drain(); }

private:
    std::function<void()> m_drain; // player's thread; set at construction
};

class MpvRelay
{
public:
    explicit MpvRelay(MpvEventPump* pump) : m_pump(pump) {}

    /// libmpv's wakeup callback (libmpv's threads; `self` is the relay).
    static void onWakeup(void* self);
    /// Called by the pump's drain before it reads events, so that a wake-up
    /// that comes during the drain posts a new one.
    void drainStarted() { m_drainQueued.store(false); }
    /// No more drains (the core is being released); posts still run.
    void stopWakeups();
    /// The pump is going away: nothing is posted any more.
    void detach();
    /// Runs `fn` on the pump's thread, if the pump still exists (any thread).
    void post(std::function<void()> fn);

private:
    std::mutex m_mutex;            // guards m_pump and m_wakeups
    MpvEventPump* m_pump;
    bool m_wakeups = true;
    std::atomic<bool> m_drainQueued{false}; // a drain is posted and not yet started
};

} // namespace QtAV
