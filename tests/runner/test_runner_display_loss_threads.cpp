// A lost X server met first by a thread other than the GUI thread (a
// window's presentation thread, whose swap talks to the X server): the run
// still ends the way it does when the GUI thread meets it, with the
// recordings finished on the GUI thread, and it ends even when the GUI
// thread never answers.
//
// Each test runs in a child process (a death test): the watch's end is
// _exit(3). The loss is reported by calling the Xlib I/O error handler the
// watch installed, as Xlib does on the thread whose request failed.
#include "DisplayLoss.h"
#include "EventHub.h"
#include "RunnerHarness.h"
#include "ScreenSteps.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include <X11/Xlib.h> // last: its macros (None, Bool, ...) break other headers

using namespace runner_test;

namespace {

/// The Xlib I/O error handler installed now (left installed).
XIOErrorHandler installedIoErrorHandler()
{
    const XIOErrorHandler handler = XSetIOErrorHandler(nullptr);
    XSetIOErrorHandler(handler);
    return handler;
}

/// Reports the loss from a thread of its own, as a presentation thread's
/// failed swap would.
void reportLossFromAnotherThread()
{
    const XIOErrorHandler handler = installedIoErrorHandler();
    std::thread([handler] { handler(nullptr); }).detach();
}

/// Runs the watch of a run with no recording; `guiAnswers` says whether the
/// GUI thread returns to its event loop or stays busy for good.
void loseTheDisplayOffTheGuiThread(bool guiAnswers)
{
    EventHub hub(250);
    ScreenSteps screens(freshWorkDir(QStringLiteral("display-loss-thread")), true, hub);
    DisplayLoss watch(screens, hub);
    reportLossFromAnotherThread();
    if (guiAnswers) {
        QCoreApplication::exec();
    } else {
        for (;;)
            std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    std::_Exit(0); // not reached: the watch ends the process
}

/// The note every such run ends with, up to what it says of recordings.
const std::string kNoteStart =
    "lost the connection to the X server \\(Xlib: fatal I/O error on display \\?: .*; met on the "
    "thread \\(unnamed\\)\\); ";

} // namespace

TEST(RunnerDisplayLossThreads, ALossMetOffTheGuiThreadIsEndedOnTheGuiThread)
{
    ::testing::GTEST_FLAG(death_test_style) = "threadsafe";
    // "recording(s) finished" is said only by an end on the GUI thread; the
    // thread that met the loss would say "no recording running".
    EXPECT_EXIT(loseTheDisplayOffTheGuiThread(true), testing::ExitedWithCode(DisplayLoss::kExitCode),
                kNoteStart + "0 recording\\(s\\) finished; exit code 3");
}

TEST(RunnerDisplayLossThreads, AGuiThreadThatNeverAnswersStillLetsTheRunEnd)
{
    ::testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(loseTheDisplayOffTheGuiThread(false), testing::ExitedWithCode(DisplayLoss::kExitCode),
                kNoteStart + "recordings, if any, could not be finished \\(the GUI thread did not "
                             "take the end over\\); exit code 3");
}
