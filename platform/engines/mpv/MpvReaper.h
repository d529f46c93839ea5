// Frees libmpv cores off the GUI thread.
//
// mpv_terminate_destroy waits for the core's threads to finish, which can
// take a while (a network source, a slow audio device). The process-wide
// reaper owns one worker thread that destroys the cores handed to it, in
// order, and then runs each one's completion callback on that thread. The
// reaper is built on first use and, at process exit, finishes what it was
// given and joins its thread: no core is leaked and no thread is left behind.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

struct mpv_handle;

namespace QtAV {

class MpvReaper
{
public:
    static MpvReaper& instance();
    ~MpvReaper();

    /// Destroys `mpv` on the reaper's thread, then calls `done` there (if set).
    void destroy(mpv_handle* mpv, std::function<void()> done);

private:
    MpvReaper() = default;
    void run();

    struct Job
    {
        mpv_handle* mpv;
        std::function<void()> done;
    };

    std::mutex m_mutex;              // guards m_jobs, m_quit and m_thread's start
    std::condition_variable m_wake;
    std::deque<Job> m_jobs;
    bool m_quit = false;
    std::thread m_thread;            // started with the first job; joined at exit
};

} // namespace QtAV
