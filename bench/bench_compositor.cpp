// What the output screens cost against a bare player: one 1080p30 H.264
// layer drawn full-screen on 1280x720 screens, against `mpv --vo=gpu
// --gpu-sw` drawing the same clip into a 1280x720 window of the same X
// server with the same software GL.
//
// Configurations, run in turn in every repetition (--reps, default 3), so
// that load changes on the shared machine hit them alike:
//   ref   mpv --no-config --vo=gpu --gpu-sw=yes --ao=null --geometry=1280x720
//         (a child); its cost is the difference between a run of
//         --seconds + 1 s and one of 1 s, which removes its start-up
//   win1  the layer on one windowed screen (a frameless 1280x720 window)
//   off1  the layer on one offscreen screen (no window: nothing for X)
//   win2, win3  the same layer on 2 and 3 windowed screens (overlapping
//         windows of the 1920x1080 X screen)
//   vsync1, vsync3  win1 and win3 with every window presented by a thread
//         of its own (ScreenService::Presentation::Vsync; under Xvfb there is
//         no refresh to wait for, so this measures the presentation threads'
//         cost and rate, not vsync itself)
// All windowed runs but vsync1 and vsync3 are presented Immediate (the
// compositor swaps the windows itself).
// Each of ours plays the looped clip for a 1 s warm-up, then --seconds
// measured (default 10).
//
// CPU per frame: CPU seconds of the process (getrusage; the child's for the
// reference) plus those of the X server ($DISPLAY's, from /proc: windows
// cost it every swap) during the run, divided by the layer's new frames
// (its frame-source serial; the reference: 30 fps x the seconds between its
// two runs). Pictures a second: the fewest pictures of any screen in any
// whole second of the run (ScreenService::drawnFrames, or presentedFrames for
// a window presented by its own thread: what reached the window; sampled
// every second).
// Ratios are taken per repetition and their medians printed:
//   win1 / ref and off1 / ref      (goal <= 1.10)
//   per added screen: (winN / win1 - 1) / (N - 1)   (goal <= +10%)
//   the same with vsync presentation, and vsync1 / win1
// and the load average with every row.
//
//   xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" build/bench/kelmor_bench_compositor [--reps 3]
// (Qt's xcb platform: windowed screens need it; not QT_QPA_PLATFORM=offscreen.)
// --render-thread: all of ours with output frames drawn on the render thread
// (ScreenService::setRenderThread); the thread's CPU is the process's.
#include "bench_common.h"

#include "AVPlayer.h"
#include "ScreenService.h"

#include <QCommandLineParser>
#include <QTimer>
#include <cstdio>
#include <limits>

using namespace bench;

namespace {

const QSize kScreen(1280, 720);

struct Run
{
    QString name;
    double cpuSeconds = 0.0;   // process (or child) + X server
    double xSeconds = 0.0;     // of which the X server
    double wallSeconds = 0.0;
    double frames = 0.0;
    int worstPictures = 0;     // fewest draws of a screen in a whole second
    std::vector<double> ticks; // compositor tick durations, ms
    ThreadCpu threads0, threads1; // ours: per-thread CPU around the run
    bool ok() const { return frames > 0 && cpuSeconds > 0; }
    double msPerFrame() const { return ok() ? cpuSeconds * 1000.0 / frames : 0.0; }
};

double xCpu()
{
    return std::max(0.0, xServerCpuSeconds());
}

/// One of ours: the layer on `screens` screens (windowed or not).
Run runOurs(BenchApp& app, const QString& name, int screens, bool windowed, const Clip& clip,
            int seconds, bool vsync = false)
{
    Run run;
    run.name = name;
    ScreenService::getInstance().setPresentation(vsync ? ScreenService::Presentation::Vsync
                                                       : ScreenService::Presentation::Immediate);
    // What reached a screen: its presentation thread's swaps, or its draws.
    const auto pictures = [](int id) {
        ScreenService& service = ScreenService::getInstance();
        return service.presentsWithVsync(id) ? service.presentedFrames(id) : service.drawnFrames(id);
    };
    std::vector<int> ids;
    for (int s = 0; s < screens; ++s) {
        const int id = s + 1;
        ids.push_back(id);
        if (windowed)
            openWindowScreen(id, kScreen, QPoint(320 * s, 180 * s));
        else
            openScreen(id, kScreen);
    }
    std::vector<std::unique_ptr<Layer>> layers;
    layers.push_back(std::make_unique<Layer>());
    for (int id : ids)
        layers.back()->show(ScreenService::getInstance().screenById(id), QRect(QPoint(0, 0), kScreen));
    if (!loadLayers(layers, clip, true)) {
        std::printf("  %s: the layer did not load\n", qPrintable(name));
        releaseLayers(layers);
        closeScreens();
        return run;
    }
    Layer& layer = *layers.front();
    layer.player()->pause(false);
    runFor(1000);

    // Draws per screen in every whole second.
    std::vector<quint64> lastDraws;
    for (int id : ids)
        lastDraws.push_back(pictures(id));
    run.worstPictures = std::numeric_limits<int>::max();
    QTimer sampler;
    sampler.setTimerType(Qt::PreciseTimer);
    QObject::connect(&sampler, &QTimer::timeout, [&] {
        for (size_t i = 0; i < ids.size(); ++i) {
            const quint64 now = pictures(ids[i]);
            run.worstPictures = std::min(run.worstPictures, int(now - lastDraws[i]));
            lastDraws[i] = now;
        }
    });

    const quint64 serial0 = layer.serial();
    run.threads0 = threadCpu();
    const double cpu0 = selfCpuSeconds(), x0 = xCpu();
    const Clock::time_point t0 = Clock::now();
    app.takeTicks();
    app.takeTickStarts();
    app.recordTicks(true);
    sampler.start(1000);
    runFor(seconds * 1000);
    sampler.stop();
    app.recordTicks(false);
    run.xSeconds = xCpu() - x0;
    run.cpuSeconds = selfCpuSeconds() - cpu0 + run.xSeconds;
    run.wallSeconds = msSince(t0) / 1000.0;
    run.frames = double(layer.serial() - serial0);
    run.threads1 = threadCpu();
    run.ticks = app.takeTicks();
    app.takeTickStarts();
    releaseLayers(layers);
    closeScreens();
    return run;
}

struct Child
{
    double cpu = 0.0, x = 0.0, wall = 0.0;
    bool ok = false;
};

Child runMpv(const Clip& clip, int length)
{
    Child c;
    const double x0 = xCpu();
    const ChildResult r = runChild({"mpv", "--no-config", "--really-quiet", "--vo=gpu",
                                    "--gpu-sw=yes", "--ao=null", "--geometry=1280x720",
                                    QStringLiteral("--length=%1").arg(length), clip.path});
    c.x = xCpu() - x0;
    c.cpu = r.cpuSeconds + c.x;
    c.wall = r.wallSeconds;
    c.ok = r.exitCode == 0;
    if (!c.ok)
        std::printf("  reference mpv failed (%d): %s\n", r.exitCode, r.err.constData());
    return c;
}

/// The reference: mpv's cost of `seconds` of playback, start-up removed.
Run runReference(const Clip& clip, int seconds)
{
    Run run;
    run.name = QStringLiteral("ref mpv --vo=gpu");
    const Child shortRun = runMpv(clip, 1);
    const Child longRun = runMpv(clip, seconds + 1);
    if (!shortRun.ok || !longRun.ok)
        return run;
    run.cpuSeconds = longRun.cpu - shortRun.cpu;
    run.xSeconds = longRun.x - shortRun.x;
    run.wallSeconds = longRun.wall - shortRun.wall;
    run.frames = seconds * clip.fps;
    run.worstPictures = -1;
    return run;
}

bool g_threads = false; // --threads: where our CPU went (main only)

void printRun(const Run& r)
{
    std::printf("  %-18s %7.2f %7.2f %7.2f %7.0f %9.2f %6s %7.2f %7.2f   %s\n", qPrintable(r.name),
                r.cpuSeconds, r.xSeconds, r.wallSeconds, r.frames, r.msPerFrame(),
                r.worstPictures >= 0 ? qPrintable(QString::number(r.worstPictures)) : "-",
                percentile(r.ticks, 50), percentile(r.ticks, 99), qPrintable(loadAverage()));
    if (g_threads && !r.threads1.empty())
        printThreadCpu(r.threads0, r.threads1, r.frames);
    std::fflush(stdout);
}

void printMedian(const char* what, const std::vector<double>& values, const char* goal)
{
    if (values.empty()) {
        std::printf("%-44s n/a\n", what);
        return;
    }
    std::printf("%-44s %6.2f  (runs:", what, median(values));
    for (double v : values)
        std::printf(" %.2f", v);
    std::printf("; %s)\n", goal);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    BenchApp app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription("Compositor cost per output frame against mpv --vo=gpu.");
    addCommonOptions(parser);
    parser.addOption({"seconds", "Seconds measured per configuration (default 10).", "s", "10"});
    parser.addOption({"reps", "Interleaved repetitions (default 3).", "n", "3"});
    parser.addOption({"threads", "Print where our CPU went, by thread, for every run."});
    parser.process(app);
    if (!app.start(parser))
        return 1;
    if (QGuiApplication::platformName() == QLatin1String("offscreen")) {
        std::fprintf(stderr, "windowed screens need Qt's xcb platform: unset QT_QPA_PLATFORM\n");
        return 1;
    }
    const int seconds = std::max(2, parser.value("seconds").toInt());
    const int reps = std::max(1, parser.value("reps").toInt());
    g_threads = parser.isSet("threads");
    const Clip clip = ensureClip(mediaDir(parser), seconds + 3, 440);
    if (!clip.ok())
        return 1;
    if (xServerCpuSeconds() < 0)
        std::printf("(the X server's CPU cannot be read: it is counted on neither side)\n");

    std::printf("compositor: %s on 1280x720 screens, %d s per configuration, %d repetitions; "
                "%u cores; load average %s\n", qPrintable(clip.path), seconds, reps, cores(),
                qPrintable(loadAverage()));
    std::printf("  %-18s %7s %7s %7s %7s %9s %6s %7s %7s   %s\n", "run", "cpu s", "X cpu s",
                "wall s", "frames", "ms/frame", "min/s", "tick50", "tick99", "load average");
    std::vector<double> winRatio, offRatio, perScreen2, perScreen3, worst3;
    std::vector<double> refMs, win1Ms, off1Ms, win3Ms;
    std::vector<double> vsyncRatio, vsyncToImmediate, vsyncPerScreen3, vsyncWorst3, vsync1Ms;
    for (int rep = 0; rep < reps; ++rep) {
        std::printf(" repetition %d\n", rep + 1);
        const Run ref = runReference(clip, seconds);
        printRun(ref);
        const Run win1 = runOurs(app, "ours win 1 screen", 1, true, clip, seconds);
        printRun(win1);
        const Run off1 = runOurs(app, "ours off 1 screen", 1, false, clip, seconds);
        printRun(off1);
        const Run win2 = runOurs(app, "ours win 2 screens", 2, true, clip, seconds);
        printRun(win2);
        const Run win3 = runOurs(app, "ours win 3 screens", 3, true, clip, seconds);
        printRun(win3);
        const Run vsync1 = runOurs(app, "ours vsync 1 window", 1, true, clip, seconds, true);
        printRun(vsync1);
        const Run vsync3 = runOurs(app, "ours vsync 3 windows", 3, true, clip, seconds, true);
        printRun(vsync3);
        if (ref.ok() && vsync1.ok()) {
            vsyncRatio.push_back(vsync1.msPerFrame() / ref.msPerFrame());
            vsync1Ms.push_back(vsync1.msPerFrame());
        }
        if (win1.ok() && vsync1.ok())
            vsyncToImmediate.push_back(vsync1.msPerFrame() / win1.msPerFrame());
        if (vsync1.ok() && vsync3.ok()) {
            vsyncPerScreen3.push_back((vsync3.msPerFrame() / vsync1.msPerFrame() - 1.0) * 100.0 / 2.0);
            vsyncWorst3.push_back(vsync3.worstPictures);
        }
        if (ref.ok() && win1.ok()) {
            winRatio.push_back(win1.msPerFrame() / ref.msPerFrame());
            refMs.push_back(ref.msPerFrame());
            win1Ms.push_back(win1.msPerFrame());
        }
        if (ref.ok() && off1.ok()) {
            offRatio.push_back(off1.msPerFrame() / ref.msPerFrame());
            off1Ms.push_back(off1.msPerFrame());
        }
        if (win1.ok() && win2.ok())
            perScreen2.push_back((win2.msPerFrame() / win1.msPerFrame() - 1.0) * 100.0);
        if (win1.ok() && win3.ok()) {
            perScreen3.push_back((win3.msPerFrame() / win1.msPerFrame() - 1.0) * 100.0 / 2.0);
            win3Ms.push_back(win3.msPerFrame());
            worst3.push_back(win3.worstPictures);
        }
    }
    std::printf("load average after: %s\n", qPrintable(loadAverage()));
    std::printf("median ms per frame: ref %.2f, ours 1 window %.2f, 1 offscreen %.2f, 3 windows %.2f\n",
                median(refMs), median(win1Ms), median(off1Ms), median(win3Ms));
    printMedian("ratio 1 screen (window) / mpv window:", winRatio, "goal <= 1.10");
    printMedian("ratio 1 screen (offscreen) / mpv window:", offRatio, "goal <= 1.10");
    printMedian("added CPU per added screen, 2 screens (%):", perScreen2, "goal <= +10");
    printMedian("added CPU per added screen, 3 screens (%):", perScreen3, "goal <= +10");
    printMedian("3 screens: fewest pictures in a second:", worst3, "goal 30 (29 with timer jitter)");
    std::printf("median ms per frame with vsync presentation: 1 window %.2f\n", median(vsync1Ms));
    printMedian("ratio 1 window vsync / mpv window:", vsyncRatio, "goal <= 1.10");
    printMedian("ratio 1 window vsync / immediate:", vsyncToImmediate, "the two ways in the same run");
    printMedian("added CPU per added window, vsync, 3 (%):", vsyncPerScreen3, "goal <= +10");
    printMedian("3 screens vsync: fewest pictures in a second:", vsyncWorst3, "goal 30 (29 with timer jitter)");
    return 0;
}
