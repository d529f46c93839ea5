// How steady the timed-item timers are: 1, 16 and 64 timers play one 3 s
// pass each, first on an idle machine and then with every core kept busy by
// spinning threads. For each run it prints the spacing of consecutive
// progress reports (nominally 100 ms: five 20 ms ticks) and how late the
// stop report comes after the item's duration.
//
// The signals are received with direct connections on the timers' threads
// and time-stamped there, so no event loop adds its own delay.
#include "UI_Proc_KELMOR_PlayerTimer_Desktop.h"

#include <QCoreApplication>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Timer = UI_Proc_KELMOR_PlayerTimer_Desktop;

constexpr qint64 kItemMs = 3000;
constexpr double kNominalReportMs = 100.0;

/// What one timer reported, stamped on arrival.
struct Track
{
    std::mutex mutex;
    Clock::time_point started;
    std::vector<Clock::time_point> reports; // nonzero progress only
    Clock::time_point stopped;
};

/// Counts stop reports so that the run can wait for all of them.
struct Finish
{
    std::mutex mutex;
    std::condition_variable done;
    int stopped = 0;
};

/// Keeps every core busy until destroyed.
class Load
{
public:
    explicit Load(unsigned threads)
    {
        for (unsigned i = 0; i < threads; ++i)
            spinners.emplace_back([this] {
                volatile unsigned long sink = 0;
                while (!quit.load(std::memory_order_relaxed))
                    sink = sink + 1;
            });
    }
    ~Load()
    {
        quit = true;
        for (std::thread& t : spinners)
            t.join();
    }

private:
    std::atomic<bool> quit{false};
    std::vector<std::thread> spinners;
};

double ms(Clock::duration d)
{
    return std::chrono::duration<double, std::milli>(d).count();
}

/// Nearest-rank percentile of sorted values.
double percentile(const std::vector<double>& sorted, double p)
{
    if (sorted.empty())
        return 0.0;
    const size_t rank = static_cast<size_t>(p / 100.0 * double(sorted.size() - 1) + 0.5);
    return sorted[std::min(rank, sorted.size() - 1)];
}

void connectTrack(Timer* timer, Track* track, Finish* finish)
{
    QObject::connect(timer, &Timer::started, timer, [track](int, int) {
        std::lock_guard<std::mutex> lock(track->mutex);
        track->started = Clock::now();
    }, Qt::DirectConnection);
    QObject::connect(timer, &Timer::setProgressTimered, timer, [track](int, int, qint64 msec) {
        if (msec == 0)
            return; // the pass end, not a periodic report
        std::lock_guard<std::mutex> lock(track->mutex);
        track->reports.push_back(Clock::now());
    }, Qt::DirectConnection);
    QObject::connect(timer, &Timer::stopped, timer, [track, finish](int, int) {
        {
            std::lock_guard<std::mutex> lock(track->mutex);
            track->stopped = Clock::now();
        }
        std::lock_guard<std::mutex> lock(finish->mutex);
        ++finish->stopped;
        finish->done.notify_all();
    }, Qt::DirectConnection);
}

void runScenario(int count, bool busy, unsigned cores)
{
    std::unique_ptr<Load> load;
    if (busy)
        load = std::make_unique<Load>(cores);

    Finish finish;
    std::vector<std::unique_ptr<Track>> tracks;
    std::vector<std::unique_ptr<Timer>> timers;
    for (int i = 0; i < count; ++i) {
        tracks.push_back(std::make_unique<Track>());
        timers.push_back(std::make_unique<Timer>(i, 1, kItemMs));
        connectTrack(timers.back().get(), tracks.back().get(), &finish);
    }
    for (auto& timer : timers)
        timer->startThread();
    bool allStopped = false;
    {
        std::unique_lock<std::mutex> lock(finish.mutex);
        allStopped = finish.done.wait_for(lock, std::chrono::seconds(30),
                                          [&] { return finish.stopped == count; });
    }
    for (auto& timer : timers)
        timer->stopTimer();
    timers.clear(); // joins every loop
    load.reset();

    std::vector<double> intervals;
    std::vector<double> late;
    for (auto& track : tracks) {
        for (size_t i = 1; i < track->reports.size(); ++i)
            intervals.push_back(ms(track->reports[i] - track->reports[i - 1]));
        late.push_back(ms(track->stopped - track->started) - double(kItemMs));
    }
    std::sort(intervals.begin(), intervals.end());
    std::sort(late.begin(), late.end());

    const double p50 = percentile(intervals, 50), p99 = percentile(intervals, 99);
    const double max = intervals.empty() ? 0.0 : intervals.back();
    std::printf("%6d  %-4s  %9zu  %7.1f %7.1f %7.1f   %5.2f %5.2f %5.2f   %8.1f %8.1f%s\n",
                count, busy ? "busy" : "idle", intervals.size(), p50, p99, max,
                p50 / kNominalReportMs, p99 / kNominalReportMs, max / kNominalReportMs,
                percentile(late, 50), late.empty() ? 0.0 : late.back(),
                allStopped ? "" : "  (not all stopped within 30 s)");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());

    std::printf("timer bench: one %lld ms pass per timer, progress nominally every %.0f ms; "
                "busy = %u spinning threads\n",
                static_cast<long long>(kItemMs), kNominalReportMs, cores);
    std::printf("                       report interval (ms)      ratio to nominal    stopped late (ms)\n");
    std::printf("timers  load  intervals      p50     p99     max     p50   p99   max        p50      max\n");
    for (bool busy : {false, true})
        for (int count : {1, 16, 64})
            runScenario(count, busy, cores);
    return 0;
}
