// How far apart four layers start when started together: four players of the
// same 1080p30 H.264 clip on one 640x360 offscreen screen (each shown at
// 320x180), readied with playReady(file, 0, paused), then started with
// pause(false) on all four in one GUI-thread turn.
//
// Method. For each layer, the time from that turn to the first new frame on
// the screen: the layer's frame-source serial changes inside the compositor's
// tick that draws the screen, and a 1 ms precise timer on the GUI thread
// watches the four serials (so the figures include the compositor's tick
// pacing, one tick per display refresh at most). Spread = latest - earliest
// of the four; repeated over --starts starts (default 50), re-readied in
// between; printed p50 / p95 / max of the spread and of the per-layer latency.
//
// Reference: four bare libmpv cores (vo=null, the engine's other settings)
// paused on their first frame, started with mpv_set_property(pause=no) on
// each in a loop; a layer's first new frame is its first "time-pos" change
// after the start, stamped on each core's event thread. libmpv moves
// "time-pos" when it hands a frame to the video output, ahead of the frame's
// display time, so the reference's latency reads low (a few ms instead of
// about one frame); its spread is the start skew of libmpv itself, with
// nothing drawn.
//
// Target: worst spread <= 33 ms (one frame at 30 fps).
//
//   xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" env QT_QPA_PLATFORM=offscreen
//       build/bench/kelmor_bench_start_spread [--starts 200]
#include "bare_mpv.h"
#include "bench_common.h"

#include "AVPlayer.h"

#include <QCommandLineParser>
#include <cstdio>
#include <thread>

using namespace bench;

namespace {

constexpr int kLayers = 4;
constexpr int kTimeoutMs = 10000;

struct Results
{
    std::vector<double> spreads;
    std::vector<double> latencies; // every layer of every start
    int failures = 0;

    void add(const std::vector<double>& ms)
    {
        latencies.insert(latencies.end(), ms.begin(), ms.end());
        spreads.push_back(*std::max_element(ms.begin(), ms.end())
                          - *std::min_element(ms.begin(), ms.end()));
    }
};

/// playReady(0, paused) on every layer and waits until all are ready and drawn.
bool readyAll(std::vector<std::unique_ptr<Layer>>& layers, const QString& file)
{
    std::vector<int> ready(layers.size(), 0);
    std::vector<QMetaObject::Connection> connections;
    for (size_t i = 0; i < layers.size(); ++i) {
        QtAV::AVPlayer* player = layers[i]->player();
        connections.push_back(QObject::connect(player, &QtAV::AVPlayer::playReadySucess, player,
                                               [&ready, i] { ready[i] = 1; }));
        player->playReady(file, 0, true);
    }
    const bool ok = waitUntil([&] {
        return std::all_of(ready.begin(), ready.end(), [](int r) { return r != 0; });
    }, kTimeoutMs);
    for (auto& c : connections)
        QObject::disconnect(c);
    runFor(150); // the readied frames reach the screen; nothing is pending
    return ok;
}

bool startOurs(std::vector<std::unique_ptr<Layer>>& layers, std::vector<double>* ms)
{
    std::vector<quint64> serials;
    for (auto& layer : layers)
        serials.push_back(layer->serial());
    ms->assign(layers.size(), -1.0);
    const Clock::time_point t0 = Clock::now();
    for (auto& layer : layers)
        layer->player()->pause(false);
    const bool ok = waitUntil([&] {
        bool all = true;
        for (size_t i = 0; i < layers.size(); ++i) {
            if ((*ms)[i] < 0 && layers[i]->serial() != serials[i])
                (*ms)[i] = msSince(t0);
            all = all && (*ms)[i] >= 0;
        }
        return all;
    }, kTimeoutMs, 1);
    for (auto& layer : layers)
        layer->player()->pause(true);
    return ok;
}

bool startBare(std::vector<std::unique_ptr<BareMpv>>& cores, std::vector<double>* ms)
{
    // Paused on the first frame again.
    std::vector<std::uint64_t> restarts;
    for (auto& core : cores) {
        core->setPause(true);
        restarts.push_back(core->counts().restarts);
        core->command({"seek", "0", "absolute+exact"});
    }
    for (size_t i = 0; i < cores.size(); ++i) {
        if (!cores[i]->waitFor([&](const BareMpv::Counts& c) { return c.restarts > restarts[i]; },
                               kTimeoutMs))
            return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    for (auto& core : cores)
        core->armNewFrame();
    const Clock::time_point t0 = Clock::now();
    for (auto& core : cores)
        core->setPause(false);
    ms->assign(cores.size(), -1.0);
    const Clock::time_point deadline = t0 + std::chrono::milliseconds(kTimeoutMs);
    bool all = false;
    while (!all && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        all = true;
        for (size_t i = 0; i < cores.size(); ++i) {
            Clock::time_point at;
            if (cores[i]->newFrameAt(&at))
                (*ms)[i] = std::chrono::duration<double, std::milli>(at - t0).count();
            else
                all = false;
        }
    }
    for (auto& core : cores)
        core->setPause(true); // idle while the other variant runs
    return all;
}

void printRow(const char* name, const Results& r)
{
    std::printf("  %-28s %7.1f %7.1f %7.1f   %7.1f %7.1f %7.1f %6zu %5d\n", name,
                percentile(r.spreads, 50), percentile(r.spreads, 95), percentile(r.spreads, 100),
                percentile(r.latencies, 50), percentile(r.latencies, 95),
                percentile(r.latencies, 100), r.spreads.size(), r.failures);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    BenchApp app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription("Start spread of four layers against four bare libmpv cores.");
    addCommonOptions(parser);
    parser.addOption({"starts", "Starts per variant (default 50).", "n", "50"});
    parser.addOption({"trace", "Print every start's per-layer times."});
    parser.process(app);
    if (!app.start(parser))
        return 1;
    const int starts = std::max(1, parser.value("starts").toInt());
    const bool trace = parser.isSet("trace");
    const auto printTrace = [trace](const char* name, const std::vector<double>& ms) {
        if (!trace)
            return;
        std::printf("    %-5s", name);
        for (double v : ms)
            std::printf(" %6.1f", v);
        std::printf("\n");
    };
    const Clip clip = ensureClip(mediaDir(parser), 10, 440);
    if (!clip.ok())
        return 1;

    ScreenWidget* screen = openScreen(1, QSize(640, 360));
    std::vector<std::unique_ptr<Layer>> layers;
    for (int i = 0; i < kLayers; ++i) {
        layers.push_back(std::make_unique<Layer>());
        layers.back()->show(screen, gridCell(i, 2, QSize(320, 180)));
    }
    std::vector<std::unique_ptr<BareMpv>> cores;
    for (int i = 0; i < kLayers; ++i) {
        cores.push_back(std::make_unique<BareMpv>());
        if (!cores.back()->ok())
            return 1;
        const std::uint64_t restarts = cores.back()->counts().restarts;
        cores.back()->load(clip.path, QString());
        cores.back()->waitFor([&](const BareMpv::Counts& c) { return c.restarts > restarts; },
                              kTimeoutMs);
    }

    std::printf("start spread: %d layers of %s, started together; %d starts; load average %s\n",
                kLayers, qPrintable(clip.path), starts, qPrintable(loadAverage()));
    Results ours, bare;
    std::vector<double> ms;
    // One start each before counting: the first start after a load is not typical.
    readyAll(layers, clip.path);
    startOurs(layers, &ms);
    startBare(cores, &ms);
    for (int i = 0; i < starts; ++i) {
        if (readyAll(layers, clip.path) && startOurs(layers, &ms)) {
            ours.add(ms);
            printTrace("ours", ms);
        } else {
            ++ours.failures;
        }
        if (startBare(cores, &ms)) {
            bare.add(ms);
            printTrace("bare", ms);
        } else {
            ++bare.failures;
        }
    }
    const QString loadAfter = loadAverage();
    releaseLayers(layers);
    cores.clear();
    closeScreens();

    std::printf("  %-28s %23s   %23s\n", "", "spread (ms)", "first new frame (ms)");
    std::printf("  %-28s %7s %7s %7s   %7s %7s %7s %6s %5s\n", "variant", "p50", "p95", "max",
                "p50", "p95", "max", "starts", "fail");
    printRow("ours (on screen)", ours);
    printRow("bare libmpv vo=null (ref)", bare);
    std::printf("load average after: %s\n", qPrintable(loadAfter));
    const double worst = percentile(ours.spreads, 100);
    std::printf("worst spread: ours %.1f ms, ref %.1f ms; target <= 33 ms: %s (%+.1f ms)\n", worst,
                percentile(bare.spreads, 100), worst <= 33.0 ? "met" : "missed", worst - 33.0);
    if (percentile(bare.spreads, 50) > 0)
        std::printf("ratio p50 spread ours/ref: %.2f\n",
                    percentile(ours.spreads, 50) / percentile(bare.spreads, 50));
    return 0;
}
