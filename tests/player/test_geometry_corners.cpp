// Corner placement, the shared scale ratio, and the per-screen record key.
#include "test_geometry_fixture.h"

#include <cmath>

namespace {

class GeometryCornersTest : public GeometryTest
{
protected:
    ScenePlayer* placedLayer()
    {
        ScenePlayer* scene = makeLayer();
        openScreen(1);
        service().addRenderer(geometryRecord());
        journal().clear();
        return scene;
    }

    static Record cornerRecord(QPointF lT, QPointF rT, QPointF lB, QPointF rB, int screenId = 1)
    {
        Record r;
        r["layerId"] = kLayer;
        r["bankId"] = kBank;
        r["lTPoint"] = lT;
        r["rTPoint"] = rT;
        r["lBpoint"] = lB;
        r["rBpoint"] = rB;
        r["screenId"] = screenId;
        r["screenType"] = 0;
        r["clientGuid"] = QStringLiteral("guid-a");
        return r;
    }
};

TEST_F(GeometryCornersTest, CornersGoLeftTopLeftBottomRightBottomRightTop)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    const QPointF lT(1.5, 2.5), rT(100.25, 3.0), lB(4.0, 90.0), rB(101.0, 95.75);

    service().seVectexRect(cornerRecord(lT, rT, lB, rB));

    EXPECT_EQ(render->corners(), QVector<QPointF>({lT, lB, rB, rT}));
    // Nothing else of the placement changes, and no redraw is asked for.
    EXPECT_EQ(render->geometry(), QRect(100, 50, 640, 360));
    EXPECT_EQ(render->rendererSize(), QSize(640, 360));
    EXPECT_EQ(render->regionOfInterest(), QRectF(20.0, 40.0, 1280.0, 720.0));
    EXPECT_EQ(scaleRatio(), QVector<double>({2.0, 2.0}));
    EXPECT_EQ(refreshCount(scene->player), 0);
}

TEST_F(GeometryCornersTest, SwappedCornersArePassedOnAsACrossedQuadrilateral)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    const QPointF lT(0, 0), rT(100, 0), lB(0, 100), rB(100, 100);

    // The sender put the right-top point under "lBpoint" and vice versa.
    service().seVectexRect(cornerRecord(lT, lB, rT, rB));

    EXPECT_EQ(render->corners(), QVector<QPointF>({lT, rT, rB, lB}));
}

TEST_F(GeometryCornersTest, ScenePlayerFiledUnderAnotherLayerIsNotTouched)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    scene->layerId = kLayer + 10;

    LogCapture log;
    service().seVectexRect(cornerRecord({1, 1}, {2, 2}, {3, 3}, {4, 4}));
    scene->layerId = kLayer;

    EXPECT_FALSE(render->hasCorners());
    EXPECT_EQ(log.count(QStringLiteral("seVectexRect")), 0);
}

TEST_F(GeometryCornersTest, NullEntryLogsAndScreenWithoutEntryIsSilent)
{
    ScenePlayer* scene = placedLayer();
    service().setRegionOfInterest(geometryRecord(2), 0, 0, 1, 1);
    ASSERT_TRUE(hasEntry(scene, 2));

    LogCapture log;
    service().seVectexRect(cornerRecord({1, 1}, {2, 2}, {3, 3}, {4, 4}, 2));
    EXPECT_EQ(log.count(QStringLiteral("seVectexRect renderer is NULL")), 1);

    log.clear();
    service().seVectexRect(cornerRecord({1, 1}, {2, 2}, {3, 3}, {4, 4}, 3));
    EXPECT_TRUE(log.lines().isEmpty());
    EXPECT_FALSE(hasEntry(scene, 3));
    EXPECT_FALSE(renderOn(scene, 1)->hasCorners());
}

TEST_F(GeometryCornersTest, UnknownLayerIsIgnored)
{
    ScenePlayer* scene = placedLayer();
    Record record = cornerRecord({1, 1}, {2, 2}, {3, 3}, {4, 4});
    record["bankId"] = 55;

    service().seVectexRect(record);

    EXPECT_FALSE(renderOn(scene, 1)->hasCorners());
}

TEST_F(GeometryCornersTest, MissingCornerKeysReadAsOrigin)
{
    ScenePlayer* scene = placedLayer();
    Record record = cornerRecord({1, 1}, {2, 2}, {3, 3}, {4, 4});
    record.remove("rTPoint");
    record["lBpoint"] = QStringLiteral("not a point");

    service().seVectexRect(record);

    EXPECT_EQ(renderOn(scene, 1)->corners(),
              QVector<QPointF>({QPointF(1, 1), QPointF(0, 0), QPointF(4, 4), QPointF(0, 0)}));
}

using GeometryRatioTest = GeometryTest;

TEST_F(GeometryRatioTest, RatioIsOriginalOverActualAndReplacesThePreviousPair)
{
    service().setScalOriginalRatio(1920, 1080, 960, 270);
    EXPECT_EQ(scaleRatio(), QVector<double>({2.0, 4.0}));
    const int capacity = scaleRatio().capacity();

    service().setScalOriginalRatio(100, 100, 400, 50);
    EXPECT_EQ(scaleRatio(), QVector<double>({0.25, 2.0}));
    EXPECT_EQ(scaleRatio().capacity(), capacity);
}

TEST_F(GeometryRatioTest, ZeroActualSizeGivesInfinityOrNotANumber)
{
    service().setScalOriginalRatio(1920, 0, 0, 0);
    ASSERT_EQ(scaleRatio().size(), 2);
    EXPECT_TRUE(std::isinf(scaleRatio().at(0)));
    EXPECT_GT(scaleRatio().at(0), 0.0);
    EXPECT_TRUE(std::isnan(scaleRatio().at(1)));
}

TEST_F(GeometryRatioTest, EmptyRatioBeforeFirstUseCountsAsOne)
{
    ScenePlayer* scene = makeLayer();
    openScreen(1);
    Record rotated = geometryRecord();
    rotated["isRotation"] = true;
    service().addRenderer(rotated); // places without setting a ratio
    ASSERT_TRUE(scaleRatio().isEmpty());

    service().setRegionOfInterest(geometryRecord(), 7, 9, 300, 200);

    EXPECT_EQ(renderOn(scene, 1)->regionOfInterest(), QRectF(7.0, 9.0, 300.0, 200.0));
}

TEST_F(GeometryRatioTest, RegionOfFirstLayerComputedLaterUsesSecondLayersRatio)
{
    ScenePlayer* first = makeLayer(kBank, kLayer);
    ScenePlayer* second = makeLayer(kBank, kLayer + 1);
    openScreen(1);
    service().addRenderer(geometryRecord()); // ratio 2
    Record secondRecord = geometryRecord();
    secondRecord["layerId"] = kLayer + 1;
    secondRecord["actualWidth"] = 480;       // ratio 4 x 2
    service().addRenderer(secondRecord);
    ASSERT_NE(renderOn(second, 1), nullptr);

    service().setRegionOfInterest(geometryRecord(), 10, 10, 100, 100);

    EXPECT_EQ(renderOn(first, 1)->regionOfInterest(), QRectF(40.0, 20.0, 400.0, 200.0));
}

using GeometryScreenKeyTest = GeometryTest;

TEST_F(GeometryScreenKeyTest, KeysSharingScreenNumberAreOneEntry)
{
    ScenePlayer* scene = makeLayer();
    TestRenderer* a = testRenderer("NoxGL");
    TestRenderer* b = testRenderer("NoxGL");

    scene->rendererMap.insert(ScreenKey(4, 1, QStringLiteral("x")), a);
    scene->rendererMap.insert(ScreenKey(4, 2, QStringLiteral("y")), b);

    EXPECT_EQ(scene->rendererMap.size(), 1);
    EXPECT_EQ(scene->rendererMap.value(ScreenKey(4, 9, QStringLiteral("z"))), b);
    scene->rendererMap.clear();
}

TEST_F(GeometryScreenKeyTest, PlainLookupFindsNothingWhileRegionLookupLeavesNullEntry)
{
    ScenePlayer* scene = makeLayer();

    // Corner placement and the resize step look up without inserting.
    service().seVectexRect(geometryRecord(6));
    ServiceTestAccess::resizeRendererStep(service(), geometryRecord(6), scene->player, 1, 1, 1, 1);
    EXPECT_FALSE(hasEntry(scene, 6));
    service().setRegionOfInterest(geometryRecord(6), 0, 0, 1, 1);
    EXPECT_TRUE(hasEntry(scene, 6));
    EXPECT_EQ(scene->rendererMap.value(ScreenKey(6, 0, QString())), nullptr);
}

} // namespace
