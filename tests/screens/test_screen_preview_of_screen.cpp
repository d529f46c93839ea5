// A preview of a whole output screen: the compositor scales the screen's
// finished picture (after its monitor effects) into the preview, only when
// the screen was redrawn, and at most at the preview's rate.
#include "ScreenFixture.h"
#include "PreviewRenderer.h"

#include <QElapsedTimer>

namespace {

/// The mean colour of a picture, per channel.
QColor meanColour(const QImage& image)
{
    qint64 r = 0, g = 0, b = 0;
    const qint64 n = qint64(image.width()) * image.height();
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QRgb p = image.pixel(x, y);
            r += qRed(p);
            g += qGreen(p);
            b += qBlue(p);
        }
    }
    return n ? QColor(int(r / n), int(g / n), int(b / n)) : QColor();
}

} // namespace

TEST_F(ScreenTest, ScreenPreviewShowsTheScreensPictureScaledDown)
{
    ScreenWidget* screen = openScreen(1);
    show(pushedPlayer(quadrants()), screen, QRect(0, 0, 320, 180));
    QtAV::PreviewRenderer preview;
    preview.resizeRenderer(160, 90);
    preview.setScreenId(1);
    EXPECT_EQ(preview.screenId(), 1);
    ASSERT_TRUE(waitUntil([&] { return !preview.picture().isNull(); }));
    const QImage out = preview.picture();
    EXPECT_EQ(out.size(), QSize(160, 90));
    EXPECT_TRUE(quadrantsIn(out, QRect(0, 0, 160, 90)));
}

TEST_F(ScreenTest, ScreenPreviewFollowsMonitorEffectsAndNewPictures)
{
    ScreenWidget* screen = openScreen(2);
    QtAV::AVPlayer* player = pushedPlayer(solid(Qt::white));
    show(player, screen, QRect(0, 0, 320, 180));
    QtAV::PreviewRenderer preview;
    preview.resizeRenderer(64, 36);
    preview.setMaxRate(60);
    preview.setScreenId(2);
    ASSERT_TRUE(waitUntil([&] { return !preview.picture().isNull(); }));
    EXPECT_TRUE(near(meanColour(preview.picture()).rgb(), Qt::white, 3));

    // A dimmed screen: the preview shows what the audience sees.
    QMap<QString, QVariant> dim;
    dim["brightness"] = -0.5;
    EffectsService::getInstance().setMonitorEffects(2, dim);
    ASSERT_TRUE(waitUntil([&] { return near(meanColour(preview.picture()).rgb(), QColor(128, 128, 128), 6); }))
        << describe(meanColour(preview.picture()).rgb());

    // A new picture on the screen reaches the preview.
    player->pushFrame(QtAV::VideoFrame(solid(Qt::blue)));
    ASSERT_TRUE(waitUntil([&] {
        const QColor c = meanColour(preview.picture());
        return c.blue() > 100 && c.red() < 10 && c.green() < 10;
    })) << describe(meanColour(preview.picture()).rgb());
}

TEST_F(ScreenTest, ScreenPreviewOfAnIdleScreenIsNotRefilled)
{
    ScreenWidget* screen = openScreen(3);
    show(pushedPlayer(solid(Qt::red)), screen, QRect(0, 0, 320, 180));
    QtAV::PreviewRenderer preview;
    preview.setMaxRate(60);
    int pictures = 0;
    QObject::connect(&preview, &QtAV::PreviewRenderer::pictureChanged, [&] { ++pictures; });
    preview.setScreenId(3);
    ASSERT_TRUE(waitUntil([&] { return pictures > 0; }));
    EXPECT_EQ(preview.picture().size(), QSize(160, 90)); // the default size
    // Nothing changes on the screen: no further read-back.
    const int first = pictures;
    QTest::qWait(300);
    EXPECT_EQ(pictures, first);
}

TEST_F(ScreenTest, ScreenPreviewRateIsBounded)
{
    ScreenWidget* screen = openScreen(4);
    QtAV::AVPlayer* player = pushedPlayer(solid(Qt::red));
    show(player, screen, QRect(0, 0, 320, 180));
    QtAV::PreviewRenderer preview;
    preview.setMaxRate(4);
    int pictures = 0;
    QObject::connect(&preview, &QtAV::PreviewRenderer::pictureChanged, [&] { ++pictures; });
    preview.setScreenId(4);
    ASSERT_TRUE(waitUntil([&] { return pictures > 0; }));
    // New pictures on every turn for a second: at most 4 a second reach the
    // preview (one more for the first, which is not held back).
    const int before = pictures;
    QElapsedTimer clock;
    clock.start();
    int frame = 0;
    while (clock.elapsed() < 1000) {
        player->pushFrame(QtAV::VideoFrame(solid(++frame % 2 ? Qt::green : Qt::red)));
        QTest::qWait(5);
    }
    EXPECT_LE(pictures - before, 5);
    EXPECT_GE(pictures - before, 2);
}

TEST_F(ScreenTest, ScreenPreviewOfAScreenThatIsNotOpenStaysEmpty)
{
    QtAV::PreviewRenderer preview;
    preview.setScreenId(9);
    QTest::qWait(100);
    EXPECT_TRUE(preview.picture().isNull());
}
