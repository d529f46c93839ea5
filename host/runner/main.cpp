// kelmor-show: the show runner. Loads the layer-player module as a host
// application does and drives it from a show file, standard input or a
// loopback TCP port; prints the module's events as JSON lines.
//
// Set-up order matters:
// 1. AA_ShareOpenGLContexts before the application object: every screen's
//    GL context shares textures with the others.
// 2. The QGuiApplication (screens are GL surfaces and windows).
// 3. The libmpv engine, after the application object (libmpv needs
//    LC_NUMERIC "C", which the application object may have changed) and
//    before the first player exists.
// 4. The module's singletons.
#include "Console.h"
#include "ControlServer.h"
#include "EventHub.h"
#include "HelpText.h"
#include "DisplayLoss.h"
#include "DropReport.h"
#include "HostSteps.h"
#include "MallocArenas.h"
#include "MediaRoots.h"
#include "MediaErrorReport.h"
#include "osc/OscControl.h"
#include "Progress.h"
#include "RunnerOptions.h"
#include "ScreenSteps.h"
#include "Shutdown.h"
#include "SignalWatch.h"
#include "console/OperatorConsole.h"
#include "timecode/TimecodeRoom.h"
#include "pipewire/ScreenSharing.h"
#include "StepRunner.h"
#include "StepSource.h"

#include "MpvEngine.h"
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include "ScreenService.h"

#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <cstdio>

namespace {

bool displayAvailable()
{
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

bool defaultOffscreen(RunnerOptions::ScreenMode mode)
{
    if (mode != RunnerOptions::ScreenMode::Auto)
        return mode == RunnerOptions::ScreenMode::Offscreen;
    const QString platform = QGuiApplication::platformName();
    return !displayAvailable() || platform == QLatin1String("offscreen")
        || platform == QLatin1String("minimal");
}

} // namespace

int main(int argc, char** argv)
{
    console::startClock();
    // Before libmpv or Qt start a thread (see MallocArenas.h).
    malloc_arenas::limit();

    QStringList args;
    for (int i = 1; i < argc; ++i)
        args << QString::fromLocal8Bit(argv[i]);
    RunnerOptions options;
    QString error;
    if (!parseRunnerOptions(args, options, error)) {
        console::note(error + QStringLiteral(" (see --help)"));
        return 1;
    }
    if (options.help) {
        std::fputs(helpText().toUtf8().constData(), stdout);
        return 0;
    }
    if (options.version) {
        std::printf("kelmor-show %s\n", KELMOR_SHOW_VERSION);
        return 0;
    }
    const QString nothingToRun = nothingToRunReason(options);
    if (!nothingToRun.isEmpty()) {
        console::note(nothingToRun + QStringLiteral(" (see --help)"));
        return 1;
    }

    // Without a display the xcb platform cannot start; the offscreen one can
    // (GL then needs an X server all the same: run under xvfb-run).
    if (!displayAvailable() && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        console::note(QStringLiteral("no display: Qt platform \"offscreen\" (OpenGL may be unavailable; use xvfb-run -a)"));
    }

    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QGuiApplication app(argc, argv);
    QGuiApplication::setApplicationName(QStringLiteral("kelmor-show"));

    QtAV::MpvEngineOptions engineOptions;
    engineOptions.audioOutput = options.audioOutput;
    engineOptions.audioDevice = options.audioDevice;
    QtAV::installMediaEngine(QtAV::createMpvEngine(engineOptions));

    UI_Proc_KELMOR_Player_Desktop& service = UI_Proc_KELMOR_Player_Desktop::getInstance();
    UI_Proc_KELMOR_PlayersManage_Desktop::getInstance();

    QStringList mediaRoots;
    for (const QString& given : options.mediaRoots) {
        QString root;
        if (!mediaroots::canonicalRoot(given, root, error)) {
            console::note(error);
            return 1;
        }
        mediaRoots << root;
    }
    mediaroots::setRoots(mediaRoots);

    const QString outDir = QDir(options.outDir).absolutePath();
    if (!QDir().mkpath(outDir)) {
        console::note(QStringLiteral("cannot make the output directory %1").arg(outDir));
        return 1;
    }
    QMap<QString, QString> variables = options.variables;
    variables.insert(QStringLiteral("out"), outDir);
    variables.insert(QStringLiteral("show_dir"),
                     options.showPath.isEmpty() ? QDir::currentPath()
                                                : QFileInfo(options.showPath).absolutePath());

    const bool offscreen = defaultOffscreen(options.screenMode);
    ScreenService::getInstance().setPresentation(
        options.vsync == RunnerOptions::Vsync::On    ? ScreenService::Presentation::Vsync
        : options.vsync == RunnerOptions::Vsync::Off ? ScreenService::Presentation::Immediate
                                                     : ScreenService::Presentation::Auto);
    EventHub hub(options.positionIntervalMs);
    hub.attach(service);
    MediaErrorReport mediaErrors(hub); // a host line for each layer's media error
    DropReport drops(hub);             // a host line a second while layers drop frames
    StepRunner runner(options, variables);
    if (!options.renderThread)
        ScreenService::getInstance().setRenderThread(false); // before any screen
    ScreenSteps screens(outDir, offscreen, hub);
    DisplayLoss displayLoss(screens, hub); // a lost X server ends the run (exit 3)
    HostSteps host(runner, hub, screens);
    runner.setHostSteps(&host);
    Progress progress(screens);
    ControlServer server(runner, hub);
    OscControl osc(runner, hub, host); // OSC in and out; the bank steps for every surface
    OperatorConsole operatorConsole(runner, hub, host); // the web console; the "state" step for every surface
    TimecodeRoom timecode({options.ltcInput, options.ltcChannel, options.ltcFreewheel}, runner, host, hub);
    ScreenSharing sharing(host); // publishScreen / unpublishScreen: screens as PipeWire video sources
    Shutdown shutdown(runner, host, screens, server, progress);

    if (!options.showPath.isEmpty()) {
        auto* file = new FileStepSource(options.showPath);
        if (!file->open(error)) {
            delete file;
            console::note(error);
            return 1;
        }
        runner.addSource(file);
        progress.follow(file);
    }
    if (options.readStdin) {
        auto* input = new StdinStepSource(!options.showPath.isEmpty());
        runner.addSource(input);
        if (options.showPath.isEmpty())
            progress.follow(input);
    }
    if (options.listenPort >= 0 && !server.listen(options.listenAddress, options.listenPort, options.token, error)) {
        console::note(error);
        return 1;
    }
    if (options.oscPort >= 0 && !osc.start(options, error)) {
        console::note(error);
        return 1;
    }
    if (options.httpPort >= 0
        && !operatorConsole.start(options.httpAddress, options.httpPort, options.token, server.token(), error)) {
        console::note(error);
        return 1;
    }

    timecode.start(); // LTC from --ltc-input, when given

    // The end: the show has ended and no recording still runs.
    bool showEnded = false;
    QObject::connect(&runner, &StepRunner::showEnded, &app, [&] {
        showEnded = true;
        if (screens.activeRecordings() == 0)
            runner.requestQuit(0);
        else
            console::note(QStringLiteral("show ended; waiting for the recordings to finish"));
    });
    QObject::connect(&screens, &ScreenSteps::recordingsFinished, &app, [&] {
        if (showEnded)
            runner.requestQuit(0);
    });
    // Queued: the end never runs inside a step or a module signal.
    QObject::connect(&runner, &StepRunner::quitRequested, &shutdown, &Shutdown::begin,
                     Qt::QueuedConnection);

    SignalWatch signals_;
    if (signals_.install()) {
        QObject::connect(&signals_, &SignalWatch::caught, &app, [&](int number) {
            console::note(QStringLiteral("signal %1: ending the run").arg(number));
            runner.requestQuit(128 + number);
        });
    }

    console::note(QStringLiteral("%1 screens by default; audio output %2")
                      .arg(offscreen ? QStringLiteral("offscreen") : QStringLiteral("windowed"),
                           options.audioOutput.isEmpty() ? QStringLiteral("(the engine's list)")
                                                         : options.audioOutput));
    if (options.progress)
        progress.start();
    return app.exec();
}
