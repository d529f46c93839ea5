// Taking render objects off screens (delRenderer, delLayerAllRenderer,
// delCustomRenderer) and what the effects service hears of it.
#include "test_geometry_fixture.h"

namespace {

class GeometryRemovalTest : public GeometryTest
{
protected:
    /// A layer shown on the given screens, with creation's publications
    /// already done.
    ScenePlayer* layerOnScreens(const QList<int>& screenIds)
    {
        ScenePlayer* scene = makeLayer();
        for (int id : screenIds) {
            openScreen(id);
            service().addRenderer(geometryRecord(id));
        }
        return scene;
    }

    static Record screenRecord(int screenId)
    {
        Record r;
        r["bankId"] = kBank;
        r["layerId"] = kLayer;
        r["screenId"] = screenId;
        r["screenType"] = 0;
        r["clientGuid"] = QStringLiteral("guid-a");
        return r;
    }

    static ScreenWidget* screenWidget(int screenId)
    {
        return screens().getScreenWidget(screenRecord(screenId));
    }
};

TEST_F(GeometryRemovalTest, RenderObjectLeavesScreenPlayerAndRecordAndListIsRepublished)
{
    ScenePlayer* scene = layerOnScreens({1, 2});
    QtAV::NoxOpenGLRender* keep = renderOn(scene, 2);
    ASSERT_NE(renderOn(scene, 1), nullptr);
    RendererListSpy published;

    service().delRenderer(screenRecord(1), scene->player);

    EXPECT_TRUE(screenWidget(1)->renders().isEmpty());
    EXPECT_EQ(screenWidget(2)->renders(), QList<QtAV::NoxOpenGLRender*>{keep});
    EXPECT_EQ(scene->player->videoOutputs(), QList<QtAV::VideoRenderer*>{keep});
    EXPECT_FALSE(hasEntry(scene, 1));
    EXPECT_TRUE(hasEntry(scene, 2));
    ASSERT_EQ(published.count(), 1);
    EXPECT_EQ(published.keyAt(0), kPackedKey);
    EXPECT_EQ(effects().rendererList(kPackedKey), QList<void*>{keep});
}

TEST_F(GeometryRemovalTest, NullEntryIsDroppedWithoutPublication)
{
    ScenePlayer* scene = layerOnScreens({1});
    service().setRegionOfInterest(screenRecord(4), 0, 0, 1, 1);
    ASSERT_TRUE(hasEntry(scene, 4));
    RendererListSpy published;

    service().delRenderer(screenRecord(4), scene->player);

    EXPECT_FALSE(hasEntry(scene, 4));
    EXPECT_TRUE(hasEntry(scene, 1));
    EXPECT_EQ(published.count(), 0);
}

TEST_F(GeometryRemovalTest, OtherRendererTypeIsKeptButListIsRepublished)
{
    ScenePlayer* scene = layerOnScreens({});
    openScreen(3);
    TestRenderer* other = testRenderer("QmlGL");
    scene->player->addVideoRenderer(other);
    scene->rendererMap.insert(ScreenKey(3, 0, QStringLiteral("guid-a")), other);
    RendererListSpy published;

    service().delRenderer(screenRecord(3), scene->player);

    EXPECT_EQ(scene->rendererMap.value(ScreenKey(3, 0, QString())), other);
    EXPECT_EQ(scene->player->videoOutputs(), QList<QtAV::VideoRenderer*>{other});
    ASSERT_EQ(published.count(), 1);
    EXPECT_EQ(published.keyAt(0), kPackedKey);
}

TEST_F(GeometryRemovalTest, ScreenNumberWithoutEntryOnlyRepublishes)
{
    ScenePlayer* scene = layerOnScreens({1});
    RendererListSpy published;

    service().delRenderer(screenRecord(7), scene->player);

    EXPECT_FALSE(hasEntry(scene, 7));
    EXPECT_NE(renderOn(scene, 1), nullptr);
    ASSERT_EQ(published.count(), 1);
    EXPECT_EQ(published.keyAt(0), kPackedKey);
}

TEST_F(GeometryRemovalTest, UnknownLayerIsSilent)
{
    ScenePlayer* scene = layerOnScreens({1});
    RendererListSpy published;
    Record record = screenRecord(1);
    record["layerId"] = 40;

    service().delRenderer(record, scene->player);

    EXPECT_NE(renderOn(scene, 1), nullptr);
    EXPECT_EQ(published.count(), 0);
}

TEST_F(GeometryRemovalTest, ClosedScreenDoesNotKeepRenderObjectFromBeingRemoved)
{
    ScenePlayer* scene = layerOnScreens({1});
    ASSERT_TRUE(screens().closeScreen(1, 0, QStringLiteral("guid-a")));
    RendererListSpy published;

    LogCapture log;
    service().delRenderer(screenRecord(1), scene->player);

    EXPECT_EQ(log.count(QStringLiteral("delRenderer")), 1);
    EXPECT_FALSE(hasEntry(scene, 1));
    EXPECT_TRUE(scene->player->videoOutputs().isEmpty());
    EXPECT_EQ(published.count(), 1);
}

TEST_F(GeometryRemovalTest, NullPlayerArgumentStillDetachesFromTheLayersPlayer)
{
    ScenePlayer* scene = layerOnScreens({1});
    RendererListSpy published;

    LogCapture log;
    service().delRenderer(screenRecord(1), nullptr);

    EXPECT_GE(log.count(QStringLiteral("delRenderer")), 1);
    EXPECT_FALSE(hasEntry(scene, 1));
    EXPECT_TRUE(screenWidget(1)->renders().isEmpty());
    EXPECT_TRUE(scene->player->videoOutputs().isEmpty());
    EXPECT_EQ(published.count(), 1);
}

TEST_F(GeometryRemovalTest, LayerRemovalKeepsUnrecordedOutputsUnlessAskedToClear)
{
    ScenePlayer* scene = layerOnScreens({1, 2});
    TestRenderer* preview = testRenderer("PreviewGL", QtAV::VideoRenderType_Custom);
    scene->player->addVideoRenderer(preview);
    RendererListSpy published;

    service().delLayerAllRenderer(kBank, kLayer, false);

    EXPECT_TRUE(scene->rendererMap.isEmpty());
    EXPECT_TRUE(screenWidget(1)->renders().isEmpty());
    EXPECT_TRUE(screenWidget(2)->renders().isEmpty());
    EXPECT_EQ(scene->player->videoOutputs(), QList<QtAV::VideoRenderer*>{preview});
    ASSERT_EQ(published.count(), 1);
    EXPECT_EQ(published.keyAt(0), kPackedKey);
    EXPECT_EQ(effects().rendererList(kPackedKey), QList<void*>{preview});
}

TEST_F(GeometryRemovalTest, LayerRemovalWithClearLeavesNoOutputs)
{
    ScenePlayer* scene = layerOnScreens({1});
    scene->player->addVideoRenderer(testRenderer("PreviewGL", QtAV::VideoRenderType_Custom));
    service().setRegionOfInterest(screenRecord(5), 0, 0, 1, 1); // a null entry too
    RendererListSpy published;

    service().delLayerAllRenderer(kBank, kLayer, true);

    EXPECT_TRUE(scene->rendererMap.isEmpty());
    EXPECT_TRUE(scene->player->videoOutputs().isEmpty());
    EXPECT_TRUE(screenWidget(1)->renders().isEmpty());
    ASSERT_EQ(published.count(), 1);
    EXPECT_TRUE(effects().rendererList(kPackedKey).isEmpty());
}

TEST_F(GeometryRemovalTest, LayerRemovalOfUnknownLayerIsSilent)
{
    ScenePlayer* scene = layerOnScreens({1});
    RendererListSpy published;

    service().delLayerAllRenderer(kBank + 3, kLayer, true);

    EXPECT_NE(renderOn(scene, 1), nullptr);
    EXPECT_EQ(published.count(), 0);
}

TEST_F(GeometryRemovalTest, CustomRemovalSkipsTheOutputRightAfterARemovedOne)
{
    ScenePlayer* scene = layerOnScreens({});
    TestRenderer* first = testRenderer("PreviewGL", QtAV::VideoRenderType_Custom);
    TestRenderer* second = testRenderer("PreviewGL", QtAV::VideoRenderType_Custom);
    TestRenderer* third = testRenderer("PreviewGL", QtAV::VideoRenderType_Output);
    scene->player->addVideoRenderer(first);
    scene->player->addVideoRenderer(second);
    scene->player->addVideoRenderer(third);
    RendererListSpy published;

    service().delCustomRenderer(kLayer, kBank);

    EXPECT_EQ(scene->player->videoOutputs(), QList<QtAV::VideoRenderer*>({second, third}));
    EXPECT_EQ(published.count(), 0);
}

TEST_F(GeometryRemovalTest, CustomRemovalLeavesScreenRenderObjectsAndRecord)
{
    ScenePlayer* scene = layerOnScreens({1});
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    TestRenderer* preview = testRenderer("PreviewGL", QtAV::VideoRenderType_Custom);
    scene->player->addVideoRenderer(preview);

    service().delCustomRenderer(kLayer, kBank);

    EXPECT_EQ(scene->player->videoOutputs(), QList<QtAV::VideoRenderer*>{render});
    EXPECT_EQ(renderOn(scene, 1), render);

    service().delCustomRenderer(kLayer + 1, kBank); // unknown layer: nothing happens
    EXPECT_EQ(scene->player->videoOutputs(), QList<QtAV::VideoRenderer*>{render});
}

TEST_F(GeometryRemovalTest, RemovedScreenCanBeShownAgain)
{
    ScenePlayer* scene = layerOnScreens({1});
    service().delRenderer(screenRecord(1), scene->player);
    ASSERT_FALSE(hasEntry(scene, 1));

    service().addRenderer(geometryRecord(1));

    ASSERT_NE(renderOn(scene, 1), nullptr);
    EXPECT_EQ(screenWidget(1)->renders().size(), 1);
}

} // namespace
