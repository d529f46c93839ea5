// The other geometry commands (setScalOriginalRatio, setRegionOfInterest,
// seVectexRect, setBezierPoint, resizeUIRenderer) given int extremes
// (INT_MIN, -1, 0, INT_MAX) and non-finite doubles: nothing overflows (run
// under UBSan with halt_on_error), doubles travel as given, and a region
// position with no int value is reported in one debug line naming the
// command.
#include "test_geometry_fixture.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <limits>

namespace {

const int kExtremes[] = {INT_MIN, -1, 0, INT_MAX};
const double kInf = std::numeric_limits<double>::infinity();
const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kOddDoubles[] = {double(INT_MIN), -1.0, 0.0, double(INT_MAX), 0.5,
                              kNaN, kInf, -kInf, DBL_MAX, -DBL_MAX};

/// Equal, or both not a number.
bool same(double a, double b)
{
    return (std::isnan(a) && std::isnan(b)) || a == b;
}

bool samePoint(const QPointF& a, const QPointF& b)
{
    return same(a.x(), b.x()) && same(a.y(), b.y());
}

/// The region position of `v` scaled by `s`: truncated toward zero, or
/// INT_MIN where the product has no int truncation. Whether it had one is
/// told through `ok`.
double scaledPosition(int v, double s, bool* ok)
{
    const double p = v * s;
    *ok = !std::isnan(p) && p > double(INT_MIN) - 1.0 && p < double(INT_MAX) + 1.0;
    return *ok ? std::trunc(p) : double(INT_MIN);
}

class GeometryExtremesWarpTest : public GeometryTest
{
};

TEST_F(GeometryExtremesWarpTest, ScaleRatioStoresTheQuotientsOfAnyValues)
{
    for (double o : kOddDoubles) {
        for (double a : kOddDoubles) {
            service().setScalOriginalRatio(o, a, a, o);
            ASSERT_EQ(scaleRatio().size(), 2);
            EXPECT_TRUE(same(scaleRatio().at(0), o / a)) << o << " / " << a;
            EXPECT_TRUE(same(scaleRatio().at(1), a / o)) << a << " / " << o;
        }
    }
}

TEST_F(GeometryExtremesWarpTest, RegionOfInterestScalesExtremesWithoutOverflow)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    const int ratios = int(std::size(kOddDoubles));
    for (int i = 0; i < ratios; ++i) {
        const double sx = kOddDoubles[i];
        const double sy = kOddDoubles[(i + 3) % ratios];
        scaleRatio() = QVector<double>({sx, sy});
        for (int x : kExtremes)
            for (int y : kExtremes)
                for (int w : kExtremes)
                    for (int h : kExtremes) {
                        SCOPED_TRACE(QStringLiteral("ratio (%1, %2) rect (%3, %4, %5, %6)")
                                         .arg(sx).arg(sy).arg(x).arg(y).arg(w).arg(h)
                                         .toStdString());
                        LogCapture log;
                        service().setRegionOfInterest(geometryRecord(), x, y, w, h);
                        bool xOk = false;
                        bool yOk = false;
                        const QRectF roi = render->regionOfInterest();
                        EXPECT_EQ(roi.x(), scaledPosition(x, sx, &xOk));
                        EXPECT_EQ(roi.y(), scaledPosition(y, sy, &yOk));
                        EXPECT_TRUE(same(roi.width(), w * sx));
                        EXPECT_TRUE(same(roi.height(), h * sy));
                        EXPECT_EQ(log.count(QStringLiteral("setRegionOfInterest: saturated")),
                                  xOk && yOk ? 0 : 1);
                    }
    }
}

TEST_F(GeometryExtremesWarpTest, CornersOfAnyValueArePassedOnAsGiven)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    const int count = int(std::size(kOddDoubles));
    for (int i = 0; i < count; ++i) {
        const double u = kOddDoubles[i];
        const double v = kOddDoubles[(i + 1) % count];
        const double w = kOddDoubles[(i + 5) % count];
        const QPointF lT(u, v), rT(v, w), lB(w, u), rB(u, u);
        Record r = geometryRecord();
        r["lTPoint"] = lT;
        r["rTPoint"] = rT;
        r["lBpoint"] = lB;
        r["rBpoint"] = rB;

        service().seVectexRect(r);

        const QVector<QPointF> corners = render->corners();
        ASSERT_EQ(corners.size(), 4);
        EXPECT_TRUE(samePoint(corners[0], lT));
        EXPECT_TRUE(samePoint(corners[1], lB));
        EXPECT_TRUE(samePoint(corners[2], rB));
        EXPECT_TRUE(samePoint(corners[3], rT));
    }
    // Corners never change the placement rectangle.
    EXPECT_EQ(render->geometry(), QRect(100, 50, 640, 360));
}

TEST_F(GeometryExtremesWarpTest, BezierGridOfExtremeSizeAndNumbersIsHandedOnWithoutOverflow)
{
    ScenePlayer* scene = placedLayer();
    QtAV::NoxOpenGLRender* render = renderOn(scene, 1);
    ASSERT_NE(render, nullptr);
    const float kFloatInf = std::numeric_limits<float>::infinity();
    QVariantList roiData;
    roiData << INT_MIN << INT_MAX << kNaN << kInf << -kInf << -1 << 0 << 0.5;
    QVariantList data;
    data << kNaN << kInf << INT_MIN << INT_MAX;

    for (int rows : kExtremes) {
        for (int cols : kExtremes) {
            QVariantMap screen;
            screen["screenId"] = 1;
            screen["data"] = data;
            Record r;
            for (const char* unused : {"width", "height", "x", "y"})
                r[unused] = INT_MIN;
            r["row"] = rows;
            r["col"] = cols;
            r["roiData"] = roiData;
            r["pointData"] = QVariantList({screen});

            service().setBezierPoint(kLayer, kBank, r);

            // The count wraps like 32-bit arithmetic.
            EXPECT_EQ(render->patchCount(),
                      int(static_cast<unsigned>(rows) * static_cast<unsigned>(cols)));
            EXPECT_EQ(render->patchInfo().rows, rows);
            EXPECT_EQ(render->patchInfo().cols, cols);
        }
    }
    const QVector<QRectF> regions = render->patchRoi();
    ASSERT_EQ(regions.size(), 2);
    EXPECT_EQ(regions[0].x(), double(float(INT_MIN)));
    EXPECT_EQ(regions[0].y(), double(float(INT_MAX)));
    EXPECT_TRUE(std::isnan(regions[0].width()));
    EXPECT_EQ(regions[0].height(), double(kFloatInf));
    EXPECT_EQ(regions[1].x(), double(-kFloatInf));
    EXPECT_EQ(regions[1].y(), -1.0);
    EXPECT_EQ(regions[1].width(), 0.0);
    EXPECT_EQ(regions[1].height(), 0.5);
    const QVector<float> points = render->patchInfo().points;
    ASSERT_EQ(points.size(), 4);
    EXPECT_TRUE(std::isnan(points[0]));
    EXPECT_EQ(points[1], kFloatInf);
    EXPECT_EQ(points[2], float(INT_MIN));
    EXPECT_EQ(points[3], float(INT_MAX));
}

TEST_F(GeometryExtremesWarpTest, PreviewOutputsTakeAnySizeAndScreenOutputsKeepTheirs)
{
    ScenePlayer* scene = placedLayer();
    TestRenderer* preview = testRenderer("QmlGL", QtAV::VideoRenderType_Custom);
    scene->player->addVideoRenderer(preview);
    for (int w : kExtremes) {
        for (int h : kExtremes) {
            service().resizeUIRenderer(scene->player, w, h);
            EXPECT_EQ(preview->rendererSize(), QSize(w, h));
            EXPECT_EQ(renderOn(scene, 1)->rendererSize(), QSize(640, 360));
        }
    }
    scene->player->removeVideoRenderer(preview);
}

} // namespace
