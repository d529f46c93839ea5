// The worker pool: FIFO jobs, futures that may be dropped, the stopped error.
#include "WorkerPool.h"

#include <gtest/gtest.h>
#include <atomic>
#include <chrono>
#include <mutex>
#include <vector>

namespace {

TEST(WorkerPool, SingleWorkerRunsJobsInQueueOrder)
{
    std::vector<int> order;
    std::mutex m;
    {
        WorkerPool pool(1);
        for (int i = 0; i < 50; ++i)
            pool.enqueue([&, i] { std::lock_guard<std::mutex> l(m); order.push_back(i); });
    } // the destructor lets queued jobs finish, then joins
    ASSERT_EQ(order.size(), 50u);
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(order[i], i);
}

TEST(WorkerPool, ArgumentsAreCopiedAndResultsReachTheFuture)
{
    WorkerPool pool(2);
    std::string text = "abc";
    auto f = pool.enqueue([](std::string s, int n) { return s.size() + n; }, text, 4);
    text.clear(); // the job has its own copy
    EXPECT_EQ(f.get(), 7u);
}

TEST(WorkerPool, DroppedFutureDoesNotBlockAndJobStillRuns)
{
    std::atomic<int> ran{0};
    {
        WorkerPool pool(2);
        pool.enqueue([&] { ran++; }); // future dropped at once
        pool.enqueue([&] { ran++; });
    }
    EXPECT_EQ(ran.load(), 2);
}

TEST(WorkerPool, JobExceptionGoesToItsFuture)
{
    WorkerPool pool(1);
    auto f = pool.enqueue([] { throw std::logic_error("job failed"); });
    EXPECT_THROW(f.get(), std::logic_error);
    auto g = pool.enqueue([] { return 5; }); // the worker survived
    EXPECT_EQ(g.get(), 5);
}

TEST(WorkerPool, StoppedPoolRefusesWithItsMessage)
{
    WorkerPool pool(2);
    pool.stop();
    try {
        pool.enqueue([] {});
        FAIL() << "enqueue on a stopped pool must throw";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "ThreadPool need to init!!!");
    }
}

TEST(WorkerPool, TwoThreadsRunJobsAtTheSameTime)
{
    WorkerPool pool(2);
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    auto job = [&] {
        if (++inside == 2)
            overlapped = true;
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (!overlapped && std::chrono::steady_clock::now() < until)
            std::this_thread::yield();
        --inside;
    };
    auto a = pool.enqueue(job);
    auto b = pool.enqueue(job);
    a.get();
    b.get();
    EXPECT_TRUE(overlapped.load());
    EXPECT_EQ(pool.threadCount(), 2u);
}

} // namespace
