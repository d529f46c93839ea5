// Whether a flood of commands delays the pictures: the show runner's own step
// machinery (kelmor_show_core: standard input, the step parser, the runner,
// the module's operations) in this process, reading its steps from a pipe
// put in place of standard input, with one 1080p30 layer looping on a
// 1280x720 offscreen screen.
//
// The run alternates quiet phases (no input) and flood phases (200 steps a
// second: getRendererCount and getAVPlayerEchoById of the playing layer, a
// controller polling), --phase seconds each (default 60) for --minutes
// (default 10), so that load changes on the shared machine hit both alike.
// The first 2 s of each phase are not counted (the flood starting or
// draining).
//
// Frame time: the interval between the starts of consecutive compositor
// ticks (each draws the layer's new frame; nothing else asks for one); and
// the gap between new pictures of the layer (picture_clock.h), which counts
// frames whichever thread draws them. Printed per phase: p50 / p99 frame
// time, p99 tick duration, p99 picture gap, steps answered; then the medians
// over the phases of each kind and the ratio of their p99 frame times and
// picture gaps, flood / quiet (goal: within 10%, i.e. <= 1.10).
// --render-thread: output frames drawn on the render thread, as the show
// runner does by default (the ticks are then the GUI thread's part only).
//
//   xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" env QT_QPA_PLATFORM=offscreen
//       build/bench/kelmor_bench_command_flood [--minutes 10] [--phase 60]
#include "bench_common.h"
#include "picture_clock.h"

#include "EventHub.h"
#include "HostSteps.h"
#include "RunnerOptions.h"
#include "ScreenSteps.h"
#include "StepRunner.h"
#include "StepSource.h"

#include "AVPlayer.h"
#include "ScreenService.h"
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"
#include "VideoFrameSource.h"

#include <QCommandLineParser>
#include <QDir>
#include <QTemporaryDir>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

using namespace bench;

namespace {

FILE* g_out = stdout; // the table: the runner's replies go to /dev/null instead

QByteArray setupSteps(const QString& clip)
{
    const QByteArray path = clip.toUtf8();
    return QByteArray()
        + R"({"op": "openScreen", "id": 1, "x": 0, "y": 0, "width": 1280, "height": 720, "offscreen": true})" "\n"
        + R"({"op": "creatnewlayer", "args": [{"bankId": 1, "layerId": 1, "path": ")" + path
        + R"(", "groupID": 1, "type": "video", "timeLenMsec": 10000, "isSetPr": false}]})" "\n"
        + R"({"op": "setLayerMediaType", "args": [{"bank": 1, "layer": 1}, "video"]})" "\n"
        + R"({"op": "addRenderer", "args": [{"bankId": 1, "layerId": 1, "screenId": 1, "screenType": 0, "clientGuid": "", "frameX": 0, "frameY": 0, "rendererX": 0, "rendererY": 0, "crossWidth": 1280, "crossHeight": 720, "originalWidth": 1920, "originalHeight": 1080, "actualWidth": 1280, "actualHeight": 720, "layerRotation": 0, "isScal": false, "isRotation": false, "isFill": false, "relativeX": 0, "relativeY": 0}]})" "\n"
        + R"({"op": "setRepeat", "args": [{"bank": 1, "layer": 1}, -1]})" "\n"
        + R"({"op": "playReady", "args": [{"bank": 1, "layer": 1}, 0, false]})" "\n";
}

const char* const kFlood[2] = {
    R"({"op": "getRendererCount", "args": [{"bank": 1, "layer": 1}]})" "\n",
    R"({"op": "getAVPlayerEchoById", "args": [1, 1]})" "\n",
};

bool writeAll(int fd, const char* data, size_t size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        size -= size_t(n);
    }
    return true;
}

struct Phase
{
    bool flood = false;
    std::vector<double> intervals; // ms between tick starts
    std::vector<double> ticks;     // tick durations, ms
    std::vector<double> gaps;      // ms between the layer's new pictures
    int steps = 0;                 // steps the runner answered
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    BenchApp app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription("Frame times with and without a flood of steps on stdin.");
    addCommonOptions(parser);
    parser.addOption({"minutes", "Length of the run (default 10).", "m", "10"});
    parser.addOption({"phase", "Seconds per quiet or flood phase (default 60).", "s", "60"});
    parser.addOption({"rate", "Steps a second while flooding (default 200).", "n", "200"});
    parser.process(app);
    if (!app.start(parser))
        return 1;
    const int phaseSeconds = std::max(5, parser.value("phase").toInt());
    const int phases = std::max(2, parser.value("minutes").toInt() * 60 / phaseSeconds) / 2 * 2;
    const int rate = std::max(1, std::min(2000, parser.value("rate").toInt()));
    const Clip clip = ensureClip(mediaDir(parser), 10, 440);
    if (!clip.ok())
        return 1;

    // The table goes to the original stdout; the runner's lines to /dev/null.
    const int tableFd = ::dup(1);
    g_out = tableFd >= 0 ? fdopen(tableFd, "w") : stdout;
    const int devNull = ::open("/dev/null", O_WRONLY);
    int feed[2] = {-1, -1};
    if (devNull < 0 || ::pipe(feed) != 0 || ::dup2(devNull, 1) < 0 || ::dup2(feed[0], 0) < 0) {
        std::fprintf(stderr, "cannot redirect standard input and output\n");
        return 1;
    }
    ::close(feed[0]);
    ::close(devNull);

    QTemporaryDir outDir;
    RunnerOptions options;
    options.readStdin = true;
    QMap<QString, QString> variables;
    variables.insert(QStringLiteral("out"), outDir.path());
    EventHub hub(0);
    hub.attach(UI_Proc_KELMOR_Player_Desktop::getInstance());
    UI_Proc_KELMOR_PlayersManage_Desktop::getInstance();
    StepRunner runner(options, variables);
    ScreenSteps screens(outDir.path(), true, hub);
    HostSteps host(runner, hub, screens);
    runner.setHostSteps(&host);
    auto* input = new StdinStepSource(false);
    runner.addSource(input);

    const QByteArray setup = setupSteps(clip.path);
    if (!writeAll(feed[1], setup.constData(), size_t(setup.size()))) {
        std::fprintf(stderr, "cannot write the set-up steps\n");
        return 1;
    }
    QtAV::AVPlayer* player = nullptr;
    auto serial = [&]() -> quint64 {
        QtAV::VideoFrameSource* source = player ? player->frameSource() : nullptr;
        return source ? source->serial() : 0;
    };
    const bool playing = waitUntil([&] {
        player = UI_Proc_KELMOR_PlayersManage_Desktop::getInstance().getplayerByID(1, 1);
        return serial() > 30;
    }, 30000);
    if (!playing) {
        std::fprintf(g_out, "the layer did not start playing\n");
        return 1;
    }

    std::fprintf(g_out, "command flood: %s looped on a 1280x720 offscreen screen; render thread "
                 "%s; %d phases of %d s, quiet and %d steps/s alternating; %u cores; load "
                 "average %s\n", qPrintable(clip.path),
                 ScreenService::getInstance().renderThread() ? "on" : "off", phases,
                 phaseSeconds, rate, cores(), qPrintable(loadAverage()));
    std::fprintf(g_out, "  %5s %6s %9s %9s %9s %9s %8s %7s   %s\n", "phase", "kind", "frame p50",
                 "frame p99", "tick p99", "gap p99", "frames", "steps", "load average");
    auto pictureClock = std::make_unique<PictureClock>(player->frameSource());
    std::fflush(g_out);

    const Clock::time_point t0 = Clock::now();
    const auto phaseLength = std::chrono::seconds(phaseSeconds);
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        const auto gap = std::chrono::microseconds(1000000 / rate);
        auto next = Clock::now();
        for (unsigned i = 0; !stop.load(); ++i) {
            const auto now = Clock::now();
            const long phase = long((now - t0) / phaseLength);
            if (phase >= phases)
                break;
            if (phase % 2 == 1) {
                const char* line = kFlood[i % 2];
                if (!writeAll(feed[1], line, std::strlen(line)))
                    break;
                next += gap;
                if (next < now - std::chrono::milliseconds(100))
                    next = now; // fell behind (the pipe was full): no burst to catch up
            } else {
                next = std::max(now, t0 + phaseLength * (phase + 1));
                next = std::min(next, now + std::chrono::milliseconds(50));
            }
            std::this_thread::sleep_until(next);
        }
    });

    std::vector<Phase> results(static_cast<size_t>(phases));
    app.takeTicks();
    app.takeTickStarts();
    app.recordTicks(true);
    int stepsBefore = input->stepsRun;
    for (int p = 0; p < phases; ++p) {
        Phase& phase = results[size_t(p)];
        phase.flood = p % 2 == 1;
        const Clock::time_point end = t0 + phaseLength * (p + 1);
        waitUntil([&] { return Clock::now() >= end; }, phaseSeconds * 1000 + 5000, 20);
        const std::vector<double> ticks = app.takeTicks();
        const std::vector<Clock::time_point> starts = app.takeTickStarts();
        const Clock::time_point counted = t0 + phaseLength * p + std::chrono::seconds(2);
        phase.gaps = PictureClock::gaps(pictureClock->take(), counted);
        for (size_t i = 0; i < starts.size(); ++i) {
            if (starts[i] < counted)
                continue;
            phase.ticks.push_back(ticks[i]);
            if (i > 0 && starts[i - 1] >= counted)
                phase.intervals.push_back(
                    std::chrono::duration<double, std::milli>(starts[i] - starts[i - 1]).count());
        }
        phase.steps = input->stepsRun - stepsBefore;
        stepsBefore = input->stepsRun;
        std::fprintf(g_out, "  %5d %6s %9.1f %9.1f %9.1f %9.1f %8zu %7d   %s\n", p + 1,
                     phase.flood ? "flood" : "quiet", percentile(phase.intervals, 50),
                     percentile(phase.intervals, 99), percentile(phase.ticks, 99),
                     percentile(phase.gaps, 99), phase.intervals.size(), phase.steps,
                     qPrintable(loadAverage()));
        std::fflush(g_out);
    }
    app.recordTicks(false);
    stop.store(true);
    writer.join();
    ::close(feed[1]);

    pictureClock.reset(); // polls the layer's source: stopped before the layer goes
    std::vector<double> quiet99, flood99, quiet50, flood50, quietGap, floodGap;
    for (const Phase& p : results) {
        (p.flood ? flood99 : quiet99).push_back(percentile(p.intervals, 99));
        (p.flood ? flood50 : quiet50).push_back(percentile(p.intervals, 50));
        (p.flood ? floodGap : quietGap).push_back(percentile(p.gaps, 99));
    }
    std::fprintf(g_out, "median frame time p50: quiet %.1f ms, flood %.1f ms; p99: quiet %.1f ms, "
                 "flood %.1f ms\n", median(quiet50), median(flood50), median(quiet99),
                 median(flood99));
    if (median(quiet99) > 0)
        std::fprintf(g_out, "ratio frame-time p99 flood / quiet: %.2f (goal <= 1.10)\n",
                     median(flood99) / median(quiet99));
    if (median(quietGap) > 0)
        std::fprintf(g_out, "median picture gap p99: quiet %.1f ms, flood %.1f ms; ratio flood / "
                     "quiet: %.2f (goal <= 1.10)\n", median(quietGap), median(floodGap),
                     median(floodGap) / median(quietGap));
    std::fprintf(g_out, "load average after: %s\n", qPrintable(loadAverage()));
    std::fflush(g_out);
    // The runner's objects end with the stack; the layer goes with the
    // registry's own end.
    UI_Proc_KELMOR_PlayersManage_Desktop::getInstance().clearAllPlayer();
    runFor(500);
    ScreenService::getInstance().closeAllScreens();
    return 0;
}
