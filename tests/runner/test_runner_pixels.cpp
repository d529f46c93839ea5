// Snapshots show what the screens show: the runner's snapshot step writes
// the composited picture, checked here pixel by pixel (colours within a
// small tolerance for the YUV round trip of the clips).
#include "RunnerHarness.h"
#include "ShowText.h"

#include <QColor>
#include <QFileInfo>
#include <QImage>
#include <gtest/gtest.h>

using namespace runner_test;

namespace {

constexpr int kTolerance = 24;

const QColor kRed(255, 0, 0), kGreen(0, 255, 0), kBlue(0, 0, 255), kWhite(255, 255, 255),
    kBlack(0, 0, 0), kYellow(255, 255, 0);

::testing::AssertionResult colourAt(const QImage& image, int x, int y, const QColor& want)
{
    const QColor have = image.pixelColor(x, y);
    if (std::abs(have.red() - want.red()) <= kTolerance
        && std::abs(have.green() - want.green()) <= kTolerance
        && std::abs(have.blue() - want.blue()) <= kTolerance)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
        << "pixel (" << x << ", " << y << ") is (" << have.red() << ", " << have.green() << ", "
        << have.blue() << "), expected (" << want.red() << ", " << want.green() << ", "
        << want.blue() << ")";
}

/// Runs `layerSteps` on screen 1 (640 x 360) of bank 1, waits until the
/// bank is ready and the picture has settled, and loads the snapshot.
QImage snapshotAfter(const QString& name, const QString& layerSteps, qint64 readyAtMs = 500,
                     const QString& screenStep = openScreen(1))
{
    const QString dir = freshWorkDir(name);
    const QString show = screenStep + layerSteps
        + step(QStringLiteral("setCurPlayerCount"), QStringLiteral("1"))
        + step(QStringLiteral("playReady"), layerRef(1, 1) + QStringLiteral(", %1, true").arg(readyAtMs))
        + waitFor(QStringLiteral("sPlayReady"), QStringLiteral("{\"bankId\": 1}"))
        + QStringLiteral("{\"op\": \"wait\", \"ms\": 300}\n"
                         "{\"op\": \"snapshot\", \"screen\": 1, \"path\": \"shot.png\"}\n");
    const ShowRun run = runShow(dir, show);
    EXPECT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.errors().isEmpty()) << run.errText.toStdString();
    const QImage image(dir + QStringLiteral("/shot.png"));
    EXPECT_EQ(image.size(), QSize(640, 360));
    return image;
}

TEST(RunnerPixels, QuadrantClipAtFullScreenShowsEachQuadrantInItsCorner)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    const QImage image = snapshotAfter(
        QStringLiteral("pixels-quadrants"),
        createLayer(1, 1, QStringLiteral("${media}/quadrants.mp4"), QStringLiteral("video"))
            + addRenderer(1, 1, 1, 0, 0, 640, 360, 640, 360));
    ASSERT_FALSE(image.isNull());
    EXPECT_TRUE(colourAt(image, 160, 90, kRed));
    EXPECT_TRUE(colourAt(image, 480, 90, kGreen));
    EXPECT_TRUE(colourAt(image, 160, 270, kBlue));
    EXPECT_TRUE(colourAt(image, 480, 270, kWhite));
}

TEST(RunnerPixels, WindowedScreenShowsTheQuadrantsInTheSamePlaces)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    const QImage image = snapshotAfter(
        QStringLiteral("pixels-windowed"),
        createLayer(1, 1, QStringLiteral("${media}/quadrants.mp4"), QStringLiteral("video"))
            + addRenderer(1, 1, 1, 0, 0, 640, 360, 640, 360),
        500,
        QStringLiteral("{\"op\": \"openScreen\", \"id\": 1, \"width\": 640, \"height\": 360, \"windowed\": true}\n"));
    ASSERT_FALSE(image.isNull());
    EXPECT_TRUE(colourAt(image, 160, 90, kRed));
    EXPECT_TRUE(colourAt(image, 480, 90, kGreen));
    EXPECT_TRUE(colourAt(image, 160, 270, kBlue));
    EXPECT_TRUE(colourAt(image, 480, 270, kWhite));
}

TEST(RunnerPixels, WindowPresentedWithVsyncShowsTheQuadrantsInTheSamePlaces)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    const QString dir = freshWorkDir(QStringLiteral("pixels-vsync"));
    const QString show = QStringLiteral("{\"op\": \"openScreen\", \"id\": 1, \"width\": 640, "
                                        "\"height\": 360, \"windowed\": true}\n")
        + createLayer(1, 1, QStringLiteral("${media}/quadrants.mp4"), QStringLiteral("video"))
        + addRenderer(1, 1, 1, 0, 0, 640, 360, 640, 360)
        + step(QStringLiteral("setCurPlayerCount"), QStringLiteral("1"))
        + step(QStringLiteral("playReady"), layerRef(1, 1) + QStringLiteral(", 500, true"))
        + waitFor(QStringLiteral("sPlayReady"), QStringLiteral("{\"bankId\": 1}"))
        + QStringLiteral("{\"op\": \"wait\", \"ms\": 300}\n"
                         "{\"op\": \"snapshot\", \"screen\": 1, \"path\": \"shot.png\"}\n");
    const ShowRun run = runShow(dir, show, {QStringLiteral("--vsync"), QStringLiteral("on")});
    EXPECT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.errors().isEmpty()) << run.errText.toStdString();
    EXPECT_TRUE(run.errText.contains(
        QStringLiteral("screen 1 is presented with vsync by a thread of its own")))
        << run.errText.toStdString();
    const QImage image(dir + QStringLiteral("/shot.png"));
    ASSERT_EQ(image.size(), QSize(640, 360));
    EXPECT_TRUE(colourAt(image, 160, 90, kRed));
    EXPECT_TRUE(colourAt(image, 480, 90, kGreen));
    EXPECT_TRUE(colourAt(image, 160, 270, kBlue));
    EXPECT_TRUE(colourAt(image, 480, 270, kWhite));
}

// Output frames are drawn on the render thread by default, and on the GUI
// thread with --no-render-thread: the same pictures either way.
TEST(RunnerPixels, FramesDrawnOnEitherThreadShowTheQuadrantsInTheSamePlaces)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    const QString show = QStringLiteral("{\"op\": \"openScreen\", \"id\": 1, \"width\": 640, "
                                        "\"height\": 360, \"windowed\": true}\n"
                                        "{\"op\": \"openScreen\", \"id\": 2, \"width\": 640, "
                                        "\"height\": 360}\n")
        + createLayer(1, 1, QStringLiteral("${media}/quadrants.mp4"), QStringLiteral("video"))
        + addRenderer(1, 1, 1, 0, 0, 640, 360, 640, 360)
        + addRenderer(1, 1, 2, 0, 0, 640, 360, 640, 360)
        + step(QStringLiteral("setCurPlayerCount"), QStringLiteral("1"))
        + step(QStringLiteral("play"), layerRef(1, 1))
        + QStringLiteral("{\"op\": \"wait\", \"ms\": 500}\n"
                         "{\"op\": \"snapshot\", \"screen\": 1, \"path\": \"window.png\"}\n"
                         "{\"op\": \"snapshot\", \"screen\": 2, \"path\": \"offscreen.png\"}\n");
    for (const bool renderThread : {true, false}) {
        SCOPED_TRACE(renderThread ? "default (render thread)" : "--no-render-thread");
        const QString dir = freshWorkDir(renderThread ? QStringLiteral("pixels-render-thread")
                                                      : QStringLiteral("pixels-gui-thread"));
        const ShowRun run = runShow(dir, show,
                                    renderThread ? QStringList()
                                                 : QStringList{QStringLiteral("--no-render-thread")});
        EXPECT_TRUE(run.finished);
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_TRUE(run.errors().isEmpty()) << run.errText.toStdString();
        EXPECT_EQ(run.errText.contains(QStringLiteral("output frames are drawn on a render thread")),
                  renderThread)
            << run.errText.toStdString();
        for (const QString name : {QStringLiteral("window.png"), QStringLiteral("offscreen.png")}) {
            const QImage image(dir + QLatin1Char('/') + name);
            ASSERT_EQ(image.size(), QSize(640, 360)) << name.toStdString();
            EXPECT_TRUE(colourAt(image, 160, 90, kRed)) << name.toStdString();
            EXPECT_TRUE(colourAt(image, 480, 90, kGreen)) << name.toStdString();
            EXPECT_TRUE(colourAt(image, 160, 270, kBlue)) << name.toStdString();
            EXPECT_TRUE(colourAt(image, 480, 270, kWhite)) << name.toStdString();
        }
    }
}

TEST(RunnerPixels, StillPlacedAtAGeometryCoversExactlyThatRectangle)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    // still-a (yellow, 320 x 180) at (100, 50), 200 x 100.
    const QImage image = snapshotAfter(
        QStringLiteral("pixels-still"),
        createLayer(1, 1, QStringLiteral("${media}/still-a.png"), QStringLiteral("picture"))
            + addRenderer(1, 1, 1, 100, 50, 200, 100, 320, 180),
        0);
    ASSERT_FALSE(image.isNull());
    EXPECT_TRUE(colourAt(image, 200, 100, kYellow));
    EXPECT_TRUE(colourAt(image, 104, 54, kYellow));
    EXPECT_TRUE(colourAt(image, 295, 145, kYellow));
    EXPECT_TRUE(colourAt(image, 95, 100, kBlack));
    EXPECT_TRUE(colourAt(image, 305, 100, kBlack));
    EXPECT_TRUE(colourAt(image, 200, 45, kBlack));
    EXPECT_TRUE(colourAt(image, 200, 155, kBlack));
    EXPECT_TRUE(colourAt(image, 500, 300, kBlack));
}

TEST(RunnerPixels, RegionOfInterestShowsTheTopLeftQuadrantOverTheWholeScreen)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    const QImage image = snapshotAfter(
        QStringLiteral("pixels-roi"),
        createLayer(1, 1, QStringLiteral("${media}/quadrants.mp4"), QStringLiteral("video"))
            + addRenderer(1, 1, 1, 0, 0, 640, 360, 640, 360)
            + step(QStringLiteral("setRegionOfInterest"),
                   QStringLiteral("{\"bankId\": 1, \"layerId\": 1, \"screenId\": 1, \"screenType\": 0, "
                                  "\"clientGuid\": \"\"}, 0, 0, 320, 180")));
    ASSERT_FALSE(image.isNull());
    for (const QPoint& p : {QPoint(40, 30), QPoint(600, 30), QPoint(40, 330), QPoint(600, 330),
                            QPoint(320, 180)})
        EXPECT_TRUE(colourAt(image, p.x(), p.y(), kRed));
}

TEST(RunnerPixels, CornerWarpMovesTheStillIntoItsQuadrilateral)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    // Placed over the whole screen, then its corners pulled to the
    // rectangle (320, 180) - (620, 340).
    const QImage image = snapshotAfter(
        QStringLiteral("pixels-corners"),
        createLayer(1, 1, QStringLiteral("${media}/still-a.png"), QStringLiteral("picture"))
            + addRenderer(1, 1, 1, 0, 0, 640, 360, 320, 180)
            + step(QStringLiteral("seVectexRect"),
                   QStringLiteral("{\"bankId\": 1, \"layerId\": 1, \"screenId\": 1, \"screenType\": 0, "
                                  "\"clientGuid\": \"\", \"lTPoint\": {\"x\": 320, \"y\": 180}, "
                                  "\"rTPoint\": {\"x\": 620, \"y\": 180}, \"lBpoint\": {\"x\": 320, \"y\": 340}, "
                                  "\"rBpoint\": {\"x\": 620, \"y\": 340}}")),
        0);
    ASSERT_FALSE(image.isNull());
    EXPECT_TRUE(colourAt(image, 470, 260, kYellow));
    EXPECT_TRUE(colourAt(image, 325, 185, kYellow));
    EXPECT_TRUE(colourAt(image, 615, 335, kYellow));
    EXPECT_TRUE(colourAt(image, 100, 100, kBlack));
    EXPECT_TRUE(colourAt(image, 470, 170, kBlack));
    EXPECT_TRUE(colourAt(image, 470, 350, kBlack));
    EXPECT_TRUE(colourAt(image, 310, 260, kBlack));
}

TEST(RunnerPixels, RecordingRunsWhileTheShowGoesOnAndEndsWithAHostLine)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    const QString dir = freshWorkDir(QStringLiteral("pixels-record"));
    const QString show = openScreen(1)
        + createLayer(1, 1, QStringLiteral("${media}/clip.mp4"), QStringLiteral("video"))
        + addRenderer(1, 1, 1, 0, 0, 640, 360, 640, 360)
        + QStringLiteral("{\"op\": \"record\", \"screen\": 1, \"path\": \"rec/screen1.mkv\", \"ms\": 1000, \"fps\": 25}\n")
        + step(QStringLiteral("play"), layerRef(1, 1))
        + step(QStringLiteral("setCurPlayerCount"), QStringLiteral("9"));
    // The show file ends at once; the run ends when the recording has.
    const ShowRun run = runShow(dir, show);
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.errors().isEmpty()) << run.errText.toStdString();
    const QString file = dir + QStringLiteral("/rec/screen1.mkv");
    EXPECT_EQ(run.replyTo(5).value(QStringLiteral("path")).toString(), file);
    // The step after record ran before the recording ended.
    const QList<QJsonObject> finished = run.hostLines(QStringLiteral("recordFinished"));
    ASSERT_EQ(finished.size(), 1);
    EXPECT_EQ(finished.at(0).value(QStringLiteral("path")).toString(), file);
    EXPECT_EQ(finished.at(0).value(QStringLiteral("screen")).toInt(), 1);
    EXPECT_FALSE(finished.at(0).contains(QStringLiteral("cut")));
    int finishedAt = -1, lastStepAt = -1;
    for (int i = 0; i < run.lines.size(); ++i) {
        if (run.lines.at(i).value(QStringLiteral("host")) == QLatin1String("recordFinished"))
            finishedAt = i;
        if (run.lines.at(i).value(QStringLiteral("line")).toInt() == 7)
            lastStepAt = i;
    }
    EXPECT_LT(lastStepAt, finishedAt);
    EXPECT_GT(QFileInfo(file).size(), 0);
}

} // namespace
