// Settings that cannot be drawn: every case is grabbed without a crash, draws
// the documented fallback (patch warp ignored -> corners -> geometry;
// degenerate corners ignored -> geometry; empty geometry -> nothing) and says
// in a debug line what it ignored.
#include "ScreenFixture.h"
#include "gl/WarpGeometry.h"

#include <cmath>
#include <limits>

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

const QRect kFull(0, 0, 320, 180);
/// A rectangle given as corners, well inside the screen, so that a drawing by
/// corners is told apart from one by the (full-screen) geometry.
const QRect kInner(40, 20, 240, 140);

void setInnerCorners(QtAV::NoxOpenGLRender* r)
{
    r->setRect(kInner.topLeft(), QPointF(kInner.left(), kInner.top() + kInner.height()),
               QPointF(kInner.left() + kInner.width(), kInner.top() + kInner.height()),
               QPointF(kInner.left() + kInner.width(), kInner.top()));
}

bool isBlack(const QImage& image)
{
    for (int y = 0; y < image.height(); y += 3)
        for (int x = 0; x < image.width(); x += 3)
            if (image.pixel(x, y) != qRgb(0, 0, 0))
                return false;
    return !image.isNull();
}

} // namespace

class ScreenBadInputTest : public ScreenTest
{
protected:
    /// The quadrant picture (original 320 x 180) over the whole of screen 1.
    QtAV::NoxOpenGLRender* quadrantLayer()
    {
        return show(pushedPlayer(quadrants()), openScreen(1), kFull, QSizeF(320, 180));
    }
};

TEST_F(ScreenBadInputTest, NonFiniteRegionOfInterestShowsTheWholePicture)
{
    QtAV::NoxOpenGLRender* r = quadrantLayer();
    LogCapture log;
    r->setRegionOfInterest(kNaN, 0, 160, 90);
    EXPECT_TRUE(quadrantsIn(grab(1), kFull));
    EXPECT_EQ(log.count(QStringLiteral("region of interest")), 1);

    log.clear();
    r->setRegionOfInterest(0, 0, kInf, 90);
    EXPECT_TRUE(quadrantsIn(grab(1), kFull));
    EXPECT_EQ(log.count(QStringLiteral("region of interest")), 1);
}

TEST_F(ScreenBadInputTest, ZeroOrNegativeGeometryDrawsNothing)
{
    QtAV::NoxOpenGLRender* r = quadrantLayer();
    LogCapture log;
    r->setGeometry(10, 10, 0, 100);
    EXPECT_TRUE(isBlack(grab(1)));
    EXPECT_EQ(log.count(QStringLiteral("is empty; nothing drawn")), 1);

    log.clear();
    r->setGeometry(300, 170, -200, -100);
    EXPECT_TRUE(isBlack(grab(1)));
    EXPECT_EQ(log.count(QStringLiteral("is empty; nothing drawn")), 1);
}

TEST_F(ScreenBadInputTest, DegenerateCornersFallBackToTheGeometry)
{
    QtAV::NoxOpenGLRender* r = quadrantLayer();
    LogCapture log;
    // Left-top, left-bottom and right-bottom on one line.
    r->setRect(QPointF(0, 0), QPointF(100, 50), QPointF(200, 100), QPointF(300, 0));
    EXPECT_TRUE(quadrantsIn(grab(1), kFull));
    EXPECT_EQ(log.count(QStringLiteral("corners ignored")), 1);
}

TEST_F(ScreenBadInputTest, CrossedCornersAreDrawnAsGiven)
{
    // Two bow ties: right-bottom and right-top swapped (what a sender mixing
    // up two corners gives), and a lopsided one. No projective map fills a
    // crossed quad, so it is drawn as given: the triangles lt-lb-rb and
    // lt-rb-rt, each mapped affinely from the picture.
    const QVector<QVector<QPointF>> bowTies = {
        {QPointF(40, 20), QPointF(40, 160), QPointF(280, 20), QPointF(280, 160)},
        {QPointF(40, 20), QPointF(40, 160), QPointF(280, 120), QPointF(200, 160)}};
    QtAV::NoxOpenGLRender* r = quadrantLayer();
    for (const QVector<QPointF>& c : bowTies) {
        SCOPED_TRACE(QStringLiteral("corners (%1, %2) (%3, %4) (%5, %6) (%7, %8)")
                         .arg(c[0].x()).arg(c[0].y()).arg(c[1].x()).arg(c[1].y())
                         .arg(c[2].x()).arg(c[2].y()).arg(c[3].x()).arg(c[3].y()).toStdString());
        LogCapture log;
        r->setRect(c[0], c[1], c[2], c[3]);
        const QImage out = grab(1);
        ASSERT_FALSE(out.isNull());
        EXPECT_EQ(log.count(QStringLiteral("corners ignored")), 0);
        EXPECT_EQ(log.count(QStringLiteral("drawn as two triangles")), 1);
        // Inside triangle lt-lb-rb next to lt, the picture's top-left (red);
        // next to lb, its bottom-left (blue).
        const QPointF nearLt = c[0] * 0.9 + (c[1] + c[2]) * 0.05;
        const QPointF nearLb = c[1] * 0.9 + (c[0] + c[2]) * 0.05;
        EXPECT_PIXEL(out, qRound(nearLt.x()), qRound(nearLt.y()), Qt::red);
        EXPECT_PIXEL(out, qRound(nearLb.x()), qRound(nearLb.y()), Qt::blue);
        // Nothing is drawn outside the two triangles' bounding box.
        const QRect box = QPolygonF(c).boundingRect().toAlignedRect().adjusted(-1, -1, 1, 1);
        int outside = 0;
        for (int y = 0; y < out.height(); ++y) {
            for (int x = 0; x < out.width(); ++x) {
                if (out.pixel(x, y) != qRgb(0, 0, 0) && !box.contains(x, y))
                    ++outside;
            }
        }
        EXPECT_EQ(outside, 0);
    }
}

TEST_F(ScreenBadInputTest, ShortPatchDataFallsBackToCornersThenGeometry)
{
    QtAV::NoxOpenGLRender* r = quadrantLayer();
    setInnerCorners(r);
    QVector<float> points = kelmor::gl::rectanglePatchPoints(1, 2, QRectF(kFull));
    points.resize(2 * 32 - 1);
    LogCapture log;
    r->setPatchCount(2);
    r->setPatchInfo(1, 2, points);
    QImage out = grab(1);
    EXPECT_TRUE(quadrantsIn(out, kInner));
    EXPECT_EQ(out.pixel(20, 10), qRgb(0, 0, 0));
    EXPECT_EQ(log.count(QStringLiteral("patch warp ignored")), 1);
    EXPECT_EQ(log.count(QStringLiteral("63 floats")), 1);

    // Without corners the geometry is left.
    QtAV::NoxOpenGLRender* second = show(pushedPlayer(quadrants()), openScreen(2), kFull,
                                         QSizeF(320, 180));
    log.clear();
    second->setPatchCount(2);
    second->setPatchInfo(1, 2, points);
    out = grab(2);
    EXPECT_TRUE(quadrantsIn(out, kFull));
    EXPECT_EQ(log.count(QStringLiteral("patch warp ignored")), 1);
}

TEST_F(ScreenBadInputTest, ZeroRowsIgnoresTheWarpWithADebugLine)
{
    QtAV::NoxOpenGLRender* r = quadrantLayer();
    LogCapture log;
    // Control points for 1 x 2 patches onto the inner rectangle, but 0 rows.
    r->setPatchCount(0);
    r->setPatchInfo(0, 2, kelmor::gl::rectanglePatchPoints(1, 2, QRectF(kInner)));
    const QImage out = grab(1);
    EXPECT_TRUE(quadrantsIn(out, kFull));
    EXPECT_EQ(log.count(QStringLiteral("patch warp")), 1) << "nothing said about the warp";
}

TEST_F(ScreenBadInputTest, NonFiniteControlPointFallsBackToTheGeometry)
{
    QtAV::NoxOpenGLRender* r = quadrantLayer();
    QVector<float> points = kelmor::gl::rectanglePatchPoints(1, 1, QRectF(kInner));
    points[5] = std::numeric_limits<float>::quiet_NaN();
    LogCapture log;
    r->setPatchCount(1);
    r->setPatchInfo(1, 1, points);
    EXPECT_TRUE(quadrantsIn(grab(1), kFull));
    EXPECT_EQ(log.count(QStringLiteral("patch warp ignored")), 1);
    EXPECT_EQ(log.count(QStringLiteral("not finite")), 1);
}

TEST_F(ScreenBadInputTest, NonFiniteOriginalSizeIsIgnoredWithADebugLine)
{
    QtAV::NoxOpenGLRender* r = quadrantLayer();
    LogCapture log;
    r->setOriginalWH(kNaN, kNaN);
    const QImage out = grab(1);
    // Without a usable original size the picture still fills its geometry.
    EXPECT_TRUE(quadrantsIn(out, kFull));
    EXPECT_GE(log.count(QStringLiteral("original")), 1) << "nothing said about the original size";
}

TEST_F(ScreenBadInputTest, UndrawableScreenSizesGiveNullGrabsWithoutCrashing)
{
    LogCapture log;
    ScreenWidget* empty = openScreen(5, 0, 0);
    ScreenWidget* huge = openScreen(6, 100000, 100000);
    ASSERT_NE(empty, nullptr);
    ASSERT_NE(huge, nullptr);
    QtAV::AVPlayer* player = pushedPlayer(quadrants());
    show(player, empty, QRect(0, 0, 320, 180));
    show(player, huge, QRect(0, 0, 320, 180));
    EXPECT_TRUE(grab(5).isNull());
    EXPECT_TRUE(grab(6).isNull());
    EXPECT_EQ(log.count(QStringLiteral("is not drawable")), 2);
    // A drawable screen beside them still draws.
    show(player, openScreen(1), kFull);
    EXPECT_TRUE(quadrantsIn(grab(1), kFull));
    EXPECT_TRUE(grab(5).isNull());
}
