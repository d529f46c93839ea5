// Screens published as PipeWire video sources: received by a "spout" layer
// on a second screen (the same pixels within 2 levels), read by a GStreamer
// consumer (its frame equals the screen's snapshot), and no read-back while
// nobody consumes.
#include "PipeWireFixture.h"

#include "pipewire/ScreenPublisher.h"

#include <QFile>
#include <QTemporaryDir>

namespace {

const QRect kWhole(0, 0, 320, 180);

class PublishScreen : public PipeWireTest
{
protected:
    /// Screen 1 showing the quadrant picture over its whole surface.
    void quadrantScreen()
    {
        ScreenWidget* one = openScreen(1);
        show(pushedPlayer(quadrants()), one, kWhole);
        ASSERT_TRUE(waitUntil([&] { return quadrantsIn(grab(1), kWhole); }));
    }
};

TEST_F(PublishScreen, SpoutLayerOnAnotherScreenShowsTheSamePixels)
{
    quadrantScreen();
    ASSERT_TRUE(ScreenService::getInstance().publishScreen(1, "kelmor-screen-1"));
    EXPECT_EQ(ScreenService::getInstance().publishedName(1), "kelmor-screen-1");
    openScreen(2);
    ASSERT_NE(spoutLayer(3, "kelmor-screen-1", 2, kWhole), nullptr);

    const QImage one = grab(1);
    int worst = 0;
    EXPECT_TRUE(waitForPicture(2, kWhole, one, 2, 0, 10000, &worst)) << "largest difference " << worst;
    const auto* publication = ScreenService::getInstance().publication(1);
    ASSERT_NE(publication, nullptr);
    EXPECT_GE(publication->node().sent(), 1u);
}

TEST_F(PublishScreen, GStreamerConsumerReadsWhatTheSnapshotShows)
{
    quadrantScreen();
    ASSERT_TRUE(ScreenService::getInstance().publishScreen(1, "kelmor-screen-gst"));
    QTemporaryDir dir;
    const QString file = dir.filePath("frame.raw");
    GstPipeline* consumer = pipeline(
        "pipewiresrc target-object=kelmor-screen-gst num-buffers=1 ! videoconvert ! "
        "video/x-raw,format=BGRx ! multifilesink location=" + dir.filePath("frame-%d.raw"));
    ASSERT_TRUE(waitUntil([&] { return !consumer->isRunning(); }, 15000)) << "the consumer got no frames";
    QFile raw(dir.filePath("frame-0.raw"));
    ASSERT_TRUE(raw.open(QIODevice::ReadOnly)) << consumer->output().toStdString();
    const QByteArray bytes = raw.readAll();
    ASSERT_EQ(bytes.size(), 320 * 180 * 4);
    const QImage got = QImage(reinterpret_cast<const uchar*>(bytes.constData()), 320, 180, 320 * 4,
                              QImage::Format_RGB32).copy();
    const QImage snapshot = ScreenService::getInstance().grabScreen(1);
    EXPECT_EQ(maxChannelDifference(got, snapshot), 0);
    EXPECT_TRUE(quadrantsIn(got, kWhole)) << "the consumer's frame is not upright";
}

TEST_F(PublishScreen, NothingIsReadBackWhileNobodyConsumes)
{
    ScreenWidget* one = openScreen(1);
    QtAV::AVPlayer* player = pushedPlayer(quadrants());
    show(player, one, kWhole);
    ASSERT_TRUE(ScreenService::getInstance().publishScreen(1, "kelmor-screen-idle"));
    for (QColor c : {Qt::red, Qt::green, Qt::blue, Qt::white}) {
        player->pushFrame(QtAV::VideoFrame(solid(c, 320, 180)));
        ASSERT_TRUE(waitUntil([&] { return near(grab(1).pixel(100, 100), c); }));
    }
    const auto* publication = ScreenService::getInstance().publication(1);
    ASSERT_NE(publication, nullptr);
    EXPECT_EQ(publication->readBacks(), 0u);
    EXPECT_EQ(publication->node().sent(), 0u);
    EXPECT_TRUE(ScreenService::getInstance().unpublishScreen(1));
    EXPECT_FALSE(ScreenService::getInstance().unpublishScreen(1));
}

TEST_F(PublishScreen, BadRequestsAreRefused)
{
    ScreenService& screens = ScreenService::getInstance();
    LogCapture log;
    EXPECT_FALSE(screens.publishScreen(7, "kelmor-screen-7"));
    openScreen(1);
    openScreen(2);
    EXPECT_FALSE(screens.publishScreen(1, ""));
    EXPECT_FALSE(screens.publishScreen(1, QString(200, 'x')));
    EXPECT_FALSE(screens.publishScreen(1, "bad\nname"));
    ASSERT_TRUE(screens.publishScreen(1, "kelmor-screen-dup"));
    EXPECT_FALSE(screens.publishScreen(2, "kelmor-screen-dup"));
    EXPECT_GE(log.count("publishScreen"), 5);
    // Closing the screen ends its publication.
    ScreenService::getInstance().closeScreen(1, 0, QString());
    EXPECT_TRUE(screens.publishedName(1).isEmpty());
}

} // namespace
