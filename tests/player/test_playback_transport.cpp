// Transport of a layer: the media player's calls, the stream outputs and the
// timer of timed items, and the id order of each command.
#include "PlaybackFixture.h"

#include "AVClock.h"
#include "NdiService.h"
#include "SpoutNode.h"

namespace {

class PlaybackTransport : public PlaybackTest
{
};

TEST_F(PlaybackTransport, PlayOfVideoLayerResumesPlayerAndNeverStartsTimer)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    journal().clear();
    QSignalSpy positions(&service(), &Service::sPositionChanged);

    service().play(player);

    EXPECT_EQ(callsOf(player), QStringList({"setPaused(false)"}));
    processEvents();
    EXPECT_EQ(timerOf(1, 2)->getPlayState(), kStopped);
    EXPECT_EQ(positions.count(), 0);
}

TEST_F(PlaybackTransport, PlayOfPictureStartsTimerAndResumesFromPausedPosition)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "picture", 600000);
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    auto lastPosition = [&] { return positions.last().at(2).toLongLong(); };

    service().play(player);
    EXPECT_TRUE(waitPlaying(1, 2));
    ASSERT_TRUE(waitUntil([&] { return !positions.isEmpty() && lastPosition() >= 100; }));

    service().pause(player);
    EXPECT_EQ(timerOf(1, 2)->getPlayState(), kPaused);
    const qint64 pausedAt = timerOf(1, 2)->getCurrProgress();
    EXPECT_GE(pausedAt, 100);
    processEvents();
    positions.clear();

    service().play(player);
    ASSERT_TRUE(positions.wait(5000));
    // The run continues from the paused position instead of starting at 0.
    EXPECT_GE(lastPosition(), pausedAt);
    EXPECT_EQ(positions.last().at(0).toInt(), 2);
    EXPECT_EQ(positions.last().at(1).toInt(), 1);
}

TEST_F(PlaybackTransport, PlayOfCaptureCardResumesThenPlaysReadyAtZero)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "captureCard", 600000, "cards/in1");
    journal().clear();

    service().play(player);

    EXPECT_EQ(callsOf(player),
              QStringList({"setPaused(false)", "playReady(cards/in1, 0, false)"}));
    EXPECT_TRUE(waitPlaying(1, 2));
}

TEST_F(PlaybackTransport, StopOfPlayingPictureOnlyPausesPlayerAndStopsTimer)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "picture", 600000);
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    service().play(player);
    ASSERT_TRUE(waitUntil([&] {
        return !positions.isEmpty() && positions.last().at(2).toLongLong() >= 1000;
    }));
    journal().clear();

    service().stop(player);

    EXPECT_TRUE(player->isPaused());
    EXPECT_EQ(journal().count(player, "setPaused(true)"), 1);
    EXPECT_EQ(journal().count(player, "stop()"), 0);
    // The loop reports the stop itself, from its thread.
    ASSERT_TRUE(ends.wait(5000));
    EXPECT_EQ(timerOf(1, 2)->getPlayState(), kStopped);
    // Reset: the loop's last tick may add only the milliseconds measured
    // after the reset, far less than the second already played.
    EXPECT_LT(timerOf(1, 2)->getCurrProgress(), 1000);
}

TEST_F(PlaybackTransport, StopOfPausedPictureResetsProgressAndReportsEndAtOnce)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "picture", 600000);
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    service().play(player);
    ASSERT_TRUE(positions.wait(5000));
    service().pause(player);
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);

    service().stop(player);

    // A paused timer has no loop: stopTimer reports on this thread, directly.
    ASSERT_EQ(ends.count(), 1);
    EXPECT_EQ(ends.at(0), QVariantList({2, 1}));
    EXPECT_EQ(timerOf(1, 2)->getPlayState(), kStopped);
    EXPECT_EQ(timerOf(1, 2)->getCurrProgress(), 0);
}

TEST_F(PlaybackTransport, SecondPlayOfPlayingItemKeepsItsRunWithoutWaiting)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "picture", 600000);
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    service().play(player);
    ASSERT_TRUE(positions.wait(5000));
    LogCapture log;

    service().play(player); // would wait out the 10-minute pass if it restarted

    EXPECT_EQ(log.count("already playing"), 1);
    EXPECT_EQ(timerOf(1, 2)->getPlayState(), kPlaying);
    service().stop(player);
}

TEST_F(PlaybackTransport, SetPositionTakesBankFirstAndSeeksTimerOfTimedItem)
{
    QtAV::AVPlayer* bank2layer5 = createLayer(2, 5, "picture");
    QtAV::AVPlayer* bank5layer2 = createLayer(5, 2, "picture");
    journal().clear();

    service().setPosition(2, 5, 1500);

    EXPECT_EQ(callsOf(bank2layer5), QStringList({"seek(1500)"}));
    EXPECT_TRUE(callsOf(bank5layer2).isEmpty());
    EXPECT_EQ(timerOf(2, 5)->getCurrProgress(), 1500);
    EXPECT_EQ(timerOf(5, 2)->getCurrProgress(), 0);
}

TEST_F(PlaybackTransport, SetPositionOfVideoLeavesTimerAlone)
{
    QtAV::AVPlayer* player = createLayer(2, 5, "video");
    journal().clear();

    service().setPosition(2, 5, 1500);

    EXPECT_EQ(callsOf(player), QStringList({"seek(1500)"}));
    EXPECT_EQ(timerOf(2, 5)->getCurrProgress(), 0);
}

TEST_F(PlaybackTransport, SetDurationTakesLayerFirst)
{
    createLayer(2, 5, "picture");
    createLayer(5, 2, "picture");

    service().setDuration(2, 5, 1500);

    EXPECT_EQ(timerOf(5, 2)->getDuration(), 1500); // layer 2 of bank 5
    EXPECT_EQ(timerOf(2, 5)->getDuration(), 1000);
}

TEST_F(PlaybackTransport, SetDurationOfAudioSetsStopPositionAndTimerDuration)
{
    QtAV::AVPlayer* player = createLayer(5, 2, "audio");
    journal().clear();

    service().setDuration(2, 5, 1500);

    EXPECT_EQ(callsOf(player), QStringList({"setStopPosition(1500)"}));
    EXPECT_EQ(timerOf(5, 2)->getDuration(), 1500);
}

TEST_F(PlaybackTransport, SetDurationOfPictureSetsOnlyTimerDuration)
{
    QtAV::AVPlayer* player = createLayer(5, 2, "picture");
    journal().clear();

    service().setDuration(2, 5, 1500);

    EXPECT_EQ(journal().count(player, "setStopPosition"), 0);
    EXPECT_EQ(timerOf(5, 2)->getDuration(), 1500);
}

TEST_F(PlaybackTransport, SetSynchClockOnPictureDoesNothing)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "picture");
    journal().clear();

    service().setSynchClock(player, 1234.9f);

    EXPECT_EQ(player->masterClock()->clockType(), QtAV::AVClock::AudioClock);
    EXPECT_EQ(player->masterClock()->externalUpdateCount(), 0);
    EXPECT_TRUE(callsOf(player).isEmpty());
}

TEST_F(PlaybackTransport, SetSynchClockOnVideoFollowsTruncatedExternalClock)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    journal().clear();

    service().setSynchClock(player, 1234.9f);

    EXPECT_EQ(player->masterClock()->clockType(), QtAV::AVClock::ExternalClock);
    EXPECT_EQ(player->masterClock()->externalClock(), 1234);
    EXPECT_EQ(callsOf(player), QStringList({"setClockType(1)", "updateExternalClock(1234)"}));
}

TEST_F(PlaybackTransport, ThreeFadeOutsAfterResetCountThree)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    journal().clear();
    service().initFinishedFadeOut();

    for (int i = 0; i < 3; ++i)
        service().setFadeInOut(player, true, 500);

    EXPECT_EQ(ServiceTestAccess::fadeOutCount(service()), 3);
    EXPECT_EQ(journal().count(player, "fadeOut(500)"), 3);
}

TEST_F(PlaybackTransport, UnregisteredPlayerGetsPlayerCallsButNoNdiAndNoTimer)
{
    QtAV::AVPlayer loose;
    loose.setMediaType("ndi");
    loose.setFile("CamZ#Main");
    journal().clear();
    const int senders = NdiService::senderCount();

    service().play(&loose);
    service().pause(&loose);

    EXPECT_EQ(callsOf(&loose), QStringList({"setPaused(false)", "setPaused(true)"}));
    EXPECT_EQ(NdiService::senderCount(), senders);
    EXPECT_FALSE(NdiService::isSending("CamZ#Main", &loose));
}

TEST_F(PlaybackTransport, NdiSenderFollowsPlayAndPause)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "ndi", 600000, "CamA");
    const QString file = player->file();

    service().play(player);
    EXPECT_TRUE(NdiService::isSending(file, player));
    ASSERT_TRUE(waitPlaying(1, 2));
    service().pause(player);
    EXPECT_FALSE(NdiService::isSending(file, player));
    service().playReady(player, 0, false);
    EXPECT_TRUE(NdiService::isSending(file, player));
    ASSERT_TRUE(waitPlaying(1, 2));
    service().resetPlay(player, true);
    EXPECT_FALSE(NdiService::isSending(file, player));
}

TEST_F(PlaybackTransport, SpoutNodeFollowsPlayAndStop)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "spout", 600000, "Resolume");
    ScenePlayer* scene = reg().getScenePlayer(1, 2);

    service().play(player);
    ASSERT_NE(scene->spoutNode, nullptr);
    EXPECT_TRUE(scene->spoutNode->isPlaying());
    EXPECT_EQ(scene->spoutNode->sourceName(), "Resolume");
    ASSERT_TRUE(waitPlaying(1, 2));

    service().stop(player);
    EXPECT_EQ(scene->spoutNode, nullptr);
}

TEST_F(PlaybackTransport, PlayReadyPreparesCurrentFileAndDrivesTimer)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "picture", 600000, "still.png");
    journal().clear();

    service().playReady(player, 300, false);
    EXPECT_EQ(callsOf(player), QStringList({"playReady(still.png, 300, false)"}));
    ASSERT_TRUE(waitPlaying(1, 2));

    QSignalSpy ends(&service(), &Service::sendPlayerIndex);
    service().playReady(player, 0, true);
    EXPECT_EQ(journal().count(player, "playReady(still.png, 0, true)"), 1);
    ASSERT_TRUE(ends.wait(5000)); // the stopped loop reports the end
    EXPECT_EQ(timerOf(1, 2)->getPlayState(), kStopped);
}

TEST_F(PlaybackTransport, PlayReadyOfVideoLeavesTimerAlone)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video", 1000, "clip.mp4");
    journal().clear();

    service().playReady(player, 300, false);

    EXPECT_EQ(callsOf(player), QStringList({"playReady(clip.mp4, 300, false)"}));
    EXPECT_EQ(timerOf(1, 2)->getPlayState(), kStopped);
}

TEST_F(PlaybackTransport, ResetPlayPassesFlagAndStopsTimer)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "picture", 600000);
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    service().play(player);
    ASSERT_TRUE(positions.wait(5000));
    journal().clear();
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);

    service().resetPlay(player, true);

    EXPECT_EQ(callsOf(player).value(0), "resetPlay(true)");
    ASSERT_TRUE(ends.wait(5000));
    EXPECT_EQ(timerOf(1, 2)->getPlayState(), kStopped);
}

TEST_F(PlaybackTransport, RepeatGivesTimedItemExtraPasses)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "picture", 100);
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);
    journal().clear();

    service().setRepeat(player, 2);
    EXPECT_EQ(callsOf(player), QStringList({"setRepeat(2)"}));
    service().play(player);
    ASSERT_TRUE(ends.wait(10000));

    // Every pass end reports 0 (twice when it falls on a reporting tick).
    int passEnds = 0;
    for (const QVariantList& report : positions)
        passEnds += report.at(2).toLongLong() == 0 ? 1 : 0;
    EXPECT_GE(passEnds, 3);
    EXPECT_LE(passEnds, 6);
}

TEST_F(PlaybackTransport, SinglePassWithoutRepeat)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "picture", 100);
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);

    service().play(player);
    ASSERT_TRUE(ends.wait(10000));

    int passEnds = 0;
    for (const QVariantList& report : positions)
        passEnds += report.at(2).toLongLong() == 0 ? 1 : 0;
    EXPECT_GE(passEnds, 1);
    EXPECT_LE(passEnds, 2);
}

TEST_F(PlaybackTransport, PageUpDownOpensPageFileThenRedraws)
{
    QtAV::AVPlayer* player = createLayer(3, 4, "picture");
    journal().clear();
    Record record;
    record["videoPath"] = "deck/page2.png";

    service().pptPageUpDown(3, 4, record);
    service().pptPageUpDown(4, 3, record); // no such layer

    EXPECT_EQ(callsOf(player),
              QStringList({"open(deck/page2.png)", "updateFrame()", "refreshUi()"}));
    EXPECT_EQ(player->file(), "deck/page2.png");
}

TEST_F(PlaybackTransport, UpdateFrameAndStopFadeTakeLayerFirst)
{
    QtAV::AVPlayer* player = createLayer(5, 2, "video");
    journal().clear();
    backend(player)->fadeInRunning = true;

    service().updateFrame(2, 5);
    EXPECT_TRUE(service().setStopFade(2, 5, 1));
    EXPECT_FALSE(service().setStopFade(2, 5, 0));
    EXPECT_FALSE(service().setStopFade(5, 2, 1)); // no such layer

    EXPECT_EQ(callsOf(player), QStringList({"updateFrame()", "stopFadeIn()", "stopFadeOut()"}));
}

TEST_F(PlaybackTransport, StartPositionGoesToPlayerOnly)
{
    QtAV::AVPlayer* player = createLayer(2, 5, "picture");
    journal().clear();

    service().setStartPosition(2, 5, 700);
    service().refreshUi(player);

    EXPECT_EQ(callsOf(player), QStringList({"setStartPosition(700)", "refreshUi()"}));
    EXPECT_EQ(player->startPosition(), 700);
    EXPECT_EQ(timerOf(2, 5)->getCurrProgress(), 0);
}

TEST_F(PlaybackTransport, TimerStateOperationsReachTimerOfTimedItemOnly)
{
    QtAV::AVPlayer* picture = createLayer(1, 2, "picture");
    QtAV::AVPlayer* video = createLayer(1, 3, "video");
    using Access = ServiceTestAccess;

    Access::setPlayerTimerState(service(), picture, 3, true, 640, 0);
    Access::setPlayerTimerState(service(), picture, 5, true, 7777, 0);
    Access::setPlayerTimerState(service(), picture, 9, true, 1, 1); // unknown op
    EXPECT_EQ(timerOf(1, 2)->getCurrProgress(), 640);
    EXPECT_EQ(timerOf(1, 2)->getDuration(), 7777);

    Access::setPlayerTimerState(service(), video, 5, true, 7777, 0);
    Access::setPlayerTimerState(service(), video, 1, true, 0, 0);
    EXPECT_EQ(timerOf(1, 3)->getDuration(), 1000);
    EXPECT_EQ(timerOf(1, 3)->getPlayState(), kStopped);

    Access::setPlayerTimerState(service(), picture, 1, true, 0, 0); // start
    ASSERT_TRUE(waitPlaying(1, 2));
    Access::setPlayerTimer(service(), timerOf(1, 2), 2, true, 0, 0); // pause
    EXPECT_EQ(timerOf(1, 2)->getPlayState(), kPaused);
    Access::setPlayerTimer(service(), timerOf(1, 2), 0, true, 0, 0); // stop
    EXPECT_EQ(timerOf(1, 2)->getPlayState(), kStopped);
    EXPECT_EQ(timerOf(1, 2)->getCurrProgress(), 0);
}

} // namespace
