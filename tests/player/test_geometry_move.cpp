// Moving a layer's render object on a screen (moveRenderer).
#include "test_geometry_fixture.h"

#include <cmath>

namespace {

class GeometryMoveTest : public GeometryTest
{
protected:
    /// A layer shown on screen 1 by addRenderer, with the publications and
    /// refreshes of the creation already counted off.
    ScenePlayer* placedLayer()
    {
        ScenePlayer* scene = makeLayer();
        openScreen(1);
        service().addRenderer(geometryRecord());
        journal().clear();
        return scene;
    }

    /// Where the move puts an unrotated layer: (200, 80) in 320 x 240,
    /// original 1920 x 1080 shown at 480 x 270 (ratio 4), visible from (5, 6).
    static Record moveRecord(int screenId = 1)
    {
        Record r = geometryRecord(screenId);
        r["rendererX"] = 200;
        r["rendererY"] = 80;
        r["crossWidth"] = 320;
        r["crossHeight"] = 240;
        r["actualWidth"] = 480;
        r["actualHeight"] = 270;
        r["frameX"] = 5;
        r["frameY"] = 6;
        r["relativeX"] = 7;
        r["relativeY"] = 8;
        return r;
    }
};

TEST_F(GeometryMoveTest, UnrotatedLayerGetsNewGeometryRatioAndRegionWithoutRefresh)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    RendererListSpy published;

    service().moveRenderer(moveRecord());

    EXPECT_EQ(render->geometry(), QRect(200, 80, 320, 240));
    EXPECT_EQ(render->rendererSize(), QSize(320, 240));
    EXPECT_EQ(scaleRatio(), QVector<double>({4.0, 4.0}));
    EXPECT_EQ(render->regionOfInterest(), QRectF(20.0, 24.0, 1280.0, 960.0));
    EXPECT_EQ(published.count(), 0);
    EXPECT_EQ(refreshCount(scene->player), 0);
    EXPECT_EQ(renderOn(scene, 1), render);
}

TEST_F(GeometryMoveTest, BezierLayerKeepsGeometryAndShowsWholeOriginalPicture)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    Record record = moveRecord();
    record["isBezier"] = true;

    service().moveRenderer(record);

    EXPECT_EQ(render->geometry(), QRect(100, 50, 640, 360));
    EXPECT_EQ(render->rendererSize(), QSize(640, 360));
    EXPECT_EQ(scaleRatio(), QVector<double>({1.0, 1.0}));
    EXPECT_EQ(render->regionOfInterest(), QRectF(0.0, 0.0, 1920.0, 1080.0));
}

TEST_F(GeometryMoveTest, RotatedLayerKeepsGeometryAndShowsWholeOriginalPicture)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    Record record = moveRecord();
    record["isRotation"] = true;

    service().moveRenderer(record);

    EXPECT_EQ(render->geometry(), QRect(100, 50, 640, 360));
    EXPECT_EQ(scaleRatio(), QVector<double>({1.0, 1.0}));
    EXPECT_EQ(render->regionOfInterest(), QRectF(0.0, 0.0, 1920.0, 1080.0));
}

TEST_F(GeometryMoveTest, RotatedLayerWithZeroOriginalSizeGetsNotANumberRatio)
{
    ScenePlayer* scene = placedLayer();
    Record record = moveRecord();
    record["isRotation"] = true;
    record["originalWidth"] = 0;
    record["originalHeight"] = 0;

    service().moveRenderer(record);

    ASSERT_EQ(scaleRatio().size(), 2);
    EXPECT_TRUE(std::isnan(scaleRatio().at(0)));
    EXPECT_TRUE(std::isnan(scaleRatio().at(1)));
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    EXPECT_EQ(render->geometry(), QRect(100, 50, 640, 360));
    EXPECT_TRUE(std::isnan(render->regionOfInterest().width()));
}

TEST_F(GeometryMoveTest, ScreenWithoutRenderObjectRenewsOnlyRatioAndRegion)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);

    service().moveRenderer(moveRecord(2));

    EXPECT_EQ(render->geometry(), QRect(100, 50, 640, 360));
    EXPECT_EQ(render->regionOfInterest(), QRectF(20.0, 40.0, 1280.0, 720.0));
    EXPECT_EQ(scaleRatio(), QVector<double>({4.0, 4.0}));
    // The region look-up for screen 2 leaves its null entry behind.
    EXPECT_TRUE(hasEntry(scene, 2));
    EXPECT_EQ(scene->rendererMap.value(ScreenKey(2, 0, QString())), nullptr);
}

TEST_F(GeometryMoveTest, NullEntryInsideAreaOnlyLogsAndStays)
{
    ScenePlayer* scene = placedLayer();
    Record lookup = geometryRecord(3);
    lookup["screenType"] = 5;
    lookup["clientGuid"] = QStringLiteral("guid-old");
    service().setRegionOfInterest(lookup, 0, 0, 1, 1);
    ASSERT_TRUE(hasEntry(scene, 3));
    const QVector<double> ratioBefore = scaleRatio();

    Record record = moveRecord(3);
    record["screenType"] = 9;
    record["clientGuid"] = QStringLiteral("guid-new");
    LogCapture log;
    service().moveRenderer(record);

    EXPECT_EQ(log.count(QStringLiteral("moveRenderer renderer is NULL")), 1);
    EXPECT_EQ(scaleRatio(), ratioBefore);
    const QList<ScreenKey> keys = scene->rendererMap.keys();
    ASSERT_EQ(keys.size(), 2);
    EXPECT_EQ(keys.at(1).screenId, 3);
    EXPECT_EQ(keys.at(1).screenType, 5);
    EXPECT_EQ(keys.at(1).clientGuid, QStringLiteral("guid-old"));
}

TEST_F(GeometryMoveTest, NullEntryOutsideAreaIsRemovedByTheResizeStep)
{
    ScenePlayer* scene = placedLayer();
    Record lookup = geometryRecord(3);
    lookup["screenType"] = 5;
    lookup["clientGuid"] = QStringLiteral("guid-old");
    service().setRegionOfInterest(lookup, 0, 0, 1, 1);
    ASSERT_TRUE(hasEntry(scene, 3));

    Record record = moveRecord(3);
    record["isOutArea"] = true;
    record["screenType"] = 9;
    record["clientGuid"] = QStringLiteral("guid-new");
    LogCapture log;
    service().moveRenderer(record);

    EXPECT_EQ(log.count(QStringLiteral("moveRenderer renderer is NULL")), 0);
    EXPECT_EQ(scaleRatio(), QVector<double>({4.0, 4.0}));
    // The old entry is gone; the region look-up that ends the move files a
    // fresh null entry under the move's own key.
    const QList<ScreenKey> keys = scene->rendererMap.keys();
    ASSERT_EQ(keys.size(), 2);
    EXPECT_EQ(keys.at(1).screenId, 3);
    EXPECT_EQ(keys.at(1).screenType, 9);
    EXPECT_EQ(keys.at(1).clientGuid, QStringLiteral("guid-new"));
    EXPECT_EQ(scene->rendererMap.value(keys.at(1)), nullptr);
}

TEST_F(GeometryMoveTest, OutsideAreaStillPlacesExistingRenderObject)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    Record record = moveRecord();
    record["isOutArea"] = true;

    service().moveRenderer(record);

    EXPECT_EQ(render->geometry(), QRect(200, 80, 320, 240));
    EXPECT_EQ(render->rendererSize(), QSize(320, 240));
    EXPECT_EQ(render->regionOfInterest(), QRectF(20.0, 24.0, 1280.0, 960.0));
}

TEST_F(GeometryMoveTest, UnknownLayerChangesNothing)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    Record record = moveRecord();
    record["bankId"] = 77;

    service().moveRenderer(record);

    EXPECT_EQ(render->geometry(), QRect(100, 50, 640, 360));
    EXPECT_EQ(scaleRatio(), QVector<double>({2.0, 2.0}));
    EXPECT_EQ(scene->rendererMap.size(), 1);
}

TEST_F(GeometryMoveTest, MoveNeverCreatesARenderObject)
{
    ScenePlayer* scene = makeLayer();
    ScreenWidget* screen = openScreen(1);

    service().moveRenderer(moveRecord());

    EXPECT_TRUE(screen->renders().isEmpty());
    EXPECT_TRUE(scene->player->videoOutputs().isEmpty());
    EXPECT_EQ(renderOn(scene, 1), nullptr);
}

} // namespace
