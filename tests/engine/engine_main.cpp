// Test main of the engine tests: an application object for the event loop,
// and the libmpv engine (no sound device: "ao=null") as the process's engine.
#include "MpvEngine.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QtAV::MpvEngineOptions options;
    options.audioOutput = QStringLiteral("null");
    QtAV::installMediaEngine(QtAV::createMpvEngine(options));
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
