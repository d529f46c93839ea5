// Volume and sound track: the worker-pool command, the synchronous variant,
// their one difference, and a player deleted while its job waits.
#include "PlaybackFixture.h"

#include "AudioFormat.h"
#include "AudioOutput.h"

#include <thread>

namespace {

class PlaybackVolume : public PlaybackTest
{
protected:
    static Record volume(float percent)
    {
        return Record({{"effectType", 7603}, {"volume", percent}});
    }
    static Record soundTrack(int track)
    {
        return Record({{"effectType", 7604}, {"soundTrack", track}});
    }
    /// Sends the command on the pool and waits until the job has run.
    static void sendAndWait(int layerId, int bankId, const Record& record)
    {
        service().setVolumeState(layerId, bankId, record);
        waitForPool(servicePool());
    }
};

TEST_F(PlaybackVolume, VolumeInPercentAndSameValueMakesNoSecondCall)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    journal().clear();

    sendAndWait(2, 1, volume(50));
    EXPECT_EQ(player->audio()->volume(), 0.5);
    EXPECT_EQ(callsOf(player), QStringList({"setVolume(0.5)"}));

    const int calls = player->audio()->setVolumeCount();
    sendAndWait(2, 1, volume(50));
    EXPECT_EQ(player->audio()->setVolumeCount(), calls);
}

TEST_F(PlaybackVolume, VolumeIsComputedInSinglePrecision)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");

    sendAndWait(2, 1, volume(33));

    EXPECT_EQ(player->audio()->volume(), static_cast<double>(33.0f / 100.0f));
}

TEST_F(PlaybackVolume, SameLayoutClosesAndReopensWithoutNewFormat)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    ASSERT_EQ(player->audio()->audioFormat().channelLayout(), QtAV::AudioFormat::ChannelLayout_Stereo);
    journal().clear();

    sendAndWait(2, 1, soundTrack(3)); // stereo, as the output already plays

    EXPECT_EQ(player->audio()->setAudioFormatCount(), 0);
    EXPECT_EQ(callsOf(player), QStringList({"closeAudio()", "setChannelLayout(3)", "openAudio()"}));
    EXPECT_TRUE(player->audio()->isOpen());
}

TEST_F(PlaybackVolume, StereoOnPoolPathIsStereoAndOnSynchronousPathIsLayoutFour)
{
    QtAV::AVPlayer* pooled = createLayer(1, 2, "video");
    QtAV::AVPlayer* direct = createLayer(1, 3, "video");

    sendAndWait(2, 1, soundTrack(3));
    ServiceTestAccess::setVolumeStateSync(service(), direct, soundTrack(3));

    EXPECT_EQ(pooled->audio()->audioFormat().channelLayout(), 3);
    EXPECT_EQ(direct->audio()->audioFormat().channelLayout(), 4);
    EXPECT_EQ(direct->audio()->setAudioFormatCount(), 1);
}

TEST_F(PlaybackVolume, OtherTrackNumbersPassAsGivenOnBothPaths)
{
    QtAV::AVPlayer* pooled = createLayer(1, 2, "video");
    QtAV::AVPlayer* direct = createLayer(1, 3, "video");

    sendAndWait(2, 1, soundTrack(42));
    ServiceTestAccess::setVolumeStateSync(service(), direct, soundTrack(1));
    EXPECT_EQ(pooled->audio()->audioFormat().channelLayout(), 42);
    EXPECT_EQ(direct->audio()->audioFormat().channelLayout(), 1);

    ServiceTestAccess::setVolumeStateSync(service(), direct, soundTrack(-1));
    EXPECT_EQ(direct->audio()->audioFormat().channelLayout(), -1);
}

TEST_F(PlaybackVolume, FailedCloseLeavesOutputAsItWas)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    backend(player)->closeAudioResult = false;
    journal().clear();

    sendAndWait(2, 1, soundTrack(5));

    EXPECT_EQ(callsOf(player), QStringList({"closeAudio()"}));
    EXPECT_EQ(player->audio()->audioFormat().channelLayout(), 3);
    EXPECT_TRUE(player->audio()->isOpen());
}

TEST_F(PlaybackVolume, RecordWithoutEffectTypeOrWithOtherTypeChangesNothing)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    journal().clear();

    sendAndWait(2, 1, Record({{"volume", 10}}));
    sendAndWait(2, 1, Record({{"effectType", 7605}, {"volume", 10}, {"soundTrack", 1}}));
    ServiceTestAccess::setVolumeStateSync(service(), player, Record({{"soundTrack", 1}}));

    EXPECT_TRUE(callsOf(player).isEmpty());
    EXPECT_EQ(player->audio()->volume(), 1.0);
}

TEST_F(PlaybackVolume, UnknownLayerQueuesNothing)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    journal().clear();

    sendAndWait(1, 2, volume(10)); // layer 1 of bank 2

    EXPECT_TRUE(journal().names().isEmpty());
    EXPECT_EQ(player->audio()->volume(), 1.0);
}

TEST_F(PlaybackVolume, ValueKeysMissingReadAsZero)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");

    sendAndWait(2, 1, Record({{"effectType", 7603}}));
    EXPECT_EQ(player->audio()->volume(), 0.0);

    sendAndWait(2, 1, Record({{"effectType", 7604}}));
    EXPECT_EQ(player->audio()->audioFormat().channelLayout(), 0);
}

TEST_F(PlaybackVolume, NullPlayerInJobIsSkippedWithDebugLine)
{
    LogCapture log;

    UI_Proc_KELMOR_Player_Desktop::setVolumeStateThread(nullptr, volume(50));
    ServiceTestAccess::setVolumeStateSync(service(), nullptr, soundTrack(2));

    EXPECT_EQ(log.count("ignored: null player"), 2);
}

TEST_F(PlaybackVolume, PlayerDeletedWhileItsJobWaitsIsDeletedOnlyAfterTheJob)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    QPointer<QtAV::AVPlayer> watch(player);

    // One gate holds both workers, so that the volume job waits in the queue.
    std::mutex mutex;
    std::condition_variable changed;
    bool gateOpen = false;
    bool destroyed = false;
    auto hold = [&] {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] { return gateOpen; });
    };
    auto held1 = servicePool().enqueue(hold);
    auto held2 = servicePool().enqueue(hold);
    service().setVolumeState(2, 1, volume(25));

    // The journal notes the player's destruction among its backend calls.
    QObject::connect(player, &QObject::destroyed, [&, player] {
        journal().record(player, QStringLiteral("destroyed"));
        std::lock_guard<std::mutex> lock(mutex);
        destroyed = true;
        changed.notify_all();
    });

    // The layer goes while its job waits.
    reg().deleteplayerByID(Record({{"bankId", 1}, {"layerId", 2}}));

    // The gate opens once the player is gone, or once the deletion has held
    // this thread for a second (it waits for the queued job).
    std::thread opener([&] {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait_for(lock, std::chrono::seconds(1), [&] { return destroyed; });
        gateOpen = true;
        changed.notify_all();
    });
    const bool deleted = waitUntil([&] { return watch.isNull(); });
    opener.join();
    held1.wait();
    held2.wait();
    waitForPool(servicePool());

    ASSERT_TRUE(deleted);
    const QStringList calls = journal().names(player);
    ASSERT_TRUE(calls.contains("setVolume(0.25)"));
    EXPECT_LT(calls.indexOf("setVolume(0.25)"), calls.indexOf("destroyed"));
}

} // namespace
