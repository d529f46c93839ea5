// A play-ready that opens a new source on a shown layer: libmpv loads it at
// the asked position, so no picture from before that position (the source's
// first frame) is ever rendered for the screens, and the picture at the
// position reaches them without anything else asking for a draw.
#include "ScreenFixture.h"
#include "ScreenMedia.h"

#include "PreviewRenderer.h"

#include <QSignalSpy>

TEST_F(ScreenTest, ReadyOnANewSourceRendersNothingFromBeforeItsPosition)
{
    const QString clip = ScreenMedia::redThenGreenClip();
    ASSERT_FALSE(clip.isEmpty()) << "ffmpeg could not make the clip";
    ScreenWidget* screen = openScreen(1);
    QtAV::AVPlayer* player = newPlayer();
    player->setMediaType(QStringLiteral("video"));
    show(player, screen, QRect(0, 0, 320, 180), QSizeF(320, 180));
    // A preview takes every picture rendered for the player (at most 120 a
    // second; the source's first frame would come tens of milliseconds
    // before the one at the position, as the decoder works its way there).
    QtAV::PreviewRenderer preview;
    preview.setMaxRate(120);
    player->addVideoRenderer(&preview);
    QList<QRgb> seen;
    QObject::connect(&preview, &QtAV::PreviewRenderer::pictureChanged, [&] {
        const QImage p = preview.picture();
        if (!p.isNull())
            seen << p.pixel(p.width() / 2, p.height() / 2);
    });
    QSignalSpy ready(player, &QtAV::AVPlayer::playReadySucess);
    player->playReady(clip, 3000, true);
    ASSERT_TRUE(waitUntil([&] { return ready.count() > 0; }));
    // The ready's frame reaches the screens by itself, with no grab asking
    // for a draw (libmpv's frame is taken undrawn first and drawn after).
    EXPECT_TRUE(waitUntil([&] { return !seen.isEmpty() && near(seen.last(), Qt::green, 24); }))
        << "the preview never got the picture at 3 s";
    EXPECT_TRUE(waitUntil([&] { return near(grab(1).pixel(160, 90), Qt::green, 24); }))
        << "screen shows " << describe(grab(1).pixel(160, 90));
    QTest::qWait(200);
    player->removeVideoRenderer(&preview);
    ASSERT_FALSE(seen.isEmpty());
    // The first half of the clip is red: no red picture may ever be rendered,
    // nor an empty (black) render from before the first frame.
    for (QRgb p : seen)
        EXPECT_TRUE(near(p, Qt::green, 24)) << "a picture not at 3 s: " << describe(p);
    EXPECT_TRUE(near(seen.last(), Qt::green, 24)) << "the last picture: " << describe(seen.last());
}

// A layer already showing a picture is readied elsewhere in its clip: the
// screens move to the new position's picture by themselves (the frame libmpv
// hands over during the ready is drawn after it is taken), and the old
// picture stays on the layer until then, never a blank one.
TEST_F(ScreenTest, ReadyOnAShownLayerMovesItsPictureToTheNewPosition)
{
    const QString clip = ScreenMedia::redThenGreenClip();
    ASSERT_FALSE(clip.isEmpty()) << "ffmpeg could not make the clip";
    ScreenWidget* screen = openScreen(1);
    QtAV::AVPlayer* player = newPlayer();
    player->setMediaType(QStringLiteral("video"));
    show(player, screen, QRect(0, 0, 320, 180), QSizeF(320, 180));
    QtAV::PreviewRenderer preview;
    preview.setMaxRate(120);
    player->addVideoRenderer(&preview);
    QList<QRgb> seen;
    QObject::connect(&preview, &QtAV::PreviewRenderer::pictureChanged, [&] {
        const QImage p = preview.picture();
        if (!p.isNull())
            seen << p.pixel(p.width() / 2, p.height() / 2);
    });
    QSignalSpy ready(player, &QtAV::AVPlayer::playReadySucess);
    player->playReady(clip, 3000, true);
    ASSERT_TRUE(waitUntil([&] { return ready.count() > 0; }));
    ASSERT_TRUE(waitUntil([&] { return !seen.isEmpty() && near(seen.last(), Qt::green, 24); }))
        << "the preview never got the picture at 3 s";
    seen.clear();
    player->playReady(clip, 500, true);
    ASSERT_TRUE(waitUntil([&] { return ready.count() > 1; }));
    EXPECT_TRUE(waitUntil([&] { return !seen.isEmpty() && near(seen.last(), Qt::red, 24); }))
        << "the preview never got the picture at 0.5 s";
    player->removeVideoRenderer(&preview);
    for (QRgb p : seen) {
        EXPECT_TRUE(near(p, Qt::red, 24) || near(p, Qt::green, 24))
            << "a picture neither old nor new: " << describe(p);
    }
    EXPECT_TRUE(near(grab(1).pixel(160, 90), Qt::red, 24))
        << "screen shows " << describe(grab(1).pixel(160, 90));
}
