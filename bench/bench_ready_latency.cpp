// How long a layer takes to be ready: playReady(file, 3000, true) until
// playReadySucess(), on a 1080p30 H.264 clip (keyframe every 2 s, so the
// exact seek decodes from 2 s to 3 s).
//
// Method. Every repetition is a real load: each measured core alternates
// between two files with the same content under different names. The time
// runs from the call to the moment the signal (or libmpv event) arrives,
// stamped in the handler; one warm-up load per variant comes first and is
// not counted (it includes one-off set-up such as libmpv's shader cache).
// Variants, interleaved repetition by repetition so that load changes on the
// shared machine hit them alike:
// - ours, with screen: the player shown at 640x360 on a 640x360 offscreen
//   screen (its core renders through libmpv's render API);
// - ours, no screen: a player with no render object;
// - bare libmpv (the reference): a core with vo=null and the engine's other
//   settings, `loadfile <file> replace start=3` while paused, until its first
//   PLAYBACK_RESTART after FILE_LOADED, read on an event thread;
// - bare libmpv, load then seek: the same core loading at 0, then an exact
//   seek to 3 s, until the restart after the seek; the engine takes these
//   two steps, so this row shows what the two steps cost by themselves.
// Printed: p50 / p95 / max in ms and the ratios of ours to the reference
// (goal: p50 ratio <= 1.15). --reps sets the repetitions (default 20).
//
//   xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" env QT_QPA_PLATFORM=offscreen
//       build/bench/kelmor_bench_ready_latency [--reps 50]
#include "bare_mpv.h"
#include "bench_common.h"

#include "AVPlayer.h"

#include <QCommandLineParser>
#include <cstdio>

using namespace bench;

namespace {

constexpr qint64 kReadyMs = 3000;
constexpr int kTimeoutMs = 15000;

bool g_trace = false; // --trace: print each load's steps (main only)

/// playReady on one of our layers; -1 on timeout. With --trace, prints when
/// loaded() came and when the frame source's serial changed (1 ms polls).
double readyOurs(Layer& layer, const QString& file)
{
    bool ready = false;
    Clock::time_point at;
    QtAV::AVPlayer* player = layer.player();
    std::vector<QMetaObject::Connection> connections;
    connections.push_back(QObject::connect(player, &QtAV::AVPlayer::playReadySucess, player, [&] {
        if (!ready)
            at = Clock::now();
        ready = true;
    }));
    const Clock::time_point t0 = Clock::now();
    QString trace;
    if (g_trace) {
        connections.push_back(QObject::connect(player, &QtAV::AVPlayer::loaded, player, [&] {
            trace += QStringLiteral(" loaded@%1").arg(msSince(t0), 0, 'f', 1);
        }));
    }
    quint64 serial = layer.serial();
    player->playReady(file, kReadyMs, true);
    waitUntil([&] {
        if (g_trace && layer.serial() != serial) {
            serial = layer.serial();
            trace += QStringLiteral(" drawn@%1").arg(msSince(t0), 0, 'f', 1);
        }
        return ready;
    }, kTimeoutMs, g_trace ? 1 : 2);
    for (const auto& c : connections)
        QObject::disconnect(c);
    if (!ready)
        return -1.0;
    const double ms = std::chrono::duration<double, std::milli>(at - t0).count();
    if (g_trace) {
        waitUntil([&] {
            if (layer.serial() != serial) {
                serial = layer.serial();
                trace += QStringLiteral(" drawn@%1").arg(msSince(t0), 0, 'f', 1);
            }
            return false;
        }, 100, 1);
        std::printf("    trace %s:%s ready@%.1f\n", layer.shown() ? "shown" : "no screen",
                    qPrintable(trace), ms);
    } else {
        runFor(100); // let the compositor draw the frame before the next step
    }
    return ms;
}

/// Loads with start=3 on a bare core; -1 on timeout.
double readyBare(BareMpv& core, const QString& file)
{
    const BareMpv::Counts before = core.counts();
    const Clock::time_point t0 = Clock::now();
    core.load(file, QStringLiteral("start=%1").arg(kReadyMs / 1000.0));
    const bool ok = core.waitFor([&](const BareMpv::Counts& c) {
        return c.loaded > before.loaded && c.restartSeq > c.loadedSeq;
    }, kTimeoutMs);
    return ok ? std::chrono::duration<double, std::milli>(core.lastRestart() - t0).count() : -1.0;
}

/// Loads at 0, then seeks exactly to 3 s, on a bare core; -1 on timeout.
double readyBareTwoSteps(BareMpv& core, const QString& file)
{
    const BareMpv::Counts before = core.counts();
    const Clock::time_point t0 = Clock::now();
    core.load(file, QString());
    bool ok = core.waitFor([&](const BareMpv::Counts& c) {
        return c.loaded > before.loaded && c.restartSeq > c.loadedSeq;
    }, kTimeoutMs);
    const std::uint64_t restarts = core.counts().restarts;
    ok = ok && core.command({"seek", QString::number(kReadyMs / 1000.0), "absolute+exact"});
    ok = ok && core.waitFor([&](const BareMpv::Counts& c) { return c.restarts > restarts; },
                            kTimeoutMs);
    return ok ? std::chrono::duration<double, std::milli>(core.lastRestart() - t0).count() : -1.0;
}

struct Row
{
    const char* name;
    std::vector<double> ms;
    double warmup = 0.0;
    int failures = 0;
    void add(double v)
    {
        if (v < 0)
            ++failures;
        else
            ms.push_back(v);
    }
};

void printRow(const Row& r)
{
    std::printf("  %-30s %8.1f %8.1f %8.1f %8.1f %5zu %5d\n", r.name, r.warmup, percentile(r.ms, 50),
                percentile(r.ms, 95), percentile(r.ms, 100), r.ms.size(), r.failures);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    BenchApp app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription("playReady latency against a bare libmpv core.");
    addCommonOptions(parser);
    parser.addOption({"reps", "Repetitions per variant (default 20).", "n", "20"});
    parser.addOption({"trace", "Print when each of our loads was loaded and drawn."});
    parser.process(app);
    if (!app.start(parser))
        return 1;
    const int reps = std::max(1, parser.value("reps").toInt());
    g_trace = parser.isSet("trace");

    const Clip a = ensureClip(mediaDir(parser), 10, 440);
    const Clip b = a.ok() ? copyClip(a, QStringLiteral("-copy")) : Clip();
    if (!a.ok() || !b.ok())
        return 1;
    const QString files[2] = {a.path, b.path};

    ScreenWidget* screen = openScreen(1, QSize(640, 360));
    std::vector<std::unique_ptr<Layer>> layers;
    layers.push_back(std::make_unique<Layer>());
    layers.push_back(std::make_unique<Layer>());
    Layer& shown = *layers[0];
    Layer& hidden = *layers[1];
    shown.show(screen, QRect(0, 0, 640, 360));
    BareMpv bare, bareTwo;
    if (!bare.ok() || !bareTwo.ok())
        return 1;

    std::printf("ready latency: playReady(file, %lld ms, paused) on %s and a copy; %d loads "
                "per variant; load average %s\n",
                static_cast<long long>(kReadyMs), qPrintable(a.path), reps, qPrintable(loadAverage()));
    Row rows[4] = {{"ours, with screen (640x360)", {}}, {"ours, no screen", {}},
                   {"bare libmpv, start=3 (ref)", {}}, {"bare libmpv, load then seek", {}}};
    // Warm-up: each core's first load, on the second file so that the first
    // counted load is again a new file.
    rows[0].warmup = readyOurs(shown, files[1]);
    rows[1].warmup = readyOurs(hidden, files[1]);
    rows[2].warmup = readyBare(bare, files[1]);
    rows[3].warmup = readyBareTwoSteps(bareTwo, files[1]);
    for (int i = 0; i < reps; ++i) {
        const QString& file = files[i % 2];
        rows[0].add(readyOurs(shown, file));
        rows[1].add(readyOurs(hidden, file));
        rows[2].add(readyBare(bare, file));
        rows[3].add(readyBareTwoSteps(bareTwo, file));
    }
    const QString loadAfter = loadAverage();
    releaseLayers(layers);
    closeScreens();

    std::printf("  %-30s %8s %8s %8s %8s %5s %5s\n", "variant (ms)", "warm-up", "p50", "p95", "max",
                "n", "fail");
    for (const Row& r : rows)
        printRow(r);
    const double ref50 = percentile(rows[2].ms, 50), ref95 = percentile(rows[2].ms, 95);
    std::printf("load average after: %s\n", qPrintable(loadAfter));
    if (ref50 > 0) {
        std::printf("ratio p50 ours/ref: with screen %.2f, no screen %.2f (goal <= 1.15)\n",
                    percentile(rows[0].ms, 50) / ref50, percentile(rows[1].ms, 50) / ref50);
        std::printf("ratio p95 ours/ref: with screen %.2f, no screen %.2f\n",
                    percentile(rows[0].ms, 95) / ref95, percentile(rows[1].ms, 95) / ref95);
    }
    return 0;
}
