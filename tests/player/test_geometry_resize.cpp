// Resizing render objects: the public command, the shared resize step and
// the resize of a player's non-screen outputs.
#include "test_geometry_fixture.h"

namespace {

class GeometryResizeTest : public GeometryTest
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

    /// New sizes: original 1280 x 720 shown at 640 x 360 (ratio 2), placed
    /// at (11, 12) in 400 x 300, rotated placement (13, 14).
    static Record resizeRecord(int screenId = 1)
    {
        Record r = geometryRecord(screenId);
        r["originalWidth"] = 1280;
        r["originalHeight"] = 720;
        r["actualWidth"] = 640;
        r["actualHeight"] = 360;
        r["rendererX"] = 11;
        r["rendererY"] = 12;
        r["crossWidth"] = 400;
        r["crossHeight"] = 300;
        r["relativeX"] = 13;
        r["relativeY"] = 14;
        r["frameX"] = 1;
        r["frameY"] = 2;
        return r;
    }
};

TEST_F(GeometryResizeTest, UnrotatedLayerGetsOriginalGeometryRatioAndRegion)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    RendererListSpy published;

    service().resizeRenderer(resizeRecord());

    EXPECT_EQ(render->originalSize(), QSizeF(1280.0, 720.0));
    EXPECT_EQ(render->geometry(), QRect(11, 12, 400, 300));
    EXPECT_EQ(render->rendererSize(), QSize(400, 300));
    EXPECT_EQ(scaleRatio(), QVector<double>({2.0, 2.0}));
    EXPECT_EQ(render->regionOfInterest(), QRectF(2.0, 4.0, 800.0, 600.0));
    EXPECT_EQ(published.count(), 0);
    EXPECT_EQ(refreshCount(scene->player), 0);
}

TEST_F(GeometryResizeTest, BezierLayerIsPlacedByRelativePositionAndActualSize)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    service().setScalOriginalRatio(3.0, 3.0, 1.0, 1.0);
    Record record = resizeRecord();
    record["isBezier"] = true;

    service().resizeRenderer(record);

    EXPECT_EQ(render->originalSize(), QSizeF(1280.0, 720.0));
    EXPECT_EQ(render->geometry(), QRect(13, 14, 640, 360));
    EXPECT_EQ(render->rendererSize(), QSize(640, 360));
    EXPECT_EQ(scaleRatio(), QVector<double>({3.0, 3.0}));
    EXPECT_EQ(render->regionOfInterest(), QRectF(20.0, 40.0, 1280.0, 720.0));
}

TEST_F(GeometryResizeTest, RotatedLayerIsPlacedByRelativePositionAndActualSize)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    Record record = resizeRecord();
    record["isRotation"] = true;

    service().resizeRenderer(record);

    EXPECT_EQ(render->geometry(), QRect(13, 14, 640, 360));
    EXPECT_EQ(render->rendererSize(), QSize(640, 360));
    EXPECT_EQ(scaleRatio(), QVector<double>({2.0, 2.0}));
    EXPECT_EQ(render->regionOfInterest(), QRectF(20.0, 40.0, 1280.0, 720.0));
}

TEST_F(GeometryResizeTest, ScreenWithoutEntryStillRenewsRatio)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    Record record = resizeRecord(2);
    record["actualWidth"] = 320;
    record["actualHeight"] = 180;

    service().resizeRenderer(record);

    EXPECT_EQ(render->geometry(), QRect(100, 50, 640, 360));
    EXPECT_EQ(render->originalSize(), QSizeF(1920.0, 1080.0));
    EXPECT_EQ(scaleRatio(), QVector<double>({4.0, 4.0}));
}

TEST_F(GeometryResizeTest, UnknownLayerChangesNothing)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    Record record = resizeRecord();
    record["layerId"] = 99;

    service().resizeRenderer(record);

    EXPECT_EQ(render->geometry(), QRect(100, 50, 640, 360));
    EXPECT_EQ(render->originalSize(), QSizeF(1920.0, 1080.0));
    EXPECT_EQ(scaleRatio(), QVector<double>({2.0, 2.0}));
}

TEST_F(GeometryResizeTest, NullEntryIsRemovedByStepAndLaterCreationMakesFreshObject)
{
    ScenePlayer* scene = makeLayer();
    ScreenWidget* screen = openScreen(1);
    service().setRegionOfInterest(geometryRecord(), 0, 0, 1, 1);
    ASSERT_TRUE(hasEntry(scene, 1));

    ServiceTestAccess::resizeRendererStep(service(), geometryRecord(), scene->player, 1, 2, 3, 4);
    EXPECT_FALSE(hasEntry(scene, 1));

    service().addRenderer(geometryRecord());
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    EXPECT_EQ(screen->renders(), QList<QtAV::NoxOpenGLRender*>{render});
    EXPECT_EQ(render->geometry(), QRect(100, 50, 640, 360));
}

TEST_F(GeometryResizeTest, StepFindsLayerFromRecordNotFromPlayerArgument)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);

    ServiceTestAccess::resizeRendererStep(service(), geometryRecord(), nullptr, 5, 6, 70, 80);

    EXPECT_EQ(render->geometry(), QRect(5, 6, 70, 80));
    EXPECT_EQ(render->rendererSize(), QSize(70, 80));
}

TEST_F(GeometryResizeTest, PublicCommandOnNullEntryDoesNotFail)
{
    ScenePlayer* scene = makeLayer();
    service().setRegionOfInterest(geometryRecord(), 0, 0, 1, 1);
    ASSERT_TRUE(hasEntry(scene, 1));

    service().resizeRenderer(resizeRecord());

    // The step dropped the null entry; the closing region look-up filed a
    // null one again. No render object came into being.
    EXPECT_EQ(scene->rendererMap.value(ScreenKey(1, 0, QString())), nullptr);
    EXPECT_EQ(scaleRatio(), QVector<double>({2.0, 2.0}));
    EXPECT_TRUE(scene->player->videoOutputs().isEmpty());
}

TEST_F(GeometryResizeTest, UiResizeLeavesScreenRenderObjectsAlone)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    TestRenderer* qml = testRenderer("QmlGL");
    TestRenderer* preview = testRenderer("PreviewGL", QtAV::VideoRenderType_Custom);
    TestRenderer* longer = testRenderer("NoxGLPreview");
    scene->player->addVideoRenderer(qml);
    scene->player->addVideoRenderer(preview);
    scene->player->addVideoRenderer(longer);

    service().resizeUIRenderer(scene->player, 320, 240);

    EXPECT_EQ(render->rendererSize(), QSize(640, 360));
    EXPECT_EQ(qml->rendererSize(), QSize(320, 240));
    EXPECT_EQ(preview->rendererSize(), QSize(320, 240));
    EXPECT_EQ(longer->rendererSize(), QSize(320, 240));
}

TEST_F(GeometryResizeTest, UiResizeOfNullPlayerIsIgnored)
{
    LogCapture log;
    service().resizeUIRenderer(nullptr, 1, 1);
    EXPECT_EQ(log.count(QStringLiteral("resizeUIRenderer")), 1);
}

} // namespace
