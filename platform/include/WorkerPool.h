// WorkerPool: a fixed set of worker threads that run submitted jobs in the
// order they were queued (FIFO).
//
// enqueue(f, args...) binds f to copies of args, queues it and returns the
// job's future; a caller may drop the future without waiting. Exceptions of
// a job are stored in its future. A pool that has been stopped throws
// std::runtime_error("ThreadPool need to init!!!") from enqueue.
//
// The destructor stops the pool, lets the workers finish the jobs already
// queued, and joins them.
//
// Threading: enqueue may be called from any thread.
#pragma once

#include "KelmorPlatformExport.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <queue>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <vector>

/// A fixed set of worker threads running queued jobs in FIFO order.
/// enqueue() from any thread; the destructor finishes the queued jobs.
class KELMOR_PLATFORM_EXPORT WorkerPool
{
public:
    /// Starts `threadCount` worker threads (0: a pool that never runs a job).
    explicit WorkerPool(std::uint16_t threadCount);
    /// Stops the pool, lets the workers finish the jobs already queued, and
    /// joins them.
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// Queues f(args...), bound to copies of `args`, and returns the job's
    /// future, which may be dropped without waiting; an exception of the job
    /// is stored in it. Once the pool is stopped it throws
    /// std::runtime_error("ThreadPool need to init!!!"). Any thread.
    template <class F, class... Args>
    auto enqueue(F&& f, Args&&... args)
        -> std::future<std::invoke_result_t<std::decay_t<F>, std::decay_t<Args>...>>
    {
        using Result = std::invoke_result_t<std::decay_t<F>, std::decay_t<Args>...>;
        if (m_stopped)
            throw std::runtime_error("ThreadPool need to init!!!");
        auto task = std::make_shared<std::packaged_task<Result()>>(
            std::bind(std::forward<F>(f), std::forward<Args>(args)...));
        std::future<Result> future = task->get_future();
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_jobs.emplace([task] { (*task)(); });
        }
        m_wake.notify_one();
        return future;
    }

    /// The number of worker threads.
    std::size_t threadCount() const { return m_workers.size(); }
    /// Stops taking jobs: the next enqueue throws. Queued jobs still run.
    void stop();

private:
    void workerLoop();

    std::vector<std::thread> m_workers;     // fixed after construction
    std::queue<std::function<void()>> m_jobs; // guarded by m_mutex
    std::mutex m_mutex;                       // guards m_jobs and the wait on m_wake
    std::condition_variable m_wake;           // signalled for a new job or on stop
    std::atomic<bool> m_stopped{false};       // set once by stop()
};
