#include "bench_measure.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QTemporaryFile>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace bench {

namespace {

double seconds(const timeval& t)
{
    return double(t.tv_sec) + double(t.tv_usec) / 1e6;
}

double cpuOf(int who)
{
    rusage usage{};
    getrusage(who, &usage);
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

} // namespace

double msSince(Clock::time_point t0)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
}

double selfCpuSeconds()
{
    return cpuOf(RUSAGE_SELF);
}

double childrenCpuSeconds()
{
    return cpuOf(RUSAGE_CHILDREN);
}

QString loadAverage()
{
    QFile file(QStringLiteral("/proc/loadavg"));
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("?");
    const QList<QByteArray> parts = file.readAll().split(' ');
    return parts.size() >= 3 ? QString::fromLatin1(parts[0] + ' ' + parts[1] + ' ' + parts[2])
                             : QStringLiteral("?");
}

unsigned cores()
{
    return std::max(1u, std::thread::hardware_concurrency());
}

namespace {

// The pid of the X server serving $DISPLAY (":99" or ":99.0"), 0 when none.
qint64 findXServer()
{
    QByteArray display = qgetenv("DISPLAY");
    const int dot = display.lastIndexOf('.');
    if (dot > display.indexOf(':'))
        display.truncate(dot);
    if (display.isEmpty())
        return 0;
    const QStringList pids = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& pid : pids) {
        bool number = false;
        const qint64 id = pid.toLongLong(&number);
        if (!number)
            continue;
        QFile cmdline(QStringLiteral("/proc/%1/cmdline").arg(pid));
        if (!cmdline.open(QIODevice::ReadOnly))
            continue;
        const QList<QByteArray> args = cmdline.readAll().split('\0');
        if (args.isEmpty())
            continue;
        const QByteArray program = args.first().mid(args.first().lastIndexOf('/') + 1);
        if (program != "Xvfb" && program != "Xorg" && program != "X")
            continue;
        if (args.contains(display))
            return id;
    }
    return 0;
}

} // namespace

double xServerCpuSeconds()
{
    static const qint64 pid = findXServer();
    if (pid <= 0)
        return -1.0;
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return -1.0;
    const QByteArray text = stat.readAll();
    const int close = text.lastIndexOf(')');
    const QList<QByteArray> fields = text.mid(close + 2).split(' ');
    if (close < 0 || fields.size() < 13)
        return -1.0;
    return (fields[11].toDouble() + fields[12].toDouble()) / double(sysconf(_SC_CLK_TCK));
}

ThreadCpu threadCpu()
{
    QMap<QString, double> byName;
    const double tick = double(sysconf(_SC_CLK_TCK));
    const QStringList tasks = QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& tid : tasks) {
        QFile stat(QStringLiteral("/proc/self/task/%1/stat").arg(tid));
        if (!stat.open(QIODevice::ReadOnly))
            continue; // the thread ended meanwhile
        const QByteArray text = stat.readAll();
        const int open = text.indexOf('('), close = text.lastIndexOf(')');
        if (open < 0 || close < open)
            continue;
        QString name = QString::fromUtf8(text.mid(open + 1, close - open - 1));
        while (!name.isEmpty() && name.back().isDigit())
            name.chop(1);
        // After the name: state is field 3, utime 14 and stime 15.
        const QList<QByteArray> fields = text.mid(close + 2).split(' ');
        if (fields.size() < 13)
            continue;
        byName[name] += (fields[11].toDouble() + fields[12].toDouble()) / tick;
    }
    ThreadCpu result;
    for (auto it = byName.cbegin(); it != byName.cend(); ++it)
        result.emplace_back(it.key(), it.value());
    return result;
}

ThreadCpu threadCpuBetween(const ThreadCpu& before, const ThreadCpu& after)
{
    ThreadCpu delta;
    for (const auto& [name, seconds] : after) {
        double start = 0.0;
        for (const auto& b : before) {
            if (b.first == name)
                start = b.second;
        }
        if (seconds - start > 0.0)
            delta.emplace_back(name, seconds - start);
    }
    std::sort(delta.begin(), delta.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    return delta;
}

namespace {

/// One line of CPU by thread: each thread's seconds times `scale`, in `unit`.
void printThreadUse(const ThreadCpu& before, const ThreadCpu& after, const char* unit,
                    double scale, int decimals)
{
    std::printf("    CPU by thread (%s):", unit);
    for (const auto& [name, seconds] : threadCpuBetween(before, after))
        std::printf("  %s %.*f", qPrintable(name), decimals, seconds * scale);
    std::printf("\n");
}

} // namespace

void printThreadCpu(const ThreadCpu& before, const ThreadCpu& after, double frames)
{
    if (frames > 0)
        printThreadUse(before, after, "ms per frame", 1000.0 / frames, 2);
}

void printThreadShare(const ThreadCpu& before, const ThreadCpu& after, double seconds)
{
    if (seconds > 0)
        printThreadUse(before, after, "% of one core", 100.0 / seconds, 0);
}

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return 0.0;
    std::sort(values.begin(), values.end());
    const size_t rank = static_cast<size_t>(p / 100.0 * double(values.size() - 1) + 0.5);
    return values[std::min(rank, values.size() - 1)];
}

double median(std::vector<double> values)
{
    return percentile(std::move(values), 50);
}

ChildResult runChild(const QStringList& argv)
{
    ChildResult result;
    if (argv.isEmpty())
        return result;
    QTemporaryFile out, err;
    if (!out.open() || !err.open()) {
        qWarning("runChild: no temporary file for the output of %s", qPrintable(argv[0]));
        return result;
    }
    std::vector<QByteArray> args;
    for (const QString& a : argv)
        args.push_back(a.toLocal8Bit());
    std::vector<char*> cargs;
    for (QByteArray& a : args)
        cargs.push_back(a.data());
    cargs.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out.handle(), 1);
    posix_spawn_file_actions_adddup2(&actions, err.handle(), 2);

    const double cpu0 = childrenCpuSeconds();
    const Clock::time_point t0 = Clock::now();
    pid_t pid = 0;
    const int spawned = posix_spawnp(&pid, cargs[0], &actions, nullptr, cargs.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        qWarning("runChild: cannot start %s", qPrintable(argv[0]));
        return result;
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    result.wallSeconds = msSince(t0) / 1000.0;
    result.cpuSeconds = childrenCpuSeconds() - cpu0;
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    out.seek(0);
    err.seek(0);
    result.out = out.readAll();
    result.err = err.readAll();
    return result;
}

Clip ensureClip(const QString& dir, int seconds, int toneHz, const QSize& size)
{
    Clip clip;
    clip.seconds = seconds;
    QDir().mkpath(dir);
    const QString path = QDir(dir).filePath(
        QStringLiteral("h264-%1p30-%2s-%3hz.mp4").arg(size.height()).arg(seconds).arg(toneHz));
    if (!QFileInfo::exists(path)) {
        const QString partial = path + QStringLiteral(".part.mp4");
        const ChildResult made = runChild({
            "ffmpeg", "-y", "-v", "error",
            "-f", "lavfi", "-i", QStringLiteral("testsrc2=size=%1x%2:rate=30:duration=%3")
                                     .arg(size.width()).arg(size.height()).arg(seconds),
            "-f", "lavfi", "-i", QStringLiteral("sine=frequency=%1:sample_rate=48000:duration=%2")
                                     .arg(toneHz).arg(seconds),
            "-c:v", "libx264", "-preset", "ultrafast", "-g", "60", "-pix_fmt", "yuv420p",
            "-c:a", "aac", "-b:a", "128k", "-shortest", partial});
        if (made.exitCode != 0 || !QFile::rename(partial, path)) {
            qWarning("ensureClip: ffmpeg could not make %s: %s", qPrintable(path), made.err.constData());
            QFile::remove(partial);
            return clip;
        }
    }
    const ChildResult probe = runChild({"ffprobe", "-v", "error", "-select_streams", "v:0",
                                        "-show_entries", "stream=nb_frames", "-of", "csv=p=0", path});
    clip.frames = probe.exitCode == 0 ? probe.out.trimmed().toInt() : 0;
    if (clip.frames <= 0) {
        qWarning("ensureClip: no frame count for %s", qPrintable(path));
        return clip;
    }
    clip.path = path;
    return clip;
}

Clip copyClip(const Clip& clip, const QString& suffix)
{
    Clip copy = clip;
    copy.path = clip.path.left(clip.path.size() - 4) + suffix + QStringLiteral(".mp4");
    if (!QFileInfo::exists(copy.path) && !QFile::copy(clip.path, copy.path)) {
        qWarning("copyClip: cannot copy %s", qPrintable(clip.path));
        copy.path.clear();
    }
    return copy;
}

} // namespace bench
