#include "DisplayLoss.h"

#include "Console.h"
#include "EventHub.h"
#include "JsonLine.h"
#include "ScreenService.h"
#include "ScreenSteps.h"

#include <QCoreApplication>
#include <QThread>

#include <X11/Xlib.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>
#include <unistd.h>

namespace {

// Set and cleared by the DisplayLoss object on the GUI thread; read by the
// handlers only on the GUI thread (see onLoss).
ScreenSteps* g_screens = nullptr;
EventHub* g_hub = nullptr;

// Written once while installing (GUI thread), before any handler can run.
QtMessageHandler g_previousMessageHandler = nullptr;

// The thread that is ending the run; a second report waits for it.
std::atomic<bool> g_ending{false};
std::atomic<std::thread::id> g_endingThread{};

[[noreturn]] void endProcess()
{
    std::fflush(nullptr);
    ::_exit(DisplayLoss::kExitCode);
}

[[noreturn]] void onLoss(const QString& reason)
{
    if (g_ending.exchange(true)) {
        // Reported again from inside the end (same thread): end now. From
        // another thread: the first report is ending the process.
        if (g_endingThread.load() == std::this_thread::get_id())
            endProcess();
        for (;;)
            ::pause();
    }
    g_endingThread.store(std::this_thread::get_id());

    const QCoreApplication* app = QCoreApplication::instance();
    const bool guiThread = app && QThread::currentThread() == app->thread();
    QString recordings;
    if (guiThread && g_screens) {
        const int running = g_screens->activeRecordings();
        ScreenService::getInstance().displayConnectionLost();
        g_screens->stopAllRecordings(); // each file finished, each with its line
        recordings = QStringLiteral("%1 recording(s) finished").arg(running);
    } else if (g_screens && g_screens->activeRecordings() > 0) {
        recordings = QStringLiteral("recordings could not be finished (not on the GUI thread)");
    } else {
        recordings = QStringLiteral("no recording running");
    }

    JsonLine fields;
    fields.add(QStringLiteral("code"), DisplayLoss::kExitCode);
    fields.add(QStringLiteral("reason"), reason);
    if (guiThread && g_hub) {
        g_hub->printHostLine(QStringLiteral("displayLost"), fields);
    } else {
        JsonLine line;
        line.add(QStringLiteral("t"), static_cast<double>(console::msSinceStart()));
        line.add(QStringLiteral("host"), QStringLiteral("displayLost"));
        line.append(fields);
        console::writeLine(line.toLine());
    }
    console::note(QStringLiteral("lost the connection to the X server (%1); %2; exit code %3")
                      .arg(reason, recordings)
                      .arg(DisplayLoss::kExitCode));
    endProcess();
}

void onMessage(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    if (g_previousMessageHandler)
        g_previousMessageHandler(type, context, text);
    else
        std::fprintf(stderr, "%s\n", text.toLocal8Bit().constData());
    // Qt's X11 platform calls exit(1) right after this warning.
    if (type == QtWarningMsg && text.startsWith(QLatin1String("The X11 connection broke")))
        onLoss(text.trimmed());
}

int onXlibIoError(Display* display)
{
    const int code = errno;
    const char* name = display ? DisplayString(display) : nullptr;
    onLoss(QStringLiteral("Xlib: fatal I/O error on display %1: %2")
               .arg(QString::fromLocal8Bit(name ? name : "?"),
                    QString::fromLocal8Bit(std::strerror(code))));
}

} // namespace

DisplayLoss::DisplayLoss(ScreenSteps& screens, EventHub& hub)
{
    g_screens = &screens;
    g_hub = &hub;
    static bool installed = false;
    if (installed)
        return;
    installed = true;
    g_previousMessageHandler = qInstallMessageHandler(onMessage);
    XSetIOErrorHandler(onXlibIoError);
}

DisplayLoss::~DisplayLoss()
{
    // The handlers stay: a loss while the run's objects go still ends the
    // process cleanly, only without the recordings' lines.
    g_screens = nullptr;
    g_hub = nullptr;
}
