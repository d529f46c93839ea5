// How many layers play in real time without dropping a frame, against the
// decode floor of the same clip: N players of one H.264 clip at 30 fps
// (360p and 720p by default, --heights), tiled over one 1280x720 offscreen
// screen (ceil(sqrt(N)) columns of 16:9 tiles; 16 layers are 320x180 each),
// started together and played for --seconds (default 60).
//
// Search: N doubles from --from (default 2) until a step drops, then the gap
// between the last passing and the first dropping N is halved until they
// meet; the capacity is the largest N that passed. The clip is --seconds +
// 3 s long so that no layer loops during a step.
//
// Drops of a step, summed over its layers: libmpv's "frame-drop-count"
// (frames its video output dropped because they could not be drawn in time;
// the output screens count exactly these for a played layer,
// ScreenService::droppedFrames) and "decoder-frame-drop-count"; and the
// slowest layer must show as many new frames as the run's length asks for
// (30 fps x seconds - max(3, 1%)). Two capacities are printed: strict, the
// largest N run with no drop at all; and the one the search follows, which
// allows --tolerance drops per thousand frames due (default 2): on a machine
// shared with other work, a single layer drops a few frames a minute
// whenever the scheduler is late, whatever the layer count.
//
// Reference, the decode floor: `ffmpeg -benchmark -i clip -f null -`, run
// three times per clip, interleaved with the search (before it, between its
// two phases and after it); the median decode rate in real time (frames /
// rtime) divided by 30 is the number of real-time streams this machine
// decodes when decoding is all it does. Printed: capacity / floor (goal
// >= 0.5 on llvmpipe), with the load average on every row.
//
//   xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" env QT_QPA_PLATFORM=offscreen
//       build/bench/kelmor_bench_layer_capacity [--seconds 60] [--heights 360,720] [--threads]
// (--threads: each step's CPU by thread name, in percent of one core, a
// thread near 100 being a serial limit whatever the other cores do; and the
// compositor's ticks: how many a second, how long, and the share of the GUI
// thread's time they take. --render-thread: output frames drawn on the render
// thread, ScreenService::setRenderThread; the ticks are then the GUI thread's
// part of a frame only.)
// Every step also prints how late a 5 ms timer on the GUI thread fires (p50,
// p99, max): what a command arriving then waits before it runs.
#include "bench_common.h"

#include "AVPlayer.h"
#include "ScreenService.h"

#include <QTimer>
#include <chrono>
#include "ScreenService.h"

#include <QCommandLineParser>
#include <QRegularExpression>
#include <QtMath>
#include <cstdio>
#include <limits>

using namespace bench;

namespace {

const QSize kScreen(1280, 720);

/// One ffmpeg decode of the clip: frames per second of real time (0 on failure).
double decodeFps(const Clip& clip)
{
    static const QRegularExpression bench(
        QStringLiteral("bench: utime=([0-9.]+)s stime=([0-9.]+)s rtime=([0-9.]+)s"));
    const ChildResult r = runChild({"ffmpeg", "-nostats", "-benchmark", "-i", clip.path, "-f",
                                    "null", "-"});
    const QRegularExpressionMatch m = bench.match(QString::fromUtf8(r.err));
    if (r.exitCode != 0 || !m.hasMatch()) {
        std::printf("  ffmpeg -benchmark failed (%d)\n", r.exitCode);
        return 0.0;
    }
    const double cpu = m.captured(1).toDouble() + m.captured(2).toDouble();
    const double real = m.captured(3).toDouble();
    std::printf("  floor: ffmpeg decode utime+stime %.2f s, rtime %.2f s -> %.0f fps, %.1f "
                "real-time streams   load %s\n", cpu, real, real > 0 ? clip.frames / real : 0.0,
                real > 0 ? clip.frames / real / clip.fps : 0.0, qPrintable(loadAverage()));
    std::fflush(stdout);
    return real > 0 ? clip.frames / real : 0.0;
}

struct Step
{
    int layers = 0;
    qint64 voDrops = 0;       // frame-drop-count, all layers
    qint64 decoderDrops = 0;  // decoder-frame-drop-count, all layers
    quint64 fewestShown = 0;  // new frames of the slowest layer
    double expected = 0.0;    // new frames each layer should have shown
    double cpuPercent = 0.0;  // of one core
    ThreadCpu threads0, threads1; // per-thread CPU around the measured time
    std::vector<double> ticks; // compositor tick durations (ms) in the measured time
    std::vector<double> lateness; // how late (ms) a 5 ms GUI-thread timer fired
    double seconds = 0.0;     // the measured time
    bool loaded = true;
    bool fewFrames() const { return double(fewestShown) < expected - std::max(3.0, expected * 0.01); }
    bool dropped() const { return !loaded || voDrops != 0 || decoderDrops != 0 || fewFrames(); }
    /// Drops per thousand frames due.
    double dropRate() const
    {
        return expected > 0 ? double(voDrops + decoderDrops) * 1000.0 / (expected * layers) : 0.0;
    }
    bool tooMany(double tolerance) const
    {
        return !loaded || fewFrames() || dropRate() > tolerance;
    }
};

bool g_threads = false; // --threads: where the CPU of each step went

qint64 counter(const Layer& layer, const char* name)
{
    return layer.mpvProperty(name).toLongLong();
}

Step runStep(int count, const Clip& clip, const QSize& picture, ScreenWidget* screen, int seconds)
{
    Step step;
    step.layers = count;
    const int columns = int(qCeil(std::sqrt(double(count))));
    const QSize tile(kScreen.width() / columns, kScreen.height() / columns);
    std::vector<std::unique_ptr<Layer>> layers;
    for (int i = 0; i < count; ++i) {
        layers.push_back(std::make_unique<Layer>());
        layers.back()->show(screen, gridCell(i, columns, tile), picture);
    }
    if (!loadLayers(layers, clip, false, 60000)) {
        std::printf("  %d layers did not all load\n", count);
        step.loaded = false;
        releaseLayers(layers);
        return step;
    }
    runFor(300);
    std::vector<quint64> serials;
    std::vector<qint64> vo0, decoder0;
    for (auto& layer : layers) {
        serials.push_back(layer->serial());
        vo0.push_back(counter(*layer, "frame-drop-count"));
        decoder0.push_back(counter(*layer, "decoder-frame-drop-count"));
    }
    const double cpu0 = selfCpuSeconds();
    step.threads0 = threadCpu();
    auto* app = static_cast<BenchApp*>(QCoreApplication::instance());
    app->recordTicks(g_threads);
    const Clock::time_point t0 = Clock::now();
    for (auto& layer : layers)
        layer->player()->pause(false);
    // The GUI thread's answer time: a repeating 5 ms timer's lateness.
    QTimer probe;
    probe.setTimerType(Qt::PreciseTimer);
    Clock::time_point last = Clock::now();
    QObject::connect(&probe, &QTimer::timeout, [&] {
        const Clock::time_point now = Clock::now();
        step.lateness.push_back(
            std::max(0.0, std::chrono::duration<double, std::milli>(now - last).count() - 5.0));
        last = now;
    });
    probe.start(5);
    runFor(seconds * 1000);
    probe.stop();
    const double wall = msSince(t0) / 1000.0;
    app->recordTicks(false);
    step.ticks = app->takeTicks();
    app->takeTickStarts();
    step.threads1 = threadCpu();
    step.seconds = wall;
    step.cpuPercent = (selfCpuSeconds() - cpu0) / wall * 100.0;
    step.expected = wall * clip.fps - 1.0; // the first frame after the start shows 1/30 s late
    step.fewestShown = std::numeric_limits<quint64>::max();
    for (size_t i = 0; i < layers.size(); ++i) {
        step.fewestShown = std::min<quint64>(step.fewestShown, layers[i]->serial() - serials[i]);
        step.voDrops += counter(*layers[i], "frame-drop-count") - vo0[i];
        step.decoderDrops += counter(*layers[i], "decoder-frame-drop-count") - decoder0[i];
    }
    releaseLayers(layers);
    return step;
}

void printStep(const Step& s, double tolerance)
{
    std::printf("  %6d %8lld %8lld %8.2f %10llu %10.0f %7.0f   %s%s\n", s.layers,
                static_cast<long long>(s.voDrops), static_cast<long long>(s.decoderDrops),
                s.dropRate(), static_cast<unsigned long long>(s.fewestShown), s.expected,
                s.cpuPercent, qPrintable(loadAverage()),
                s.tooMany(tolerance) ? "  <- too many drops" : s.dropped() ? "  <- drops" : "");
    std::printf("    GUI thread: a 5 ms timer late by p50 %.2f ms, p99 %.2f ms, max %.1f ms\n",
                percentile(s.lateness, 50), percentile(s.lateness, 99),
                percentile(s.lateness, 100));
    if (g_threads) {
        printThreadShare(s.threads0, s.threads1, s.seconds);
        double busy = 0.0;
        for (double t : s.ticks)
            busy += t;
        std::printf("    compositor ticks: %.1f a second, p50 %.2f ms, p99 %.2f ms, GUI thread "
                    "in ticks %.0f%%\n", s.seconds > 0 ? double(s.ticks.size()) / s.seconds : 0.0,
                    percentile(s.ticks, 50), percentile(s.ticks, 99),
                    s.seconds > 0 ? busy / (s.seconds * 10.0) : 0.0);
    }
    std::fflush(stdout);
}

struct Capacity
{
    int layers = 0;     // within the tolerance
    int strict = 0;     // the largest N run without a drop
    double floor = 0.0; // real-time streams, median of the ffmpeg runs
};

Capacity measure(const Clip& clip, const QSize& picture, int seconds, int from, int maxLayers,
                 double tolerance)
{
    Capacity result;
    std::vector<double> fps;
    fps.push_back(decodeFps(clip));
    ScreenWidget* screen = openScreen(1, kScreen);
    std::printf("  %6s %8s %8s %8s %10s %10s %7s   %s\n", "layers", "vo drop", "dec drop",
                "per 1000", "min shown", "expected", "cpu %", "load average");
    int passed = 0, failed = maxLayers + 1;
    // Doubling until a step drops.
    for (int n = std::min(from, maxLayers); n <= maxLayers; n = std::min(n * 2, maxLayers)) {
        const Step s = runStep(n, clip, picture, screen, seconds);
        printStep(s, tolerance);
        if (!s.dropped())
            result.strict = std::max(result.strict, n);
        if (s.tooMany(tolerance)) {
            failed = n;
            break;
        }
        passed = n;
        if (n == maxLayers)
            break;
    }
    fps.push_back(decodeFps(clip));
    // Halving the gap.
    while (failed - passed > 1) {
        const int n = (passed + failed) / 2;
        const Step s = runStep(n, clip, picture, screen, seconds);
        printStep(s, tolerance);
        if (!s.dropped())
            result.strict = std::max(result.strict, n);
        (s.tooMany(tolerance) ? failed : passed) = n;
    }
    closeScreens();
    fps.push_back(decodeFps(clip));
    result.layers = passed;
    result.floor = median(fps) / clip.fps;
    return result;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    BenchApp app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription("Layers played without drops, against the decode floor.");
    addCommonOptions(parser);
    parser.addOption({"seconds", "Seconds each step plays (default 60).", "s", "60"});
    parser.addOption({"heights", "Clip heights to measure, comma-separated (default 360,720).",
                      "list", "360,720"});
    parser.addOption({"from", "First layer count tried (default 2).", "n", "2"});
    parser.addOption({"max-layers", "Highest layer count tried (default 96).", "n", "96"});
    parser.addOption({"threads", "Print each step's CPU by thread, in percent of one core."});
    parser.addOption({"tolerance", "Drops allowed per thousand frames due (default 2).", "n", "2"});
    parser.process(app);
    if (!app.start(parser))
        return 1;
    const int seconds = std::max(1, parser.value("seconds").toInt());
    const int maxLayers = std::max(1, std::min(256, parser.value("max-layers").toInt()));
    const int from = std::max(1, std::min(maxLayers, parser.value("from").toInt()));
    const double tolerance = std::max(0.0, parser.value("tolerance").toDouble());
    g_threads = parser.isSet("threads");

    std::printf("layer capacity: %d s per step on a 1280x720 offscreen screen%s; %u cores; "
                "load average %s\n", seconds,
                ScreenService::getInstance().renderThread() ? ", frames on the render thread" : "",
                cores(), qPrintable(loadAverage()));
    std::vector<QString> results;
    for (const QString& h : parser.value("heights").split(',', Qt::SkipEmptyParts)) {
        const int height = h.trimmed().toInt();
        if (height < 90 || height > 2160) {
            std::printf("height %s ignored\n", qPrintable(h));
            continue;
        }
        const QSize picture((height * 16 / 9 + 1) / 2 * 2, height);
        const Clip clip = ensureClip(mediaDir(parser), seconds + 3, 440, picture);
        if (!clip.ok())
            return 1;
        std::printf("%dp: %s\n", height, qPrintable(clip.path));
        const Capacity c = measure(clip, picture, seconds, from, maxLayers, tolerance);
        results.push_back(QStringLiteral("%1p: capacity %2 layers (at most %3 drops per 1000), "
                                         "strict %4 (no drop), decode floor %5 streams, ratio %6, "
                                         "strict %7 (goal >= 0.5)")
                              .arg(height).arg(c.layers).arg(tolerance).arg(c.strict)
                              .arg(c.floor, 0, 'f', 1)
                              .arg(c.floor > 0 ? c.layers / c.floor : 0.0, 0, 'f', 2)
                              .arg(c.floor > 0 ? c.strict / c.floor : 0.0, 0, 'f', 2));
        std::printf("%s\n", qPrintable(results.back()));
    }
    std::printf("load average after: %s\n", qPrintable(loadAverage()));
    for (const QString& r : results)
        std::printf("%s\n", qPrintable(r));
    return 0;
}
