// Ending layers played by the libmpv engine while an output screen draws
// them: deleteplayerByID hands the engine's teardown to later turns of the
// event loop instead of waiting for libmpv on the GUI thread, the players
// are still released and deleted, nothing of their render contexts is left,
// and the layers that stay keep being drawn.
#include "ModuleLayerFixture.h"
#include "ScreenMedia.h"
#include "MpvFrameSource.h"

#include <QElapsedTimer>

namespace {

class ScreenReleaseTest : public ModuleLayerTest
{
protected:
    // A functional bound on one deleteplayerByID call, far above its own
    // work and far below libmpv's wait for an undrawn frame (about 200 ms),
    // which the GUI thread must never sit through.
    static constexpr qint64 kDeleteBoundMs = 50;
    static constexpr int kReleaseWait = 5000;

    void SetUp() override
    {
        ModuleLayerTest::SetUp();
        if (HasFatalFailure())
            return;
        m_contextsBefore = QtAV::MpvFrameSource::liveRenderContexts();
    }

    void TearDown() override
    {
        EXPECT_TRUE(endLayers()) << "a released player was not deleted";
        ModuleLayerTest::TearDown();
    }

    /// A layer made as the host makes it (creatnewlayer, its media type, a
    /// render object filling `geometry` of screen 1), then played.
    QtAV::AVPlayer* playingLayer(int layerId, const QString& type, const QString& path,
                                 const QRect& geometry)
    {
        QtAV::AVPlayer* player = makeLayer(layerId, type, path, 600000);
        if (!player)
            return nullptr;
        service().addRenderer(rendererRecord(layerId, geometry));
        if (type == QLatin1String("video"))
            service().setRepeat(player, -1); // still playing whenever it is deleted
        service().play(player);
        return player;
    }

    static Record rendererRecord(int layerId, const QRect& geometry)
    {
        return screenOneRendererRecord(kBank, layerId, geometry);
    }

    /// Waits until the player's source drew new frames, `frames` of them.
    bool waitForFrames(QtAV::AVPlayer* player, quint64 frames)
    {
        QtAV::VideoFrameSource* source = player->frameSource();
        if (!source)
            return false;
        const quint64 start = source->serial();
        return waitUntil([&] {
            grab(1);
            return source->serial() >= start + frames;
        });
    }

    /// Ends the layer as the host does (its render objects, then the layer)
    /// and returns how long deleteplayerByID held the calling thread, in ms.
    qint64 deleteLayer(int layerId)
    {
        service().delLayerAllRenderer(kBank, layerId, true);
        Record record;
        record["bankId"] = kBank;
        record["layerId"] = layerId;
        QElapsedTimer held;
        held.start();
        reg().deleteplayerByID(record);
        const qint64 ms = held.elapsed();
        forgetLayer(layerId);
        return ms;
    }

    int m_contextsBefore = 0;
};

const QRect kVideoArea(0, 0, 160, 90);
const QRect kPictureArea(160, 0, 160, 90);
const QRect kStayingArea(80, 90, 160, 90);

TEST_F(ScreenReleaseTest, DeletingPlayingLayersNeverHoldsTheGuiThread)
{
    const QString clip = ScreenMedia::quadrantClip();
    const QString picture = ScreenMedia::quadrantPicture();
    ASSERT_FALSE(clip.isEmpty());
    ASSERT_FALSE(picture.isEmpty());
    openScreen(1);
    QtAV::AVPlayer* staying = playingLayer(9, QStringLiteral("picture"), picture, kStayingArea);
    ASSERT_NE(staying, nullptr);

    // A few rounds: libmpv's wait for an undrawn frame, which deleting a
    // layer must not sit through, shows in most of them but not in all.
    for (int round = 0; round < 5; ++round) {
        SCOPED_TRACE(round);
        QtAV::AVPlayer* video = playingLayer(2, QStringLiteral("video"), clip, kVideoArea);
        QtAV::AVPlayer* still = playingLayer(3, QStringLiteral("picture"), picture, kPictureArea);
        ASSERT_NE(video, nullptr);
        ASSERT_NE(still, nullptr);
        QImage out;
        ASSERT_TRUE(waitUntil([&] {
            out = grab(1);
            return quadrantsIn(out, kVideoArea) && quadrantsIn(out, kPictureArea)
                && quadrantsIn(out, kStayingArea);
        })) << "the layers were not drawn";
        ASSERT_TRUE(waitForFrames(video, 5)) << "the clip does not play";

        const QPointer<QtAV::AVPlayer> videoGone(video), stillGone(still);
        EXPECT_LT(deleteLayer(2), kDeleteBoundMs) << "deleting the video layer held the GUI thread";
        EXPECT_LT(deleteLayer(3), kDeleteBoundMs) << "deleting the picture layer held the GUI thread";

        // Released within a few seconds: the service deletes a player only on
        // its sig_deleteObj(), which the player sends once its engine let go
        // of everything. The staying layer is still drawn meanwhile.
        EXPECT_TRUE(waitUntil([&] { return videoGone.isNull() && stillGone.isNull(); }, kReleaseWait))
            << "released players were not deleted";
        out = grab(1);
        EXPECT_TRUE(quadrantsIn(out, kStayingArea)) << quadrantsIn(out, kStayingArea).message();
        // Only the staying layer still has a render context.
        EXPECT_EQ(QtAV::MpvFrameSource::liveRenderContexts(), m_contextsBefore + 1);
    }
}

TEST_F(ScreenReleaseTest, ClearingAllLayersFreesEveryRenderContext)
{
    const QString clip = ScreenMedia::quadrantClip();
    const QString picture = ScreenMedia::quadrantPicture();
    ASSERT_FALSE(clip.isEmpty());
    ASSERT_FALSE(picture.isEmpty());
    openScreen(1);
    QtAV::AVPlayer* video = playingLayer(2, QStringLiteral("video"), clip, kVideoArea);
    QtAV::AVPlayer* still = playingLayer(3, QStringLiteral("picture"), picture, kPictureArea);
    ASSERT_NE(video, nullptr);
    ASSERT_NE(still, nullptr);
    ASSERT_TRUE(waitForFrames(video, 5)) << "the clip does not play";
    EXPECT_EQ(QtAV::MpvFrameSource::liveRenderContexts(), m_contextsBefore + 2);

    EXPECT_TRUE(endLayers(kReleaseWait));
    EXPECT_EQ(QtAV::MpvFrameSource::liveRenderContexts(), m_contextsBefore);
}

} // namespace
