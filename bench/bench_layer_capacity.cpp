// How many 1080p30 layers play without dropping a frame: N players of the same
// 1080p30 H.264 clip, each shown at 320x180 on one 1280x720 offscreen screen,
// all started together and played for --seconds (default 20; 60 for the full
// check). N steps 1, 2, 3, ... until a step drops; the capacity is the last N
// without drops. The clip is made --seconds + 3 s long so that no layer
// loops during a step: libmpv's drop counters are not monotonic across a
// loop (a looped run showed them going down), and a loop seam is a separate
// question from steady playback.
//
// A step drops when, summed over its layers, libmpv's "frame-drop-count"
// (frames the video output dropped) or "decoder-frame-drop-count" (frames the
// decoder skipped) grew during the run, or when the slowest layer showed
// fewer frames than the run's length asks for (frame-source serial increments
// < 30 fps x seconds - max(3, 1%)): a layer whose frames come late without
// libmpv dropping them still falls behind. "vo-delayed-frame-count" (frames
// shown late) is printed, not counted.
//
// Reference (the decode-bound limit): `ffmpeg -benchmark -i clip -f null -`
// run three times as a child; the best decode rate in real time
// (frames / rtime) divided by 30 is the number of 30 fps streams this machine
// decodes when decoding is all it does. The ratio capacity / limit is what
// the target (>= 0.7) is about. Also printed: the limit from CPU time
// (cores x frames / (utime + stime) / 30), which a loaded machine affects less.
//
//   xvfb-run -a -s "-screen 0 1920x1080x24" env QT_QPA_PLATFORM=offscreen
//       build/bench/kelmor_bench_layer_capacity [--seconds 60] [--from 4] [--max-layers 16]
#include "bench_common.h"

#include "AVPlayer.h"

#include <QCommandLineParser>
#include <QRegularExpression>
#include <cstdio>
#include <limits>

using namespace bench;

namespace {

struct DecodeLimit
{
    double realFps = 0.0; // frames / rtime, best of the runs
    double cpuFps = 0.0;  // frames / (utime + stime), best of the runs
};

DecodeLimit decodeLimit(const Clip& clip)
{
    DecodeLimit best;
    static const QRegularExpression bench(
        QStringLiteral("bench: utime=([0-9.]+)s stime=([0-9.]+)s rtime=([0-9.]+)s"));
    for (int i = 0; i < 3; ++i) {
        const ChildResult r = runChild({"ffmpeg", "-nostats", "-benchmark", "-i", clip.path, "-f",
                                        "null", "-"});
        const QRegularExpressionMatch m = bench.match(QString::fromUtf8(r.err));
        if (r.exitCode != 0 || !m.hasMatch()) {
            std::printf("  ffmpeg -benchmark failed (%d)\n", r.exitCode);
            continue;
        }
        const double cpu = m.captured(1).toDouble() + m.captured(2).toDouble();
        const double real = m.captured(3).toDouble();
        if (real > 0)
            best.realFps = std::max(best.realFps, clip.frames / real);
        if (cpu > 0)
            best.cpuFps = std::max(best.cpuFps, clip.frames / cpu);
        std::printf("  ffmpeg decode: utime+stime %.2f s, rtime %.2f s -> %.0f fps real, "
                    "%.0f fps per CPU second   load %s\n",
                    cpu, real, clip.frames / real, clip.frames / cpu, qPrintable(loadAverage()));
    }
    return best;
}

struct Step
{
    int layers = 0;
    qint64 voDrops = 0;      // frame-drop-count, all layers
    qint64 decoderDrops = 0; // decoder-frame-drop-count, all layers
    qint64 delayed = 0;      // vo-delayed-frame-count, all layers
    quint64 fewestShown = 0; // frames shown by the slowest layer
    double expected = 0.0;   // frames each layer should have shown
    double cpuPercent = 0.0; // of one core
    bool fewFrames() const
    {
        return double(fewestShown) < expected - std::max(3.0, expected * 0.01);
    }
    bool dropped() const { return voDrops != 0 || decoderDrops != 0 || fewFrames(); }
};

qint64 counter(const Layer& layer, const char* name)
{
    return layer.mpvProperty(name).toLongLong();
}

Step runStep(int count, const Clip& clip, ScreenWidget* screen, int seconds)
{
    Step step;
    step.layers = count;
    std::vector<std::unique_ptr<Layer>> layers;
    for (int i = 0; i < count; ++i) {
        layers.push_back(std::make_unique<Layer>());
        layers.back()->show(screen, gridCell(i, 4, QSize(320, 180)));
    }
    if (!loadLayers(layers, clip, false)) {
        std::printf("  %d layers did not all load\n", count);
        step.voDrops = -1;
        releaseLayers(layers);
        return step;
    }
    runFor(300);
    std::vector<quint64> serials;
    std::vector<qint64> vo0, decoder0, delayed0;
    for (auto& layer : layers) {
        serials.push_back(layer->serial());
        vo0.push_back(counter(*layer, "frame-drop-count"));
        decoder0.push_back(counter(*layer, "decoder-frame-drop-count"));
        delayed0.push_back(counter(*layer, "vo-delayed-frame-count"));
    }
    const double cpu0 = selfCpuSeconds();
    const Clock::time_point t0 = Clock::now();
    for (auto& layer : layers)
        layer->player()->pause(false);
    runFor(seconds * 1000);
    const double wall = msSince(t0) / 1000.0;
    step.cpuPercent = (selfCpuSeconds() - cpu0) / wall * 100.0;
    step.expected = wall * clip.fps - 1.0; // the first frame after the start shows 1/30 s late
    step.fewestShown = std::numeric_limits<quint64>::max();
    for (size_t i = 0; i < layers.size(); ++i) {
        step.fewestShown = std::min<quint64>(step.fewestShown, layers[i]->serial() - serials[i]);
        step.voDrops += counter(*layers[i], "frame-drop-count") - vo0[i];
        step.decoderDrops += counter(*layers[i], "decoder-frame-drop-count") - decoder0[i];
        step.delayed += counter(*layers[i], "vo-delayed-frame-count") - delayed0[i];
    }
    releaseLayers(layers);
    return step;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    BenchApp app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription("Layers of 1080p30 played without drops, against the decode limit.");
    addCommonOptions(parser);
    parser.addOption({"seconds", "Seconds each step plays (default 20).", "s", "20"});
    parser.addOption({"max-layers", "Highest layer count tried (default 16).", "n", "16"});
    parser.addOption({"from", "First layer count tried (default 1; counts below are taken as passed).",
                      "n", "1"});
    parser.process(app);
    if (!app.start(parser))
        return 1;
    const int seconds = std::max(1, parser.value("seconds").toInt());
    const int maxLayers = std::max(1, std::min(16, parser.value("max-layers").toInt()));
    const int from = std::max(1, std::min(maxLayers, parser.value("from").toInt()));
    const Clip clip = ensureClip(mediaDir(parser), seconds + 3, 440);
    if (!clip.ok())
        return 1;

    std::printf("layer capacity: %s, %d s per step, 320x180 each on a 1280x720 screen; "
                "%u cores\n", qPrintable(clip.path), seconds, cores());
    const DecodeLimit limit = decodeLimit(clip);
    const double limitReal = limit.realFps / clip.fps;
    const double limitCpu = cores() * limit.cpuFps / clip.fps;
    std::printf("decode-bound limit: %.1f layers (real time), %.1f layers (CPU time x %u cores)\n",
                limitReal, limitCpu, cores());

    ScreenWidget* screen = openScreen(1, QSize(1280, 720));
    std::printf("  %6s %8s %8s %8s %10s %10s %7s   %s\n", "layers", "vo drop", "dec drop",
                "delayed", "min shown", "expected", "cpu %", "load average");
    int capacity = from - 1;
    for (int n = from; n <= maxLayers; ++n) {
        const Step s = runStep(n, clip, screen, seconds);
        std::printf("  %6d %8lld %8lld %8lld %10llu %10.0f %7.0f   %s%s\n", n,
                    static_cast<long long>(s.voDrops), static_cast<long long>(s.decoderDrops),
                    static_cast<long long>(s.delayed),
                    static_cast<unsigned long long>(s.fewestShown), s.expected, s.cpuPercent,
                    qPrintable(loadAverage()), s.dropped() ? "  <- drops" : "");
        std::fflush(stdout);
        if (s.dropped())
            break;
        capacity = n;
    }
    closeScreens();
    std::printf("capacity: %d layers without a dropped frame for %d s\n", capacity, seconds);
    if (limitReal > 0)
        std::printf("ratio capacity / decode limit: %.2f (real-time limit; target >= 0.7), "
                    "%.2f (CPU-time limit)\n", capacity / limitReal,
                    limitCpu > 0 ? capacity / limitCpu : 0.0);
    return 0;
}
