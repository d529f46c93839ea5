// What the output screens cost: 1, 4 and 8 layers of the same 1080p30 H.264
// clip (looped) shown on 1 and on 3 offscreen screens of 640x360 (every layer
// on every screen: one layer fills the screen, four make a 2x2 grid of
// 320x180, eight a 4x2 grid of 160x180).
//
// Method. After a 1 s warm-up, for --seconds (default 6, to keep the default
// run short; use 10 or more for figures to report):
// - CPU per output frame: getrusage(RUSAGE_SELF) delta (decoding, libmpv's
//   rendering, the GL driver's threads, the compositor) divided by the new
//   frames of the first layer (its frame-source serial), i.e. per 1/30 s of
//   output;
// - tick time p50 / p99: wall time of each compositor tick on the GUI thread
//   (BenchApp::notify times the tick's timer event), with the tick count.
// The GL work a tick submits may finish on the driver's threads after the
// tick returns, so the CPU figure is the one to compare.
//
// Reference: `mpv --no-config --vo=gpu --gpu-sw=yes --ao=null
// --geometry=640x360 --length=10 clip` (the same clip in a 640x360 window of
// the same X server, same software GL), as a child measured with
// getrusage(RUSAGE_CHILDREN), divided by the frames it showed; run before and
// after our configurations and averaged. Targets: 1 layer on 1 screen
// <= 1.25 x the reference; the 2nd and 3rd screen showing the same layer add
// < 10% CPU per output frame.
//
//   xvfb-run -a -s "-screen 0 1920x1080x24" env QT_QPA_PLATFORM=offscreen
//       build/bench/kelmor_bench_compositor [--seconds 10]
#include "bench_common.h"

#include "AVPlayer.h"

#include <QCommandLineParser>
#include <cstdio>

using namespace bench;

namespace {

struct Config
{
    int layers = 1;
    int screens = 1;
    double cpuSeconds = 0.0;
    double wallSeconds = 0.0;
    quint64 frames = 0;
    std::vector<double> ticks;
    ThreadCpu threads0, threads1; // per-thread CPU around the measurement
    double msPerFrame() const { return frames ? cpuSeconds * 1000.0 / double(frames) : 0.0; }
};

QRect placement(int index, int layers)
{
    if (layers == 1)
        return QRect(0, 0, 640, 360);
    if (layers <= 4)
        return gridCell(index, 2, QSize(320, 180));
    return gridCell(index, 4, QSize(160, 180));
}

void runConfig(BenchApp& app, Config& c, const Clip& clip, int seconds)
{
    std::vector<ScreenWidget*> screens;
    for (int s = 0; s < c.screens; ++s)
        screens.push_back(openScreen(s + 1, QSize(640, 360)));
    std::vector<std::unique_ptr<Layer>> layers;
    for (int i = 0; i < c.layers; ++i) {
        layers.push_back(std::make_unique<Layer>());
        for (ScreenWidget* screen : screens)
            layers.back()->show(screen, placement(i, c.layers));
    }
    if (!loadLayers(layers, clip, true)) {
        std::printf("  %d layers did not all load\n", c.layers);
        releaseLayers(layers);
        closeScreens();
        return;
    }
    for (auto& layer : layers)
        layer->player()->pause(false);
    runFor(1000);
    const quint64 serial0 = layers.front()->serial();
    c.threads0 = threadCpu();
    const double cpu0 = selfCpuSeconds();
    const Clock::time_point t0 = Clock::now();
    app.takeTicks();
    app.recordTicks(true);
    runFor(seconds * 1000);
    app.recordTicks(false);
    c.cpuSeconds = selfCpuSeconds() - cpu0;
    c.wallSeconds = msSince(t0) / 1000.0;
    c.frames = layers.front()->serial() - serial0;
    c.threads1 = threadCpu();
    c.ticks = app.takeTicks();
    releaseLayers(layers);
    closeScreens();
}

/// mpv showing the clip in a 640x360 window; CPU ms per frame (0 on failure).
double runReference(const Clip& clip, int seconds)
{
    const int length = std::min(seconds, int(clip.seconds));
    const ChildResult r = runChild({"mpv", "--no-config", "--really-quiet", "--vo=gpu",
                                    "--gpu-sw=yes", "--ao=null", "--geometry=640x360",
                                    QStringLiteral("--length=%1").arg(length), clip.path});
    const int frames = std::min(clip.frames, int(length * clip.fps));
    if (r.exitCode != 0 || frames <= 0) {
        std::printf("  reference mpv failed (%d): %s\n", r.exitCode, r.err.constData());
        return 0.0;
    }
    const double ms = r.cpuSeconds * 1000.0 / frames;
    std::printf("  reference mpv --vo=gpu 640x360: %.2f s CPU, %.2f s wall, %d frames -> %.2f ms/frame"
                "   load %s\n", r.cpuSeconds, r.wallSeconds, frames, ms, qPrintable(loadAverage()));
    return ms;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    BenchApp app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription("Compositor cost per output frame against mpv --vo=gpu.");
    addCommonOptions(parser);
    parser.addOption({"seconds", "Seconds measured per configuration (default 6).", "s", "6"});
    parser.process(app);
    if (!app.start(parser))
        return 1;
    const int seconds = std::max(1, parser.value("seconds").toInt());
    const Clip clip = ensureClip(mediaDir(parser), 10, 440);
    if (!clip.ok())
        return 1;

    std::printf("compositor: %s looped on 640x360 offscreen screens, %d s per configuration; "
                "%u cores\n", qPrintable(clip.path), seconds, cores());
    const double ref0 = runReference(clip, seconds);
    std::vector<Config> configs;
    for (int layers : {1, 4, 8})
        for (int screens : {1, 3})
            configs.push_back(Config{layers, screens, 0.0, 0.0, 0, {}, {}, {}});
    std::printf("  %6s %7s %8s %8s %9s %7s %8s %8s   %s\n", "layers", "screens", "cpu %",
                "frames", "ms/frame", "ticks", "tick p50", "tick p99", "load average");
    for (Config& c : configs) {
        runConfig(app, c, clip, seconds);
        std::printf("  %6d %7d %8.0f %8llu %9.2f %7zu %8.2f %8.2f   %s\n", c.layers, c.screens,
                    c.wallSeconds > 0 ? c.cpuSeconds / c.wallSeconds * 100.0 : 0.0,
                    static_cast<unsigned long long>(c.frames), c.msPerFrame(), c.ticks.size(),
                    percentile(c.ticks, 50), percentile(c.ticks, 99), qPrintable(loadAverage()));
        printThreadCpu(c.threads0, c.threads1, double(c.frames));
        std::fflush(stdout);
    }
    const double ref1 = runReference(clip, seconds);
    const double ref = ref0 > 0 && ref1 > 0 ? (ref0 + ref1) / 2 : std::max(ref0, ref1);
    if (ref > 0 && configs[0].frames > 0) {
        std::printf("ratio 1 layer / 1 screen vs mpv --vo=gpu: %.2f (%.2f / %.2f ms per frame; "
                    "target <= 1.25)\n", configs[0].msPerFrame() / ref, configs[0].msPerFrame(), ref);
    }
    for (size_t i = 0; i + 1 < configs.size(); i += 2) {
        const Config& one = configs[i];
        const Config& three = configs[i + 1];
        if (one.msPerFrame() > 0)
            std::printf("%d layer(s): 2nd + 3rd screen add %+.1f%% CPU per output frame "
                        "(target < 10%%)\n", one.layers,
                        (three.msPerFrame() / one.msPerFrame() - 1.0) * 100.0);
    }
    return 0;
}
