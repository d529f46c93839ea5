// Content change of a layer: which stops are the service's own, what is torn
// down, what is stored, and the media-type rules.
#include "PlaybackFixture.h"

#include "NdiService.h"
#include "NoxOpenGLRender.h"
#include "SpoutNode.h"
#include "VideoFrame.h"

#include <QImage>

namespace {

class PlaybackContent : public PlaybackTest
{
protected:
    static Record change(const QString& type, const QString& path, qint64 length = -1)
    {
        Record record;
        record["type"] = type;
        record["videoPath"] = path;
        if (length >= 0)
            record["timeLenMsec"] = length;
        return record;
    }
};

TEST_F(PlaybackContent, VideoToAudioMarksStopWhichIsSwallowedOnce)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);
    journal().clear();

    service().changeLayerContent(2, 1, change("audio", "song.wav", 3000));
    EXPECT_EQ(useStopPlayers().value(player), true);
    EXPECT_EQ(callsOf(player), QStringList({"stop()", "setMediaType(audio)", "open(song.wav)",
                                            "setStopPosition(3000)"}));

    backend(player)->raiseStopped(); // the stop that the change caused
    processEvents();
    EXPECT_EQ(ends.count(), 0);
    EXPECT_FALSE(useStopPlayers().contains(player));

    backend(player)->raiseStopped(); // a real end afterwards is reported
    ASSERT_TRUE(ends.wait(5000));
    EXPECT_EQ(ends.at(0), QVariantList({2, 1}));
}

TEST_F(PlaybackContent, PictureToVideoWithIdleTimerSetsNoMark)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "picture");
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);

    service().changeLayerContent(2, 1, change("video", "clip.mp4"));

    EXPECT_FALSE(useStopPlayers().contains(player));
    backend(player)->raiseStopped();
    ASSERT_TRUE(ends.wait(5000));
}

TEST_F(PlaybackContent, PictureToVideoWithPlayingTimerSetsMark)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "picture", 600000);
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    service().play(player);
    ASSERT_TRUE(positions.wait(5000));
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);

    service().changeLayerContent(2, 1, change("video", "clip.mp4"));

    // The timer was stopped by the change; whichever stop report arrives
    // first takes the mark with it and nothing reaches the host.
    EXPECT_TRUE(useStopPlayers().value(player));
    ASSERT_TRUE(waitUntil([&] { return timerOf(1, 2)->getPlayState() == kStopped; }));
    processEvents();
    EXPECT_FALSE(useStopPlayers().contains(player));
    EXPECT_EQ(ends.count(), 0);
}

TEST_F(PlaybackContent, NetworkVideoToVideoMarksYetStopsOldTimer)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "networkVideo", 600000);
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    service().play(player);
    ASSERT_TRUE(positions.wait(5000));
    // Paused, so the timer's stop is observable at once (it reports directly).
    service().pause(player);
    QSignalSpy timerStops(timerOf(1, 2), &Timer::stopped);

    service().changeLayerContent(2, 1, change("video", "clip.mp4"));

    EXPECT_EQ(timerStops.count(), 1);
    EXPECT_EQ(timerOf(1, 2)->getPlayState(), kStopped);
    // The timer's stop took the mark set for the media player's stop.
    EXPECT_FALSE(useStopPlayers().contains(player));
}

TEST_F(PlaybackContent, NetworkVideoToVideoWhileIdleKeepsMarkForPlayerStop)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "networkVideo");
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);

    service().changeLayerContent(2, 1, change("video", "clip.mp4"));

    EXPECT_TRUE(useStopPlayers().value(player));
    backend(player)->raiseStopped();
    processEvents();
    EXPECT_EQ(ends.count(), 0);
    EXPECT_FALSE(useStopPlayers().contains(player));
}

TEST_F(PlaybackContent, OfficeIsStoredAsPictureTimedAndDrawnAtOnce)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    journal().clear();

    service().changeLayerContent(2, 1, change("office", "deck/page1.png", 8000));

    EXPECT_EQ(player->getMediaType(), "picture");
    EXPECT_EQ(timerOf(1, 2)->getDuration(), 8000);
    EXPECT_EQ(callsOf(player), QStringList({"stop()", "setMediaType(picture)",
                                            "open(deck/page1.png)", "updateFrame()",
                                            "refreshUi()"}));
}

TEST_F(PlaybackContent, NdiSourceIsJoinedAndStoppedWithSameStringLater)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    Record toNdi = change("ndi", "CamB");
    toNdi["videoName"] = "Feed";

    service().changeLayerContent(2, 1, toNdi);
    EXPECT_EQ(player->file(), "CamB#Feed");
    EXPECT_EQ(journal().count(player, "open(CamB#Feed)"), 1);
    service().play(player);
    EXPECT_TRUE(NdiService::isSending("CamB#Feed", player));
    ASSERT_TRUE(waitPlaying(1, 2));

    service().changeLayerContent(2, 1, change("video", "clip.mp4"));
    EXPECT_FALSE(NdiService::isSending("CamB#Feed", player));
}

TEST_F(PlaybackContent, MissingLengthGivesTimedItemOneSecond)
{
    createLayer(1, 2, "video", 5000);

    service().changeLayerContent(2, 1, change("picture", "a.png"));

    EXPECT_EQ(timerOf(1, 2)->getDuration(), 1000);
}

TEST_F(PlaybackContent, EmptyRecordClearsSourceAndStoresEmptyType)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video", 5000);

    service().changeLayerContent(2, 1, Record());

    EXPECT_TRUE(player->file().isEmpty());
    EXPECT_TRUE(player->getMediaType().isEmpty());
    EXPECT_EQ(timerOf(1, 2)->getDuration(), 1000); // an unknown type is a timed item
}

TEST_F(PlaybackContent, UnknownLayerDoesNothingAndLogsNothing)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    journal().clear();
    LogCapture log;

    service().changeLayerContent(1, 2, change("picture", "a.png")); // layer 1 of bank 2

    EXPECT_TRUE(log.lines().isEmpty());
    EXPECT_TRUE(journal().names().isEmpty());
    EXPECT_EQ(player->getMediaType(), "video");
}

TEST_F(PlaybackContent, SetLayerMediaTypeStoresPictureForOfficeAndLogs)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    journal().clear();
    LogCapture log;

    service().setLayerMediaType(player, "office");

    EXPECT_EQ(player->getMediaType(), "picture");
    EXPECT_EQ(log.count("command setLayerMediaType success"), 1);
    EXPECT_EQ(callsOf(player), QStringList({"setMediaType(picture)"})); // nothing else
}

TEST_F(PlaybackContent, ChangeBlanksRenderersAndEndsSpoutOfOldSource)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "spout", 1000, "TexA");
    QtAV::NoxOpenGLRender render;
    player->addVideoRenderer(&render);
    render.receive(QtAV::VideoFrame(QImage(4, 4, QImage::Format_RGB32)));
    service().setSpoutState(player, 1);
    QPointer<SpoutNode> node = reg().getScenePlayer(1, 2)->spoutNode;
    ASSERT_FALSE(node.isNull());

    service().changeLayerContent(2, 1, change("video", "clip.mp4"));

    EXPECT_TRUE(node.isNull());
    EXPECT_EQ(reg().getScenePlayer(1, 2)->spoutNode, nullptr);
    EXPECT_FALSE(render.currentFrame().isValid());
    player->clearVideoRenderers();
}

TEST_F(PlaybackContent, ChangeNeverStartsPlayback)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");

    service().changeLayerContent(2, 1, change("picture", "a.png", 500));

    EXPECT_TRUE(player->isPaused());
    EXPECT_EQ(timerOf(1, 2)->getPlayState(), kStopped);
}

} // namespace
