// kelmor-host-app: an example host application of the kelmor layer player.
// One control window, one output screen and one layer showing a media file.
//
// A host sets the module up in this order:
// 1. Qt::AA_ShareOpenGLContexts, before the application object: the output
//    screens' GL contexts share their textures.
// 2. The application object (QApplication here; the screens need at least a
//    QGuiApplication).
// 3. The module's singletons: the layer service and the registry.
// No media engine is installed: the module loads its default engine, libmpv,
// when the first layer is made (installMediaEngine() before that would
// choose another).
#include "HostOptions.h"
#include "HostWindow.h"
#include "LayerController.h"
#include "ScriptedRun.h"

#include <UI_Proc_KELMOR_Player_Desktop.h>
#include <UI_Proc_KELMOR_PlayersManage_Desktop.h>

#include <QApplication>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <malloc.h>

namespace {

void note(const QString& line)
{
    std::fprintf(stderr, "kelmor-host-app: %s\n", line.toLocal8Bit().constData());
}

bool displayAvailable()
{
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

} // namespace

int main(int argc, char** argv)
{
    // Every layer's libmpv core starts threads of its own; two malloc arenas
    // keep a long show's memory from creeping up (MALLOC_ARENA_MAX overrides).
    if (qEnvironmentVariableIsEmpty("MALLOC_ARENA_MAX"))
        mallopt(M_ARENA_MAX, 2);

    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    HostOptions options;
    QString error;
    if (!parseHostOptions(arguments, options, error)) {
        note(error + QStringLiteral(" (see --help)"));
        return 1;
    }
    if (options.help) {
        std::fputs(options.helpText.toLocal8Bit().constData(), stdout);
        return 0;
    }
    // Without a display the xcb platform cannot start; the offscreen one can
    // (the screens' OpenGL still needs an X server: run under xvfb-run).
    if (!displayAvailable() && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");

    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("kelmor-host-app"));
    // The program ends through the layer's shutdown, not when a window closes.
    QApplication::setQuitOnLastWindowClosed(false);

    UI_Proc_KELMOR_Player_Desktop::getInstance();
    UI_Proc_KELMOR_PlayersManage_Desktop::getInstance();

    LayerController layer;
    if (!layer.openScreen(options.screen, options.offscreen, error)) {
        note(error);
        return ScriptedRun::Failure;
    }
    HostWindow window(layer);
    ScriptedRun script(layer, options);

    // The first reason to end sets the exit code; the program quits once the
    // layer is released and the screen closed.
    int exitCode = 0;
    bool ending = false;
    auto end = [&](int code) {
        if (ending)
            return;
        ending = true;
        exitCode = code;
        layer.shutdown();
    };
    QObject::connect(&window, &HostWindow::quitRequested, &app, [&] { end(0); });
    QObject::connect(&script, &ScriptedRun::finished, &app, [&](int code) { end(code); });
    QObject::connect(&layer, &LayerController::shutDownFinished, &app, [&] { QApplication::exit(exitCode); });

    window.show();
    QTimer::singleShot(0, &script, &ScriptedRun::start);
    return app.exec();
}
