// Demonstration of timed items: three layers of bank 1 play stills on their
// timers, one repeats, one is paused and resumed, one is sought. Every signal
// is printed as one JSON line with the milliseconds since start; debug lines
// go to standard error.
#include "UI_Proc_KELMOR_PlayerTimer_Desktop.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

QElapsedTimer g_clock;

void printEvent(const char* name, int layerId, int bankId, const QString& extra = QString())
{
    std::printf("{\"t\": %lld, \"event\": \"%s\", \"layerId\": %d, \"bankId\": %d%s}\n",
                static_cast<long long>(g_clock.elapsed()), name, layerId, bankId,
                extra.toUtf8().constData());
    std::fflush(stdout);
}

void printAll(UI_Proc_KELMOR_PlayerTimer_Desktop* timer, QObject* context)
{
    using Timer = UI_Proc_KELMOR_PlayerTimer_Desktop;
    QObject::connect(timer, &Timer::started, context,
                     [](int l, int b) { printEvent("started", l, b); });
    QObject::connect(timer, &Timer::paused, context, [](int l, int b, bool p) {
        printEvent("paused", l, b, QStringLiteral(", \"isPause\": %1").arg(p ? "true" : "false"));
    });
    QObject::connect(timer, &Timer::setProgressTimered, context, [](int l, int b, qint64 ms) {
        printEvent("progress", l, b, QStringLiteral(", \"timeMsec\": %1").arg(ms));
    });
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    g_clock.start();
    std::fprintf(stderr, "kelmor-timer-demo: three timed items on bank 1; events follow as JSON lines\n");

    std::vector<std::unique_ptr<UI_Proc_KELMOR_PlayerTimer_Desktop>> timers;
    timers.emplace_back(new UI_Proc_KELMOR_PlayerTimer_Desktop(1, 1, 600));
    timers.emplace_back(new UI_Proc_KELMOR_PlayerTimer_Desktop(2, 1, 900));
    timers.emplace_back(new UI_Proc_KELMOR_PlayerTimer_Desktop(3, 1, 1200));

    int running = static_cast<int>(timers.size());
    for (auto& timer : timers) {
        printAll(timer.get(), &app);
        QObject::connect(timer.get(), &UI_Proc_KELMOR_PlayerTimer_Desktop::stopped, &app,
                         [&running](int l, int b) {
                             printEvent("stopped", l, b);
                             if (--running == 0)
                                 QCoreApplication::quit();
                         });
    }

    auto* still = timers[0].get();
    auto* paused = timers[1].get();
    auto* sought = timers[2].get();
    still->setRepeat(1); // two passes
    for (auto& timer : timers)
        timer->startThread();

    // Pause layer 2 at 300 ms and resume it 400 ms later from where it stood.
    QTimer::singleShot(300, &app, [paused] { paused->pauseTimer(true); });
    QTimer::singleShot(700, &app, [paused] { paused->startThread(); });
    // Seek layer 3 to 1000 ms at 200 ms: its pass ends about 200 ms later.
    QTimer::singleShot(200, &app, [sought] { sought->setProgressTimer(1000); });
    // Never hang: give up after 10 s.
    QTimer::singleShot(10000, &app, [] {
        std::fprintf(stderr, "kelmor-timer-demo: timed out\n");
        QCoreApplication::exit(1);
    });

    const int rc = app.exec();
    for (auto& timer : timers)
        timer->stopTimer();
    std::fprintf(stderr, "kelmor-timer-demo: done\n");
    return rc;
}
