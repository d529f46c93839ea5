#include "WorkerPool.h"

WorkerPool::WorkerPool(std::uint16_t threadCount)
{
    m_workers.reserve(threadCount);
    for (std::uint16_t i = 0; i < threadCount; ++i)
        m_workers.emplace_back([this] { workerLoop(); });
}

WorkerPool::~WorkerPool()
{
    stop();
    for (std::thread& worker : m_workers)
        worker.join();
}

void WorkerPool::stop()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopped = true;
    }
    m_wake.notify_all();
}

void WorkerPool::workerLoop()
{
    for (;;) {
        std::function<void()> job;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_wake.wait(lock, [this] { return m_stopped || !m_jobs.empty(); });
            if (m_jobs.empty())
                return; // stopped and drained
            job = std::move(m_jobs.front());
            m_jobs.pop();
        }
        job(); // a packaged task: its exceptions go to its future
    }
}
