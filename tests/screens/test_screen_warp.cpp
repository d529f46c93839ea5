// Bezier patch warps drawn on offscreen screens: a warp describing the plain
// rectangle draws like the unwarped picture, patch regions choose what each
// patch shows, and a curved warp puts the picture where the surface says.
#include "ScreenFixture.h"
#include "gl/WarpGeometry.h"

#include <array>
#include <cmath>

namespace {

using kelmor::gl::rectanglePatchPoints;

/// Gradients and a fine checker: a texture coordinate off by a fraction of a
/// texel changes the picture visibly.
QImage detailedPicture(int width, int height)
{
    QImage image(width, height, QImage::Format_RGBA8888);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const int checker = ((x / 5) + (y / 5)) % 2 ? 220 : 30;
            image.setPixel(x, y, qRgb(x * 255 / (width - 1), y * 255 / (height - 1), checker));
        }
    }
    return image;
}

/// One bicubic Bezier patch, control points P[i][j] (i down, j across).
struct BezierPatch
{
    std::array<std::array<QPointF, 4>, 4> p;

    static double bernstein(int i, double t)
    {
        static const double binomial[4] = {1, 3, 3, 1};
        return binomial[i] * std::pow(t, i) * std::pow(1.0 - t, 3 - i);
    }

    /// S(s, t) = sum_i sum_j B_i(t) B_j(s) P[i][j].
    QPointF at(double s, double t) const
    {
        QPointF sum;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                sum += bernstein(i, t) * bernstein(j, s) * p[i][j];
        return sum;
    }

    /// The 32 floats of the patch in the warp's layout.
    QVector<float> floats() const
    {
        QVector<float> out;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                out << float(p[i][j].x()) << float(p[i][j].y());
        return out;
    }
};

QPoint pixelAt(const QPointF& p)
{
    return QPoint(int(std::floor(p.x())), int(std::floor(p.y())));
}

} // namespace

class ScreenWarpTest : public ScreenTest
{
};

TEST_F(ScreenWarpTest, RectangleWarpOfTwoByThreePatchesMatchesThePlainDrawing)
{
    const QRect target(20, 10, 600, 340);
    ScreenWidget* plainScreen = openScreen(1, 640, 360);
    ScreenWidget* warpedScreen = openScreen(2, 640, 360);
    QtAV::AVPlayer* player = pushedPlayer(detailedPicture(200, 120));
    show(player, plainScreen, target);
    // The warped render object's own geometry is a speck in the corner: only
    // the warp can put the picture onto the target rectangle.
    QtAV::NoxOpenGLRender* warped = show(player, warpedScreen, QRect(0, 0, 2, 2));
    LogCapture log;
    warped->setPatchRoi({});
    warped->setPatchCount(6);
    warped->setPatchInfo(2, 3, rectanglePatchPoints(2, 3, QRectF(target)));

    const QImage plain = grab(1);
    const QImage warp = grab(2);
    ASSERT_EQ(plain.size(), QSize(640, 360));
    ASSERT_EQ(warp.size(), QSize(640, 360));
    EXPECT_EQ(log.count(QStringLiteral("patch warp ignored")), 0);
    EXPECT_NE(plain.pixel(320, 180), qRgb(0, 0, 0));
    QPoint worst;
    EXPECT_LE(maxChannelDifference(plain, warp, &worst), 2)
        << "at (" << worst.x() << ", " << worst.y() << "): plain " << describe(plain.pixel(worst))
        << ", warped " << describe(warp.pixel(worst));
}

TEST_F(ScreenWarpTest, PatchRegionsShowSwappedHalvesOfThePicture)
{
    ScreenWidget* screen = openScreen(1);
    QtAV::NoxOpenGLRender* r =
        show(pushedPlayer(quadrants()), screen, QRect(0, 0, 2, 2), QSizeF(320, 180));
    // Patch 0 (left) shows the right half of the picture, patch 1 the left.
    r->setPatchRoi({QRectF(160, 0, 160, 180), QRectF(0, 0, 160, 180)});
    r->setPatchCount(2);
    r->setPatchInfo(1, 2, rectanglePatchPoints(1, 2, QRectF(0, 0, 320, 180)));

    const QImage out = grab(1);
    EXPECT_PIXEL(out, 80, 45, Qt::green);
    EXPECT_PIXEL(out, 240, 45, Qt::red);
    EXPECT_PIXEL(out, 80, 135, Qt::white);
    EXPECT_PIXEL(out, 240, 135, Qt::blue);
    // Either side of the seam between the patches.
    EXPECT_PIXEL(out, 156, 45, Qt::green);
    EXPECT_PIXEL(out, 163, 45, Qt::red);
    EXPECT_PIXEL(out, 156, 135, Qt::white);
    EXPECT_PIXEL(out, 163, 135, Qt::blue);
}

TEST_F(ScreenWarpTest, CurvedWarpPutsThePictureOnTheBezierSurface)
{
    ScreenWidget* screen = openScreen(1, 640, 360);
    QtAV::NoxOpenGLRender* r =
        show(pushedPlayer(quadrants()), screen, QRect(0, 0, 2, 2), QSizeF(320, 180));
    // An evenly spaced grid over (80, 40)-(560, 320), then bent: the inner
    // columns of the two middle rows pushed right by 120 px (the picture's
    // vertical centre line curves to the right) and the inner points of the
    // top row raised by 30 px (the top edge bows up).
    BezierPatch patch;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            patch.p[i][j] = QPointF(80 + 160 * j, 40 + 280.0 * i / 3);
    for (int i : {1, 2})
        for (int j : {1, 2})
            patch.p[i][j].rx() += 120;
    patch.p[0][1].ry() -= 30;
    patch.p[0][2].ry() -= 30;
    r->setPatchCount(1);
    r->setPatchInfo(1, 1, patch.floats());

    const QImage out = grab(1);
    ASSERT_EQ(out.size(), QSize(640, 360));
    // The test is only worth its name if the warp moves the centre line far
    // from where the plain rectangle has it (x = 320).
    ASSERT_GT(patch.at(0.5, 0.5).x() - 320, 60);

    // The picture's vertical centre line (s = 0.5) follows the surface: the
    // left quadrants' colour 4 px to its left, the right ones' 4 px right.
    for (double t : {0.1, 0.3, 0.7, 0.9}) {
        const QPoint c = pixelAt(patch.at(0.5, t));
        SCOPED_TRACE(QStringLiteral("t = %1 at (%2, %3)").arg(t).arg(c.x()).arg(c.y()).toStdString());
        EXPECT_PIXEL(out, c.x() - 4, c.y(), t < 0.5 ? Qt::red : Qt::blue);
        EXPECT_PIXEL(out, c.x() + 4, c.y(), t < 0.5 ? Qt::green : Qt::white);
    }
    // Quadrant centres land where the surface puts them.
    const struct { double s, t; QColor colour; } inside[] = {
        {0.25, 0.25, Qt::red}, {0.75, 0.25, Qt::green}, {0.25, 0.75, Qt::blue},
        {0.75, 0.75, Qt::white}};
    for (const auto& e : inside) {
        const QPoint p = pixelAt(patch.at(e.s, e.t));
        EXPECT_PIXEL(out, p.x(), p.y(), e.colour);
    }
    // The bowed top edge: the picture starts just below it, black just above.
    for (double s : {0.2, 0.35, 0.65, 0.8}) {
        const QPoint top = pixelAt(patch.at(s, 0.0));
        SCOPED_TRACE(QStringLiteral("top edge at s = %1, y = %2").arg(s).arg(top.y()).toStdString());
        ASSERT_LT(top.y(), 40 - 10); // bowed well above the unbent edge
        EXPECT_PIXEL(out, top.x(), top.y() + 3, s < 0.5 ? Qt::red : Qt::green);
        EXPECT_PIXEL(out, top.x(), top.y() - 3, Qt::black);
    }
}
