// Placement commands (addRenderer, moveRenderer, resizeRenderer) given the
// extremes of their int keys: INT_MIN, -1, 0 and INT_MAX in every
// combination. No command overflows (run under UBSan with halt_on_error to
// see it), a render object's placement keeps every value within
// +-(2^30 - 1) pixels exactly and saturates what lies beyond, and a command
// that saturated anything says so in exactly one debug line naming it.
#include "test_geometry_fixture.h"

#include <algorithm>
#include <climits>
#include <functional>

namespace {

// How far a render object's placement reaches, in pixels from the origin.
constexpr int kLimit = 1073741823;
const int kExtremes[] = {INT_MIN, -1, 0, INT_MAX};

int bounded(int v)
{
    return std::clamp(v, -kLimit, kLimit);
}

bool allInRange(std::initializer_list<int> values)
{
    return std::all_of(values.begin(), values.end(), [](int v) { return v == bounded(v); });
}

class GeometryExtremesTest : public GeometryTest
{
protected:
    /// A geometry record whose placement keys all come from (a, b, c, d):
    /// the unrotated rectangle is (a, b, c, d), the rotated one (b, a, d, c);
    /// the visible part starts at (a, b) and the ratio is c/d by d/c.
    static Record extremeRecord(int a, int b, int c, int d)
    {
        Record r = geometryRecord();
        r["rendererX"] = a;
        r["rendererY"] = b;
        r["crossWidth"] = c;
        r["crossHeight"] = d;
        r["frameX"] = a;
        r["frameY"] = b;
        r["relativeX"] = b;
        r["relativeY"] = a;
        r["actualWidth"] = d;
        r["actualHeight"] = c;
        r["originalWidth"] = c;
        r["originalHeight"] = d;
        return r;
    }

    /// Runs `body` for every combination of four extremes.
    static void forEachCombination(const std::function<void(int, int, int, int)>& body)
    {
        for (int a : kExtremes)
            for (int b : kExtremes)
                for (int c : kExtremes)
                    for (int d : kExtremes) {
                        SCOPED_TRACE(QStringLiteral("(%1, %2, %3, %4)")
                                         .arg(a).arg(b).arg(c).arg(d).toStdString());
                        body(a, b, c, d);
                    }
    }

    /// The render object sits at the bounded rectangle, and its size follows.
    static void expectPlacedAt(const QtAV::NoxOpenGLRender* render, int x, int y, int w, int h)
    {
        ASSERT_NE(render, nullptr);
        const QRect g = render->geometry();
        EXPECT_EQ(g.x(), bounded(x));
        EXPECT_EQ(g.y(), bounded(y));
        EXPECT_EQ(g.width(), bounded(w));
        EXPECT_EQ(g.height(), bounded(h));
        // The far edges are representable too.
        EXPECT_EQ(qint64(g.right()), qint64(bounded(x)) + bounded(w) - 1);
        EXPECT_EQ(qint64(g.bottom()), qint64(bounded(y)) + bounded(h) - 1);
        EXPECT_EQ(render->rendererSize(), QSize(bounded(w), bounded(h)));
    }

    /// One debug line naming the command when the placement was saturated;
    /// at most one in any case (the region of interest may add its own note).
    static void expectReport(const LogCapture& log, const char* command, bool saturated)
    {
        const int lines = log.count(QStringLiteral("%1: saturated").arg(QLatin1String(command)));
        if (saturated)
            EXPECT_EQ(lines, 1);
        else
            EXPECT_LE(lines, 1);
    }
};

TEST_F(GeometryExtremesTest, AddRendererBoundsTheUnrotatedPlacement)
{
    ScenePlayer* scene = makeLayer();
    openScreen(1);
    forEachCombination([&](int a, int b, int c, int d) {
        LogCapture log;
        service().addRenderer(extremeRecord(a, b, c, d));
        expectPlacedAt(renderOn(scene, 1), a, b, c, d);
        expectReport(log, "addRenderer", !allInRange({a, b, c, d}));
        service().delLayerAllRenderer(kBank, kLayer, false);
    });
}

TEST_F(GeometryExtremesTest, AddRendererBoundsTheRotatedPlacement)
{
    ScenePlayer* scene = makeLayer();
    openScreen(1);
    forEachCombination([&](int a, int b, int c, int d) {
        Record record = extremeRecord(a, b, c, d);
        record["isRotation"] = true;
        LogCapture log;
        service().addRenderer(record);
        expectPlacedAt(renderOn(scene, 1), b, a, d, c);
        expectReport(log, "addRenderer", !allInRange({a, b, c, d}));
        service().delLayerAllRenderer(kBank, kLayer, false);
    });
}

TEST_F(GeometryExtremesTest, MoveRendererBoundsThePlacementInAndOutOfTheArea)
{
    ScenePlayer* scene = placedLayer();
    for (bool outArea : {false, true}) {
        SCOPED_TRACE(outArea ? "outside the area" : "inside the area");
        forEachCombination([&](int a, int b, int c, int d) {
            Record record = extremeRecord(a, b, c, d);
            record["isOutArea"] = outArea;
            LogCapture log;
            service().moveRenderer(record);
            expectPlacedAt(renderOn(scene, 1), a, b, c, d);
            expectReport(log, "moveRenderer", !allInRange({a, b, c, d}));
        });
    }
}

TEST_F(GeometryExtremesTest, MoveRendererOfWarpedLayerKeepsPlacementAndTakesWholePicture)
{
    ScenePlayer* scene = placedLayer();
    forEachCombination([&](int a, int b, int c, int d) {
        Record record = extremeRecord(a, b, c, d);
        record["isBezier"] = true;
        service().moveRenderer(record);
        expectPlacedAt(renderOn(scene, 1), 100, 50, 640, 360);
        // The whole original picture, its size kept as given (a zero size
        // makes the ratio 0/0, not a number, and nothing is exact then).
        const QRectF roi = renderOn(scene, 1)->regionOfInterest();
        if (c != 0) {
            EXPECT_EQ(roi.x(), 0.0);
            EXPECT_EQ(roi.width(), double(c));
        }
        if (d != 0) {
            EXPECT_EQ(roi.y(), 0.0);
            EXPECT_EQ(roi.height(), double(d));
        }
    });
}

TEST_F(GeometryExtremesTest, ResizeRendererBoundsBothPlacements)
{
    ScenePlayer* scene = placedLayer();
    for (bool rotated : {false, true}) {
        SCOPED_TRACE(rotated ? "rotated" : "unrotated");
        forEachCombination([&](int a, int b, int c, int d) {
            Record record = extremeRecord(a, b, c, d);
            record["isRotation"] = rotated;
            LogCapture log;
            service().resizeRenderer(record);
            if (rotated)
                expectPlacedAt(renderOn(scene, 1), b, a, d, c);
            else
                expectPlacedAt(renderOn(scene, 1), a, b, c, d);
            // The original size is a size in pixels of the picture, kept as given.
            EXPECT_EQ(renderOn(scene, 1)->originalSize(), QSizeF(c, d));
            expectReport(log, "resizeRenderer", !allInRange({a, b, c, d}));
        });
    }
}

TEST_F(GeometryExtremesTest, ValuesWithinThePlacementRangeAreKeptExactlyWithoutReport)
{
    ScenePlayer* scene = makeLayer();
    openScreen(1);
    LogCapture log;

    service().addRenderer(extremeRecord(-kLimit, kLimit, kLimit, -kLimit));
    expectPlacedAt(renderOn(scene, 1), -kLimit, kLimit, kLimit, -kLimit);
    service().moveRenderer(extremeRecord(kLimit, -kLimit, -kLimit, kLimit));
    expectPlacedAt(renderOn(scene, 1), kLimit, -kLimit, -kLimit, kLimit);
    service().resizeRenderer(extremeRecord(-1, 0, 1, 1920));
    expectPlacedAt(renderOn(scene, 1), -1, 0, 1, 1920);

    EXPECT_EQ(log.count(QStringLiteral("saturated")), 0);
}

TEST_F(GeometryExtremesTest, OneReportPerCommandNamingIt)
{
    ScenePlayer* scene = placedLayer();
    LogCapture log;

    // moveRenderer sets the placement twice on its way; one line tells it.
    service().moveRenderer(extremeRecord(INT_MAX, INT_MIN, INT_MAX, INT_MIN));
    service().resizeRenderer(extremeRecord(INT_MIN, INT_MAX, INT_MIN, INT_MAX));

    EXPECT_EQ(log.count(QStringLiteral("moveRenderer: saturated")), 1);
    EXPECT_EQ(log.count(QStringLiteral("resizeRenderer: saturated")), 1);
    EXPECT_EQ(log.count(QStringLiteral("saturated")), 2);
    expectPlacedAt(renderOn(scene, 1), INT_MIN, INT_MAX, INT_MIN, INT_MAX);
}

} // namespace
