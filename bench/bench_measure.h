// Measuring for the media benchmarks: CPU and wall clocks, per-thread CPU,
// percentiles, child processes measured with getrusage(RUSAGE_CHILDREN), and
// the test clips they play, made with ffmpeg at run time.
//
// Threading: any thread; runChild's RUSAGE_CHILDREN figure is only right
// when no other thread waits for children meanwhile.
#pragma once

#include <QByteArray>
#include <QSize>
#include <QString>
#include <QStringList>

#include <chrono>
#include <utility>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;

double msSince(Clock::time_point t0);
/// CPU seconds (user + system) of this process, all threads.
double selfCpuSeconds();
/// CPU seconds (user + system) of the children waited for so far.
double childrenCpuSeconds();
/// "/proc/loadavg"'s three averages, e.g. "1.20 0.95 0.80".
QString loadAverage();
unsigned cores();
/// CPU seconds (user + system) used so far by the X server that $DISPLAY
/// names (Xvfb under xvfb-run), read from /proc; -1 when it cannot be found.
/// Windows cost the X server CPU (every swap is a picture sent to it), so a
/// comparison of windowed players counts it on both sides.
double xServerCpuSeconds();

/// CPU seconds per thread of this process, summed by thread name with its
/// trailing digits removed ("llvmpipe-", "mpv/vo", ...), from /proc/self/task.
/// Threads that ended are not counted: compare two snapshots taken while the
/// same threads live.
using ThreadCpu = std::vector<std::pair<QString, double>>;
ThreadCpu threadCpu();
/// The CPU seconds each thread name used between two snapshots (those that
/// used any), the busiest first.
ThreadCpu threadCpuBetween(const ThreadCpu& before, const ThreadCpu& after);
/// Prints where the CPU time between two snapshots went, in ms per `frames`.
void printThreadCpu(const ThreadCpu& before, const ThreadCpu& after, double frames);
/// Prints the same in percent of one core over `seconds` of wall time: a
/// thread at 100 is a serial limit, whatever the other cores do.
void printThreadShare(const ThreadCpu& before, const ThreadCpu& after, double seconds);

/// Nearest-rank percentile (p in 0..100) of unsorted values; 0 when empty.
double percentile(std::vector<double> values, double p);
double median(std::vector<double> values);

struct ChildResult
{
    int exitCode = -1;          ///< -1: could not start or killed by a signal
    double cpuSeconds = 0.0;    ///< RUSAGE_CHILDREN delta around the run
    double wallSeconds = 0.0;
    QByteArray out;             ///< stdout
    QByteArray err;             ///< stderr
};
/// Runs a program to its end (argv[0] looked up in PATH), stdin from
/// /dev/null, and measures it.
ChildResult runChild(const QStringList& argv);

/// A test clip: H.264 at 30 fps (testsrc2, x264 ultrafast, a keyframe every
/// 2 s; 1920x1080 unless asked otherwise) with a sine tone in AAC.
struct Clip
{
    QString path;
    int frames = 0;     ///< video frames, from the container
    double fps = 30.0;
    double seconds = 0.0;
    bool ok() const { return !path.isEmpty() && frames > 0; }
};
/// Makes the clip in `dir` (or reuses the one made by an earlier run).
Clip ensureClip(const QString& dir, int seconds, int toneHz, const QSize& size = QSize(1920, 1080));
/// A second file with the same content under another name (a real new load
/// for a player that had the first one).
Clip copyClip(const Clip& clip, const QString& suffix);

} // namespace bench
