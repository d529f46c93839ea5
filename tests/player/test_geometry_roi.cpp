// The region of interest of a render object (setRegionOfInterest).
#include "test_geometry_fixture.h"

#include <climits>
#include <cmath>

namespace {

class GeometryRoiTest : public GeometryTest
{
protected:
    /// A layer with a render object on screen 1, placed without a ratio.
    QtAV::NoxOpenGLRender* placedRender()
    {
        ScenePlayer* scene = makeLayer();
        m_scene = scene;
        openScreen(1);
        Record rotated = geometryRecord();
        rotated["isRotation"] = true; // leaves ratio and region unset
        service().addRenderer(rotated);
        return renderOn(scene, 1);
    }

    ScenePlayer* m_scene = nullptr;
};

TEST_F(GeometryRoiTest, EmptyRatioPassesRectangleUnchanged)
{
    QtAV::NoxOpenGLRender* render = placedRender();
    ASSERT_NE(render, nullptr);
    ASSERT_TRUE(scaleRatio().isEmpty());

    service().setRegionOfInterest(geometryRecord(), 10, 20, 300, 200);

    EXPECT_EQ(render->regionOfInterest(), QRectF(10.0, 20.0, 300.0, 200.0));
}

TEST_F(GeometryRoiTest, PositionIsTruncatedAndSizeKeptExact)
{
    QtAV::NoxOpenGLRender* render = placedRender();
    ASSERT_NE(render, nullptr);
    service().setScalOriginalRatio(1, 1, 2, 2);

    service().setRegionOfInterest(geometryRecord(), 11, 21, 301, 201);

    EXPECT_EQ(render->regionOfInterest(), QRectF(5.0, 10.0, 150.5, 100.5));
}

TEST_F(GeometryRoiTest, NegativePositionTruncatesTowardZero)
{
    QtAV::NoxOpenGLRender* render = placedRender();
    ASSERT_NE(render, nullptr);
    service().setScalOriginalRatio(1, 1, 2, 2);

    service().setRegionOfInterest(geometryRecord(), -3, -5, 10, 10);

    EXPECT_EQ(render->regionOfInterest().x(), -1.0);
    EXPECT_EQ(render->regionOfInterest().y(), -2.0);
}

TEST_F(GeometryRoiTest, ScreenWithoutRenderObjectGetsNullEntryAndNothingElseChanges)
{
    QtAV::NoxOpenGLRender* render = placedRender();
    ASSERT_NE(render, nullptr);
    service().setRegionOfInterest(geometryRecord(), 1, 2, 3, 4);

    service().setRegionOfInterest(geometryRecord(8), 50, 60, 70, 80);

    EXPECT_TRUE(hasEntry(m_scene, 8));
    EXPECT_EQ(m_scene->rendererMap.value(ScreenKey(8, 0, QString())), nullptr);
    EXPECT_EQ(m_scene->rendererMap.size(), 2);
    EXPECT_EQ(render->regionOfInterest(), QRectF(1.0, 2.0, 3.0, 4.0));
}

TEST_F(GeometryRoiTest, UnknownLayerIsIgnored)
{
    QtAV::NoxOpenGLRender* render = placedRender();
    ASSERT_NE(render, nullptr);
    Record record = geometryRecord();
    record["layerId"] = 31;

    service().setRegionOfInterest(record, 1, 2, 3, 4);

    EXPECT_EQ(render->regionOfInterest(), QRectF());
    EXPECT_EQ(m_scene->rendererMap.size(), 1);
}

TEST_F(GeometryRoiTest, InfiniteRatioGivesNoIntPositionButDoesNotFail)
{
    QtAV::NoxOpenGLRender* render = placedRender();
    ASSERT_NE(render, nullptr);
    service().setScalOriginalRatio(1, 1, 0, 0);

    service().setRegionOfInterest(geometryRecord(), 3, 0, 5, 0);

    const QRectF roi = render->regionOfInterest();
    EXPECT_EQ(roi.x(), double(INT_MIN));
    EXPECT_EQ(roi.y(), double(INT_MIN)); // 0 x infinity is not a number
    EXPECT_TRUE(std::isinf(roi.width()));
    EXPECT_TRUE(std::isnan(roi.height()));
}

TEST_F(GeometryRoiTest, OneElementRatioScalesHorizontallyOnly)
{
    QtAV::NoxOpenGLRender* render = placedRender();
    ASSERT_NE(render, nullptr);
    scaleRatio() = QVector<double>({2.0});

    LogCapture log;
    service().setRegionOfInterest(geometryRecord(), 3, 4, 5, 6);

    EXPECT_EQ(render->regionOfInterest(), QRectF(6.0, 4.0, 10.0, 6.0));
    EXPECT_EQ(log.count(QStringLiteral("setRegionOfInterest")), 1);
}

} // namespace
