// The media player keeps its state and hands its media work to the engine;
// the engine's reports become the player's signals.
#include "AVPlayer.h"
#include "RecordingEngine.h"
#include "TestSupport.h"
#include "VideoDecoder.h"

#include <QPointer>
#include <QSignalSpy>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

EngineJournal& journal() { return RecordingEngine::instance().journal(); }

TEST(MediaPlayer, KeepsStateAndForwardsEachCallInOrder)
{
    QtAV::AVPlayer player;
    journal().clear();
    player.setMediaType("video");
    player.setFile("/media/clip.mp4");
    player.setPriority({2, 1});
    player.pause(false);
    player.setStartPosition(100);
    player.setStopPosition(900);
    player.setRepeat(2);
    player.setPosition(450);
    player.playReady(300, true);
    player.resetPlay(true);
    player.stop();

    EXPECT_EQ(player.getMediaType(), "video");
    EXPECT_EQ(player.file(), "/media/clip.mp4");
    EXPECT_EQ(player.priority(), QVector<int>({2, 1}));
    EXPECT_EQ(player.startPosition(), 100);
    EXPECT_EQ(player.stopPosition(), 900);
    EXPECT_EQ(player.repeat(), 2);
    EXPECT_TRUE(player.isPaused());
    EXPECT_EQ(journal().names(&player),
              QStringList({"setMediaType(video)", "open(/media/clip.mp4)",
                           "setDecoderPriority(2, 1)", "setPaused(false)",
                           "setStartPosition(100)", "setStopPosition(900)", "setRepeat(2)",
                           "seek(450)", "playReady(/media/clip.mp4, 300, true)",
                           "resetPlay(true)", "stop()"}));
}

TEST(MediaPlayer, EngineReportsBecomeSignals)
{
    QtAV::AVPlayer player;
    RecordingBackend* engine = RecordingEngine::instance().backend(&player);
    ASSERT_NE(engine, nullptr);
    QSignalSpy stopped(&player, &QtAV::AVPlayer::stopped);
    QSignalSpy loaded(&player, &QtAV::AVPlayer::loaded);
    QSignalSpy position(&player, &QtAV::AVPlayer::positionChanged);
    QSignalSpy fadeIn(&player, &QtAV::AVPlayer::fadeInFinished);
    QSignalSpy fadeOut(&player, &QtAV::AVPlayer::fadeOutFinished);
    QSignalSpy ready(&player, &QtAV::AVPlayer::playReadySucess);
    engine->raiseLoaded();
    engine->raisePositionChanged(1234);
    engine->raiseFadeInFinished();
    engine->raiseFadeOutFinished();
    engine->raisePlayReadySucess();
    engine->raiseStopped();
    EXPECT_EQ(loaded.count(), 1);
    ASSERT_EQ(position.count(), 1);
    EXPECT_EQ(position.at(0).at(0).toLongLong(), 1234);
    EXPECT_EQ(fadeIn.count(), 1);
    EXPECT_EQ(fadeOut.count(), 1);
    EXPECT_EQ(ready.count(), 1);
    EXPECT_EQ(stopped.count(), 1);
}

TEST(MediaPlayer, FadesAskTheEngineAndStopFadeAnswersWhetherOneRan)
{
    QtAV::AVPlayer player;
    RecordingBackend* engine = RecordingEngine::instance().backend(&player);
    journal().clear();
    player.setFadeIn(500);
    player.setFadeOut(250);
    engine->fadeInRunning = true;
    EXPECT_TRUE(player.stopFadeIn());
    EXPECT_FALSE(player.stopFadeIn());
    EXPECT_FALSE(player.stopFadeOut());
    EXPECT_EQ(journal().names(&player),
              QStringList({"fadeIn(500)", "fadeOut(250)", "stopFadeIn()", "stopFadeIn()",
                           "stopFadeOut()"}));
}

TEST(MediaPlayer, OutputsAreKeptOnceInOrder)
{
    QtAV::AVPlayer player;
    TestRenderer a("NoxGL"), b("QmlGL");
    player.addVideoRenderer(&a);
    player.addVideoRenderer(&b);
    player.addVideoRenderer(&a);
    player.addVideoRenderer(nullptr);
    EXPECT_EQ(player.videoOutputs(), QList<QtAV::VideoRenderer*>({&a, &b}));
    EXPECT_TRUE(player.removeVideoRenderer(&a));
    EXPECT_FALSE(player.removeVideoRenderer(&a));
    player.clearVideoRenderers();
    EXPECT_TRUE(player.videoOutputs().isEmpty());
}

TEST(MediaPlayer, ReleaseAnnouncesDeletionFromTheEventLoop)
{
    auto* player = new QtAV::AVPlayer;
    QPointer<QtAV::AVPlayer> watch(player);
    QObject::connect(player, &QtAV::AVPlayer::sig_deleteObj, player,
                     [player] { delete player; });
    journal().clear();
    player->releaseObj();
    EXPECT_TRUE(player->isReleased());
    EXPECT_EQ(journal().names(player), QStringList({"release()"}));
    ASSERT_FALSE(watch.isNull()); // not from inside the call
    for (int i = 0; i < 20 && watch; ++i)
        processEvents();
    EXPECT_TRUE(watch.isNull());
}

TEST(MediaPlayer, SecondReleaseIsIgnored)
{
    QtAV::AVPlayer player;
    RecordingEngine::instance().backend(&player)->autoRelease = false;
    journal().clear();
    player.releaseObj();
    player.releaseObj();
    EXPECT_EQ(journal().count(&player, "release()"), 1);
}

TEST(MediaPlayer, ClockChangesReachTheEngine)
{
    QtAV::AVPlayer player;
    journal().clear();
    ASSERT_NE(player.masterClock(), nullptr);
    EXPECT_EQ(player.masterClock()->clockType(), QtAV::AVClock::AudioClock);
    player.masterClock()->setClockType(QtAV::AVClock::ExternalClock);
    player.masterClock()->updateExternalClock(1500);
    EXPECT_TRUE(player.masterClock()->isExternal());
    EXPECT_EQ(player.masterClock()->externalClock(), 1500);
    EXPECT_EQ(journal().names(&player),
              QStringList({"setClockType(1)", "updateExternalClock(1500)"}));
}

TEST(MediaPlayer, StatisticsComeFromTheEngine)
{
    QtAV::AVPlayer player;
    RecordingEngine::instance().backend(&player)->frameRate = 59.94;
    EXPECT_DOUBLE_EQ(player.statistics().video.frame_rate, 59.94);
}

TEST(AudioOutputState, VolumeFormatAndOpenState)
{
    QtAV::AVPlayer player;
    QtAV::AudioOutput* out = player.audio();
    ASSERT_NE(out, nullptr);
    journal().clear();
    EXPECT_DOUBLE_EQ(out->volume(), 1.0);
    out->setVolume(0.5);
    EXPECT_DOUBLE_EQ(out->volume(), 0.5);
    EXPECT_TRUE(out->isOpen());
    EXPECT_TRUE(out->close());
    EXPECT_FALSE(out->close()); // already closed
    QtAV::AudioFormat format = out->audioFormat();
    EXPECT_EQ(format.channelLayout(), QtAV::AudioFormat::ChannelLayout_Stereo);
    format.setChannelLayout(QtAV::AudioFormat::ChannelLayout_Left);
    out->setAudioFormat(format);
    EXPECT_TRUE(out->open());
    EXPECT_EQ(out->audioFormat().channelLayout(), QtAV::AudioFormat::ChannelLayout_Left);
    EXPECT_EQ(out->setVolumeCount(), 1);
    EXPECT_EQ(out->setAudioFormatCount(), 1);
    EXPECT_EQ(journal().names(&player),
              QStringList({"setVolume(0.5)", "closeAudio()", "setChannelLayout(0)",
                           "openAudio()"}));
}

TEST(AudioOutputState, FailedEngineCloseLeavesItOpen)
{
    QtAV::AVPlayer player;
    RecordingEngine::instance().backend(&player)->closeAudioResult = false;
    EXPECT_FALSE(player.audio()->close());
    EXPECT_TRUE(player.audio()->isOpen());
}

TEST(AudioOutputState, UsableFromManyThreads)
{
    QtAV::AVPlayer player;
    QtAV::AudioOutput* out = player.audio();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([out, t] {
            for (int i = 0; i < 200; ++i) {
                out->setVolume((t * 200 + i) / 1000.0);
                (void)out->volume();
                QtAV::AudioFormat f = out->audioFormat();
                out->setAudioFormat(f);
            }
        });
    }
    for (auto& th : threads)
        th.join();
    EXPECT_EQ(out->setVolumeCount(), 800);
    EXPECT_EQ(out->setAudioFormatCount(), 800);
}

TEST(MediaEngineChoice, LaterInstallIsRefused)
{
    ASSERT_EQ(QtAV::mediaEngine(), &RecordingEngine::instance());
    EXPECT_FALSE(QtAV::installMediaEngine(nullptr));
    EXPECT_EQ(QtAV::mediaEngine(), &RecordingEngine::instance());
}

TEST(DecoderIds, KnownNamesOnly)
{
    EXPECT_EQ(QtAV::VideoDecoder::id("FFmpeg"), QtAV::VideoDecoderId_FFmpeg);
    EXPECT_EQ(QtAV::VideoDecoder::id("CUDA"), QtAV::VideoDecoderId_CUDA);
    EXPECT_EQ(QtAV::VideoDecoder::id("ffmpeg"), 0);
    EXPECT_EQ(QtAV::VideoDecoder::id("VAAPI"), 0);
    EXPECT_EQ(QtAV::VideoDecoder::id(""), 0);
    EXPECT_EQ(QtAV::VideoDecoder::id(nullptr), 0);
    EXPECT_STREQ(QtAV::VideoDecoder::name(QtAV::VideoDecoderId_CUDA), "CUDA");
    EXPECT_EQ(QtAV::VideoDecoder::supportedCodecs(), QStringList({"FFmpeg", "CUDA"}));
}

} // namespace
