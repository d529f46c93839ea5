// Sources on the libmpv engine: content changes in one core, decoder choice,
// release, and bad input that must leave the layer usable.
#include "EngineFixture.h"

#include "VideoDecoder.h"

#include <unistd.h>

using QtAV::AVPlayer;

TEST_F(EngineTest, ContentChangesVideoPictureVideoInOneCore)
{
    AVPlayer* player = loadedPlayer();
    QtAV::MpvBackend* first = backend(player);
    QSignalSpy loaded(player, &AVPlayer::loaded);
    QSignalSpy stopped(player, &AVPlayer::stopped);

    player->setFile(EngineMedia::picture());
    ASSERT_TRUE(waitFor(loaded, 1));
    EXPECT_EQ(player->statistics().video.width, 160);
    EXPECT_TRUE(prop(player, "path").endsWith(QStringLiteral("picture.png")));

    player->setFile(EngineMedia::clip());
    ASSERT_TRUE(waitFor(loaded, 2));
    EXPECT_NEAR(player->statistics().video.frame_rate, 25.0, 0.5);
    EXPECT_TRUE(prop(player, "path").endsWith(QStringLiteral("clip.mp4")));
    EXPECT_EQ(backend(player), first); // the same core all along

    QTest::qWait(300);
    EXPECT_EQ(loaded.count(), 2);
    EXPECT_EQ(stopped.count(), 0); // the replaced sources' ends are not reported
}

TEST_F(EngineTest, APictureHoldsAndDoesNotEnd)
{
    AVPlayer* player = loadedPlayer(EngineMedia::picture());
    QSignalSpy stopped(player, &AVPlayer::stopped);
    player->pause(false);
    QTest::qWait(1500);
    EXPECT_EQ(stopped.count(), 0);
}

TEST_F(EngineTest, DecoderPriorityChoosesHardwareWithSoftwareFallback)
{
    AVPlayer* player = newPlayer();
    EXPECT_TRUE(engine()->hasDecoder(QtAV::VideoDecoderId_CUDA));
    EXPECT_TRUE(engine()->hasDecoder(QtAV::VideoDecoderId_FFmpeg));
    player->setPriority({QtAV::VideoDecoderId_CUDA, QtAV::VideoDecoderId_FFmpeg});
    EXPECT_TRUE(waitUntil([&] { return prop(player, "hwdec") == QStringLiteral("nvdec-copy"); }));
    QSignalSpy loaded(player, &AVPlayer::loaded);
    QSignalSpy stopped(player, &AVPlayer::stopped);
    player->setFile(EngineMedia::clip());
    ASSERT_TRUE(waitFor(loaded));
    // CUDA where the machine has it, software otherwise: either way it plays.
    ASSERT_TRUE(waitUntil([&] { return !player->statistics().video.decoder.isEmpty(); }));
    EXPECT_TRUE(QStringList({"CUDA", "FFmpeg"}).contains(player->statistics().video.decoder));
    player->setStopPosition(500);
    player->pause(false);
    EXPECT_TRUE(waitFor(stopped));

    player->setPriority({QtAV::VideoDecoderId_FFmpeg, QtAV::VideoDecoderId_CUDA});
    EXPECT_TRUE(waitUntil([&] { return prop(player, "hwdec") == QStringLiteral("no"); }));
}

TEST_F(EngineTest, ReleaseFreesTheCoreAndAnnouncesDeletion)
{
    AVPlayer* player = loadedPlayer();
    player->pause(false);
    QSignalSpy deleting(player, &AVPlayer::sig_deleteObj);
    player->releaseObj();
    EXPECT_FALSE(backend(player)->hasCore()); // handed to the reaper at once
    ASSERT_TRUE(waitFor(deleting));
    QSignalSpy stopped(player, &AVPlayer::stopped);
    QTest::qWait(200);
    EXPECT_EQ(stopped.count(), 0);
    delete player;
}

TEST_F(EngineTest, PlayersWithoutReleaseAreFreedWhenDeleted)
{
    QPointer<AVPlayer> player = new AVPlayer;
    QSignalSpy loaded(player.data(), &AVPlayer::loaded);
    player->setFile(EngineMedia::clip());
    ASSERT_TRUE(waitFor(loaded));
    player->pause(false);
    delete player.data();
    EXPECT_EQ(engine()->backend(player.data()), nullptr);
    QTest::qWait(100); // events of the freed core must go nowhere
}

// Each bad source: one reason line, no load, and the next source plays.
class EngineBadInputTest : public EngineTest,
                           public ::testing::WithParamInterface<const char*>
{
};

TEST_P(EngineBadInputTest, BadSourceIsReportedAndTheLayerStaysUsable)
{
    const QString which = QString::fromLatin1(GetParam());
    QString source;
    if (which == "missing")
        source = EngineMedia::missingFile();
    else if (which == "unreadable") {
        if (geteuid() == 0)
            GTEST_SKIP() << "root reads any file: no unreadable file can be made";
        source = EngineMedia::unreadableClip();
    } else if (which == "text")
        source = EngineMedia::textAsMp4();
    else if (which == "url")
        source = EngineMedia::unreachableUrl();
    ASSERT_FALSE(source.isEmpty());

    LogCapture log;
    AVPlayer* player = newPlayer();
    QSignalSpy loaded(player, &AVPlayer::loaded);
    player->setFile(source);
    ASSERT_TRUE(waitUntil([&] { return log.count(QStringLiteral("mpv: cannot")) >= 1; }));
    QTest::qWait(200);
    EXPECT_EQ(log.count(QStringLiteral("mpv: cannot")), 1);
    EXPECT_EQ(loaded.count(), 0);

    // A play-ready on the bad source never claims a ready frame.
    QSignalSpy ready(player, &AVPlayer::playReadySucess);
    player->playReady(source, 500, true);
    ASSERT_TRUE(waitUntil([&] { return log.count(QStringLiteral("mpv: cannot")) >= 2; }));
    EXPECT_EQ(ready.count(), 0);

    player->playReady(EngineMedia::clip(), 500, true);
    ASSERT_TRUE(waitFor(ready));
    EXPECT_EQ(loaded.count(), 1);
}

INSTANTIATE_TEST_SUITE_P(Sources, EngineBadInputTest,
                         ::testing::Values("missing", "unreadable", "text", "url"));

// Damaged media may open and play what can be decoded: whatever it does, it
// ends (or is refused) without hanging, and the layer plays the next source.
class EngineDamagedInputTest : public EngineTest,
                               public ::testing::WithParamInterface<const char*>
{
};

TEST_P(EngineDamagedInputTest, DamagedClipEndsOrFailsAndTheLayerStaysUsable)
{
    const QString source = QString::fromLatin1(GetParam()) == "truncated"
        ? EngineMedia::truncatedClip()
        : EngineMedia::corruptedClip();
    LogCapture log;
    AVPlayer* player = newPlayer();
    QSignalSpy stopped(player, &AVPlayer::stopped);
    player->setFile(source);
    player->pause(false);
    ASSERT_TRUE(waitUntil([&] {
        return stopped.count() >= 1 || log.count(QStringLiteral("mpv: cannot")) >= 1;
    }));

    QSignalSpy ready(player, &AVPlayer::playReadySucess);
    player->playReady(EngineMedia::clip(), 300, true);
    ASSERT_TRUE(waitFor(ready));
    EXPECT_NEAR(propDouble(player, "time-pos"), 0.3, 0.021);
}

INSTANTIATE_TEST_SUITE_P(Sources, EngineDamagedInputTest,
                         ::testing::Values("truncated", "corrupted"));
