// Output frames drawn on the render thread (ScreenService::setRenderThread,
// on from the first screen by default): frames are drawn off the GUI thread,
// the GUI thread goes on while one is drawn, frames go on while the GUI
// thread is busy (but not while it holds the context), and once on, the
// render thread stays on. The rest of the suite runs once more with frames
// on the GUI thread (ScreenTest.all_on_the_gui_thread).
#include "ScreenFixture.h"

#include <QThread>
#include <QTimer>
#include <atomic>
#include <chrono>
#include <thread>

namespace {

// A source nothing shows, with a frame always due: every output frame takes
// it undrawn (discardPendingFrame), on the thread that draws output frames.
// While `hold` is set, that call waits (up to 5 s) until `release` is set.
class DueFrameSource : public QtAV::VideoFrameSource
{
public:
    QtAV::FrameTexture updateTexture(const QSize&) override { return {}; }
    quint64 serial() const override { return 0; }
    bool hasPendingFrame() const override { return true; }
    QSize pictureSize() const override { return {}; }
    void discardPendingFrame() override
    {
        thread.store(QThread::currentThread());
        ++discards;
        if (!hold.load())
            return;
        holding.store(true);
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (!release.load() && std::chrono::steady_clock::now() < until)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        releasedInTime.store(release.load());
        hold.store(false);
        ended.store(true);
    }

    std::atomic<QThread*> thread{nullptr};
    std::atomic<int> discards{0};
    std::atomic<bool> hold{false};
    std::atomic<bool> holding{false};
    std::atomic<bool> release{false};
    std::atomic<bool> releasedInTime{false};
    std::atomic<bool> ended{false}; // a held call returned
};

// Asks for output frames every 10 ms from a thread of its own, as an
// engine does when its pictures come, until it goes.
class FrameWanter
{
public:
    FrameWanter()
        : m_thread([this] {
            while (!m_stop.load()) {
                QtAV::requestCompositorFrame();
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        })
    {
    }
    ~FrameWanter()
    {
        m_stop.store(true);
        m_thread.join();
    }

private:
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// Output frames on the render thread (skipped in the run that keeps them on
// the GUI thread, KELMOR_TEST_RENDER_THREAD=0).
class RenderThreadTest : public ScreenTest
{
protected:
    void SetUp() override
    {
        ScreenTest::SetUp();
        if (qEnvironmentVariable("KELMOR_TEST_RENDER_THREAD") == QLatin1String("0"))
            GTEST_SKIP() << "this run keeps output frames on the GUI thread";
        ASSERT_TRUE(ScreenService::getInstance().setRenderThread(true));
    }

    /// A screen open and `source` taken by output frames, the first one
    /// done (unregister it before it goes).
    bool drawing(DueFrameSource& source)
    {
        openScreen(1);
        QtAV::registerFrameSource(&source);
        QtAV::requestCompositorFrame();
        return waitUntil([&] { return source.discards.load() > 0; });
    }

    /// A frame held on the render thread: `source` holding the frame that
    /// takes it (release it before it goes).
    bool holdAFrame(DueFrameSource& source)
    {
        source.hold.store(true);
        return drawing(source) && waitUntil([&] { return source.holding.load(); });
    }
};

} // namespace

TEST_F(RenderThreadTest, FramesAreDrawnOffTheGuiThread)
{
    EXPECT_TRUE(ScreenService::getInstance().renderThread());
    DueFrameSource source;
    EXPECT_TRUE(drawing(source));
    EXPECT_NE(source.thread.load(), nullptr);
    EXPECT_NE(source.thread.load(), QThread::currentThread());
    QtAV::unregisterFrameSource(&source); // waits for a frame under way
}

TEST_F(RenderThreadTest, TheGuiThreadGoesOnWhileAFrameIsDrawn)
{
    DueFrameSource source;
    ASSERT_TRUE(holdAFrame(source));
    // The frame is held on the render thread; the GUI thread still runs its
    // timers, and it is one of them that lets the frame end.
    bool fired = false;
    QTimer::singleShot(10, [&] {
        fired = true;
        source.release.store(true);
    });
    EXPECT_TRUE(waitUntil([&] { return fired; }, 3000));
    QtAV::unregisterFrameSource(&source);
    EXPECT_TRUE(source.releasedInTime.load())
        << "the frame ended by its time limit, not by the GUI thread's timer";
}

TEST_F(RenderThreadTest, OnceOnItStaysOn)
{
    EXPECT_TRUE(ScreenService::getInstance().setRenderThread(false));
    EXPECT_TRUE(ScreenService::getInstance().renderThread());
    // A grab still draws the screen's picture now, on the GUI thread.
    openScreen(1);
    EXPECT_FALSE(grab(1).isNull());
}

TEST_F(RenderThreadTest, DropCountsAnswerWhileAFrameIsDrawn)
{
    DueFrameSource source;
    ASSERT_TRUE(holdAFrame(source));
    // Read while the frame is held: the answer comes before the frame ends.
    EXPECT_TRUE(ScreenService::getInstance().droppedFrameCounts().isEmpty());
    EXPECT_FALSE(source.ended.load()) << "the count waited for the frame being drawn";
    source.release.store(true);
    QtAV::unregisterFrameSource(&source);
    EXPECT_TRUE(source.ended.load());
}

TEST_F(RenderThreadTest, FramesGoOnWhileTheGuiThreadIsBusy)
{
    DueFrameSource source;
    ASSERT_TRUE(drawing(source));
    {
        FrameWanter engine;
        // The GUI thread does something else for 400 ms, off its event
        // loop: the render thread draws the frames wanted meanwhile itself.
        const int before = source.discards.load();
        QThread::msleep(400);
        const int during = source.discards.load() - before;
        EXPECT_GE(during, 8) << "frames drawn while the GUI thread was busy";
        EXPECT_NE(source.thread.load(), QThread::currentThread());
    }
    QtAV::unregisterFrameSource(&source);
}

TEST_F(RenderThreadTest, NoFrameIsDrawnWhileTheGuiThreadHoldsTheContext)
{
    DueFrameSource source;
    ASSERT_TRUE(drawing(source));
    {
        FrameWanter engine;
        // Called home, the context stays on the GUI thread until its next
        // frame: whatever the GUI thread does with GL meanwhile is alone.
        ASSERT_NE(QtAV::compositorContext(), nullptr);
        const int before = source.discards.load();
        QThread::msleep(300);
        EXPECT_EQ(source.discards.load(), before);
        // Back in its event loop, the GUI thread's frames lend it again.
        EXPECT_TRUE(waitUntil([&] { return source.discards.load() > before; }));
    }
    QtAV::unregisterFrameSource(&source);
}

TEST_F(ScreenTest, TheFirstScreenStartsTheRenderThreadUnlessTheHostSaidNo)
{
    openScreen(1);
    const bool guiRun = qEnvironmentVariable("KELMOR_TEST_RENDER_THREAD") == QLatin1String("0");
    EXPECT_EQ(ScreenService::getInstance().renderThread(), !guiRun);
}
