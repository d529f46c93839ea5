#include "MpvReaper.h"

#include <mpv/client.h>

namespace QtAV {

MpvReaper& MpvReaper::instance()
{
    static MpvReaper reaper;
    return reaper;
}

MpvReaper::~MpvReaper()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_quit = true;
    }
    m_wake.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

void MpvReaper::destroy(mpv_handle* mpv, std::function<void()> done)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_jobs.push_back(Job{mpv, std::move(done)});
        if (!m_thread.joinable())
            m_thread = std::thread([this] { run(); });
    }
    m_wake.notify_all();
}

void MpvReaper::run()
{
    for (;;) {
        Job job;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_wake.wait(lock, [this] { return m_quit || !m_jobs.empty(); });
            if (m_jobs.empty())
                return; // quitting, and everything handed over is done
            job = std::move(m_jobs.front());
            m_jobs.pop_front();
        }
        if (job.mpv)
            mpv_terminate_destroy(job.mpv);
        if (job.done)
            job.done();
    }
}

} // namespace QtAV
