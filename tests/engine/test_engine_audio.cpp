// Audio and fades on the libmpv engine: volume, the fade factor on volume and
// opacity, closing and reopening the output, and channel routing, read back
// from the core.
#include "EngineFixture.h"

#include "AudioFormat.h"

#include <thread>

using QtAV::AVPlayer;
using QtAV::AudioFormat;


TEST_F(EngineTest, VolumeFromAWorkerThreadReachesTheCore)
{
    AVPlayer* player = loadedPlayer();
    std::thread worker([player] { player->audio()->setVolume(0.25); });
    worker.join();
    EXPECT_TRUE(waitUntil([&] { return qAbs(propDouble(player, "volume") - 25.0) < 0.01; }))
        << "volume " << prop(player, "volume").toStdString();
}

TEST_F(EngineTest, FadesRampVolumeAndOpacityAndReportTheirEnd)
{
    AVPlayer* player = loadedPlayer();
    player->audio()->setVolume(0.5);
    ASSERT_TRUE(waitUntil([&] { return qAbs(propDouble(player, "volume") - 50.0) < 0.01; }));
    QSignalSpy outDone(player, &AVPlayer::fadeOutFinished);
    QSignalSpy inDone(player, &AVPlayer::fadeInFinished);

    player->setFadeOut(300);
    ASSERT_TRUE(waitFor(outDone));
    EXPECT_EQ(backend(player)->opacity(), 0.0);
    EXPECT_TRUE(waitUntil([&] { return qAbs(propDouble(player, "volume")) < 0.01; }));

    player->setFadeIn(300);
    // Under way: between silence and full.
    ASSERT_TRUE(waitUntil([&] {
        const double o = backend(player)->opacity();
        return (o > 0.0 && o < 1.0) || inDone.count() > 0;
    }));
    ASSERT_TRUE(waitFor(inDone));
    EXPECT_EQ(backend(player)->opacity(), 1.0);
    EXPECT_TRUE(waitUntil([&] { return qAbs(propDouble(player, "volume") - 50.0) < 0.01; }));
    QTest::qWait(200);
    EXPECT_EQ(outDone.count(), 1);
    EXPECT_EQ(inDone.count(), 1);
}

TEST_F(EngineTest, StoppingAFadeLeavesItWhereItStands)
{
    AVPlayer* player = loadedPlayer();
    QSignalSpy outDone(player, &AVPlayer::fadeOutFinished);
    EXPECT_FALSE(player->stopFadeOut()); // none running
    player->setFadeOut(20000);
    ASSERT_TRUE(waitUntil([&] { return backend(player)->opacity() < 0.999; }));
    EXPECT_FALSE(player->stopFadeIn()); // a fade out runs, not a fade in
    EXPECT_TRUE(player->stopFadeOut());
    const double held = backend(player)->opacity();
    EXPECT_GT(held, 0.0);
    QTest::qWait(200);
    EXPECT_EQ(backend(player)->opacity(), held);
    EXPECT_EQ(outDone.count(), 0);
    EXPECT_FALSE(player->stopFadeOut());
}

TEST_F(EngineTest, ClosingAndOpeningTheOutputSwitchesTheAudioTrack)
{
    AVPlayer* player = loadedPlayer();
    ASSERT_TRUE(waitUntil([&] { return prop(player, "current-ao") == QStringLiteral("null"); }));
    ASSERT_TRUE(player->audio()->close());
    // No track, and no audio output open any more.
    EXPECT_TRUE(waitUntil([&] {
        return prop(player, "aid") == QStringLiteral("no") && prop(player, "current-ao").isEmpty();
    })) << "aid " << prop(player, "aid").toStdString();
    ASSERT_TRUE(player->audio()->open());
    // The track is chosen again ("aid" reads back as its number) and the
    // output is open again.
    EXPECT_TRUE(waitUntil([&] {
        return prop(player, "aid") == QStringLiteral("1")
            && prop(player, "current-ao") == QStringLiteral("null");
    })) << "aid " << prop(player, "aid").toStdString();
}

TEST_F(EngineTest, ChannelLayoutsRouteThroughTheAudioFilter)
{
    LogCapture log;
    AVPlayer* player = loadedPlayer();
    const struct {
        AudioFormat::ChannelLayout layout;
        const char* filter;   // expected in "af"
        const char* channels; // expected "audio-channels"
        const char* outCount; // channels the output then gets
    } cases[] = {
        {AudioFormat::ChannelLayout_Left, "pan=stereo|c0=c0|c1=c0", "stereo", "2"},
        {AudioFormat::ChannelLayout_Right, "pan=stereo|c0=c1|c1=c1", "stereo", "2"},
        {AudioFormat::ChannelLayout_Mono, "aformat=channel_layouts=mono", "stereo", "2"},
        {AudioFormat::ChannelLayout_StereoSwap, "pan=stereo|c0=c1|c1=c0", "stereo", "2"},
        {AudioFormat::ChannelLayout_Surround51, "aformat=channel_layouts=5.1", "5.1", "6"},
        {AudioFormat::ChannelLayout_Surround71, "aformat=channel_layouts=7.1", "7.1", "8"},
        {AudioFormat::ChannelLayout_Stereo, "", "auto-safe", "2"},
        {static_cast<AudioFormat::ChannelLayout>(42), "", "auto-safe", "2"},
    };
    for (const auto& c : cases) {
        QtAV::AudioOutput* out = player->audio();
        ASSERT_TRUE(out->close());
        AudioFormat format = out->audioFormat();
        format.setChannelLayout(c.layout);
        out->setAudioFormat(format);
        ASSERT_TRUE(out->open());
        const QString want = QString::fromLatin1(c.filter);
        EXPECT_TRUE(waitUntil([&] {
            const QString af = prop(player, "af");
            return want.isEmpty() ? af.isEmpty() : af.contains(want);
        })) << "layout " << int(c.layout) << ": af " << prop(player, "af").toStdString();
        EXPECT_TRUE(waitUntil([&] {
            return prop(player, "audio-channels") == QString::fromLatin1(c.channels);
        })) << "layout " << int(c.layout) << ": " << prop(player, "audio-channels").toStdString();
        EXPECT_TRUE(waitUntil([&] { return prop(player, "aid") == QStringLiteral("1"); }));
        EXPECT_TRUE(waitUntil([&] {
            return prop(player, "audio-out-params/channel-count") == QLatin1String(c.outCount);
        })) << "layout " << int(c.layout) << ": output channels "
            << prop(player, "audio-out-params/channel-count").toStdString();
    }
    EXPECT_EQ(log.count(QStringLiteral("refused")), 0);
}

TEST_F(EngineTest, RoutedAudioStillPlaysToTheEnd)
{
    AVPlayer* player = loadedPlayer();
    player->setStopPosition(600);
    QtAV::AudioOutput* out = player->audio();
    out->close();
    AudioFormat format = out->audioFormat();
    format.setChannelLayout(AudioFormat::ChannelLayout_StereoSwap);
    out->setAudioFormat(format);
    out->open();
    QSignalSpy stopped(player, &AVPlayer::stopped);
    player->pause(false);
    ASSERT_TRUE(waitFor(stopped));
    EXPECT_TRUE(waitUntil([&] { return player->statistics().audio.channels == 2; }))
        << player->statistics().audio.channels;
}
