// The layer service's commands end to end onto an offscreen screen: a still
// picture layer on the libmpv engine made with creatnewlayer, placed with
// addRenderer, cropped, cornered, warped, hidden, ordered and removed, as the
// composited pixels show it.
//
// The service and the registry are process-wide: every test removes its
// layers' render objects, ends its layers and waits until their players are
// deleted before the screens close.
#include "ModuleLayerFixture.h"
#include "ScreenMedia.h"
#include "ScenePlayer.h"
#include "gl/WarpGeometry.h"

class ScreenServiceCommandsTest : public ModuleLayerTest
{
protected:
    void SetUp() override
    {
        ModuleLayerTest::SetUp();
        if (HasFatalFailure())
            return;
        ServiceTestAccess::scaleRatio(service()).clear();
    }

    void TearDown() override
    {
        EXPECT_TRUE(endLayers()) << "a released player was not deleted";
        for (QtAV::VideoRenderer* orphan : m_orphans) {
            for (ScreenWidget* w : ScreenService::getInstance().widgetList())
                w->removeRender(dynamic_cast<QtAV::NoxOpenGLRender*>(orphan));
            delete orphan;
        }
        processEvents();
        ServiceTestAccess::scaleRatio(service()).clear();
        ModuleLayerTest::TearDown();
    }

    /// A still layer of the quadrant picture (320 x 180), made as the host
    /// makes layers: creatnewlayer, then its media type.
    QtAV::AVPlayer* pictureLayer(int layerId)
    {
        const QString picture = ScreenMedia::quadrantPicture();
        if (picture.isEmpty())
            return nullptr;
        return makeLayer(layerId, QStringLiteral("picture"), picture, 1000);
    }

    /// The screen-identity keys of screen 1 for a layer.
    static Record screenRecord(int layerId)
    {
        return screenOneRecord(kBank, layerId);
    }

    /// addRenderer's record: the whole picture shown in `geometry` of screen 1.
    static Record rendererRecord(int layerId, const QRect& geometry)
    {
        return screenOneRendererRecord(kBank, layerId, geometry);
    }

    /// Waits until screen 1 shows the quadrants in `area`.
    bool waitForQuadrants(const QRect& area, QImage* out)
    {
        return waitUntil([&] {
            *out = grab(1);
            return quadrantsIn(*out, area);
        });
    }

    static bool isBlack(const QImage& image)
    {
        if (image.isNull())
            return false;
        for (int y = 0; y < image.height(); y += 4)
            for (int x = 0; x < image.width(); x += 4)
                if (image.pixel(x, y) != qRgb(0, 0, 0))
                    return false;
        return true;
    }

    QList<QtAV::VideoRenderer*> m_orphans; // render objects of layers ended by the test
};

TEST_F(ScreenServiceCommandsTest, PictureLayerShowsAtItsGeometryAndTheRegionOfInterestCropsIt)
{
    openScreen(1);
    QtAV::AVPlayer* player = pictureLayer(2);
    ASSERT_NE(player, nullptr);
    const QRect geometry(40, 20, 160, 90);
    service().addRenderer(rendererRecord(2, geometry));

    QImage out;
    ASSERT_TRUE(waitForQuadrants(geometry, &out)) << quadrantsIn(out, geometry).message();
    EXPECT_PIXEL(out, 20, 10, Qt::black);
    EXPECT_PIXEL(out, 220, 130, Qt::black);
    EXPECT_PIXEL(out, 36, 60, Qt::black);
    EXPECT_PIXEL(out, 204, 60, Qt::black);

    // Design units at half the original size (ratio 2): (80, 45, 80, 45) is
    // the white quadrant (160, 90, 160, 90) of the picture.
    service().setRegionOfInterest(rendererRecord(2, geometry), 80, 45, 80, 45);
    out = grab(1);
    for (const QPoint p : {QPoint(44, 24), QPoint(120, 65), QPoint(196, 106), QPoint(44, 106)})
        EXPECT_PIXEL(out, p.x(), p.y(), Qt::white);
    EXPECT_PIXEL(out, 20, 10, Qt::black);
}

TEST_F(ScreenServiceCommandsTest, CornersWarpVisibilityAndTestPatternReachTheScreen)
{
    openScreen(1);
    QtAV::AVPlayer* player = pictureLayer(2);
    ASSERT_NE(player, nullptr);
    const QRect geometry(40, 20, 160, 90);
    service().addRenderer(rendererRecord(2, geometry));
    QImage out;
    ASSERT_TRUE(waitForQuadrants(geometry, &out));

    // Corners: a trapezoid; each quadrant's centre lands where the quad's
    // projective map puts it.
    const QPointF lt(120, 20), lb(20, 170), rb(300, 170), rt(220, 20);
    Record corners = screenRecord(2);
    corners["lTPoint"] = lt;
    corners["lBpoint"] = lb;
    corners["rBpoint"] = rb;
    corners["rTPoint"] = rt;
    service().seVectexRect(corners);
    QTransform unitToQuad;
    ASSERT_TRUE(kelmor::gl::quadProjection({lt, lb, rb, rt}, &unitToQuad));
    out = grab(1);
    const struct { double s, t; QColor colour; } centres[] = {
        {0.25, 0.25, Qt::red}, {0.75, 0.25, Qt::green}, {0.25, 0.75, Qt::blue},
        {0.75, 0.75, Qt::white}};
    for (const auto& c : centres) {
        const QPoint p = unitToQuad.map(QPointF(c.s, c.t)).toPoint();
        EXPECT_PIXEL(out, p.x(), p.y(), c.colour);
    }
    EXPECT_PIXEL(out, 40, 30, Qt::black); // left of the slanted edge
    EXPECT_PIXEL(out, 300, 30, Qt::black);

    // A warp of two patches over the whole screen, showing the picture's
    // halves swapped; it takes precedence over the corners.
    Record warp;
    warp["width"] = 320;
    warp["height"] = 180;
    warp["x"] = 0;
    warp["y"] = 0;
    warp["row"] = 1;
    warp["col"] = 2;
    warp["roiData"] = QVariantList{160, 0, 160, 180, 0, 0, 160, 180};
    QVariantList data;
    for (float f : kelmor::gl::rectanglePatchPoints(1, 2, QRectF(0, 0, 320, 180)))
        data << f;
    QVariantMap entry;
    entry["screenId"] = 1;
    entry["screenType"] = 0;
    entry["clientGuid"] = QString();
    entry["data"] = data;
    warp["pointData"] = QVariantList{entry};
    service().setBezierPoint(2, kBank, warp);
    out = grab(1);
    EXPECT_PIXEL(out, 80, 45, Qt::green);
    EXPECT_PIXEL(out, 240, 45, Qt::red);
    EXPECT_PIXEL(out, 80, 135, Qt::white);
    EXPECT_PIXEL(out, 240, 135, Qt::blue);

    service().setWidgetRenderVisible(player, false);
    EXPECT_TRUE(isBlack(grab(1)));
    service().setWidgetRenderVisible(player, true);
    EXPECT_PIXEL(grab(1), 80, 45, Qt::green);

    // The test pattern on screen 1 hides the picture; off brings it back.
    Record pattern;
    pattern["testPattern"] = true;
    service().setTP(1, pattern);
    out = grab(1);
    EXPECT_PIXEL(out, 160, 90, QColor(255, 38, 38)); // centre crosshair
    EXPECT_PIXEL(out, 30, 30, QColor(31, 31, 31));   // background between grid lines
    pattern["testPattern"] = false;
    service().setTP(1, pattern);
    EXPECT_PIXEL(grab(1), 80, 45, Qt::green);
}

TEST_F(ScreenServiceCommandsTest, ZOrderDecidesAndRemovingRenderersOrLayersBlanksTheScreen)
{
    openScreen(1);
    QtAV::AVPlayer* back = pictureLayer(2);
    QtAV::AVPlayer* front = pictureLayer(3);
    ASSERT_NE(back, nullptr);
    ASSERT_NE(front, nullptr);
    const QRect full(0, 0, 320, 180), small(20, 20, 120, 80);
    service().addRenderer(rendererRecord(2, full));
    service().addRenderer(rendererRecord(3, small));
    QImage out;
    ASSERT_TRUE(waitForQuadrants(small, &out)) << quadrantsIn(out, small).message();
    // The full layer loads on its own: its first picture may come a frame
    // or more after the small one's on a loaded machine.
    ASSERT_TRUE(waitUntil([&] {
        out = grab(1);
        return near(out.pixel(240, 135), Qt::white);
    })) << "the full layer's picture never showed";
    // Pushed later with the same z, the small layer is on top; around it the
    // full one shows. (110, 40) is green in the small layer, red in the full.
    EXPECT_PIXEL(out, 110, 40, Qt::green);
    EXPECT_PIXEL(out, 150, 30, Qt::red);
    EXPECT_PIXEL(out, 240, 45, Qt::green);
    EXPECT_PIXEL(out, 80, 135, Qt::blue);
    EXPECT_PIXEL(out, 240, 135, Qt::white);

    // Raised above the small layer, the full one hides it.
    service().setRendererZ(back, 5);
    out = grab(1);
    EXPECT_TRUE(quadrantsIn(out, full));
    EXPECT_PIXEL(out, 110, 40, Qt::red);
    service().setRendererZ(back, 0);
    service().setRendererZ(front, 1);
    out = grab(1);
    EXPECT_TRUE(quadrantsIn(out, small));
    EXPECT_PIXEL(out, 110, 40, Qt::green);

    // Taking the small layer's render object off the screen leaves the full one.
    service().delRenderer(screenRecord(3), front);
    EXPECT_TRUE(reg().getScenePlayer(kBank, 3)->rendererMap.isEmpty());
    out = grab(1);
    EXPECT_TRUE(quadrantsIn(out, full));
    EXPECT_PIXEL(out, 110, 40, Qt::red);

    // Ending the full layer blanks the screen. Its render object stays on the
    // screen (the layer's render objects are the service's to remove), so
    // the test removes it afterwards.
    for (QtAV::VideoRenderer* r : reg().getScenePlayer(kBank, 2)->rendererMap)
        m_orphans << r;
    Record layer;
    layer["bankId"] = kBank;
    layer["layerId"] = 2;
    reg().deleteplayerByID(layer);
    const QPointer<QtAV::AVPlayer> gone(back);
    EXPECT_TRUE(waitUntil([&] { return gone.isNull(); }));
    EXPECT_TRUE(waitUntil([&] { return isBlack(grab(1)); }));
}
