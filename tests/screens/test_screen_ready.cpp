// A play-ready that opens a new source on a shown layer: libmpv loads it at
// the asked position, so no picture from before that position (the source's
// first frame) is ever rendered for the screens, and the picture at the
// position reaches them without anything else asking for a draw.
#include "ScreenFixture.h"
#include "ScreenMedia.h"

#include "PreviewRenderer.h"

#include <QSignalSpy>

namespace {

// A video layer shown at 320x180 on screen 1, with a preview that takes
// every picture rendered for it (at most 120 a second: the source's first
// frame would come tens of milliseconds before the one at the position, as
// the decoder works its way there) and keeps the centre colour of each.
class ScreenReadyTest : public ScreenTest
{
protected:
    void SetUp() override
    {
        ScreenTest::SetUp();
        m_clip = ScreenMedia::redThenGreenClip();
        ASSERT_FALSE(m_clip.isEmpty()) << "ffmpeg could not make the clip";
        m_player = newPlayer();
        m_player->setMediaType(QStringLiteral("video"));
        show(m_player, openScreen(1), QRect(0, 0, 320, 180), QSizeF(320, 180));
        m_preview.setMaxRate(120);
        m_player->addVideoRenderer(&m_preview);
        QObject::connect(&m_preview, &QtAV::PreviewRenderer::pictureChanged, [this] {
            const QImage picture = m_preview.picture();
            if (!picture.isNull())
                m_seen << picture.pixel(picture.width() / 2, picture.height() / 2);
        });
        m_ready = std::make_unique<QSignalSpy>(m_player, &QtAV::AVPlayer::playReadySucess);
    }

    void TearDown() override
    {
        if (m_player)
            m_player->removeVideoRenderer(&m_preview);
        ScreenTest::TearDown();
    }

    /// playReady at `ms`: true once the ready came and, with nothing else
    /// asking for a draw, the preview's last picture is `colour`.
    bool readyShows(qint64 ms, QColor colour)
    {
        const int before = m_ready->count();
        m_player->playReady(m_clip, ms, true);
        return waitUntil([&] { return m_ready->count() > before; })
            && waitUntil([&] { return lastSeen(colour); });
    }

    bool lastSeen(QColor colour) const { return !m_seen.isEmpty() && near(m_seen.last(), colour, 24); }

    QString m_clip;
    QtAV::AVPlayer* m_player = nullptr;
    QtAV::PreviewRenderer m_preview;
    QList<QRgb> m_seen;
    std::unique_ptr<QSignalSpy> m_ready;
};

} // namespace

TEST_F(ScreenReadyTest, ReadyOnANewSourceRendersNothingFromBeforeItsPosition)
{
    // The ready's frame reaches the screens by itself, with no grab asking
    // for a draw (libmpv's frame is taken undrawn first and drawn after).
    EXPECT_TRUE(readyShows(3000, Qt::green)) << "the preview never got the picture at 3 s";
    EXPECT_TRUE(waitUntil([&] { return near(grab(1).pixel(160, 90), Qt::green, 24); }))
        << "screen shows " << describe(grab(1).pixel(160, 90));
    QTest::qWait(200);
    ASSERT_FALSE(m_seen.isEmpty());
    // The first half of the clip is red: no red picture may ever be rendered,
    // nor an empty (black) render from before the first frame.
    for (QRgb p : m_seen)
        EXPECT_TRUE(near(p, Qt::green, 24)) << "a picture not at 3 s: " << describe(p);
    EXPECT_TRUE(lastSeen(Qt::green)) << "the last picture: " << describe(m_seen.last());
}

// A layer already showing a picture is readied elsewhere in its clip: the
// screens move to the new position's picture by themselves (the frame libmpv
// hands over during the ready is drawn after it is taken), and the old
// picture stays on the layer until then, never a blank one.
TEST_F(ScreenReadyTest, ReadyOnAShownLayerMovesItsPictureToTheNewPosition)
{
    ASSERT_TRUE(readyShows(3000, Qt::green)) << "the preview never got the picture at 3 s";
    m_seen.clear();
    EXPECT_TRUE(readyShows(500, Qt::red)) << "the preview never got the picture at 0.5 s";
    for (QRgb p : m_seen) {
        EXPECT_TRUE(near(p, Qt::red, 24) || near(p, Qt::green, 24))
            << "a picture neither old nor new: " << describe(p);
    }
    EXPECT_TRUE(near(grab(1).pixel(160, 90), Qt::red, 24))
        << "screen shows " << describe(grab(1).pixel(160, 90));
}
