// Whether a busy GUI thread stops the pictures: one 720p30 layer looping
// full-screen on a 1280x720 offscreen screen, while the GUI thread, in
// every other phase, does something else for --busy-ms out of every
// --every-ms (a host's widgets laying out, a long command), off its event
// loop (--blocked: sleeping instead of spinning, so that the busy thread
// takes no core from the drawing).
//
// The run alternates quiet and busy phases, --seconds each (default 10),
// --phases in all (default 6), so that load changes on the shared machine
// hit both alike; the first second of each phase is not counted. Printed
// per phase: the layer's new pictures a second (its source's serial), the
// frames libmpv dropped because no output frame took them in time
// (ScreenService::droppedFrames) per 1000 frames due, and how far apart new
// pictures were taken (picture_clock.h): gaps p50, p99 and max (33 ms at 30
// fps when nothing is late); then the medians per kind. Run it without and
// with --render-thread (the render thread draws frames itself while the GUI
// thread is busy), interleaved, and compare the busy phases; the quiet
// phases are each run's reference.
//
//   xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" env QT_QPA_PLATFORM=offscreen
//       build/bench/kelmor_bench_busy_gui [--render-thread] [--seconds 10] [--phases 6]
#include "bench_common.h"
#include "picture_clock.h"

#include "AVPlayer.h"
#include "ScreenService.h"
#include "VideoFrameSource.h"

#include <QCommandLineParser>
#include <QTimer>
#include <cstdio>
#include <thread>

using namespace bench;

namespace {

struct Phase
{
    bool busy = false;
    double picturesPerSecond = 0.0;
    double dropsPerThousand = 0.0;
    std::vector<double> gaps; // ms between new pictures
};

/// Spins the calling thread for `ms` milliseconds.
void spin(int ms)
{
    const Clock::time_point until = Clock::now() + std::chrono::milliseconds(ms);
    while (Clock::now() < until) {
    }
}

} // namespace

int main(int argc, char** argv)
{
    BenchApp app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription("Pictures and dropped frames while the GUI thread is busy.");
    addCommonOptions(parser);
    parser.addOption({"seconds", "Seconds per phase (default 10).", "s", "10"});
    parser.addOption({"phases", "Phases, quiet and busy alternating (default 6).", "n", "6"});
    parser.addOption({"busy-ms", "Busy milliseconds in every period (default 50).", "ms", "50"});
    parser.addOption({"every-ms", "The busy period in milliseconds (default 100).", "ms", "100"});
    parser.addOption({"blocked", "The GUI thread sleeps instead of spinning (blocked, not using "
                                 "a core)."});
    parser.process(app);
    if (!app.start(parser))
        return 1;
    const int seconds = std::max(3, parser.value("seconds").toInt());
    const int phases = std::max(2, parser.value("phases").toInt()) / 2 * 2;
    const int every = std::max(10, parser.value("every-ms").toInt());
    const int busyMs = std::clamp(parser.value("busy-ms").toInt(), 1, every - 1);
    const bool renderThread = parser.isSet("render-thread");
    const bool blocked = parser.isSet("blocked");
    const Clip clip = ensureClip(mediaDir(parser), 10, 440, QSize(1280, 720));
    if (!clip.ok())
        return 1;

    ScreenWidget* screen = openScreen(1, QSize(1280, 720));
    std::vector<std::unique_ptr<Layer>> layers;
    layers.push_back(std::make_unique<Layer>());
    layers.back()->show(screen, QRect(0, 0, 1280, 720), QSize(1280, 720));
    if (!loadLayers(layers, clip, true, 30000)) {
        std::printf("the layer did not load\n");
        return 1;
    }
    Layer& layer = *layers.back();
    layer.player()->pause(false);
    runFor(1000);
    const QtAV::VideoFrameSource* source = layer.player()->frameSource();
    if (!source) {
        std::printf("the layer has no frame source\n");
        return 1;
    }
    auto pictureClock = std::make_unique<PictureClock>(source);

    std::printf("busy GUI: %s looped on a 1280x720 offscreen screen; render thread %s; %d phases "
                "of %d s, quiet and busy (%d ms of every %d, %s) alternating; %u cores; load "
                "average %s\n", qPrintable(clip.path), renderThread ? "on" : "off", phases,
                seconds, busyMs, every, blocked ? "sleeping" : "spinning", cores(),
                qPrintable(loadAverage()));
    std::printf("  %5s %5s %11s %13s %8s %8s %8s   %s\n", "phase", "kind", "pictures/s",
                "drops/1000", "gap p50", "gap p99", "gap max", "load average");
    std::fflush(stdout);

    QTimer busy;
    busy.setTimerType(Qt::PreciseTimer);
    busy.setInterval(every);
    QObject::connect(&busy, &QTimer::timeout, [busyMs, blocked] {
        if (blocked)
            std::this_thread::sleep_for(std::chrono::milliseconds(busyMs));
        else
            spin(busyMs);
    });
    std::vector<Phase> results;
    for (int p = 0; p < phases; ++p) {
        Phase phase;
        phase.busy = p % 2 == 1;
        if (phase.busy)
            busy.start();
        runFor(1000);
        pictureClock->take();
        const quint64 serial0 = layer.serial();
        const quint64 drops0 = ScreenService::getInstance().droppedFrames(layer.player());
        const Clock::time_point t0 = Clock::now();
        runFor((seconds - 1) * 1000);
        const double elapsed = msSince(t0) / 1000.0;
        const double pictures = double(layer.serial() - serial0);
        const double drops =
            double(ScreenService::getInstance().droppedFrames(layer.player()) - drops0);
        phase.gaps = PictureClock::gaps(pictureClock->take());
        busy.stop();
        phase.picturesPerSecond = pictures / elapsed;
        const double due = elapsed * clip.fps;
        phase.dropsPerThousand = due > 0 ? drops * 1000.0 / due : 0.0;
        results.push_back(phase);
        std::printf("  %5d %5s %11.1f %13.1f %8.1f %8.1f %8.1f   %s\n", p + 1,
                    phase.busy ? "busy" : "quiet", phase.picturesPerSecond,
                    phase.dropsPerThousand, percentile(phase.gaps, 50), percentile(phase.gaps, 99),
                    percentile(phase.gaps, 100), qPrintable(loadAverage()));
        std::fflush(stdout);
    }

    std::vector<double> quietPictures, busyPictures, quietDrops, busyDrops, quietGap, busyGap;
    for (const Phase& p : results) {
        (p.busy ? busyPictures : quietPictures).push_back(p.picturesPerSecond);
        (p.busy ? busyDrops : quietDrops).push_back(p.dropsPerThousand);
        (p.busy ? busyGap : quietGap).push_back(percentile(p.gaps, 99));
    }
    std::printf("medians (render thread %s): pictures/s quiet %.1f, busy %.1f; drops per 1000 "
                "quiet %.1f, busy %.1f; gap p99 quiet %.1f ms, busy %.1f ms\n",
                renderThread ? "on" : "off", median(quietPictures), median(busyPictures),
                median(quietDrops), median(busyDrops), median(quietGap), median(busyGap));
    pictureClock.reset(); // polls the source: stopped before the layer goes
    releaseLayers(layers);
    closeScreens();
    return 0;
}
