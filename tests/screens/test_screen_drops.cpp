// Dropped frames: frames a shown player had due that never reached a screen
// are counted per player (ScreenService::droppedFrames), exactly.
#include "ScreenFixture.h"
#include "ScreenMedia.h"

#include "MpvBackend.h"
#include "MpvEngine.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QThread>

namespace {

quint64 dropsOf(QtAV::AVPlayer* player)
{
    return ScreenService::getInstance().droppedFrames(player);
}

QColor shade(int i)
{
    return QColor::fromHsv((i * 37) % 360, 255, 255);
}

} // namespace

TEST_F(ScreenTest, PushedFramesReplacedBeforeAnOutputFrameAreCountedExactly)
{
    ScreenWidget* screen = openScreen(1);
    QtAV::AVPlayer* player = pushedPlayer(solid(Qt::red));
    show(player, screen, QRect(0, 0, 320, 180));
    EXPECT_PIXEL(grab(1), 160, 90, Qt::red);
    EXPECT_EQ(dropsOf(player), 0u);

    // Five frames before the next output frame: only the last is shown.
    for (int i = 1; i <= 5; ++i)
        player->pushFrame(QtAV::VideoFrame(solid(shade(i))));
    EXPECT_PIXEL(grab(1), 160, 90, shade(5));
    EXPECT_EQ(dropsOf(player), 4u);

    // One frame per output frame: none lost.
    for (int i = 6; i <= 8; ++i) {
        player->pushFrame(QtAV::VideoFrame(solid(shade(i))));
        EXPECT_PIXEL(grab(1), 160, 90, shade(i));
    }
    EXPECT_EQ(dropsOf(player), 4u);

    // A skipped output frame: the GUI thread busy while three frames come.
    player->pushFrame(QtAV::VideoFrame(solid(shade(9))));
    QThread::msleep(50);
    player->pushFrame(QtAV::VideoFrame(solid(shade(10))));
    QThread::msleep(50);
    player->pushFrame(QtAV::VideoFrame(solid(shade(11))));
    EXPECT_PIXEL(grab(1), 160, 90, shade(11));
    EXPECT_EQ(dropsOf(player), 6u);
    EXPECT_EQ(ScreenService::getInstance().droppedFrameCounts().value(player), 6u);
}

TEST_F(ScreenTest, FramesPushedWhileNothingShowsThePlayerAreNotDropped)
{
    ScreenWidget* screen = openScreen(1);
    QtAV::AVPlayer* hidden = pushedPlayer(solid(Qt::red));
    QtAV::AVPlayer* other = pushedPlayer(solid(Qt::blue));
    show(other, screen, QRect(0, 0, 160, 180));
    grab(1);
    for (int i = 1; i <= 5; ++i)
        hidden->pushFrame(QtAV::VideoFrame(solid(shade(i))));
    grab(1);
    EXPECT_EQ(dropsOf(hidden), 0u);

    // Shown from now on: what came before was due nowhere.
    show(hidden, screen, QRect(160, 0, 160, 180));
    EXPECT_PIXEL(grab(1), 240, 90, shade(5));
    EXPECT_EQ(dropsOf(hidden), 0u);
    hidden->pushFrame(QtAV::VideoFrame(solid(shade(6))));
    hidden->pushFrame(QtAV::VideoFrame(solid(shade(7))));
    EXPECT_PIXEL(grab(1), 240, 90, shade(7));
    EXPECT_EQ(dropsOf(hidden), 1u);
    EXPECT_EQ(dropsOf(other), 0u);
    EXPECT_FALSE(ScreenService::getInstance().droppedFrameCounts().contains(other));
    EXPECT_EQ(dropsOf(nullptr), 0u);
}

TEST_F(ScreenTest, DroppedFramesGoWithThePlayer)
{
    ScreenWidget* screen = openScreen(1);
    QtAV::AVPlayer* player = pushedPlayer(solid(Qt::red));
    show(player, screen, QRect(0, 0, 320, 180));
    grab(1);
    player->pushFrame(QtAV::VideoFrame(solid(Qt::green)));
    player->pushFrame(QtAV::VideoFrame(solid(Qt::blue)));
    grab(1);
    ASSERT_EQ(dropsOf(player), 1u);
    TearDown(); // releases and deletes the player
    EXPECT_TRUE(ScreenService::getInstance().droppedFrameCounts().isEmpty());
}

// A played clip whose output frames stop for a while (the GUI thread busy
// with the GL context):
// libmpv drops the frames that came too late, and the screens count exactly
// those for the layer.
TEST_F(ScreenTest, PlayedFramesDroppedWhileTheScreensStallAreCounted)
{
    const QString clip = ScreenMedia::movingClip();
    ASSERT_FALSE(clip.isEmpty()) << "ffmpeg could not make the clip";
    auto* engine = dynamic_cast<QtAV::MpvEngine*>(QtAV::mediaEngine());
    ASSERT_NE(engine, nullptr) << "the libmpv engine is not installed";
    ScreenWidget* screen = openScreen(1);
    QtAV::AVPlayer* player = newPlayer();
    player->setMediaType(QStringLiteral("video"));
    QSignalSpy loaded(player, &QtAV::AVPlayer::loaded);
    player->setFile(clip);
    show(player, screen, QRect(0, 0, 320, 180), QSizeF(320, 180));
    ASSERT_TRUE(waitUntil([&] { return loaded.count() > 0; }));
    // (20 s long: no loop, whose seek would start libmpv's count again.)
    QtAV::MpvBackend* backend = engine->backend(player);
    ASSERT_NE(backend, nullptr);
    auto libmpvDrops = [&] {
        return backend->propertyForDiagnostics("frame-drop-count").toULongLong();
    };
    player->pause(false);
    QtAV::VideoFrameSource* source = player->frameSource();
    ASSERT_NE(source, nullptr);
    const quint64 started = source->serial();
    ASSERT_TRUE(waitUntil([&] { return source->serial() >= started + 10; }));

    // Stalls of the GUI thread, holding the GL context (a render thread
    // draws no frame then either), until libmpv has dropped frames (a
    // loaded machine may need more than one).
    QElapsedTimer clock;
    clock.start();
    while (libmpvDrops() == 0 && clock.elapsed() < 10000) {
        ASSERT_NE(QtAV::compositorContext(), nullptr);
        QThread::msleep(400);
        QTest::qWait(300);
    }
    ASSERT_GT(libmpvDrops(), 0u) << "libmpv dropped nothing";
    // The screens' count catches up with libmpv's at the next output frames
    // (no seek or loop in between: libmpv's count started with the clip).
    EXPECT_TRUE(waitUntil([&] {
        const quint64 ours = dropsOf(player), theirs = libmpvDrops();
        return ours == theirs;
    }, 3000)) << "screens " << dropsOf(player) << ", libmpv " << libmpvDrops();
}
