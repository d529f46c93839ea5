// Pictures played by the libmpv engine reach the output screens: orientation
// and colours of a real clip and of a still, one decode for several screens.
#include "ScreenFixture.h"
#include "ScreenMedia.h"
#include "PreviewRenderer.h"

#include <QSignalSpy>

namespace {

void expectQuadrants(const QImage& out)
{
    const int w = out.width(), h = out.height();
    EXPECT_PIXEL(out, w / 4, h / 4, Qt::red);
    EXPECT_PIXEL(out, 3 * w / 4, h / 4, Qt::green);
    EXPECT_PIXEL(out, w / 4, 3 * h / 4, Qt::blue);
    EXPECT_PIXEL(out, 3 * w / 4, 3 * h / 4, Qt::white);
}

} // namespace

class ScreenEngineTest : public ScreenTest
{
protected:
    /// Waits until the screen shows something other than black at its centre.
    bool waitForPicture(int screenId, QImage* out)
    {
        return waitUntil([&] {
            *out = grab(screenId);
            return !out->isNull() && out->pixel(out->width() / 4, out->height() / 4) != qRgb(0, 0, 0);
        });
    }
};

TEST_F(ScreenEngineTest, PlayedClipIsUprightWithExactColours)
{
    const QString clip = ScreenMedia::quadrantClip();
    ASSERT_FALSE(clip.isEmpty()) << "ffmpeg could not make the clip";
    ScreenWidget* screen = openScreen(1);
    QtAV::AVPlayer* player = newPlayer();
    player->setMediaType(QStringLiteral("video"));
    QSignalSpy loaded(player, &QtAV::AVPlayer::loaded);
    player->setFile(clip);
    show(player, screen, QRect(0, 0, 320, 180), QSizeF(320, 180));
    ASSERT_TRUE(waitUntil([&] { return loaded.count() > 0; }));
    player->pause(false);
    QImage out;
    ASSERT_TRUE(waitForPicture(1, &out));
    expectQuadrants(out);
}

TEST_F(ScreenEngineTest, StillPictureShowsOnceLoaded)
{
    const QString picture = ScreenMedia::quadrantPicture();
    ASSERT_FALSE(picture.isEmpty());
    ScreenWidget* screen = openScreen(1);
    QtAV::AVPlayer* player = newPlayer();
    player->setMediaType(QStringLiteral("picture"));
    player->setFile(picture);
    show(player, screen, QRect(0, 0, 320, 180), QSizeF(320, 180));
    QImage out;
    ASSERT_TRUE(waitForPicture(1, &out));
    expectQuadrants(out);
}

TEST_F(ScreenEngineTest, OnePlayerOnThreeScreensIsRenderedOncePerFrame)
{
    const QString picture = ScreenMedia::quadrantPicture();
    ASSERT_FALSE(picture.isEmpty());
    QtAV::AVPlayer* player = newPlayer();
    player->setMediaType(QStringLiteral("picture"));
    player->setFile(picture);
    for (int id = 1; id <= 3; ++id)
        show(player, openScreen(id), QRect(0, 0, 320, 180), QSizeF(320, 180));
    QImage out;
    ASSERT_TRUE(waitForPicture(1, &out));
    ASSERT_NE(player->frameSource(), nullptr);
    // libmpv may still announce a redraw of the still (its size or state
    // settling); wait until the picture is at rest.
    quint64 serial = 0;
    ASSERT_TRUE(waitUntil([&] {
        const quint64 before = player->frameSource()->serial();
        grab(1);
        QTest::qWait(50);
        grab(1);
        serial = player->frameSource()->serial();
        return serial == before && !player->frameSource()->hasPendingFrame();
    }));
    for (int id = 1; id <= 3; ++id)
        expectQuadrants(grab(id));
    // Grabbing the three screens drew no new frame of the player: a still
    // renders once, however many screens show it.
    EXPECT_EQ(player->frameSource()->serial(), serial);
}

TEST_F(ScreenEngineTest, PreviewShowsThePlayersPictureAtItsOwnSize)
{
    const QString picture = ScreenMedia::quadrantPicture();
    ASSERT_FALSE(picture.isEmpty());
    QtAV::AVPlayer* player = newPlayer();
    player->setMediaType(QStringLiteral("picture"));
    player->setFile(picture);
    QtAV::PreviewRenderer preview;
    EXPECT_STREQ(QtAV::VideoRenderer::name(preview.id()), "Preview");
    EXPECT_EQ(preview.videoRenderType(), QtAV::VideoRenderType_Custom);
    preview.resizeRenderer(96, 54);
    player->addVideoRenderer(&preview);
    ASSERT_TRUE(waitUntil([&] { return !preview.picture().isNull(); }));
    const QImage out = preview.picture();
    EXPECT_EQ(out.size(), QSize(96, 54));
    expectQuadrants(out);
    player->removeVideoRenderer(&preview);
}

TEST_F(ScreenTest, OnePushedFrameOnThreeScreensIsUploadedOnce)
{
    QtAV::AVPlayer* player = pushedPlayer(QImage());
    for (int id = 1; id <= 3; ++id)
        show(player, openScreen(id), QRect(0, 0, 320, 180));
    grab(1);
    ASSERT_NE(player->frameSource(), nullptr);
    const quint64 before = player->frameSource()->serial();
    player->pushFrame(QtAV::VideoFrame(quadrants()));
    // One output frame draws all three screens from one upload.
    for (int id = 1; id <= 3; ++id)
        expectQuadrants(grab(id));
    EXPECT_EQ(player->frameSource()->serial(), before + 1);
}
