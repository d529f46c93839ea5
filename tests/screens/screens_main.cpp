// Test main of the output-screen tests: a GUI application (OpenGL needs one;
// the suite runs under a virtual X server with Qt's offscreen platform), GL
// contexts shared as a host sets them, and the libmpv engine without sound.
#include "MpvEngine.h"

#include "ScreenService.h"

#include <QGuiApplication>
#include <cstdio>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QGuiApplication app(argc, argv);
    QtAV::MpvEngineOptions options;
    options.audioOutput = QStringLiteral("null");
    QtAV::installMediaEngine(QtAV::createMpvEngine(options));
    // Output frames are drawn on the render thread from the first screen on
    // (ScreenService's default); KELMOR_TEST_RENDER_THREAD=0: the same tests
    // with them on the GUI thread, =1: on the render thread from the start.
    const QString renderThread = qEnvironmentVariable("KELMOR_TEST_RENDER_THREAD");
    if (renderThread == QLatin1String("0")) {
        ScreenService::getInstance().setRenderThread(false);
    } else if (renderThread == QLatin1String("1")
               && !ScreenService::getInstance().setRenderThread(true)) {
        std::fprintf(stderr, "KELMOR_TEST_RENDER_THREAD=1 but no render thread started\n");
        return 1;
    }
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
