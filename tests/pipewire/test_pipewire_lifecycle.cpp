// The lifetime of a "spout" layer's reception: deleting the layer or
// changing its content while frames flow cuts the source off at once; the
// daemon missing, dying and coming back.
#include "PipeWireFixture.h"
#include "RecordingEngine.h"

namespace {

const QRect kWhole(0, 0, 320, 180);

class SpoutLifecycle : public PipeWireTest
{
protected:
    static int textureCalls(QtAV::AVPlayer* player)
    {
        return RecordingEngine::instance().journal().names(player).filter("setTextureID(").size();
    }
};

TEST_F(SpoutLifecycle, ContentChangeCutsTheOldSourceOffAtOnce)
{
    openScreen(1);
    pipeline(GstPipeline::producer("kelmor-test-flow", "smpte", "BGRx", 320, 180, 60));
    QtAV::AVPlayer* player = spoutLayer(2, "kelmor-test-flow", 1, kWhole);
    ASSERT_NE(player, nullptr);
    ASSERT_TRUE(waitUntil([&] { return textureCalls(player) >= 5; })) << "no frames flow";

    Record change;
    change["type"] = QStringLiteral("spout");
    change["videoPath"] = QStringLiteral("kelmor-test-nothing-here");
    service().changeLayerContent(2, kBank, change);
    const int atChange = textureCalls(player);
    QTest::qWait(600); // twenty frames of the old source would have come
    EXPECT_EQ(textureCalls(player), atChange) << "a frame of the old source reached the player";
    EXPECT_TRUE(isBlack(grab(1), kWhole));
}

TEST_F(SpoutLifecycle, LayerDeletedWhileFramesFlow)
{
    openScreen(1);
    for (int round = 0; round < 3; ++round) {
        // A producer of its own each round: GStreamer's pipewiresink (0.3.65)
        // does not always serve a second consumer after the first has gone.
        const QString name = QStringLiteral("kelmor-test-delete-%1").arg(round);
        pipeline(GstPipeline::producer(name, "smpte", "I420", 640, 360, 60));
        QtAV::AVPlayer* player = spoutLayer(2, name, 1, kWhole);
        ASSERT_NE(player, nullptr);
        QPointer<QtAV::AVPlayer> watched(player);
        ASSERT_TRUE(waitUntil([&] { return textureCalls(player) >= 3; })) << "no frames flow";
        Record record;
        record["layerId"] = 2;
        record["bankId"] = kBank;
        service().delLayerAllRenderer(kBank, 2, true);
        reg().deleteplayerByID(record);
        EXPECT_TRUE(waitUntil([&] { return watched.isNull(); })) << "the deleted layer's player stays";
        EXPECT_TRUE(waitForBlack(1, kWhole, 3000));
        forgetLayer(2);
    }
}

TEST_F(SpoutLifecycle, WithoutDaemonTheLayerKeepsItsStateAndNothingHangs)
{
    openScreen(1);
    // Point this process at a socket nobody serves: the same as no daemon.
    qputenv("PIPEWIRE_REMOTE", "kelmor-no-such-daemon");
    LogCapture log;
    QtAV::AVPlayer* player = spoutLayer(2, "kelmor-test-nodaemon", 1, kWhole);
    ASSERT_NE(player, nullptr);
    EXPECT_TRUE(waitUntil([&] { return log.count("no PipeWire daemon answers") >= 1; }));
    ASSERT_NE(nodeOf(2), nullptr);
    EXPECT_TRUE(nodeOf(2)->isPlaying());
    EXPECT_EQ(nodeOf(2)->sourceName(), "kelmor-test-nodaemon");
    QElapsedTimer clock;
    clock.start();
    service().pause(player); // stops the node
    EXPECT_EQ(nodeOf(2), nullptr);
    EXPECT_LT(clock.elapsed(), 2000) << "stopping hung on the missing daemon";
    qunsetenv("PIPEWIRE_REMOTE");
    EXPECT_EQ(log.count("no PipeWire daemon answers"), 1);
}

TEST_F(SpoutLifecycle, DaemonRestartIsFollowed)
{
    openScreen(1);
    const QImage bars = referencePicture(QStringLiteral("smpte"), 320, 180);
    ASSERT_FALSE(bars.isNull());
    GstPipeline* producer = pipeline(GstPipeline::producer("kelmor-test-restart", "smpte", "BGRx", 320, 180));
    ASSERT_NE(spoutLayer(2, "kelmor-test-restart", 1, kWhole), nullptr);
    ASSERT_TRUE(waitForPicture(1, kWhole, bars, 2));

    LogCapture log;
    daemon().killDaemon();
    producer->stop();
    EXPECT_TRUE(waitForBlack(1, kWhole)) << "the layer still shows a source of the dead daemon";
    EXPECT_TRUE(waitUntil([&] { return log.count("connection lost") >= 1; }));
    ASSERT_TRUE(daemon().startDaemon()) << daemon().error().toStdString();
    pipeline(GstPipeline::producer("kelmor-test-restart", "smpte", "BGRx", 320, 180));
    EXPECT_TRUE(waitForPicture(1, kWhole, bars, 2, 0, 15000)) << "not reconnected after the restart";
}

} // namespace
