// PipeWire video benchmark program, in two roles (bench/pipewire_bench.sh
// drives both):
//
//   kelmor_bench_pipewire produce NAME [WIDTH HEIGHT FPS]
//       a PipeWire video source NAME (BGRx) sending a moving picture at FPS,
//       each buffer stamped with CLOCK_MONOTONIC (its header's pts), until
//       killed. Built on the same publisher as published screens.
//   kelmor_bench_pipewire receive NAME SECONDS [WARMUP_SECONDS]
//       a "spout" player of NAME shown on an offscreen 640x360 screen; after
//       the warm-up, measures for SECONDS: frames received, process CPU per
//       frame, and the latency from the producer's stamp to the output frame
//       that first shows the picture (p50/p99, in frames of the stream).
//       Prints one JSON line.
//
// Run under an X server (OpenGL): xvfb-run -a env QT_QPA_PLATFORM=offscreen ...
#include "AVPlayer.h"
#include "NoxOpenGLRender.h"
#include "ScreenService.h"
#include "SpoutNode.h"
#include "pipewire/PwVideoPublisher.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QTimer>

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

namespace {

qint64 monotonicNs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return qint64(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec
        + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

int produce(const QString& name, int width, int height, int fps)
{
    kelmor::pipewire::PwVideoPublisher node(name, QSize(width, height), fps, nullptr);
    if (!node.start())
        return 2;
    std::vector<uint8_t> picture(size_t(width) * height * 4);
    int frame = 0;
    QTimer tick;
    tick.setTimerType(Qt::PreciseTimer);
    QObject::connect(&tick, &QTimer::timeout, [&] {
        // A bar that moves, so every frame differs.
        std::fill(picture.begin(), picture.end(), uint8_t(40));
        const int x0 = (frame * 8) % width;
        for (int y = 0; y < height; ++y)
            for (int x = x0; x < std::min(width, x0 + 64); ++x)
                picture[(size_t(y) * width + x) * 4 + 1] = 220;
        node.send(picture.data(), width * 4, false);
        ++frame;
    });
    tick.start(1000 / fps);
    return QCoreApplication::exec();
}

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return -1;
    std::sort(values.begin(), values.end());
    const size_t i = std::min(values.size() - 1, size_t(p * (values.size() - 1) + 0.5));
    return values[i];
}

int receive(const QString& name, int seconds, int warmup)
{
    ScreenInfo info;
    info.screenId = 1;
    info.geometry = QRect(0, 0, 640, 360);
    info.offscreen = true;
    ScreenWidget* screen = ScreenService::getInstance().openScreen(info);
    QtAV::AVPlayer player;
    player.setMediaType(QStringLiteral("spout"));
    QtAV::NoxOpenGLRender render;
    render.setPlayerLayerID(1, 1);
    render.setGeometry(0, 0, 640, 360);
    player.addVideoRenderer(&render);
    screen->pushRender(&render);
    SpoutNode node;
    QObject::connect(&node, &SpoutNode::textureReceived, &player, &QtAV::AVPlayer::setTextureID);
    node.playSpout(name);

    const double framePeriodNs = 1e9 / 30.0; // the stream's rate (the script's producer)
    std::vector<double> latencies;
    quint64 shownStamp = 0;
    bool measuring = false;
    double cpuStart = 0;
    quint64 framesStart = 0;
    QObject::connect(&ScreenService::getInstance(), &ScreenService::screenDrawn, [&](int id) {
        const quint64 stamp = node.lastFrameTimestamp();
        if (id != 1 || !measuring || stamp == 0 || stamp == shownStamp)
            return;
        shownStamp = stamp;
        latencies.push_back((monotonicNs() - qint64(stamp)) / framePeriodNs);
    });
    QTimer::singleShot(warmup * 1000, [&] {
        measuring = true;
        cpuStart = cpuSeconds();
        framesStart = node.framesDelivered();
    });
    QTimer::singleShot((warmup + seconds) * 1000, [&] {
        const double cpu = cpuSeconds() - cpuStart;
        const quint64 frames = node.framesDelivered() - framesStart;
        std::printf("{\"frames\": %llu, \"cpu_s\": %.3f, \"cpu_ms_per_frame\": %.3f, "
                    "\"latency_p50_frames\": %.2f, \"latency_p99_frames\": %.2f, \"shown\": %zu}\n",
                    (unsigned long long)frames, cpu, frames ? cpu * 1000 / frames : -1.0,
                    percentile(latencies, 0.5), percentile(latencies, 0.99), latencies.size());
        std::fflush(stdout);
        node.stop();
        screen->removeRender(&render);
        player.removeVideoRenderer(&render);
        QCoreApplication::quit();
    });
    const int rc = QCoreApplication::exec();
    ScreenService::getInstance().closeAllScreens();
    return rc;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() >= 3 && args.at(1) == QLatin1String("produce")) {
        const int w = args.size() > 3 ? args.at(3).toInt() : 1920;
        const int h = args.size() > 4 ? args.at(4).toInt() : 1080;
        const int fps = args.size() > 5 ? args.at(5).toInt() : 30;
        return produce(args.at(2), w, h, fps);
    }
    if (args.size() >= 4 && args.at(1) == QLatin1String("receive"))
        return receive(args.at(2), args.at(3).toInt(), args.size() > 4 ? args.at(4).toInt() : 2);
    std::fprintf(stderr, "usage: %s produce NAME [W H FPS] | receive NAME SECONDS [WARMUP]\n", argv[0]);
    return 1;
}
