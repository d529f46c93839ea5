// CPU cost of playing one layer: a 1080p30 H.264 clip (10 s, made with ffmpeg
// at run time) played by one player into a 640x360 offscreen screen.
//
// Method. The player has no untimed mode (libmpv's "untimed" is not one of
// its settings), so it plays the whole clip at real time: the CPU time of
// the whole process (getrusage(RUSAGE_SELF): libmpv's decoding and render
// threads, the GL driver's threads, the compositor) from pause(false) to the
// end of the clip, divided by the frames that reached the screen (increments
// of the player's frame-source serial). The reference is the same real-time
// playback by the mpv program, `mpv --no-config --vo=null --ao=null clip`,
// run as a child and measured with getrusage(RUSAGE_CHILDREN), divided by the
// clip's frame count. The ratio ours/reference is what the target (<= 1.10)
// is about; note that the reference decodes but draws nothing, while ours
// also converts and scales every frame to 640x360 and composites it.
//
// Also shown: mpv untimed (`--untimed --ao-null-untimed --frames=N`; the
// null audio output would otherwise pace the run at real time), the lowest
// CPU per frame mpv's decode path reaches.
//
// Runs alternate ours / reference (--runs, default 1) and the ratio is the
// median of the per-run ratios; the load average is printed with each run.
//
//   xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" env QT_QPA_PLATFORM=offscreen
//       build/bench/kelmor_bench_play_cpu [--runs 5]
#include "bench_common.h"

#include "AVPlayer.h"

#include <QCommandLineParser>
#include <cstdio>

using namespace bench;

namespace {

struct Figures
{
    double cpuSeconds = 0.0;
    double wallSeconds = 0.0;
    int frames = 0;
    ThreadCpu threads0, threads1; // ours only: per-thread CPU around the run
    double msPerFrame() const { return frames > 0 ? cpuSeconds * 1000.0 / frames : 0.0; }
};

/// Our player: the whole clip at real time into a 640x360 screen.
Figures playOurs(const Clip& clip)
{
    Figures f;
    ScreenWidget* screen = openScreen(1, QSize(640, 360));
    std::vector<std::unique_ptr<Layer>> layers;
    layers.push_back(std::make_unique<Layer>());
    Layer& layer = *layers.front();
    layer.show(screen, QRect(0, 0, 640, 360));
    if (!loadLayers(layers, clip, false)) {
        std::printf("  our player did not load the clip\n");
        releaseLayers(layers);
        closeScreens();
        return f;
    }
    runFor(300); // let the first picture settle
    bool stopped = false;
    QObject::connect(layer.player(), &QtAV::AVPlayer::stopped, layer.player(),
                     [&stopped] { stopped = true; });
    const quint64 serial0 = layer.serial();
    f.threads0 = threadCpu();
    const double cpu0 = selfCpuSeconds();
    const Clock::time_point t0 = Clock::now();
    layer.player()->pause(false);
    // Poll slowly: the poll itself should cost nothing measurable.
    waitUntil([&] { return stopped; }, int(clip.seconds * 1000) + 10000, 50);
    f.cpuSeconds = selfCpuSeconds() - cpu0;
    f.wallSeconds = msSince(t0) / 1000.0;
    f.frames = int(layer.serial() - serial0);
    f.threads1 = threadCpu();
    if (!stopped)
        std::printf("  (the clip did not end within its length + 10 s)\n");
    releaseLayers(layers);
    closeScreens();
    return f;
}

Figures playMpv(const Clip& clip, bool untimed)
{
    QStringList args{"mpv", "--no-config", "--really-quiet", "--vo=null", "--ao=null"};
    if (untimed)
        args << "--untimed" << "--ao-null-untimed" << QStringLiteral("--frames=%1").arg(clip.frames);
    args << clip.path;
    const ChildResult r = runChild(args);
    Figures f;
    if (r.exitCode != 0) {
        std::printf("  mpv failed (%d): %s\n", r.exitCode, r.err.constData());
        return f;
    }
    f.cpuSeconds = r.cpuSeconds;
    f.wallSeconds = r.wallSeconds;
    f.frames = clip.frames;
    return f;
}

void printRow(const char* what, const Figures& f)
{
    std::printf("  %-34s %7.2f %7.2f %7d %9.3f   %s\n", what, f.cpuSeconds, f.wallSeconds, f.frames,
                f.msPerFrame(), qPrintable(loadAverage()));
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    BenchApp app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription("CPU per frame of one 1080p30 layer against mpv --vo=null.");
    addCommonOptions(parser);
    parser.addOption({"runs", "Alternating runs of ours and the reference (default 1).", "n", "1"});
    parser.process(app);
    if (!app.start(parser))
        return 1;
    const int runs = std::max(1, parser.value("runs").toInt());

    const Clip clip = ensureClip(mediaDir(parser), 10, 440);
    if (!clip.ok())
        return 1;
    std::printf("play cpu: %s, %d frames; %u cores; one layer into a 640x360 offscreen screen\n",
                qPrintable(clip.path), clip.frames, cores());
    std::printf("  %-34s %7s %7s %7s %9s   %s\n", "run", "cpu s", "wall s", "frames", "ms/frame",
                "load average");

    std::vector<double> ratios, ours, timed, untimed;
    for (int run = 0; run < runs; ++run) {
        const Figures o = playOurs(clip);
        printRow("ours (real time, drawn 640x360)", o);
        printThreadCpu(o.threads0, o.threads1, o.frames);
        const Figures m = playMpv(clip, false);
        printRow("mpv --vo=null (real time)", m);
        const Figures u = playMpv(clip, true);
        printRow("mpv --vo=null --untimed", u);
        if (o.frames > 0 && m.frames > 0 && m.msPerFrame() > 0) {
            ratios.push_back(o.msPerFrame() / m.msPerFrame());
            ours.push_back(o.msPerFrame());
            timed.push_back(m.msPerFrame());
            untimed.push_back(u.msPerFrame());
        }
    }
    if (ratios.empty()) {
        std::printf("no complete run\n");
        return 1;
    }
    std::printf("median ms/frame: ours %.3f, mpv timed %.3f, mpv untimed %.3f\n", median(ours),
                median(timed), median(untimed));
    std::printf("ratio ours / mpv --vo=null (real time): %.2f (median of %zu run(s); target <= 1.10)\n",
                median(ratios), ratios.size());
    std::printf("ratio ours / mpv --vo=null --untimed:   %.2f\n", median(ours) / median(untimed));
    return 0;
}
