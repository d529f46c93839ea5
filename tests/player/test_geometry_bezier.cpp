// The patch warp of a layer's render objects (setBezierPoint).
#include "test_geometry_fixture.h"

namespace {

class GeometryBezierTest : public GeometryTest
{
protected:
    /// A layer shown on the given screens.
    ScenePlayer* layerOnScreens(const QList<int>& screenIds)
    {
        ScenePlayer* scene = makeLayer();
        for (int id : screenIds) {
            openScreen(id);
            service().addRenderer(geometryRecord(id));
        }
        journal().clear();
        return scene;
    }

    static QVariantList numbers(std::initializer_list<double> values)
    {
        QVariantList list;
        for (double v : values)
            list << v;
        return list;
    }

    static QVariantMap screenPoints(int screenId, const QVariantList& data)
    {
        QVariantMap entry;
        entry["screenId"] = screenId;
        entry["screenType"] = 0;
        entry["clientGuid"] = QStringLiteral("guid-a");
        entry["data"] = data;
        return entry;
    }

    static Record warpRecord(int rows, int cols, const QVariantList& roiData,
                             const QVariantList& pointData)
    {
        Record r;
        r["width"] = 1920;
        r["height"] = 1080;
        r["x"] = 0;
        r["y"] = 0;
        r["row"] = rows;
        r["col"] = cols;
        r["roiData"] = roiData;
        r["pointData"] = pointData;
        return r;
    }
};

TEST_F(GeometryBezierTest, SevenNumbersGiveOneRegionAndEightGiveTwo)
{
    ScenePlayer* scene = layerOnScreens({1});
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);

    service().setBezierPoint(kLayer, kBank,
                             warpRecord(1, 1, numbers({0.1, 0.2, 0.3, 0.4, 5, 6, 7}),
                                        {screenPoints(1, {})}));
    // Each number passes through single precision on its way.
    const QRectF first(double(0.1f), double(0.2f), double(0.3f), double(0.4f));
    EXPECT_EQ(render->patchRoi(), QVector<QRectF>{first});

    service().setBezierPoint(kLayer, kBank,
                             warpRecord(1, 2, numbers({0.1, 0.2, 0.3, 0.4, 5, 6, 7, 8}),
                                        {screenPoints(1, {})}));
    EXPECT_EQ(render->patchRoi(), QVector<QRectF>({first, QRectF(5, 6, 7, 8)}));
}

TEST_F(GeometryBezierTest, EmptyRegionListIsStillSent)
{
    ScenePlayer* scene = layerOnScreens({1});
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    service().setBezierPoint(kLayer, kBank,
                             warpRecord(1, 1, numbers({1, 2, 3, 4}), {screenPoints(1, {})}));
    ASSERT_EQ(render->patchRoi().size(), 1);

    service().setBezierPoint(kLayer, kBank, warpRecord(2, 2, {}, {screenPoints(1, {})}));

    EXPECT_TRUE(render->patchRoi().isEmpty());
    EXPECT_EQ(render->patchCount(), 4);
}

TEST_F(GeometryBezierTest, RowsAndColumnsGiveCountAndInfoRowsFirst)
{
    ScenePlayer* scene = layerOnScreens({1});
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);

    service().setBezierPoint(kLayer, kBank,
                             warpRecord(3, 4, {}, {screenPoints(1, numbers({1.5, 2.5, 3.5}))}));

    EXPECT_EQ(render->patchCount(), 12);
    EXPECT_EQ(render->patchInfo().rows, 3);
    EXPECT_EQ(render->patchInfo().cols, 4);
    EXPECT_EQ(render->patchInfo().points, QVector<float>({1.5f, 2.5f, 3.5f}));
    EXPECT_EQ(refreshCount(scene->player), 1);
}

TEST_F(GeometryBezierTest, EachScreenGetsItsOwnPointsAndTheSameRegions)
{
    ScenePlayer* scene = layerOnScreens({1, 2});
    QtAV::NoxOpenGLRender* one = renderOn(scene, 1);
    QtAV::NoxOpenGLRender* two = renderOn(scene, 2);
    ASSERT_NE(one, nullptr);
    ASSERT_NE(two, nullptr);

    service().setBezierPoint(kLayer, kBank,
                             warpRecord(1, 1, numbers({0, 0, 10, 10}),
                                        {screenPoints(1, numbers({1, 2})),
                                         screenPoints(2, numbers({3, 4, 5}))}));

    EXPECT_EQ(one->patchInfo().points, QVector<float>({1, 2}));
    EXPECT_EQ(two->patchInfo().points, QVector<float>({3, 4, 5}));
    EXPECT_EQ(one->patchRoi(), QVector<QRectF>{QRectF(0, 0, 10, 10)});
    EXPECT_EQ(two->patchRoi(), one->patchRoi());
}

TEST_F(GeometryBezierTest, ScreenWithoutRenderObjectIsSkippedAndLaterEntriesApplied)
{
    ScenePlayer* scene = layerOnScreens({2});
    QtAV::NoxOpenGLRender* two = renderOn(scene, 2);
    ASSERT_NE(two, nullptr);

    service().setBezierPoint(kLayer, kBank,
                             warpRecord(2, 3, {}, {screenPoints(9, numbers({7})),
                                                   screenPoints(2, numbers({8}))}));

    EXPECT_FALSE(hasEntry(scene, 9));
    EXPECT_EQ(two->patchCount(), 6);
    EXPECT_EQ(two->patchInfo().points, QVector<float>({8}));
    EXPECT_EQ(refreshCount(scene->player), 1);
}

TEST_F(GeometryBezierTest, UnknownLayerIsNotRedrawnAndKnownLayerOnceWhateverMatches)
{
    ScenePlayer* scene = layerOnScreens({1});

    service().setBezierPoint(kLayer + 5, kBank, warpRecord(1, 1, {}, {screenPoints(1, {})}));
    EXPECT_EQ(refreshCount(nullptr), 0);
    EXPECT_EQ(renderOn(scene, 1)->patchCount(), 0);

    service().setBezierPoint(kLayer, kBank, warpRecord(1, 1, {}, {}));
    EXPECT_EQ(refreshCount(scene->player), 1);
    EXPECT_EQ(renderOn(scene, 1)->patchCount(), 0);
}

TEST_F(GeometryBezierTest, NullEntryIsSkippedAndLaterEntriesApplied)
{
    ScenePlayer* scene = layerOnScreens({2});
    service().setRegionOfInterest(geometryRecord(1), 0, 0, 1, 1); // null entry, screen 1
    ASSERT_TRUE(hasEntry(scene, 1));

    LogCapture log;
    service().setBezierPoint(kLayer, kBank,
                             warpRecord(1, 1, {}, {screenPoints(1, numbers({1})),
                                                   screenPoints(2, numbers({2}))}));

    EXPECT_EQ(log.count(QStringLiteral("setBezierPoint")), 1);
    EXPECT_EQ(renderOn(scene, 2)->patchInfo().points, QVector<float>({2}));
    EXPECT_EQ(refreshCount(scene->player), 1);
}

TEST_F(GeometryBezierTest, MalformedValuesConvertToZero)
{
    ScenePlayer* scene = layerOnScreens({0});
    QtAV::NoxOpenGLRender* render = renderOn(scene, 0);
    ASSERT_NE(render, nullptr);
    QVariantList roi;
    roi << QStringLiteral("x") << QVariant() << 3 << QStringLiteral("7 px");
    QVariantList data;
    data << QStringLiteral("bad") << 2.5;

    // An entry that is not a map reads as screen 0 with no control points.
    service().setBezierPoint(kLayer, kBank, warpRecord(1, 1, roi, {QStringLiteral("oops")}));
    EXPECT_EQ(render->patchRoi(), QVector<QRectF>{QRectF(0, 0, 3, 0)});
    EXPECT_TRUE(render->patchInfo().points.isEmpty());

    service().setBezierPoint(kLayer, kBank, warpRecord(1, 1, roi, {screenPoints(0, data)}));
    EXPECT_EQ(render->patchInfo().points, QVector<float>({0.0f, 2.5f}));
}

TEST_F(GeometryBezierTest, HugeGridCountWrapsInsteadOfOverflowing)
{
    ScenePlayer* scene = layerOnScreens({1});

    service().setBezierPoint(kLayer, kBank, warpRecord(65536, 65537, {}, {screenPoints(1, {})}));

    EXPECT_EQ(renderOn(scene, 1)->patchCount(), 65536);
    EXPECT_EQ(renderOn(scene, 1)->patchInfo().rows, 65536);
}

} // namespace
