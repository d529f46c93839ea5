// The service's slots: what the players' and timers' reports become, with
// which ids in which order, and which stops are swallowed.
#include "PlaybackFixture.h"

#include "AVClock.h"
#include "NdiService.h"
#include "NoxOpenGLRender.h"
#include "SpoutNode.h"

namespace {

class PlaybackSlots : public PlaybackTest
{
};

TEST_F(PlaybackSlots, VideoEndLogsLayerThenReportsLayerAndBank)
{
    QtAV::AVPlayer* player = createLayer(3, 7, "video");
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);
    LogCapture log;

    backend(player)->raiseStopped();
    EXPECT_EQ(ends.count(), 0); // queued: nothing before the event loop runs

    ASSERT_TRUE(ends.wait(5000));
    ASSERT_EQ(ends.count(), 1);
    EXPECT_EQ(ends.at(0), QVariantList({7, 3}));
    EXPECT_EQ(log.count("player play over ID: 7"), 1);
}

TEST_F(PlaybackSlots, PictureEndIsReportedOnlyByItsTimer)
{
    QtAV::AVPlayer* player = createLayer(3, 7, "picture", 100);
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);
    LogCapture log;

    backend(player)->raiseStopped();
    processEvents();
    EXPECT_EQ(ends.count(), 0);
    EXPECT_EQ(log.count("player play over ID:"), 0);

    service().play(player);
    ASSERT_TRUE(ends.wait(5000)); // the 100 ms pass ends on the timer's thread
    EXPECT_EQ(ends.at(0), QVariantList({7, 3}));
    EXPECT_EQ(log.count("player play over ID:"), 0);
}

TEST_F(PlaybackSlots, MarkedStopIsSwallowedOnceAndMarkRemoved)
{
    QtAV::AVPlayer* player = createLayer(3, 7, "video");
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);
    LogCapture log;
    useStopPlayers()[player] = true;

    backend(player)->raiseStopped();
    processEvents();
    EXPECT_EQ(ends.count(), 0);
    EXPECT_FALSE(useStopPlayers().contains(player));
    EXPECT_EQ(log.count("player play over ID: 7"), 1); // logged before the check

    backend(player)->raiseStopped();
    ASSERT_TRUE(ends.wait(5000));
    EXPECT_EQ(ends.at(0), QVariantList({7, 3}));
}

TEST_F(PlaybackSlots, MarkWithFalseIsKeptAndStopReported)
{
    QtAV::AVPlayer* player = createLayer(3, 7, "video");
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);
    useStopPlayers()[player] = false;

    backend(player)->raiseStopped();
    ASSERT_TRUE(ends.wait(5000));
    EXPECT_TRUE(useStopPlayers().contains(player));
}

TEST_F(PlaybackSlots, TimerStopOfMarkedTimedItemIsSwallowedAndMarkRemoved)
{
    QtAV::AVPlayer* player = createLayer(3, 7, "picture", 100);
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);
    QSignalSpy timerStops(timerOf(3, 7), &Timer::stopped);
    useStopPlayers()[player] = true;

    service().play(player);
    ASSERT_TRUE(waitUntil([&] { return !useStopPlayers().contains(player); }));
    EXPECT_EQ(timerStops.count(), 1);
    processEvents();
    EXPECT_EQ(ends.count(), 0);
}

TEST_F(PlaybackSlots, OsdEndPausesPlayerAndIsReported)
{
    QtAV::AVPlayer* player = createLayer(3, 7, "osd", 100);
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);
    service().play(player);
    journal().clear();

    ASSERT_TRUE(ends.wait(5000));
    EXPECT_EQ(callsOf(player), QStringList({"setPaused(true)"}));
    EXPECT_EQ(ends.at(0), QVariantList({7, 3}));
}

TEST_F(PlaybackSlots, BankReadyAfterThirdReportOnlyAndOtherBankIgnored)
{
    QtAV::AVPlayer* a = createLayer(2, 1, "video");
    QtAV::AVPlayer* b = createLayer(2, 2, "video");
    QtAV::AVPlayer* c = createLayer(2, 3, "picture");
    QtAV::AVPlayer* other = createLayer(3, 1, "video");
    QSignalSpy ready(&service(), &Service::sPlayReady);
    QSignalSpy loads(&service(), &Service::sendLoadAllComple);

    service().setCurPlayerCount(2);
    EXPECT_EQ(ServiceTestAccess::pendingReadyCount(service()), 3);

    backend(a)->raisePlayReadySucess();
    backend(other)->raisePlayReadySucess();
    backend(b)->raisePlayReadySucess();
    processEvents();
    EXPECT_EQ(ready.count(), 0);
    EXPECT_EQ(ServiceTestAccess::pendingReadyCount(service()), 1);

    backend(c)->raisePlayReadySucess();
    ASSERT_TRUE(ready.wait(5000));
    EXPECT_EQ(ready.at(0), QVariantList({2}));

    backend(a)->raisePlayReadySucess(); // surplus
    processEvents();
    EXPECT_EQ(ready.count(), 1);
    EXPECT_EQ(ServiceTestAccess::pendingReadyCount(service()), -1);
    EXPECT_EQ(loads.count(), 5); // every layer's own report still goes out
}

TEST_F(PlaybackSlots, BankWithoutLayersIsReadyAtOnce)
{
    QSignalSpy ready(&service(), &Service::sPlayReady);

    service().setCurPlayerCount(4);

    ASSERT_EQ(ready.count(), 1);
    EXPECT_EQ(ready.at(0), QVariantList({4}));
    EXPECT_EQ(ServiceTestAccess::pendingReadyCount(service()), 0);
}

TEST_F(PlaybackSlots, LoadReportOfLayerComesBeforeBankReady)
{
    QtAV::AVPlayer* player = createLayer(6, 4, "video");
    QStringList order;
    QObject::connect(&service(), &Service::sendLoadAllComple, &service(),
                     [&](int layer) { order << QStringLiteral("load %1").arg(layer); });
    QObject::connect(&service(), &Service::sPlayReady, &service(),
                     [&](int bank) { order << QStringLiteral("ready %1").arg(bank); });
    QSignalSpy ready(&service(), &Service::sPlayReady);
    service().setCurPlayerCount(6);

    backend(player)->raisePlayReadySucess();

    ASSERT_TRUE(ready.wait(5000));
    EXPECT_EQ(order, QStringList({"load 4", "ready 6"}));
    QObject::disconnect(&service(), &Service::sendLoadAllComple, &service(), nullptr);
    QObject::disconnect(&service(), &Service::sPlayReady, &service(), nullptr);
}

TEST_F(PlaybackSlots, TwoFadeOutsReportedOnceWhenBothFinished)
{
    QtAV::AVPlayer* a = createLayer(1, 1, "video");
    QtAV::AVPlayer* b = createLayer(1, 2, "video");
    QSignalSpy fadeOuts(&service(), &Service::sFadeoutFinished);
    service().setFadeInOut(a, true, 300);
    service().setFadeInOut(b, true, 300);

    backend(a)->raiseFadeOutFinished();
    processEvents();
    EXPECT_EQ(fadeOuts.count(), 0);

    backend(b)->raiseFadeOutFinished();
    ASSERT_TRUE(fadeOuts.wait(5000));
    EXPECT_EQ(fadeOuts.count(), 1);
    EXPECT_EQ(ServiceTestAccess::fadeOutCount(service()), 0);
    EXPECT_EQ(ServiceTestAccess::fadeOutFinishedCount(service()), 0);
}

TEST_F(PlaybackSlots, TwoFadeInsReportedOnceWhenBothFinished)
{
    QtAV::AVPlayer* a = createLayer(1, 1, "video");
    QtAV::AVPlayer* b = createLayer(1, 2, "video");
    QSignalSpy fadeIns(&service(), &Service::sFadeinFinished);
    service().setFadeInOut(a, false, 300);
    service().setFadeInOut(b, false, 300);

    backend(b)->raiseFadeInFinished();
    processEvents();
    EXPECT_EQ(fadeIns.count(), 0);
    backend(a)->raiseFadeInFinished();
    ASSERT_TRUE(fadeIns.wait(5000));
    EXPECT_EQ(ServiceTestAccess::fadeInCount(service()), 0);
    EXPECT_EQ(ServiceTestAccess::fadeInFinishedCount(service()), 0);
}

TEST_F(PlaybackSlots, SynchClockReportNeverChangesAClock)
{
    QtAV::AVPlayer* picture = createLayer(1, 2, "picture");
    QtAV::AVPlayer* video = createLayer(1, 3, "video");
    journal().clear();

    emit timerOf(1, 2)->setSynchClocked(2, 1, 500.0f);
    emit timerOf(1, 3)->setSynchClocked(3, 1, 500.0f);
    processEvents();

    for (QtAV::AVPlayer* player : {picture, video}) {
        EXPECT_EQ(player->masterClock()->clockType(), QtAV::AVClock::AudioClock);
        EXPECT_EQ(player->masterClock()->externalUpdateCount(), 0);
    }
    EXPECT_TRUE(journal().names().isEmpty());
}

TEST_F(PlaybackSlots, SpoutLayerReportsPlayerPositionsButNotPlayerStop)
{
    QtAV::AVPlayer* player = createLayer(3, 7, "spout");
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);

    backend(player)->raisePositionChanged(420);
    backend(player)->raiseStopped();
    ASSERT_TRUE(positions.wait(5000));
    processEvents();

    EXPECT_EQ(positions.at(0), QVariantList({7, 3, qint64(420)}));
    EXPECT_EQ(ends.count(), 0);
}

TEST_F(PlaybackSlots, PlayerPositionsOfVideoAreReportedAndOfTimedItemsNot)
{
    QtAV::AVPlayer* video = createLayer(3, 7, "video");
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    const QStringList timed = {"picture", "osd", "networkVideo", "ndi",
                               "captureCard", "office", "virtualScreen"};
    int layer = 10;
    for (const QString& type : timed)
        backend(createLayer(3, layer++, type))->raisePositionChanged(99);

    backend(video)->raisePositionChanged(1234);
    ASSERT_TRUE(positions.wait(5000));
    processEvents();

    ASSERT_EQ(positions.count(), 1);
    EXPECT_EQ(positions.at(0), QVariantList({7, 3, qint64(1234)}));
}

TEST_F(PlaybackSlots, TimerProgressOfTimedItemIsReportedAndOfVideoNot)
{
    createLayer(3, 7, "picture");
    createLayer(3, 8, "video");
    QSignalSpy positions(&service(), &Service::sPositionChanged);

    emit timerOf(3, 8)->setProgressTimered(8, 3, 100);
    emit timerOf(3, 7)->setProgressTimered(7, 3, 200);
    emit timerOf(3, 7)->setProgressTimered(7, 4, 300); // no layer 7 in bank 4

    ASSERT_EQ(positions.count(), 1);
    EXPECT_EQ(positions.at(0), QVariantList({7, 3, qint64(200)}));
}

TEST_F(PlaybackSlots, TimerReportsReachServiceQueuedFromTimerThread)
{
    createLayer(3, 7, "picture", 600000);
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    QtAV::AVPlayer* player = reg().getplayerByID(7, 3);

    service().play(player);
    ASSERT_TRUE(positions.wait(5000));
    EXPECT_EQ(positions.at(0).at(0).toInt(), 7);
    EXPECT_EQ(positions.at(0).at(1).toInt(), 3);
    service().stop(player);
}

TEST_F(PlaybackSlots, PausedReportPausesTimedItemAndEndsItsStreams)
{
    QtAV::AVPlayer* ndi = createLayer(3, 7, "ndi", 1000, "CamA");
    QtAV::AVPlayer* spout = createLayer(3, 8, "spout", 1000, "Tex");
    QtAV::AVPlayer* video = createLayer(3, 9, "video");
    service().setNdiState(ndi, 1);
    service().setSpoutState(spout, 1);
    ASSERT_NE(reg().getScenePlayer(3, 8)->spoutNode, nullptr);
    journal().clear();

    emit timerOf(3, 7)->paused(7, 3, true);
    emit timerOf(3, 8)->paused(8, 3, false);
    emit timerOf(3, 9)->paused(9, 3, true);

    EXPECT_EQ(callsOf(ndi), QStringList({"setPaused(true)"}));
    EXPECT_FALSE(NdiService::isSending(ndi->file(), ndi));
    EXPECT_EQ(callsOf(spout), QStringList({"setPaused(false)"}));
    EXPECT_EQ(reg().getScenePlayer(3, 8)->spoutNode, nullptr);
    EXPECT_TRUE(callsOf(video).isEmpty());
}

TEST_F(PlaybackSlots, ResetReadyAndRepeatReportsDriveTimedItemsOnly)
{
    QtAV::AVPlayer* picture = createLayer(3, 7, "picture", 1000, "a.png");
    QtAV::AVPlayer* video = createLayer(3, 9, "video");
    journal().clear();

    emit timerOf(3, 7)->resetPlayed(7, 3, true);
    emit timerOf(3, 7)->playReadyed(7, 3, 250, false);
    emit timerOf(3, 7)->setRepeated(7, 3, 4);
    emit timerOf(3, 9)->resetPlayed(9, 3, true);
    emit timerOf(3, 9)->playReadyed(9, 3, 250, false);
    emit timerOf(3, 9)->setRepeated(9, 3, 4);
    emit timerOf(3, 7)->started(7, 3);

    EXPECT_EQ(callsOf(picture),
              QStringList({"resetPlay(true)", "playReady(a.png, 250, false)", "setRepeat(4)"}));
    EXPECT_TRUE(callsOf(video).isEmpty());
}

TEST_F(PlaybackSlots, LoadedGivesFrameRateToRenderObjectsOnly)
{
    QtAV::AVPlayer* player = createLayer(3, 7, "video");
    QtAV::NoxOpenGLRender render;
    TestRenderer preview("QmlGL");
    player->addVideoRenderer(&preview);
    player->addVideoRenderer(&render);
    backend(player)->frameRate = 50.0;
    QSignalSpy loaded(player, &QtAV::AVPlayer::loaded);

    backend(player)->raiseLoaded();
    EXPECT_EQ(render.frameRate(), 0.0); // queued
    processEvents();

    EXPECT_EQ(render.frameRate(), 50.0);
    player->clearVideoRenderers();
}

TEST_F(PlaybackSlots, ReleaseNoticeDeletesPlayer)
{
    QtAV::AVPlayer* player = createLayer(3, 7, "video");
    QPointer<QtAV::AVPlayer> watch(player);
    Record record;
    record["bankId"] = 3;
    record["layerId"] = 7;

    reg().deleteplayerByID(record);
    EXPECT_FALSE(watch.isNull()); // released; deleted on its notice

    EXPECT_TRUE(waitUntil([&] { return watch.isNull(); }));
}

} // namespace
