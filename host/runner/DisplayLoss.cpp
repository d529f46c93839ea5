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
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace {

// Set and cleared by the DisplayLoss object on the GUI thread; the
// recordings and the hub are used only on the GUI thread (see endHere).
std::atomic<ScreenSteps*> g_screens{nullptr};
std::atomic<EventHub*> g_hub{nullptr};

// Written once while installing (GUI thread), before any handler can run.
QtMessageHandler g_previousMessageHandler = nullptr;

// Who ends the run. A loss met off the GUI thread (a window's presentation
// thread, whose swap talks to the X server) is handed to the GUI thread,
// which alone may finish recordings; the thread that met it waits, and ends
// the run itself only when the GUI thread does not take it over in time.
enum EndState { Idle, HandedOver, EndingOnGuiThread, EndingElsewhere };
std::atomic<int> g_state{Idle};
std::atomic<std::thread::id> g_endingThread{};

std::mutex g_reasonMutex;   // guards g_handedReason
QString g_handedReason;     // the loss handed to the GUI thread

// How long the thread that met the loss waits for the GUI thread to take the
// end over (it answers within a frame unless it is stuck), and then for it
// to finish the recordings (encoders flushing their last pictures).
constexpr auto kTakeOverWait = std::chrono::seconds(3);
constexpr auto kFinishWait = std::chrono::seconds(30);

[[noreturn]] void endProcess()
{
    std::fflush(nullptr);
    ::_exit(DisplayLoss::kExitCode);
}

[[noreturn]] void parkForever()
{
    for (;;)
        ::pause();
}

bool onGuiThread()
{
    const QCoreApplication* app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}

/// Ends the run from the thread that owns the end now: the recordings are
/// finished when that is the GUI thread, then the host line and the note.
[[noreturn]] void endHere(const QString& reason, const QString& cannotFinishWhy)
{
    g_endingThread.store(std::this_thread::get_id());
    ScreenSteps* screens = g_screens.load();
    EventHub* hub = g_hub.load();
    const bool guiThread = onGuiThread();
    QString recordings;
    if (guiThread && screens) {
        const int running = screens->activeRecordings();
        ScreenService::getInstance().displayConnectionLost();
        screens->stopAllRecordings(); // each file finished, each with its line
        recordings = QStringLiteral("%1 recording(s) finished").arg(running);
    } else if (screens) {
        recordings = QStringLiteral("recordings, if any, could not be finished (%1)").arg(cannotFinishWhy);
    } else {
        recordings = QStringLiteral("no recording running");
    }

    JsonLine fields;
    fields.add(QStringLiteral("code"), DisplayLoss::kExitCode);
    fields.add(QStringLiteral("reason"), reason);
    if (guiThread && hub) {
        hub->printHostLine(QStringLiteral("displayLost"), fields);
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

/// The GUI thread's side of a hand-over (a queued call).
void takeOverOnGuiThread()
{
    int expected = HandedOver;
    if (!g_state.compare_exchange_strong(expected, EndingOnGuiThread))
        return; // the thread that met the loss gave up waiting and ends the run
    QString reason;
    {
        std::lock_guard<std::mutex> lock(g_reasonMutex);
        reason = g_handedReason;
    }
    endHere(reason, QString());
}

/// Waits up to `limit` while the state is `state`; true when it changed.
bool waitWhile(int state, std::chrono::steady_clock::duration limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (g_state.load() == state) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

[[noreturn]] void onLoss(const QString& reason)
{
    if (onGuiThread()) {
        int expected = Idle;
        if (g_state.compare_exchange_strong(expected, EndingOnGuiThread))
            endHere(reason, QString());
        if (expected == HandedOver && g_state.compare_exchange_strong(expected, EndingOnGuiThread))
            endHere(reason, QString()); // met here too before the queued call ran
        // Reported again from inside the end: end now. Otherwise another
        // thread is ending the process.
        if (g_endingThread.load() == std::this_thread::get_id())
            endProcess();
        parkForever();
    }

    // Off the GUI thread. With no recordings to finish (the run's objects
    // are gone) or no application, this thread ends the run at once.
    QCoreApplication* app = QCoreApplication::instance();
    int expected = Idle;
    if (!app || !g_screens.load()) {
        if (g_state.compare_exchange_strong(expected, EndingElsewhere))
            endHere(reason, QStringLiteral("no GUI thread"));
        parkForever();
    }
    if (!g_state.compare_exchange_strong(expected, HandedOver))
        parkForever(); // another report is ending the run
    const QString where = QThread::currentThread()->objectName();
    const QString metHere = QStringLiteral("%1; met on the thread %2")
                                .arg(reason, where.isEmpty() ? QStringLiteral("(unnamed)") : where);
    {
        std::lock_guard<std::mutex> lock(g_reasonMutex);
        g_handedReason = metHere;
    }
    QMetaObject::invokeMethod(app, takeOverOnGuiThread, Qt::QueuedConnection);
    if (!waitWhile(HandedOver, kTakeOverWait)) {
        expected = HandedOver;
        if (g_state.compare_exchange_strong(expected, EndingElsewhere))
            endHere(metHere, QStringLiteral("the GUI thread did not take the end over"));
    }
    // The GUI thread is ending the run; should it get stuck finishing the
    // recordings, the run still ends.
    if (g_state.load() == EndingOnGuiThread && !waitWhile(EndingOnGuiThread, kFinishWait)) {
        console::note(QStringLiteral("lost the connection to the X server (%1); the recordings did not "
                                     "finish in time; exit code %2")
                          .arg(metHere)
                          .arg(DisplayLoss::kExitCode));
        endProcess();
    }
    parkForever();
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
    g_screens.store(&screens);
    g_hub.store(&hub);
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
    g_screens.store(nullptr);
    g_hub.store(nullptr);
}
