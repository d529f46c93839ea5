// virtualScreen layers: a player whose file names another output screen shows
// that screen's composited picture; a name of no open screen, or the shown
// screen closing, leaves the layer black.
#include "ScreenFixture.h"

class ScreenVirtualTest : public ScreenTest
{
protected:
    static bool isBlack(const QImage& image)
    {
        for (const QPoint p : {QPoint(80, 45), QPoint(240, 45), QPoint(80, 135), QPoint(240, 135),
                               QPoint(160, 90)}) {
            if (image.isNull() || image.pixel(p) != qRgb(0, 0, 0))
                return false;
        }
        return true;
    }
};

TEST_F(ScreenVirtualTest, LayerShowsTheNamedScreensPictureUpright)
{
    ScreenWidget* one = openScreen(1);
    ScreenWidget* two = openScreen(2);
    QtAV::AVPlayer* source = pushedPlayer(quadrants());
    show(source, two, QRect(0, 0, 320, 180));
    virtualLayer(one, QStringLiteral("2"));

    QImage out;
    ASSERT_TRUE(waitUntil([&] {
        out = grab(1);
        return quadrantsIn(out, QRect(0, 0, 320, 180), 2);
    })) << "screen 1 never showed screen 2's picture";
    // Pixel for pixel what screen 2 shows (same size, drawn 1:1).
    const QImage shown = grab(2);
    out = grab(1);
    QPoint worst;
    EXPECT_LE(maxChannelDifference(out, shown, &worst), 2)
        << "at (" << worst.x() << ", " << worst.y() << "): " << describe(out.pixel(worst))
        << " vs " << describe(shown.pixel(worst));

    // A change on screen 2 reaches screen 1.
    source->pushFrame(QtAV::VideoFrame(solid(Qt::green)));
    EXPECT_TRUE(waitUntil([&] {
        out = grab(1);
        return near(out.pixel(80, 45), Qt::green, 2) && near(out.pixel(240, 135), Qt::green, 2);
    })) << "screen 1 shows " << describe(out.pixel(80, 45));
}

TEST_F(ScreenVirtualTest, LayerNamingNoOpenScreenStaysBlackWithADebugLine)
{
    ScreenWidget* one = openScreen(1);
    LogCapture log;
    virtualLayer(one, QStringLiteral("7"));
    EXPECT_TRUE(isBlack(grab(1)));
    EXPECT_TRUE(isBlack(grab(1)));
    // Said once, not per frame.
    EXPECT_EQ(log.count(QStringLiteral("names no open screen")), 1);
    EXPECT_EQ(log.count(QStringLiteral("virtualScreen: source \"7\"")), 1);
}

TEST_F(ScreenVirtualTest, ClosingTheShownScreenBlanksTheLayer)
{
    ScreenWidget* one = openScreen(1);
    ScreenWidget* two = openScreen(2);
    show(pushedPlayer(quadrants()), two, QRect(0, 0, 320, 180));
    virtualLayer(one, QStringLiteral("2"));
    ASSERT_TRUE(waitUntil([&] { return quadrantsIn(grab(1), QRect(0, 0, 320, 180), 2); }));

    LogCapture log;
    ASSERT_TRUE(ScreenService::getInstance().closeScreen(2, 0, QString()));
    QImage out;
    EXPECT_TRUE(waitUntil([&] {
        out = grab(1);
        return isBlack(out);
    })) << "screen 1 still shows " << describe(out.pixel(80, 45));
    EXPECT_EQ(log.count(QStringLiteral("names no open screen")), 1);
    // It stays black while screen 1 keeps being drawn.
    EXPECT_TRUE(isBlack(grab(1)));
}
