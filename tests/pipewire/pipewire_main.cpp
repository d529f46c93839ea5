// Test main of the PipeWire video tests: a GUI application (OpenGL needs
// one; the suite runs under a virtual X server with Qt's offscreen
// platform), the recording engine (a "spout" layer shows the frames pushed
// to its player whatever the engine), and a private PipeWire daemon with its
// session manager for the whole run, stopped at the end.
#include "PipeWireFixture.h"
#include "RecordingEngine.h"

#include "ScreenService.h"

#include <QGuiApplication>
#include <cstdio>
#include <gtest/gtest.h>

namespace {

class DaemonEnvironment : public ::testing::Environment
{
public:
    void SetUp() override
    {
        ASSERT_TRUE(PipeWireTest::daemon().start()) << PipeWireTest::daemon().error().toStdString();
    }
    void TearDown() override { PipeWireTest::daemon().stop(); }
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QGuiApplication app(argc, argv);
    RecordingEngine::install();
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
    ::testing::AddGlobalTestEnvironment(new DaemonEnvironment);
    return RUN_ALL_TESTS();
}
