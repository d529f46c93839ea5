// Layer creation: what is made, filed and wired, and what a second creation
// of the same layer leaves alone.
#include "PlaybackFixture.h"

#include "AudioOutput.h"
#include "NdiService.h"
#include "VideoDecoder.h"

namespace {

class PlaybackCreate : public PlaybackTest
{
};

TEST_F(PlaybackCreate, FilesPlayerTimerAndRecordUnderBankAndLayer)
{
    LogCapture log;
    service().creatnewlayer(layerRecord(1, 3, "clips/a.mp4", 4500));

    ScenePlayer* scene = reg().getScenePlayer(1, 3);
    ASSERT_NE(scene, nullptr);
    track(scene->player);
    ASSERT_NE(scene->player, nullptr);
    ASSERT_NE(scene->playerTimer, nullptr);
    EXPECT_EQ(scene->spoutNode, nullptr);
    EXPECT_EQ(scene->groupId, 9);
    EXPECT_EQ(scene->layerId, 3);
    EXPECT_EQ(scene->player->file(), "clips/a.mp4");
    EXPECT_TRUE(scene->player->isPaused()); // opened, not playing
    EXPECT_EQ(scene->playerTimer->getDuration(), 4500);
    EXPECT_EQ(scene->playerTimer->getPlayState(), kStopped);
    EXPECT_TRUE(scene->player->videoOutputs().isEmpty());
    EXPECT_EQ(log.count("setFile Time: "), 1);
    EXPECT_EQ(log.count("comand pushPlayer: "), 1);
}

TEST_F(PlaybackCreate, SecondCreationOfSameLayerChangesNothingAndLogsNoTime)
{
    service().creatnewlayer(layerRecord(1, 3, "first.mp4"));
    ScenePlayer* scene = reg().getScenePlayer(1, 3);
    track(scene->player);
    QtAV::AVPlayer* player = scene->player;
    Timer* timer = scene->playerTimer;
    LogCapture log;
    journal().clear();

    service().creatnewlayer(layerRecord(1, 3, "second.mp4"));

    EXPECT_EQ(reg().getScenePlayer(1, 3), scene);
    EXPECT_EQ(scene->player, player);
    EXPECT_EQ(scene->playerTimer, timer);
    EXPECT_EQ(player->file(), "first.mp4");
    EXPECT_EQ(log.count("setFile Time: "), 0);
    EXPECT_TRUE(journal().names().isEmpty()); // no second player was made
}

TEST_F(PlaybackCreate, NdiSourceJoinsPathAndStreamName)
{
    Record record = layerRecord(1, 3, "CamA", 1000, "ndi");
    record["videoName"] = "Main";

    service().creatnewlayer(record);

    QtAV::AVPlayer* player = reg().getplayerByID(3, 1);
    track(player);
    EXPECT_EQ(journal().count(player, "open(CamA#Main)"), 1);
    EXPECT_EQ(player->file(), "CamA#Main");
    EXPECT_EQ(NdiService::receiverSource(player), "CamA#Main");
}

TEST_F(PlaybackCreate, NdiInCapitalsIsNotAStreamSource)
{
    Record record = layerRecord(1, 3, "CamA", 1000, "NDI");
    record["videoName"] = "Main";

    service().creatnewlayer(record);

    QtAV::AVPlayer* player = reg().getplayerByID(3, 1);
    track(player);
    EXPECT_EQ(player->file(), "CamA");
    EXPECT_TRUE(NdiService::receiverSource(player).isEmpty());
}

TEST_F(PlaybackCreate, PriorityListOnlyWhenAskedFor)
{
    Record plain = layerRecord(1, 3, "a.mp4");
    Record prioritised = layerRecord(1, 4, "b.mp4");
    prioritised["isSetPr"] = true;

    service().creatnewlayer(plain);
    service().creatnewlayer(prioritised);

    QtAV::AVPlayer* a = reg().getplayerByID(3, 1);
    QtAV::AVPlayer* b = reg().getplayerByID(4, 1);
    track(a);
    track(b);
    EXPECT_EQ(journal().count(a, "setDecoderPriority"), 0);
    EXPECT_TRUE(a->priority().isEmpty());
    EXPECT_EQ(b->priority(),
              QVector<int>({QtAV::VideoDecoderId_CUDA, QtAV::VideoDecoderId_FFmpeg}));
}

TEST_F(PlaybackCreate, VolumeIsUnityWhateverTheRecordSays)
{
    Record record = layerRecord(1, 3, "a.mp4");
    record["volume"] = 20;

    service().creatnewlayer(record);

    QtAV::AVPlayer* player = reg().getplayerByID(3, 1);
    track(player);
    EXPECT_EQ(player->audio()->volume(), 1.0);
    EXPECT_EQ(journal().count(player, "setVolume(1)"), 1);
}

TEST_F(PlaybackCreate, OneReadyEmissionRunsLoadReportBeforeBankCount)
{
    service().creatnewlayer(layerRecord(5, 2, "a.mp4"));
    QtAV::AVPlayer* player = reg().getplayerByID(2, 5);
    track(player);
    service().setCurPlayerCount(5);
    QStringList order;
    auto load = QObject::connect(&service(), &Service::sendLoadAllComple, &service(), [&](int l) {
        order << QStringLiteral("load %1 pending %2")
                     .arg(l)
                     .arg(ServiceTestAccess::pendingReadyCount(service()));
    });
    auto ready = QObject::connect(&service(), &Service::sPlayReady, &service(),
                                  [&](int b) { order << QStringLiteral("ready %1").arg(b); });

    emit player->playReadySucess();
    EXPECT_TRUE(order.isEmpty()); // both connections are queued
    processEvents();

    // The load report ran while the bank count still stood at 1.
    EXPECT_EQ(order, QStringList({"load 2 pending 1", "ready 5"}));
    QObject::disconnect(load);
    QObject::disconnect(ready);
}

TEST_F(PlaybackCreate, EveryPlayerSignalReachesItsSlot)
{
    service().creatnewlayer(layerRecord(5, 2, "a.mp4"));
    QtAV::AVPlayer* player = reg().getplayerByID(2, 5);
    track(player);
    service().setLayerMediaType(player, "video");
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    QSignalSpy fadeIns(&service(), &Service::sFadeinFinished);
    QSignalSpy fadeOuts(&service(), &Service::sFadeoutFinished);
    service().setFadeInOut(player, false, 10);
    service().setFadeInOut(player, true, 10);

    emit player->stopped();
    emit player->positionChanged(77);
    emit player->fadeInFinished();
    emit player->fadeOutFinished();
    EXPECT_EQ(ends.count() + positions.count() + fadeIns.count() + fadeOuts.count(), 0);
    processEvents();

    EXPECT_EQ(ends.count(), 1);
    EXPECT_EQ(positions.count(), 1);
    EXPECT_EQ(fadeIns.count(), 1);
    EXPECT_EQ(fadeOuts.count(), 1);
}

TEST_F(PlaybackCreate, EveryTimerSignalReachesItsSlot)
{
    service().creatnewlayer(layerRecord(5, 2, "a.png"));
    QtAV::AVPlayer* player = reg().getplayerByID(2, 5);
    track(player);
    service().setLayerMediaType(player, "picture");
    Timer* timer = timerOf(5, 2);
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    journal().clear();

    // Emitted on this thread the automatic connections run at once.
    emit timer->stopped(2, 5);
    emit timer->setProgressTimered(2, 5, 40);
    emit timer->paused(2, 5, true);
    emit timer->setRepeated(2, 5, 3);
    emit timer->playReadyed(2, 5, 10, true);
    emit timer->resetPlayed(2, 5, false);

    EXPECT_EQ(ends.count(), 1);
    EXPECT_EQ(positions.count(), 1);
    EXPECT_EQ(callsOf(player), QStringList({"setPaused(true)", "setRepeat(3)",
                                            "playReady(a.png, 10, true)", "resetPlay(false)"}));
}

TEST_F(PlaybackCreate, RecordWithoutKeysMakesLayerZeroOfBankZero)
{
    LogCapture log;
    service().creatnewlayer(Record());

    ScenePlayer* scene = reg().getScenePlayer(0, 0);
    ASSERT_NE(scene, nullptr);
    track(scene->player);
    EXPECT_TRUE(scene->player->file().isEmpty());
    EXPECT_EQ(scene->playerTimer->getDuration(), 0);
    EXPECT_TRUE(scene->player->priority().isEmpty());
    EXPECT_EQ(log.count("setFile Time: "), 1);
}

} // namespace
