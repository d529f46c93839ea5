// A bare libmpv core for the reference measurements of the media benchmarks:
// the same core settings as the engine's (no sound, paused, keep-open, exact
// seeks, software decoding) but "vo=null" and no Qt in between. A thread of
// its own reads the core's events and time-stamps them as they arrive.
//
// Threading: the public calls may be made from any one thread; the event
// thread only writes the counters and stamps, under m_mutex.
// Ownership: the core is made in the constructor and destroyed (after the
// event thread is joined) in the destructor.
#pragma once

#include "bench_common.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

struct mpv_handle;

namespace bench {

class BareMpv
{
public:
    BareMpv();
    ~BareMpv();
    BareMpv(const BareMpv&) = delete;
    BareMpv& operator=(const BareMpv&) = delete;

    bool ok() const { return m_mpv != nullptr; }
    mpv_handle* handle() const { return m_mpv; }

    /// What the event thread has counted so far.
    struct Counts
    {
        std::uint64_t loaded = 0;     ///< FILE_LOADED events
        std::uint64_t restarts = 0;   ///< PLAYBACK_RESTART events
        std::uint64_t loadedSeq = 0;  ///< event order of the last FILE_LOADED
        std::uint64_t restartSeq = 0; ///< event order of the last PLAYBACK_RESTART
    };
    Counts counts() const;
    /// Waits until pred(counts()) holds; false after timeoutMs.
    bool waitFor(const std::function<bool(const Counts&)>& pred, int timeoutMs);
    /// Time of the last PLAYBACK_RESTART.
    Clock::time_point lastRestart() const;

    /// Asks the core to load `file` (with per-file options such as
    /// "start=3"; empty for none) and returns at once.
    void load(const QString& file, const QString& options);
    /// Sends a libmpv command synchronously; false when it is refused.
    bool command(const QStringList& args);
    bool setPause(bool paused);

    /// Arms the first-new-frame stamp: the next "time-pos" change to a value
    /// above the one seen last is stamped (see newFrameAt).
    void armNewFrame();
    /// Whether the armed stamp was taken, and when.
    bool newFrameAt(Clock::time_point* at) const;

private:
    void readEvents();

    mpv_handle* m_mpv = nullptr;   // made in the constructor, fixed until destruction
    std::thread m_thread;          // runs readEvents
    mutable std::mutex m_mutex;    // guards everything below
    std::condition_variable m_changed;
    bool m_quit = false;
    std::uint64_t m_seq = 0;
    Counts m_counts;
    Clock::time_point m_lastRestart;
    double m_timePos = -1.0;       // last "time-pos" seen
    bool m_armed = false;
    double m_armedAt = 0.0;        // time-pos when armed
    bool m_stamped = false;
    Clock::time_point m_stamp;
};

} // namespace bench
