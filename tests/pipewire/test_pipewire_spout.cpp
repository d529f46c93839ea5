// "spout" layers fed by PipeWire video streams: a GStreamer producer's known
// picture (videotestsrc's SMPTE bars) on an offscreen screen, upright and at
// its placement, in every accepted pixel format; the producer stopping and
// coming back; a producer stalling for a few seconds; a stream that is too
// large.
#include "PipeWireFixture.h"

#include "pipewire/PwVideoPublisher.h"

#include <QTimer>

namespace {

const QRect kWhole(0, 0, 320, 180);

class SpoutReceive : public PipeWireTest
{
protected:
    void SetUp() override
    {
        PipeWireTest::SetUp();
        m_bars = referencePicture(QStringLiteral("smpte"), 320, 180);
        ASSERT_FALSE(m_bars.isNull()) << "gst-launch-1.0 made no reference picture";
    }

    QImage m_bars;
};

TEST_F(SpoutReceive, ShowsTheProducersPictureUprightAndUnchanged)
{
    openScreen(1);
    pipeline(GstPipeline::producer("kelmor-test-bars", "smpte", "BGRx", 320, 180));
    LogCapture log;
    ASSERT_NE(spoutLayer(2, "kelmor-test-bars", 1, kWhole), nullptr);

    int worst = 0;
    EXPECT_TRUE(waitForPicture(1, kWhole, m_bars, 2, 0, 10000, &worst)) << "largest difference " << worst;
    // Orientation: white bar top left, blue bar top right, the dark -I patch
    // bottom left.
    const QImage out = grab(1);
    EXPECT_PIXEL(out, 10, 40, Qt::white);
    EXPECT_PIXEL(out, 310, 40, Qt::blue);
    EXPECT_TRUE(near(out.pixel(10, 170), m_bars.pixel(10, 170), 2));
    EXPECT_GE(log.count("source found"), 1);
    ASSERT_NE(nodeOf(2), nullptr);
    EXPECT_GT(nodeOf(2)->framesDelivered(), 0u);
}

TEST_F(SpoutReceive, KeepsItsPlacementOnTheScreen)
{
    openScreen(1);
    pipeline(GstPipeline::producer("kelmor-test-placed", "smpte", "BGRx", 320, 180));
    const QRect quarter(160, 90, 160, 90);
    ASSERT_NE(spoutLayer(2, "kelmor-test-placed", 1, quarter), nullptr);

    const QImage half = m_bars.scaled(160, 90, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    int worst = 0;
    EXPECT_TRUE(waitForPicture(1, quarter, half, 12, 2, 10000, &worst)) << "largest difference " << worst;
    const QImage out = grab(1);
    EXPECT_TRUE(isBlack(out, QRect(0, 0, 150, 180)));
    EXPECT_TRUE(isBlack(out, QRect(0, 0, 320, 80)));
    EXPECT_PIXEL(out, 165, 110, Qt::white);
    EXPECT_PIXEL(out, 315, 110, Qt::blue);
}

class SpoutFormats : public SpoutReceive, public ::testing::WithParamInterface<const char*>
{
};

TEST_P(SpoutFormats, EveryAcceptedFormatShowsThePicture)
{
    const QString format = QString::fromLatin1(GetParam());
    const bool yuv = format == "NV12" || format == "I420";
    openScreen(1);
    const QString name = "kelmor-test-" + format.toLower();
    pipeline(GstPipeline::producer(name, "smpte", format, 320, 180));
    ASSERT_NE(spoutLayer(2, name, 1, kWhole), nullptr);
    // Converted to YUV and back: a few levels off, and the chroma of 2x2
    // blocks blends across bar edges.
    int worst = 0;
    EXPECT_TRUE(waitForPicture(1, kWhole, m_bars, yuv ? 8 : 2, yuv ? 2 : 0, 10000, &worst, !yuv))
        << format.toStdString() << ": largest difference " << worst;
}

INSTANTIATE_TEST_SUITE_P(Formats, SpoutFormats,
                         ::testing::Values("BGRA", "RGBA", "BGRx", "RGBx", "NV12", "I420"));

TEST_F(SpoutReceive, ProducerStoppedBlanksTheLayerAndItsReturnShowsItAgain)
{
    openScreen(1);
    GstPipeline* producer = pipeline(GstPipeline::producer("kelmor-test-gone", "smpte", "BGRx", 320, 180));
    ASSERT_NE(spoutLayer(2, "kelmor-test-gone", 1, kWhole), nullptr);
    ASSERT_TRUE(waitForPicture(1, kWhole, m_bars, 2));

    LogCapture log;
    producer->stop();
    EXPECT_TRUE(waitForBlack(1, kWhole)) << "the layer still shows the stopped source";
    EXPECT_GE(log.count("went away"), 1);
    EXPECT_TRUE(nodeOf(2) && nodeOf(2)->isPlaying()) << "the layer keeps its state";

    pipeline(GstPipeline::producer("kelmor-test-gone", "smpte", "BGRx", 320, 180));
    EXPECT_TRUE(waitForPicture(1, kWhole, m_bars, 2)) << "the returning source is not shown";
}

TEST_F(SpoutReceive, AbsentSourceIsWaitedForAndPickedUpWhenItAppears)
{
    openScreen(1);
    LogCapture log;
    ASSERT_NE(spoutLayer(2, "kelmor-test-late", 1, kWhole), nullptr);
    EXPECT_TRUE(waitUntil([&] { return log.count("waiting for a PipeWire video source") == 1; }));
    QTest::qWait(300);
    EXPECT_TRUE(isBlack(grab(1), kWhole));

    pipeline(GstPipeline::producer("kelmor-test-late", "smpte", "BGRx", 320, 180));
    EXPECT_TRUE(waitForPicture(1, kWhole, m_bars, 2));
    EXPECT_EQ(log.count("waiting for a PipeWire video source"), 1);
}

TEST_F(SpoutReceive, FormatAndSizeChangesAreFollowed)
{
    openScreen(1);
    GstPipeline* first = pipeline(GstPipeline::producer("kelmor-test-change", "smpte", "BGRx", 320, 180));
    ASSERT_NE(spoutLayer(2, "kelmor-test-change", 1, kWhole), nullptr);
    ASSERT_TRUE(waitForPicture(1, kWhole, m_bars, 2));

    // The same source name comes back as I420 at another size: the layer
    // follows, drawn at its placement whatever the picture's size.
    LogCapture log;
    first->stop();
    pipeline(GstPipeline::producer("kelmor-test-change", "smpte", "I420", 640, 360));
    const QImage bars640 = referencePicture(QStringLiteral("smpte"), 640, 360)
                               .scaled(320, 180, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    int worst = 0;
    EXPECT_TRUE(waitForPicture(1, kWhole, bars640, 10, 2, 10000, &worst, false))
        << "largest difference " << worst;
    EXPECT_GE(log.count("format I420 640 x 360"), 1);
}

TEST_F(SpoutReceive, TooLargeStreamIsRefusedAndOtherLayersAreUnaffected)
{
    openScreen(1);
    QtAV::AVPlayer* other = pushedPlayer(quadrants(160, 90));
    show(other, ScreenService::getInstance().screenById(1), QRect(0, 0, 160, 90));
    LogCapture log;
    pipeline(GstPipeline::producer("kelmor-test-huge", "smpte", "BGRx", 16384, 8, 5));
    ASSERT_NE(spoutLayer(2, "kelmor-test-huge", 1, QRect(160, 90, 160, 90)), nullptr);

    EXPECT_TRUE(waitUntil([&] { return log.count("refused") >= 1; })) << "no word about the refusal";
    QTest::qWait(500);
    const QImage out = grab(1);
    EXPECT_TRUE(isBlack(out, QRect(160, 90, 160, 90)));
    EXPECT_TRUE(quadrantsIn(out, QRect(0, 0, 160, 90)));
    EXPECT_EQ(nodeOf(2)->framesDelivered(), 0u);
}

TEST_F(SpoutReceive, StalledSourceBlanksUntilFramesReturn)
{
    // The producer is a PipeWire video source of this process whose frames
    // the test sends itself, so that it can stop them for 5 s and resume.
    openScreen(1);
    kelmor::pipewire::PwVideoPublisher producer("kelmor-test-stall", QSize(320, 180), 30, nullptr);
    ASSERT_TRUE(producer.start());
    const QImage picture = quadrants().convertToFormat(QImage::Format_ARGB32); // BGRA in memory
    QTimer frames;
    QObject::connect(&frames, &QTimer::timeout, [&] {
        producer.send(picture.constBits(), picture.bytesPerLine(), false);
    });
    frames.start(33);
    ASSERT_NE(spoutLayer(2, "kelmor-test-stall", 1, kWhole), nullptr);
    ASSERT_TRUE(waitUntil([&] { return quadrantsIn(grab(1), kWhole); }));

    LogCapture log;
    frames.stop();
    EXPECT_TRUE(waitForBlack(1, kWhole, 10000)) << "a stalled source still shows";
    EXPECT_GE(log.count("stalled"), 1);
    EXPECT_TRUE(nodeOf(2) && nodeOf(2)->isPlaying()) << "the layer keeps its state";
    frames.start(33);
    EXPECT_TRUE(waitUntil([&] { return quadrantsIn(grab(1), kWhole); }))
        << "frames after the stall are not shown";
}

} // namespace
