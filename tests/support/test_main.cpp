// Test main: an application object for the event loop, and the recording
// engine as the process's media engine.
#include "RecordingEngine.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    RecordingEngine::install();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
