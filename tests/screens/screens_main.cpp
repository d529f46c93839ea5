// Test main of the output-screen tests: a GUI application (OpenGL needs one;
// the suite runs under a virtual X server with Qt's offscreen platform), GL
// contexts shared as a host sets them, and the libmpv engine without sound.
#include "MpvEngine.h"

#include <QGuiApplication>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QGuiApplication app(argc, argv);
    QtAV::MpvEngineOptions options;
    options.audioOutput = QStringLiteral("null");
    QtAV::installMediaEngine(QtAV::createMpvEngine(options));
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
