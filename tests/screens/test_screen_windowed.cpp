// Windowed screens: the picture a window shows, a snapshot of it and a
// virtualScreen layer showing it are the same as an offscreen screen's, also
// when the window is drawn without its picture being read back.
#include "ScreenFixture.h"
#include "ScreenMedia.h"

#include <QSignalSpy>

class ScreenWindowedTest : public ScreenTest
{
protected:
    // The compositor swaps these windows itself, so that a window drawn
    // directly (nobody reads its picture back) is covered; windows with
    // their own presentation thread: test_screen_vsync.cpp.
    void SetUp() override
    {
        ScreenTest::SetUp();
        ScreenService::getInstance().setPresentation(ScreenService::Presentation::Immediate);
    }

    ScreenWidget* openWindow(int id, int width = 320, int height = 180)
    {
        ScreenInfo info;
        info.screenId = id;
        info.geometry = QRect(40 * id, 40 * id, width, height);
        info.offscreen = false;
        info.monitor = -1;
        return ScreenService::getInstance().openScreen(info);
    }

    /// Lets the event loop draw what is pending (the screens tick on their own).
    static void settle() { QTest::qWait(150); }

    /// The same scene on `screen`: quadrants over all of it, a square warped
    /// into a quad over them.
    void scene(ScreenWidget* screen, QtAV::AVPlayer* back, QtAV::AVPlayer* front)
    {
        show(back, screen, QRect(0, 0, 320, 180));
        QtAV::NoxOpenGLRender* r = show(front, screen, QRect(0, 0, 320, 180));
        r->setRect(QPointF(100, 30), QPointF(60, 160), QPointF(260, 150), QPointF(220, 40));
        r->setZ(1);
    }
};

TEST_F(ScreenWindowedTest, WindowPictureEqualsTheOffscreenOneBeforeAndAfterNewFrames)
{
    ScreenWidget* window = openWindow(1);
    ScreenWidget* offscreen = openScreen(2);
    QtAV::AVPlayer* back = pushedPlayer(quadrants());
    QtAV::AVPlayer* front = pushedPlayer(solid(Qt::green, 64, 64));
    scene(window, back, front);
    scene(offscreen, back, front);
    ASSERT_TRUE(waitUntil([&] { return near(grab(1).pixel(20, 20), Qt::red, 2); }));
    QPoint worst;
    QImage a = grab(1), b = grab(2);
    EXPECT_EQ(maxChannelDifference(a, b, &worst), 0) << "at (" << worst.x() << ", " << worst.y() << ")";

    // New frames drawn while nobody asks for a picture, then a snapshot.
    const quint64 draws = ScreenService::getInstance().drawnFrames(1);
    back->pushFrame(QtAV::VideoFrame(quadrants().mirrored(true, false)));
    front->pushFrame(QtAV::VideoFrame(solid(Qt::magenta, 64, 64)));
    ASSERT_TRUE(waitUntil([&] { return ScreenService::getInstance().drawnFrames(1) > draws; }));
    settle();
    a = grab(1);
    b = grab(2);
    EXPECT_PIXEL(a, 20, 20, Qt::green); // mirrored: green top-left
    EXPECT_PIXEL(a, 160, 90, Qt::magenta);
    EXPECT_EQ(maxChannelDifference(a, b, &worst), 0) << "at (" << worst.x() << ", " << worst.y() << ")";
}

TEST_F(ScreenWindowedTest, VirtualScreenLayerFollowsAWindowsPicture)
{
    QtAV::AVPlayer* source = nullptr;
    ASSERT_TRUE(mirrorScreenOne(openWindow(1), &source)) << "screen 2 never showed the window's red";
    source->pushFrame(QtAV::VideoFrame(solid(Qt::blue)));
    EXPECT_TRUE(waitUntil([&] { return near(grab(2).pixel(160, 90), Qt::blue, 2); }, 3000))
        << "screen 2 kept " << describe(grab(2).pixel(160, 90));
    settle();
    source->pushFrame(QtAV::VideoFrame(solid(Qt::yellow)));
    EXPECT_TRUE(waitUntil([&] { return near(grab(2).pixel(160, 90), Qt::yellow, 2); }, 3000))
        << "screen 2 kept " << describe(grab(2).pixel(160, 90));
}

// A played layer alone on a screen at 1:1 reaches it by a copy; with another
// layer on the screen it is drawn by the layer shader: the pixels are the
// same, bottom row to top, on an offscreen screen and on a window.
TEST_F(ScreenWindowedTest, LoneLayerAtOneToOneIsPixelIdenticalToTheDrawnOne)
{
    const QString clip = ScreenMedia::movingClip();
    ASSERT_FALSE(clip.isEmpty()) << "ffmpeg could not make the clip";
    ScreenWidget* alone = openScreen(1);
    ScreenWidget* shared = openScreen(2);
    ScreenWidget* window = openWindow(3);
    QtAV::AVPlayer* player = newPlayer();
    player->setMediaType(QStringLiteral("video"));
    show(player, alone, QRect(0, 0, 320, 180), QSizeF(320, 180));
    show(player, shared, QRect(0, 0, 320, 180), QSizeF(320, 180));
    show(player, window, QRect(0, 0, 320, 180), QSizeF(320, 180));
    // Off the picture of screen 2: only there to make the layer not alone.
    show(pushedPlayer(solid(Qt::white, 8, 8)), shared, QRect(400, 300, 8, 8));
    QSignalSpy ready(player, &QtAV::AVPlayer::playReadySucess);
    player->playReady(clip, 1000, true);
    ASSERT_TRUE(waitUntil([&] { return ready.count() > 0; }));
    settle();
    const QImage a = grab(1), b = grab(2), c = grab(3);
    ASSERT_FALSE(a.isNull());
    EXPECT_NE(a.pixel(160, 90), qRgb(0, 0, 0));
    QPoint worst;
    EXPECT_EQ(maxChannelDifference(a, b, &worst), 0) << "at (" << worst.x() << ", " << worst.y() << ")";
    EXPECT_EQ(maxChannelDifference(c, b, &worst), 0) << "at (" << worst.x() << ", " << worst.y() << ")";
}
