// Placing a layer's render object on an output screen (addRenderer).
#include "test_geometry_fixture.h"

#include <climits>
#include <cmath>

namespace {

using GeometryCreateTest = GeometryTest;

TEST_F(GeometryCreateTest, UnrotatedLayerIsPlacedSizedAndRegistered)
{
    ScenePlayer* scene = makeLayer();
    ScreenWidget* screen = openScreen(1);
    RecordingEngine::instance().backend(scene->player)->frameRate = 30.0;
    RendererListSpy published;

    service().addRenderer(geometryRecord());

    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    EXPECT_EQ(render->geometry(), QRect(100, 50, 640, 360));
    EXPECT_EQ(render->rendererSize(), QSize(640, 360));
    EXPECT_EQ(render->originalSize(), QSizeF(1920.0, 1080.0));
    EXPECT_EQ(render->screenId(), 1);
    EXPECT_EQ(render->layerId(), kLayer);
    EXPECT_DOUBLE_EQ(render->frameRate(), 30.0);
    EXPECT_FALSE(render->hasCorners());
    EXPECT_EQ(screen->renders(), QList<QtAV::NoxOpenGLRender*>{render});
    EXPECT_EQ(scene->player->videoOutputs(), QList<QtAV::VideoRenderer*>{render});
    EXPECT_EQ(scene->rendererMap.size(), 1);

    EXPECT_EQ(scaleRatio(), QVector<double>({2.0, 2.0}));
    EXPECT_EQ(render->regionOfInterest(), QRectF(20.0, 40.0, 1280.0, 720.0));

    ASSERT_EQ(published.count(), 1);
    EXPECT_EQ(published.keyAt(0), kPackedKey);
    EXPECT_EQ(effects().rendererList(kPackedKey), QList<void*>{render});
    EXPECT_EQ(refreshCount(scene->player), 1);
}

TEST_F(GeometryCreateTest, RotatedLayerUsesRelativePlacementAndKeepsRatioAndRegion)
{
    ScenePlayer* scene = makeLayer();
    openScreen(1);
    service().setScalOriginalRatio(3.0, 5.0, 2.0, 4.0);
    Record record = geometryRecord();
    record["isRotation"] = true;

    service().addRenderer(record);

    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    EXPECT_EQ(render->geometry(), QRect(30, 40, 960, 540));
    EXPECT_EQ(render->rendererSize(), QSize(960, 540));
    EXPECT_EQ(render->originalSize(), QSizeF(1920.0, 1080.0));
    EXPECT_EQ(scaleRatio(), QVector<double>({1.5, 1.25}));
    EXPECT_EQ(render->regionOfInterest(), QRectF());
    EXPECT_EQ(refreshCount(scene->player), 1);
}

TEST_F(GeometryCreateTest, BezierFlagDoesNotChangeCreation)
{
    ScenePlayer* plain = makeLayer(kBank, kLayer);
    ScenePlayer* warped = makeLayer(kBank, kLayer + 1);
    openScreen(1);
    Record warpedRecord = geometryRecord();
    warpedRecord["layerId"] = kLayer + 1;
    warpedRecord["isBezier"] = true;

    service().addRenderer(geometryRecord());
    service().addRenderer(warpedRecord);

    QtAV::NoxOpenGLRender* a = renderOn(plain, 1);
    QtAV::NoxOpenGLRender* b = renderOn(warped, 1);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->geometry(), a->geometry());
    EXPECT_EQ(b->rendererSize(), a->rendererSize());
    EXPECT_EQ(b->regionOfInterest(), a->regionOfInterest());
    EXPECT_EQ(b->regionOfInterest(), QRectF(20.0, 40.0, 1280.0, 720.0));
    EXPECT_EQ(scaleRatio(), QVector<double>({2.0, 2.0}));
}

TEST_F(GeometryCreateTest, SecondCallForSameScreenNumberOnlyRefreshes)
{
    ScenePlayer* scene = makeLayer();
    ScreenWidget* screen = openScreen(1);
    service().addRenderer(geometryRecord());
    QtAV::NoxOpenGLRender* first = renderOn(scene, 1);
    ASSERT_NE(first, nullptr);
    RendererListSpy published;
    journal().clear();

    Record again = geometryRecord();
    again["screenType"] = 7;
    again["clientGuid"] = QStringLiteral("guid-other");
    again["rendererX"] = 5;
    again["crossWidth"] = 99;
    service().addRenderer(again);

    EXPECT_EQ(renderOn(scene, 1), first);
    EXPECT_EQ(scene->rendererMap.size(), 1);
    EXPECT_EQ(screen->renders().size(), 1);
    EXPECT_EQ(scene->player->videoOutputs().size(), 1);
    EXPECT_EQ(first->geometry(), QRect(100, 50, 640, 360));
    ASSERT_EQ(published.count(), 1);
    EXPECT_EQ(published.keyAt(0), kPackedKey);
    EXPECT_EQ(refreshCount(scene->player), 1);
}

TEST_F(GeometryCreateTest, NullEntryForScreenNumberIsReplacedByNewRenderObject)
{
    ScenePlayer* scene = makeLayer();
    openScreen(1);
    // A region look-up for a screen without render object leaves a null entry.
    service().setRegionOfInterest(geometryRecord(), 0, 0, 10, 10);
    ASSERT_TRUE(hasEntry(scene, 1));
    ASSERT_EQ(scene->rendererMap.value(ScreenKey(1, 0, QString())), nullptr);

    service().addRenderer(geometryRecord());

    EXPECT_EQ(scene->rendererMap.size(), 1);
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    EXPECT_EQ(render->geometry(), QRect(100, 50, 640, 360));
}

TEST_F(GeometryCreateTest, SpoutLayerRendersAtSixtyFramesWhateverItsStream)
{
    ScenePlayer* spout = makeLayer(kBank, kLayer, QStringLiteral("spout"));
    ScenePlayer* video = makeLayer(kBank, kLayer + 1, QStringLiteral("video"));
    RecordingEngine::instance().backend(spout->player)->frameRate = 24.0;
    RecordingEngine::instance().backend(video->player)->frameRate = 24.0;
    openScreen(1);
    Record videoRecord = geometryRecord();
    videoRecord["layerId"] = kLayer + 1;

    service().addRenderer(geometryRecord());
    service().addRenderer(videoRecord);

    ASSERT_NE(renderOn(spout, 1), nullptr);
    ASSERT_NE(renderOn(video, 1), nullptr);
    EXPECT_DOUBLE_EQ(renderOn(spout, 1)->frameRate(), 60.0);
    EXPECT_DOUBLE_EQ(renderOn(video, 1)->frameRate(), 24.0);
}

TEST_F(GeometryCreateTest, ScaleFillAndRotationAngleHaveNoEffect)
{
    ScenePlayer* plain = makeLayer(kBank, kLayer);
    ScenePlayer* flagged = makeLayer(kBank, kLayer + 1);
    openScreen(1);
    Record flaggedRecord = geometryRecord();
    flaggedRecord["layerId"] = kLayer + 1;
    flaggedRecord["isScal"] = true;
    flaggedRecord["isFill"] = true;
    flaggedRecord["layerRotation"] = 45.0f;

    service().addRenderer(flaggedRecord);
    const QVector<double> flaggedRatio = scaleRatio();
    service().addRenderer(geometryRecord());

    QtAV::NoxOpenGLRender* a = renderOn(plain, 1);
    QtAV::NoxOpenGLRender* b = renderOn(flagged, 1);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->geometry(), a->geometry());
    EXPECT_EQ(b->rendererSize(), a->rendererSize());
    EXPECT_EQ(b->originalSize(), a->originalSize());
    EXPECT_EQ(b->regionOfInterest(), a->regionOfInterest());
    EXPECT_EQ(flaggedRatio, scaleRatio());
}

TEST_F(GeometryCreateTest, UnknownLayerChangesNothingAndLogsNothing)
{
    ScenePlayer* scene = makeLayer();
    ScreenWidget* screen = openScreen(1);
    RendererListSpy published;
    Record record = geometryRecord();
    record["layerId"] = 42;

    LogCapture log;
    service().addRenderer(record);

    EXPECT_TRUE(log.lines().isEmpty()) << log.lines().join('\n').toStdString();
    EXPECT_TRUE(screen->renders().isEmpty());
    EXPECT_TRUE(scene->rendererMap.isEmpty());
    EXPECT_TRUE(scaleRatio().isEmpty());
    EXPECT_EQ(published.count(), 0);
}

TEST_F(GeometryCreateTest, MissingScreenLogsAndSkipsRefreshAndPublication)
{
    ScenePlayer* scene = makeLayer();
    openScreen(3);
    RendererListSpy published;

    LogCapture log;
    service().addRenderer(geometryRecord(1));

    EXPECT_EQ(log.count(QStringLiteral("screen Widget is NULL")), 1);
    EXPECT_TRUE(scene->rendererMap.isEmpty());
    EXPECT_TRUE(scene->player->videoOutputs().isEmpty());
    EXPECT_EQ(published.count(), 0);
    EXPECT_EQ(refreshCount(scene->player), 0);
}

TEST_F(GeometryCreateTest, ScreenOfOtherTypeIsFoundByScreenNumber)
{
    ScenePlayer* scene = makeLayer();
    ScreenWidget* screen = openScreen(1, 4, QStringLiteral("guid-z"));

    service().addRenderer(geometryRecord(1));

    ASSERT_NE(renderOn(scene, 1), nullptr);
    EXPECT_EQ(screen->renders().size(), 1);
}

TEST_F(GeometryCreateTest, ZeroActualSizeStoresInfiniteRatioWithoutFailing)
{
    ScenePlayer* scene = makeLayer();
    openScreen(1);
    Record record = geometryRecord();
    record["actualWidth"] = 0;
    record["actualHeight"] = 0;
    record["frameX"] = 0;

    service().addRenderer(record);

    ASSERT_EQ(scaleRatio().size(), 2);
    EXPECT_TRUE(std::isinf(scaleRatio().at(0)));
    EXPECT_TRUE(std::isinf(scaleRatio().at(1)));
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    EXPECT_EQ(render->geometry(), QRect(100, 50, 640, 360));
    // 0 x infinity and 20 x infinity have no int truncation.
    const QRectF roi = render->regionOfInterest();
    EXPECT_EQ(roi.x(), double(INT_MIN));
    EXPECT_EQ(roi.y(), double(INT_MIN));
    EXPECT_TRUE(std::isinf(roi.width()));
    EXPECT_TRUE(std::isinf(roi.height()));
}

TEST_F(GeometryCreateTest, RecordWithOnlyLayerKeysReadsZerosForTheRest)
{
    ScenePlayer* scene = makeLayer();
    ScreenWidget* screen = openScreen(0);
    Record record;
    record["bankId"] = kBank;
    record["layerId"] = kLayer;

    service().addRenderer(record);

    QtAV::NoxOpenGLRender* render = renderOn(scene, 0);
    ASSERT_NE(render, nullptr);
    EXPECT_EQ(screen->renders().size(), 1);
    EXPECT_EQ(render->geometry(), QRect(0, 0, 0, 0));
    EXPECT_EQ(render->originalSize(), QSizeF(0.0, 0.0));
    ASSERT_EQ(scaleRatio().size(), 2);
    EXPECT_TRUE(std::isnan(scaleRatio().at(0)));
    EXPECT_TRUE(std::isnan(scaleRatio().at(1)));
}

} // namespace
