// Placement of pushed pictures on offscreen screens: orientation, geometry,
// region of interest, corners, z order and visibility.
#include "ScreenFixture.h"

TEST_F(ScreenTest, PictureFillsItsGeometryUprightAndUnmirrored)
{
    ScreenWidget* screen = openScreen(1);
    QtAV::AVPlayer* player = pushedPlayer(quadrants());
    show(player, screen, QRect(0, 0, 320, 180));
    const QImage out = grab(1);
    ASSERT_EQ(out.size(), QSize(320, 180));
    EXPECT_PIXEL(out, 80, 45, Qt::red);
    EXPECT_PIXEL(out, 240, 45, Qt::green);
    EXPECT_PIXEL(out, 80, 135, Qt::blue);
    EXPECT_PIXEL(out, 240, 135, Qt::white);
}

TEST_F(ScreenTest, GeometryPlacesAndSizesThePicture)
{
    ScreenWidget* screen = openScreen(1);
    show(pushedPlayer(solid(Qt::green)), screen, QRect(100, 40, 60, 50));
    const QImage out = grab(1);
    EXPECT_PIXEL(out, 101, 41, Qt::green);
    EXPECT_PIXEL(out, 158, 88, Qt::green);
    EXPECT_PIXEL(out, 98, 60, Qt::black);
    EXPECT_PIXEL(out, 162, 60, Qt::black);
    EXPECT_PIXEL(out, 130, 38, Qt::black);
    EXPECT_PIXEL(out, 130, 92, Qt::black);
}

TEST_F(ScreenTest, RegionOfInterestShowsOnlyTheChosenQuadrant)
{
    ScreenWidget* screen = openScreen(1);
    QtAV::NoxOpenGLRender* r =
        show(pushedPlayer(quadrants()), screen, QRect(0, 0, 320, 180), QSizeF(320, 180));
    r->setRegionOfInterest(160, 90, 160, 90); // the white quadrant
    const QImage out = grab(1);
    EXPECT_PIXEL(out, 20, 20, Qt::white);
    EXPECT_PIXEL(out, 300, 160, Qt::white);
    EXPECT_PIXEL(out, 160, 90, Qt::white);
}

TEST_F(ScreenTest, CornersMapThePictureProjectively)
{
    ScreenWidget* screen = openScreen(1, 640, 360);
    // A picture whose left half is red and right half green, drawn into a
    // trapezoid: the vertical centre line of the picture lands on the
    // diagonals' intersection's x (projective), not on the midpoint of the
    // top and bottom edge midpoints (bilinear).
    QImage halves(200, 200, QImage::Format_RGBA8888);
    halves.fill(Qt::red);
    QPainter(&halves).fillRect(100, 0, 100, 200, Qt::green);
    QtAV::NoxOpenGLRender* r = show(pushedPlayer(halves), screen, QRect(0, 0, 640, 360));
    // lt, lb, rb, rt: the top edge is short and to the right.
    r->setRect(QPointF(400, 40), QPointF(40, 320), QPointF(600, 320), QPointF(560, 40));
    const QImage out = grab(1);
    // Homography of the unit square onto the quad; the image of (0.5, 0.5) is
    // where the diagonals (lt-rb and lb-rt) cross.
    const QPointF lt(400, 40), lb(40, 320), rb(600, 320), rt(560, 40);
    const QLineF d1(lt, rb), d2(lb, rt);
    QPointF centre;
    ASSERT_EQ(d1.intersects(d2, &centre), QLineF::BoundedIntersection);
    const QPointF bilinear = (lt + lb + rb + rt) / 4.0;
    ASSERT_GT(qAbs(centre.x() - bilinear.x()), 10.0);
    const int y = qRound(centre.y());
    EXPECT_PIXEL(out, qRound(centre.x()) - 4, y, Qt::red);
    EXPECT_PIXEL(out, qRound(centre.x()) + 4, y, Qt::green);
    // Corners land where given (just inside them).
    EXPECT_PIXEL(out, 52, 316, Qt::red);
    EXPECT_PIXEL(out, 592, 316, Qt::green);
    EXPECT_PIXEL(out, 20, 20, Qt::black);
}

TEST_F(ScreenTest, HigherZDrawsOnTopAndEqualZKeepsPushOrder)
{
    ScreenWidget* screen = openScreen(1);
    QtAV::NoxOpenGLRender* red = show(pushedPlayer(solid(Qt::red)), screen, QRect(0, 0, 200, 180));
    QtAV::NoxOpenGLRender* blue = show(pushedPlayer(solid(Qt::blue)), screen, QRect(100, 0, 220, 180));
    QImage out = grab(1);
    EXPECT_PIXEL(out, 150, 90, Qt::blue); // pushed later, same z
    red->setZ(2);
    blue->setZ(1);
    out = grab(1);
    EXPECT_PIXEL(out, 150, 90, Qt::red);
    EXPECT_PIXEL(out, 250, 90, Qt::blue);
}

TEST_F(ScreenTest, InvisibleRenderObjectsAreNotDrawn)
{
    ScreenWidget* screen = openScreen(1);
    QtAV::NoxOpenGLRender* r = show(pushedPlayer(solid(Qt::red)), screen, QRect(0, 0, 320, 180));
    EXPECT_PIXEL(grab(1), 160, 90, Qt::red);
    r->setVisible(false);
    EXPECT_PIXEL(grab(1), 160, 90, Qt::black);
    r->setVisible(true);
    EXPECT_PIXEL(grab(1), 160, 90, Qt::red);
}

TEST_F(ScreenTest, EmptyFrameGivenToTheRenderObjectBlanksItUntilTheNextFrame)
{
    ScreenWidget* screen = openScreen(1);
    QtAV::AVPlayer* player = pushedPlayer(solid(Qt::red));
    QtAV::NoxOpenGLRender* r = show(player, screen, QRect(0, 0, 320, 180));
    EXPECT_PIXEL(grab(1), 160, 90, Qt::red);
    r->receive(QtAV::VideoFrame());
    EXPECT_PIXEL(grab(1), 160, 90, Qt::black);
    player->pushFrame(QtAV::VideoFrame(solid(Qt::green)));
    EXPECT_PIXEL(grab(1), 160, 90, Qt::green);
}
