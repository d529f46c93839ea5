// Windows presented with vsync by a thread of their own: what the X server
// shows in each window is the screen's picture, also as new frames come
// faster than a window takes them, with several windows at once, and when a
// window closes while its thread presents. Run in one process under Qt's xcb
// platform (tests/CMakeLists.txt), so that no other test's window covers
// these and the X server's picture of a window is what it shows.
#include "ScreenFixture.h"
#include "ScreenMedia.h"

#include <QGuiApplication>
#include <QOpenGLContext>
#include <QPixmap>
#include <QScreen>
#include <QSignalSpy>
#include <QWindow>

class ScreenVsyncTest : public ScreenTest
{
protected:
    void SetUp() override
    {
        ScreenTest::SetUp();
        ScreenService::getInstance().setPresentation(ScreenService::Presentation::Vsync);
    }

    /// A 320x180 window for screen `id`, apart from the other tests' windows
    /// so that none covers another.
    ScreenWidget* openWindow(int id)
    {
        ScreenInfo info;
        info.screenId = id;
        info.geometry = QRect(400 * (id - 1), 600, 320, 180);
        info.offscreen = false;
        info.monitor = -1;
        return ScreenService::getInstance().openScreen(info);
    }

    /// What the X server shows in screen `id`'s window now (null when the
    /// window is not found).
    static QImage windowPixels(int id)
    {
        const QString title = QStringLiteral("Output %1").arg(id);
        for (QWindow* window : QGuiApplication::topLevelWindows()) {
            if (window->title() == title && window->isExposed())
                return QGuiApplication::primaryScreen()->grabWindow(window->winId())
                    .toImage()
                    .convertToFormat(QImage::Format_RGB32);
        }
        return QImage();
    }

    /// Waits until the window shows `colour` at its centre.
    bool windowShows(int id, QColor colour)
    {
        return waitUntil([&] {
            const QImage shown = windowPixels(id);
            return !shown.isNull() && near(shown.pixel(160, 90), colour, 2);
        });
    }

    /// Windows 1 and 2 showing one pushed red picture over the whole of each;
    /// its player once both show it, null otherwise.
    QtAV::AVPlayer* twoWindowsShowingRed()
    {
        openWindow(1);
        openWindow(2);
        QtAV::AVPlayer* player = pushedPlayer(solid(Qt::red));
        show(player, ScreenService::getInstance().screenById(1), QRect(0, 0, 320, 180));
        show(player, ScreenService::getInstance().screenById(2), QRect(0, 0, 320, 180));
        return windowShows(1, Qt::red) && windowShows(2, Qt::red) ? player : nullptr;
    }
};

TEST_F(ScreenVsyncTest, TheWindowShowsTheScreensPictureThroughItsOwnThread)
{
    openWindow(1);
    QtAV::AVPlayer* back = pushedPlayer(quadrants());
    QtAV::AVPlayer* front = pushedPlayer(solid(Qt::green, 64, 64));
    show(back, ScreenService::getInstance().screenById(1), QRect(0, 0, 320, 180));
    QtAV::NoxOpenGLRender* r = show(front, ScreenService::getInstance().screenById(1),
                                    QRect(0, 0, 320, 180));
    r->setRect(QPointF(100, 30), QPointF(60, 160), QPointF(260, 150), QPointF(220, 40));
    r->setZ(1);
    ASSERT_TRUE(ScreenService::getInstance().presentsWithVsync(1));
    ASSERT_TRUE(windowShows(1, Qt::green)) << "the window never showed the warped square";
    EXPECT_GT(ScreenService::getInstance().presentedFrames(1), 0u);

    // The whole window is the screen's picture, pixel for pixel.
    QTest::qWait(100);
    QPoint worst;
    const QImage shown = windowPixels(1);
    const QImage picture = grab(1);
    ASSERT_EQ(shown.size(), picture.size());
    EXPECT_EQ(maxChannelDifference(shown, picture, &worst), 0)
        << "at (" << worst.x() << ", " << worst.y() << ")";
}

TEST_F(ScreenVsyncTest, FramesFasterThanTheWindowTakesThemEndOnTheNewest)
{
    openWindow(1);
    QtAV::AVPlayer* player = pushedPlayer(solid(Qt::black));
    show(player, ScreenService::getInstance().screenById(1), QRect(0, 0, 320, 180));
    // A new picture every few milliseconds: the output framebuffers take
    // turns while the window's thread copies and swaps.
    const QColor colours[] = {Qt::red, Qt::green, Qt::blue, Qt::yellow, Qt::cyan, Qt::magenta};
    for (int i = 0; i < 120; ++i) {
        player->pushFrame(QtAV::VideoFrame(solid(colours[i % 6])));
        QTest::qWait(4);
        if (i % 20 == 19) {
            // Every snapshot in between is a whole picture of one colour.
            const QImage picture = grab(1);
            const QRgb centre = picture.pixel(160, 90);
            EXPECT_EQ(picture.pixel(2, 2), centre);
            EXPECT_EQ(picture.pixel(317, 177), centre);
        }
    }
    player->pushFrame(QtAV::VideoFrame(solid(Qt::white)));
    EXPECT_TRUE(windowShows(1, Qt::white)) << "the window did not end on the newest picture";
    EXPECT_PIXEL(grab(1), 160, 90, Qt::white);
}

TEST_F(ScreenVsyncTest, ThreeWindowsEachShowTheirOwnPicture)
{
    const QColor colours[] = {Qt::red, Qt::green, Qt::blue};
    QtAV::AVPlayer* players[3] = {};
    for (int id = 1; id <= 3; ++id) {
        openWindow(id);
        players[id - 1] = pushedPlayer(solid(colours[id - 1]));
        show(players[id - 1], ScreenService::getInstance().screenById(id), QRect(0, 0, 320, 180));
    }
    for (int id = 1; id <= 3; ++id) {
        EXPECT_TRUE(ScreenService::getInstance().presentsWithVsync(id));
        EXPECT_TRUE(windowShows(id, colours[id - 1])) << "window " << id;
    }
    // New pictures on every window at once; each ends on its own.
    const QColor next[] = {Qt::yellow, Qt::cyan, Qt::magenta};
    for (int id = 1; id <= 3; ++id)
        players[id - 1]->pushFrame(QtAV::VideoFrame(solid(next[id - 1])));
    for (int id = 1; id <= 3; ++id)
        EXPECT_TRUE(windowShows(id, next[id - 1])) << "window " << id;
}

TEST_F(ScreenVsyncTest, AWindowClosedWhileItsThreadPresentsLeavesTheOthersRunning)
{
    QtAV::AVPlayer* player = twoWindowsShowingRed();
    ASSERT_NE(player, nullptr) << "windows 1 and 2 never both showed red";
    for (int i = 0; i < 10; ++i) {
        player->pushFrame(QtAV::VideoFrame(solid(i % 2 ? Qt::red : Qt::blue)));
        QTest::qWait(2);
    }
    ScreenWidget* first = ScreenService::getInstance().screenById(1);
    for (auto& render : m_renders)
        first->removeRender(render.get());
    ASSERT_TRUE(ScreenService::getInstance().closeScreen(1, 0, QString()));
    player->pushFrame(QtAV::VideoFrame(solid(Qt::green)));
    EXPECT_TRUE(windowShows(2, Qt::green));
}

TEST_F(ScreenVsyncTest, ImmediateWindowsAndOffscreenScreensHaveNoPresenter)
{
    ScreenService::getInstance().setPresentation(ScreenService::Presentation::Immediate);
    openWindow(1);
    openScreen(2);
    ScreenService::getInstance().setPresentation(ScreenService::Presentation::Vsync);
    openScreen(3);
    QtAV::AVPlayer* player = pushedPlayer(solid(Qt::blue));
    show(player, ScreenService::getInstance().screenById(1), QRect(0, 0, 320, 180));
    EXPECT_FALSE(ScreenService::getInstance().presentsWithVsync(1));
    EXPECT_FALSE(ScreenService::getInstance().presentsWithVsync(2));
    EXPECT_FALSE(ScreenService::getInstance().presentsWithVsync(3)); // offscreen
    EXPECT_TRUE(windowShows(1, Qt::blue));
    EXPECT_EQ(ScreenService::getInstance().presentedFrames(1), 0u);
}

TEST_F(ScreenVsyncTest, AutoPresentsWithVsyncWhereThreadsMayDraw)
{
    ScreenService::getInstance().setPresentation(ScreenService::Presentation::Auto);
    openWindow(1);
    EXPECT_EQ(ScreenService::getInstance().presentsWithVsync(1),
              QOpenGLContext::supportsThreadedOpenGL());
}

TEST_F(ScreenVsyncTest, AnUnknownPresentationIsIgnored)
{
    ScreenService::getInstance().setPresentation(static_cast<ScreenService::Presentation>(7));
    EXPECT_EQ(ScreenService::getInstance().presentation(), ScreenService::Presentation::Vsync);
}

TEST_F(ScreenVsyncTest, VirtualScreenLayerFollowsAPresentedWindowsPicture)
{
    QtAV::AVPlayer* source = nullptr;
    ASSERT_TRUE(mirrorScreenOne(openWindow(1), &source)) << "screen 2 never showed the window's red";
    // The window's output framebuffers take turns; the mirror ends on the
    // newest picture all the same.
    const QColor colours[] = {Qt::blue, Qt::yellow, Qt::cyan, Qt::magenta, Qt::green};
    for (const QColor& colour : colours) {
        source->pushFrame(QtAV::VideoFrame(solid(colour)));
        QTest::qWait(20);
    }
    EXPECT_TRUE(waitUntil([&] { return near(grab(2).pixel(160, 90), Qt::green, 2); }, 3000))
        << "screen 2 kept " << describe(grab(2).pixel(160, 90));
    EXPECT_TRUE(windowShows(1, Qt::green));
}

TEST_F(ScreenVsyncTest, AHiddenWindowHoldsNoOtherAndShowsTheNewestPictureWhenShownAgain)
{
    QtAV::AVPlayer* player = twoWindowsShowingRed();
    ASSERT_NE(player, nullptr) << "windows 1 and 2 never both showed red";
    QWindow* first = nullptr;
    for (QWindow* window : QGuiApplication::topLevelWindows()) {
        if (window->title() == QLatin1String("Output 1"))
            first = window;
    }
    ASSERT_NE(first, nullptr);
    first->hide();
    ASSERT_TRUE(waitUntil([&] { return !first->isExposed(); }));
    // Pictures go on while one window is hidden: its output framebuffers
    // keep taking turns, nothing waits for it.
    const QColor colours[] = {Qt::blue, Qt::yellow, Qt::cyan, Qt::green};
    for (const QColor& colour : colours) {
        player->pushFrame(QtAV::VideoFrame(solid(colour)));
        EXPECT_TRUE(windowShows(2, colour)) << "window 2 with window 1 hidden";
    }
    EXPECT_PIXEL(grab(1), 160, 90, Qt::green);
    first->show();
    EXPECT_TRUE(windowShows(1, Qt::green)) << "window 1 shown again";
}

TEST_F(ScreenVsyncTest, APlayedClipFillingTheWindowIsShownUprightAndAsTheSnapshot)
{
    const QString clip = ScreenMedia::quadrantClip();
    ASSERT_FALSE(clip.isEmpty()) << "ffmpeg could not make the clip";
    QtAV::AVPlayer* player = newPlayer();
    player->setMediaType(QStringLiteral("video"));
    QSignalSpy loaded(player, &QtAV::AVPlayer::loaded);
    player->setFile(clip);
    // One played layer filling two windows 1:1: each window's thread shows
    // the layer's picture as it is.
    for (int id = 1; id <= 2; ++id)
        show(player, openWindow(id), QRect(0, 0, 320, 180), QSizeF(320, 180));
    ASSERT_TRUE(waitUntil([&] { return loaded.count() > 0; }));
    player->pause(false);
    for (int id = 1; id <= 2; ++id) {
        ASSERT_TRUE(waitUntil([&] {
            const QImage shown = windowPixels(id);
            return !shown.isNull() && quadrantsIn(shown, QRect(0, 0, 320, 180));
        })) << "window " << id << ": " << quadrantsIn(windowPixels(id), QRect(0, 0, 320, 180));
    }
    player->pause(true);
    QTest::qWait(300);
    // Paused: the window's picture and the snapshot are the same frame.
    for (int id = 1; id <= 2; ++id) {
        QPoint worst;
        const QImage shown = windowPixels(id);
        const QImage picture = grab(id);
        ASSERT_EQ(shown.size(), picture.size());
        EXPECT_LE(maxChannelDifference(shown, picture, &worst), 2)
            << "window " << id << " at (" << worst.x() << ", " << worst.y() << ")";
    }
}

TEST_F(ScreenVsyncTest, ALayerFreedWhileItsPictureIsPresentedLeavesTheWindowToTheNextLayer)
{
    const QString clip = ScreenMedia::quadrantClip();
    ASSERT_FALSE(clip.isEmpty()) << "ffmpeg could not make the clip";
    ScreenWidget* window = openWindow(1);
    // The played layer fills the window 1:1, so its own texture is what the
    // window's thread copies; it is freed while it plays, several times, and
    // each time the next layer must reach the window.
    for (int round = 0; round < 3; ++round) {
        QtAV::AVPlayer* player = newPlayer();
        player->setMediaType(QStringLiteral("video"));
        QSignalSpy loaded(player, &QtAV::AVPlayer::loaded);
        player->setFile(clip);
        QtAV::NoxOpenGLRender* render = show(player, window, QRect(0, 0, 320, 180), QSizeF(320, 180));
        ASSERT_TRUE(waitUntil([&] { return loaded.count() > 0; })) << "round " << round;
        player->pause(false);
        ASSERT_TRUE(waitUntil([&] {
            const QImage shown = windowPixels(1);
            return !shown.isNull() && quadrantsIn(shown, QRect(0, 0, 320, 180));
        })) << "round " << round;
        // Freed while its render object is still on the screen: the
        // window's thread may be copying one of its frames.
        QPointer<QtAV::AVPlayer> gone(player);
        QObject::connect(player, &QtAV::AVPlayer::sig_deleteObj, player,
                         [player] { player->deleteLater(); });
        player->releaseObj();
        ASSERT_TRUE(waitUntil([&] { return gone.isNull(); })) << "round " << round;
        window->removeRender(render);

        const QColor next = round % 2 ? Qt::blue : Qt::green;
        QtAV::AVPlayer* pushed = pushedPlayer(solid(next, 320, 180));
        QtAV::NoxOpenGLRender* nextRender = show(pushed, window, QRect(0, 0, 320, 180));
        EXPECT_TRUE(windowShows(1, next)) << "round " << round;
        const quint64 presented = ScreenService::getInstance().presentedFrames(1);
        pushed->pushFrame(QtAV::VideoFrame(solid(next, 320, 180)));
        EXPECT_TRUE(waitUntil([&] { return ScreenService::getInstance().presentedFrames(1) > presented; }))
            << "round " << round << ": the window's thread stopped presenting";
        window->removeRender(nextRender); // the next round's clip is the lone layer again
    }
}
