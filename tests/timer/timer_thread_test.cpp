// The timer's thread: joining a running loop, the self-join error, the
// thread's name, and the loop run on the caller's thread.
#include "TimerRecorder.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <string>
#include <system_error>

namespace {

using Timer = UI_Proc_KELMOR_PlayerTimer_Desktop;
constexpr int kLayer = 3;
constexpr int kBank = 7;

TEST(TimerThread, StartThreadWhileRunningWaitsUntilTheLoopHasEnded)
{
    RecordedTimer t(kLayer, kBank, 400);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Started, 1));

    t.timer->startThread(); // blocks until the first pass has run out
    // Joining means the first loop finished, its stop report included,
    // before this call returned.
    const TimerEvents atReturn = t.rec.events();
    EXPECT_TRUE(shapeMatches(atReturn, "started( p)* 0 stopped( started.*)?"))
        << shapeOf(atReturn).toStdString();

    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Started, 2));
    EXPECT_EQ(t.timer->getPlayState(), 1201);
}

// A slot connected directly to started() runs on the timer's thread; a
// startThread from there would join that very thread.
TEST(TimerThread, StartThreadOnTheTimersOwnThreadRaisesResourceDeadlock)
{
    RecordedTimer t(kLayer, kBank, 100000);
    std::mutex mutex;
    std::string outcome;
    bool tried = false;
    QObject::connect(t.timer.get(), &Timer::started, t.timer.get(), [&] {
        std::lock_guard<std::mutex> lock(mutex);
        if (tried)
            return;
        tried = true;
        try {
            t.timer->startThread();
            outcome = "no error";
        } catch (const std::system_error& e) {
            outcome = e.code() == std::make_error_code(std::errc::resource_deadlock_would_occur)
                ? "resource deadlock" : "system_error " + e.code().message();
        } catch (...) {
            outcome = "other exception";
        }
    }, Qt::DirectConnection);

    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForReports(0, 2)); // the loop goes on after the error
    {
        std::lock_guard<std::mutex> lock(mutex);
        EXPECT_EQ(outcome, "resource deadlock");
    }
    // The thread object survived: the loop still stops and reports it.
    t.timer->stopTimer();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));
    t.destroy();
    EXPECT_EQ(countOf(t.rec.events(), TimerEvent::Started), 1);
}

std::string threadNameSeenBy(int layerId, int bankId)
{
    RecordedTimer t(layerId, bankId, 0);
    std::mutex mutex;
    std::string name;
    QObject::connect(t.timer.get(), &Timer::started, t.timer.get(), [&] {
        char buf[32] = {};
        pthread_getname_np(pthread_self(), buf, sizeof buf);
        std::lock_guard<std::mutex> lock(mutex);
        name = buf;
    }, Qt::DirectConnection);
    t.timer->startThread();
    EXPECT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));
    t.destroy();
    std::lock_guard<std::mutex> lock(mutex);
    return name;
}

TEST(TimerThread, LoopThreadIsNamedAfterBankAndLayer)
{
    EXPECT_EQ(threadNameSeenBy(3, 7), "ktimer b7 l3");
    // Cut to the 15 characters a thread name can hold.
    EXPECT_EQ(threadNameSeenBy(7654321, 123456), "ktimer b123456 ");
}

TEST(TimerThread, StartTimerRunsTheLoopOnTheCallingThreadUntilItEnds)
{
    RecordedTimer t(kLayer, kBank, 0);
    t.timer->setRepeat(1);
    t.timer->startTimer();
    const TimerEvents ev = t.rec.events();
    EXPECT_EQ(shapeOf(ev), "started 0 0 0 stopped");
    for (const TimerEvent& e : ev)
        EXPECT_EQ(e.thread, std::this_thread::get_id());
    EXPECT_EQ(t.timer->getPlayState(), 1200);
}

// The destructor joins like startThread does; called on the timer's own
// thread it raises the same error, which ends the process because a
// destructor cannot let it out.
TEST(TimerThreadDeathTest, DeletingTheTimerFromItsOwnThreadAborts)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            auto* timer = new Timer(kLayer, kBank, 100000);
            QObject::connect(timer, &Timer::started, timer, [timer] { delete timer; },
                             Qt::DirectConnection);
            timer->startThread();
            std::this_thread::sleep_for(std::chrono::seconds(10)); // not reached when it dies
        },
        "");
}

} // namespace
