// Geometry of the output-screen compositor: region of interest, corner
// projection and Bezier patch tessellation.
#include "gl/WarpGeometry.h"

#include <QTransform>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using kelmor::gl::PatchMesh;
using kelmor::gl::WarpVertex;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

// --- region of interest ------------------------------------------------------

TEST(NormalisedRoi, QuadrantOfTheSmallPictureIsHalfWidthAndHeight)
{
    QString why = QStringLiteral("stale");
    const QRectF r = kelmor::gl::normalisedRoi(QRectF(160, 0, 160, 90), QSizeF(320, 180), &why);
    EXPECT_EQ(r, QRectF(0.5, 0.0, 0.5, 0.5));
    EXPECT_TRUE(why.isEmpty()) << why.toStdString();
}

TEST(NormalisedRoi, NullRegionMeansWholePictureWithoutMessage)
{
    QString why = QStringLiteral("stale");
    EXPECT_EQ(kelmor::gl::normalisedRoi(QRectF(0, 0, 0, 0), QSizeF(320, 180), &why), QRectF(0, 0, 1, 1));
    EXPECT_TRUE(why.isEmpty());
    // Not set stays silent even when the original size is not known yet.
    EXPECT_EQ(kelmor::gl::normalisedRoi(QRectF(), QSizeF(), &why), QRectF(0, 0, 1, 1));
    EXPECT_TRUE(why.isEmpty());
}

TEST(NormalisedRoi, NotFiniteRegionGivesWholePictureWithMessage)
{
    for (const QRectF& bad : {QRectF(kNaN, 0, 10, 10), QRectF(0, 0, kInf, 10), QRectF(0, 0, 10, kNaN)}) {
        QString why;
        EXPECT_EQ(kelmor::gl::normalisedRoi(bad, QSizeF(320, 180), &why), QRectF(0, 0, 1, 1));
        EXPECT_TRUE(why.contains("not finite")) << why.toStdString();
    }
}

TEST(NormalisedRoi, NegativeOrEmptySizeGivesWholePictureWithMessage)
{
    for (const QRectF& bad : {QRectF(10, 10, -50, 20), QRectF(10, 10, 50, -1), QRectF(10, 10, 0, 0)}) {
        QString why;
        EXPECT_EQ(kelmor::gl::normalisedRoi(bad, QSizeF(320, 180), &why), QRectF(0, 0, 1, 1));
        EXPECT_TRUE(why.contains("empty or negative")) << why.toStdString();
    }
}

TEST(NormalisedRoi, PartlyOutsideRegionIsClippedToThePicture)
{
    QString why;
    const QRectF r = kelmor::gl::normalisedRoi(QRectF(-32, 90, 64, 180), QSizeF(320, 180), &why);
    EXPECT_DOUBLE_EQ(r.x(), 0.0);
    EXPECT_DOUBLE_EQ(r.y(), 0.5);
    EXPECT_DOUBLE_EQ(r.width(), 0.1);
    EXPECT_DOUBLE_EQ(r.height(), 0.5);
    EXPECT_TRUE(why.contains("clipped")) << why.toStdString();
}

TEST(NormalisedRoi, WhollyOutsideRegionGivesWholePicture)
{
    QString why;
    EXPECT_EQ(kelmor::gl::normalisedRoi(QRectF(400, 0, 50, 50), QSizeF(320, 180), &why), QRectF(0, 0, 1, 1));
    EXPECT_TRUE(why.contains("outside")) << why.toStdString();
    // Touching the picture's edge only is outside too.
    EXPECT_EQ(kelmor::gl::normalisedRoi(QRectF(320, 0, 50, 50), QSizeF(320, 180), &why), QRectF(0, 0, 1, 1));
    EXPECT_TRUE(why.contains("outside")) << why.toStdString();
}

TEST(NormalisedRoi, UnusableOriginalSizeGivesWholePicture)
{
    for (const QSizeF& bad : {QSizeF(0, 180), QSizeF(320, -1), QSizeF(kNaN, 180), QSizeF(320, kInf)}) {
        QString why;
        EXPECT_EQ(kelmor::gl::normalisedRoi(QRectF(10, 10, 50, 50), bad, &why), QRectF(0, 0, 1, 1));
        EXPECT_TRUE(why.contains("original size")) << why.toStdString();
    }
    // Without a `why` it still answers.
    EXPECT_EQ(kelmor::gl::normalisedRoi(QRectF(10, 10, 50, 50), QSizeF()), QRectF(0, 0, 1, 1));
}

// --- corner projection -------------------------------------------------------

QVector<QPointF> quad(QPointF lt, QPointF lb, QPointF rb, QPointF rt)
{
    return {lt, lb, rb, rt};
}

void expectNear(const QPointF& actual, const QPointF& expected, double tolerance)
{
    EXPECT_NEAR(actual.x(), expected.x(), tolerance);
    EXPECT_NEAR(actual.y(), expected.y(), tolerance);
}

TEST(QuadProjection, MapsUnitCornersOntoCornersInSetRectOrder)
{
    const auto c = quad({112.5, 40}, {90, 1000}, {1800, 1070}, {1650, 20});
    QTransform m;
    QString why = QStringLiteral("stale");
    ASSERT_TRUE(kelmor::gl::quadProjection(c, &m, &why));
    EXPECT_TRUE(why.isEmpty());
    expectNear(m.map(QPointF(0, 0)), c[0], 1e-9);
    expectNear(m.map(QPointF(0, 1)), c[1], 1e-9);
    expectNear(m.map(QPointF(1, 1)), c[2], 1e-9);
    expectNear(m.map(QPointF(1, 0)), c[3], 1e-9);
}

TEST(QuadProjection, UnprojectionTakesCornersAndInnerPointsBack)
{
    const auto c = quad({112.5, 40}, {90, 1000}, {1800, 1070}, {1650, 20});
    QTransform forward, back;
    ASSERT_TRUE(kelmor::gl::quadProjection(c, &forward));
    ASSERT_TRUE(kelmor::gl::quadUnprojection(c, &back));
    expectNear(back.map(c[0]), QPointF(0, 0), 1e-12);
    expectNear(back.map(c[1]), QPointF(0, 1), 1e-12);
    expectNear(back.map(c[2]), QPointF(1, 1), 1e-12);
    expectNear(back.map(c[3]), QPointF(1, 0), 1e-12);
    for (const QPointF& p : {QPointF(0.25, 0.75), QPointF(0.5, 0.5), QPointF(0.9, 0.1)})
        expectNear(back.map(forward.map(p)), p, 1e-12);
}

TEST(QuadProjection, TrapezoidCentreIsWhereTheDiagonalsCrossNotTheCornerAverage)
{
    // Top edge 200 px wide, bottom 800 px: the diagonals lt-rb and rt-lb
    // cross at (400, 180); the average of the corners is (400, 300).
    const auto c = quad({300, 100}, {0, 500}, {800, 500}, {500, 100});
    QTransform m;
    ASSERT_TRUE(kelmor::gl::quadProjection(c, &m));
    const QPointF centre = m.map(QPointF(0.5, 0.5));
    expectNear(centre, QPointF(400, 180), 1e-9);
    const QPointF average = (c[0] + c[1] + c[2] + c[3]) / 4.0;
    EXPECT_EQ(average, QPointF(400, 300));
    EXPECT_GT(std::hypot(centre.x() - average.x(), centre.y() - average.y()), 5.0);
}

TEST(QuadProjection, DegenerateQuadsAreRefusedWithAMessage)
{
    const QTransform marker(2, 0, 0, 2, 7, 7);
    struct Case
    {
        const char* name;
        QVector<QPointF> corners;
        const char* message;
    };
    const Case cases[] = {
        {"three collinear", quad({0, 0}, {100, 100}, {200, 200}, {300, 0}), "collinear"},
        {"all equal", quad({50, 50}, {50, 50}, {50, 50}, {50, 50}), "coincide"},
        {"NaN corner", quad({0, 0}, {0, kNaN}, {100, 100}, {100, 0}), "not finite"},
        {"infinite corner", quad({0, 0}, {0, 100}, {kInf, 100}, {100, 0}), "not finite"},
        {"three corners", {QPointF(0, 0), QPointF(0, 100), QPointF(100, 100)}, "4 corners"},
        {"nearly collinear", quad({0, 0}, {500, 0.05}, {1000, 0}, {500, 800}), "collinear"},
    };
    for (const Case& k : cases) {
        QTransform m = marker, inv = marker;
        QString why;
        EXPECT_FALSE(kelmor::gl::quadProjection(k.corners, &m, &why)) << k.name;
        EXPECT_TRUE(why.contains(k.message)) << k.name << ": " << why.toStdString();
        EXPECT_EQ(m, marker) << k.name;
        EXPECT_FALSE(kelmor::gl::quadUnprojection(k.corners, &inv)) << k.name;
        EXPECT_EQ(inv, marker) << k.name;
    }
    // A corner 10 px off the line is a thin but proper quad.
    QTransform m;
    EXPECT_TRUE(kelmor::gl::quadProjection(quad({0, 0}, {500, 10}, {1000, 0}, {500, 800}), &m));
}

TEST(QuadProjection, CrossedQuadIsAcceptedAndDrawnAsGiven)
{
    // Right-bottom and right-top swapped: a bow tie.
    const auto c = quad({0, 0}, {0, 100}, {100, 0}, {100, 100});
    QTransform m, inv;
    QString why;
    ASSERT_TRUE(kelmor::gl::quadProjection(c, &m, &why)) << why.toStdString();
    ASSERT_TRUE(kelmor::gl::quadUnprojection(c, &inv, &why)) << why.toStdString();
    expectNear(m.map(QPointF(0, 0)), c[0], 1e-9);
    expectNear(m.map(QPointF(0, 1)), c[1], 1e-9);
    expectNear(m.map(QPointF(1, 1)), c[2], 1e-9);
    expectNear(m.map(QPointF(1, 0)), c[3], 1e-9);
    expectNear(inv.map(c[2]), QPointF(1, 1), 1e-9);
}

TEST(QuadProjection, CornersAfterTheFourthAreIgnoredWithANote)
{
    auto c = quad({0, 0}, {0, 100}, {100, 100}, {100, 0});
    c << QPointF(5000, 5000);
    QTransform m;
    QString why;
    ASSERT_TRUE(kelmor::gl::quadProjection(c, &m, &why));
    EXPECT_TRUE(why.contains("ignored")) << why.toStdString();
    expectNear(m.map(QPointF(1, 1)), QPointF(100, 100), 1e-9);
}

// --- Bezier patch warp -------------------------------------------------------

/// The patch surface at (s, t) by de Casteljau, independent of the code
/// under test.
QPointF bezier(const QVector<float>& points, int patch, double s, double t)
{
    auto lerp = [](QPointF a, QPointF b, double x) { return a + (b - a) * x; };
    auto curve = [&](QPointF p0, QPointF p1, QPointF p2, QPointF p3, double x) {
        const QPointF a = lerp(p0, p1, x), b = lerp(p1, p2, x), c = lerp(p2, p3, x);
        return lerp(lerp(a, b, x), lerp(b, c, x), x);
    };
    QPointF column[4];
    for (int i = 0; i < 4; ++i) {
        QPointF row[4];
        for (int j = 0; j < 4; ++j) {
            const int k = patch * 32 + (i * 4 + j) * 2;
            row[j] = QPointF(points[k], points[k + 1]);
        }
        column[i] = curve(row[0], row[1], row[2], row[3], s);
    }
    return curve(column[0], column[1], column[2], column[3], t);
}

/// Moves control point (i, j) of `patch` by (dx, dy).
void move(QVector<float>* points, int patch, int i, int j, float dx, float dy)
{
    (*points)[patch * 32 + (i * 4 + j) * 2] += dx;
    (*points)[patch * 32 + (i * 4 + j) * 2 + 1] += dy;
}

/// Patch parameter of a vertex of a single patch that shows the whole picture.
QPointF param(const WarpVertex& v) { return QPointF(v.u, v.v); }

QPointF position(const WarpVertex& v) { return QPointF(v.x, v.y); }

/// Largest distance between the midpoints of the mesh's triangle edges (and
/// the triangles' centroids) and the surface at the same parameter.
double maxMidpointDeviation(const PatchMesh& mesh, const QVector<float>& points)
{
    double worst = 0.0;
    for (int k = 0; k + 2 < mesh.indices.size(); k += 3) {
        const WarpVertex* v[3] = {&mesh.vertices[int(mesh.indices[k])], &mesh.vertices[int(mesh.indices[k + 1])],
                                  &mesh.vertices[int(mesh.indices[k + 2])]};
        for (int e = 0; e < 3; ++e) {
            const WarpVertex& a = *v[e];
            const WarpVertex& b = *v[(e + 1) % 3];
            const QPointF st = (param(a) + param(b)) / 2.0;
            const QPointF d = (position(a) + position(b)) / 2.0 - bezier(points, 0, st.x(), st.y());
            worst = std::max(worst, std::hypot(d.x(), d.y()));
        }
        const QPointF st = (param(*v[0]) + param(*v[1]) + param(*v[2])) / 3.0;
        const QPointF d = (position(*v[0]) + position(*v[1]) + position(*v[2])) / 3.0 - bezier(points, 0, st.x(), st.y());
        worst = std::max(worst, std::hypot(d.x(), d.y()));
    }
    return worst;
}

const QRectF kWhole(0, 0, 1, 1);
const QSizeF kPicture(1920, 1080);

TEST(PatchTessellation, PlainRectangleGivesOneCellPerPatchOnTheRectangle)
{
    const QRectF target(100, 50, 1920, 1080);
    const QVector<float> points = kelmor::gl::rectanglePatchPoints(2, 3, target);
    ASSERT_EQ(points.size(), 2 * 3 * 32);
    PatchMesh mesh;
    QString why = QStringLiteral("stale");
    ASSERT_TRUE(kelmor::gl::tessellatePatches(2, 3, points, {}, kWhole, kPicture, &mesh, &why));
    EXPECT_TRUE(why.isEmpty()) << why.toStdString();
    ASSERT_EQ(mesh.segments.size(), 6);
    for (const QSize& n : mesh.segments)
        EXPECT_EQ(n, QSize(1, 1));
    ASSERT_EQ(mesh.vertices.size(), 6 * 4);
    ASSERT_EQ(mesh.indices.size(), 6 * 6);
    for (int p = 0; p < 6; ++p) {
        const int r = p / 3, c = p % 3;
        for (int corner = 0; corner < 4; ++corner) {
            const int down = corner / 2, across = corner % 2;
            const WarpVertex& v = mesh.vertices[p * 4 + corner];
            EXPECT_EQ(v.x, float(100 + 1920.0 * (c + across) / 3)) << p << "/" << corner;
            EXPECT_EQ(v.y, float(50 + 1080.0 * (r + down) / 2)) << p << "/" << corner;
            EXPECT_FLOAT_EQ(v.u, float((c + across) / 3.0)) << p << "/" << corner;
            EXPECT_FLOAT_EQ(v.v, float((r + down) / 2.0)) << p << "/" << corner;
            // Drawn exactly like the unwarped picture: u, v follow x, y linearly.
            EXPECT_NEAR(v.u, (v.x - 100.0) / 1920.0, 1e-6);
            EXPECT_NEAR(v.v, (v.y - 50.0) / 1080.0, 1e-6);
        }
    }
    // The outer corners are the rectangle's exactly.
    EXPECT_EQ(position(mesh.vertices[0]), QPointF(100, 50));
    EXPECT_EQ(position(mesh.vertices[5 * 4 + 3]), QPointF(2020, 1130));
    for (quint32 index : mesh.indices)
        EXPECT_LT(index, quint32(mesh.vertices.size()));
}

TEST(PatchTessellation, CurvedPatchGetsMoreSegmentsAndItsVerticesLieOnTheSurface)
{
    QVector<float> mild = kelmor::gl::rectanglePatchPoints(1, 1, QRectF(0, 0, 1920, 1080));
    QVector<float> strong = mild;
    for (int i = 0; i < 4; ++i) {
        move(&mild, 0, i, 1, 0, 8);
        move(&mild, 0, i, 2, 0, 8);
        move(&strong, 0, i, 1, 0, 400);
        move(&strong, 0, i, 2, 0, 400);
    }
    PatchMesh mildMesh, strongMesh;
    ASSERT_TRUE(kelmor::gl::tessellatePatches(1, 1, mild, {}, kWhole, kPicture, &mildMesh));
    ASSERT_TRUE(kelmor::gl::tessellatePatches(1, 1, strong, {}, kWhole, kPicture, &strongMesh));
    EXPECT_GT(mildMesh.segments[0].width(), 1);
    EXPECT_GT(strongMesh.segments[0].width(), mildMesh.segments[0].width());
    EXPECT_LE(strongMesh.segments[0].width(), 64);
    // Bent across only: one segment down is exact.
    EXPECT_EQ(strongMesh.segments[0].height(), 1);
    const QSize n = strongMesh.segments[0];
    ASSERT_EQ(strongMesh.vertices.size(), (n.width() + 1) * (n.height() + 1));
    ASSERT_EQ(strongMesh.indices.size(), n.width() * n.height() * 6);
    for (const WarpVertex& v : strongMesh.vertices) {
        const QPointF d = position(v) - bezier(strong, 0, v.u, v.v);
        EXPECT_LE(std::hypot(d.x(), d.y()), 1e-3) << v.u << "," << v.v;
    }
    // A smaller tolerance asks for more segments.
    PatchMesh fine;
    ASSERT_TRUE(kelmor::gl::tessellatePatches(1, 1, mild, {}, kWhole, kPicture, &fine, nullptr, 0.05));
    EXPECT_GT(fine.segments[0].width(), mildMesh.segments[0].width());
}

TEST(PatchTessellation, BulgeOf300PxOver3840PxStaysWithinHalfAPixel)
{
    // The top edge bows down 300 px in its middle (control points 400 px
    // down give 3/4 of that on the curve); the bottom edge stays straight.
    QVector<float> points = kelmor::gl::rectanglePatchPoints(1, 1, QRectF(0, 0, 3840, 2160));
    move(&points, 0, 0, 1, 0, 400);
    move(&points, 0, 0, 2, 0, 400);
    EXPECT_NEAR(bezier(points, 0, 0.5, 0).y(), 300.0, 1e-9);
    PatchMesh mesh;
    ASSERT_TRUE(kelmor::gl::tessellatePatches(1, 1, points, {}, kWhole, QSizeF(3840, 2160), &mesh));
    EXPECT_GT(mesh.segments[0].width(), 1);
    EXPECT_GT(mesh.segments[0].height(), 1);
    const double deviation = maxMidpointDeviation(mesh, points);
    std::printf("bulge mesh %d x %d segments, max midpoint deviation %.4f px\n", mesh.segments[0].width(),
                mesh.segments[0].height(), deviation);
    EXPECT_LE(deviation, 0.5);
    EXPECT_GT(deviation, 0.0); // the measure does see the curvature
}

TEST(PatchTessellation, GivenPatchRoiIsUsedPerPatchOtherwiseTheRoiIsSplit)
{
    const QVector<float> points = kelmor::gl::rectanglePatchPoints(1, 2, QRectF(0, 0, 640, 360));
    const QSizeF original(320, 180);
    PatchMesh given, derived;
    QString why;
    // Each patch shows the other half of the picture (swapped halves).
    ASSERT_TRUE(kelmor::gl::tessellatePatches(1, 2, points, {QRectF(160, 0, 160, 180), QRectF(0, 90, 160, 90)},
                                              QRectF(0.5, 0, 0.5, 0.5), original, &given, &why));
    EXPECT_TRUE(why.isEmpty()) << why.toStdString();
    ASSERT_EQ(given.vertices.size(), 8);
    EXPECT_FLOAT_EQ(given.vertices[0].u, 0.5f);
    EXPECT_FLOAT_EQ(given.vertices[0].v, 0.0f);
    EXPECT_FLOAT_EQ(given.vertices[3].u, 1.0f);
    EXPECT_FLOAT_EQ(given.vertices[3].v, 1.0f);
    EXPECT_FLOAT_EQ(given.vertices[4].u, 0.0f);
    EXPECT_FLOAT_EQ(given.vertices[4].v, 0.5f);
    EXPECT_FLOAT_EQ(given.vertices[7].u, 0.5f);
    EXPECT_FLOAT_EQ(given.vertices[7].v, 1.0f);
    // One rectangle for two patches is too few: the roi's halves are used.
    ASSERT_TRUE(kelmor::gl::tessellatePatches(1, 2, points, {QRectF(0, 0, 10, 10)}, QRectF(0.5, 0, 0.5, 0.5),
                                              original, &derived, &why));
    ASSERT_EQ(derived.vertices.size(), 8);
    const float expected[8][2] = {{0.5f, 0}, {0.75f, 0}, {0.5f, 0.5f}, {0.75f, 0.5f},
                                  {0.75f, 0}, {1, 0},     {0.75f, 0.5f}, {1, 0.5f}};
    for (int k = 0; k < 8; ++k) {
        EXPECT_FLOAT_EQ(derived.vertices[k].u, expected[k][0]) << k;
        EXPECT_FLOAT_EQ(derived.vertices[k].v, expected[k][1]) << k;
    }
    // A given rectangle that normalisedRoi clips is named in the message.
    ASSERT_TRUE(kelmor::gl::tessellatePatches(1, 2, points, {QRectF(0, 0, 160, 180), QRectF(160, 0, 400, 180)},
                                              kWhole, original, &given, &why));
    EXPECT_TRUE(why.contains("patch 1")) << why.toStdString();
    EXPECT_FLOAT_EQ(given.vertices[7].u, 1.0f);
}

TEST(PatchTessellation, NeighboursShareTheirBorderVertices)
{
    // Left patch strongly bent, right one plain; they share the middle column
    // of control points, bent down by 100 px.
    QVector<float> points = kelmor::gl::rectanglePatchPoints(1, 2, QRectF(0, 0, 2000, 1000));
    move(&points, 0, 1, 1, 0, 300);
    move(&points, 0, 2, 1, 0, -300);
    for (int i = 0; i < 4; ++i) {
        move(&points, 0, i, 3, 0, 100);
        move(&points, 1, i, 0, 0, 100);
    }
    PatchMesh mesh;
    ASSERT_TRUE(kelmor::gl::tessellatePatches(1, 2, points, {}, kWhole, kPicture, &mesh));
    const QSize left = mesh.segments[0], right = mesh.segments[1];
    EXPECT_EQ(left.height(), right.height());
    EXPECT_GT(left.height(), 1);
    const int leftVertices = (left.width() + 1) * (left.height() + 1);
    for (int l = 0; l <= left.height(); ++l) {
        const WarpVertex& a = mesh.vertices[l * (left.width() + 1) + left.width()];
        const WarpVertex& b = mesh.vertices[leftVertices + l * (right.width() + 1)];
        EXPECT_EQ(position(a), position(b)) << l;
        EXPECT_EQ(a.u, b.u);
        EXPECT_EQ(a.v, b.v);
    }
}

TEST(PatchTessellation, BadInputIsRefusedWithAMessage)
{
    const QVector<float> points = kelmor::gl::rectanglePatchPoints(2, 2, QRectF(0, 0, 100, 100));
    QVector<float> withNaN = points;
    withNaN[2 * 32 + 5] = std::numeric_limits<float>::quiet_NaN();
    QVector<float> withInf = points;
    withInf[127] = std::numeric_limits<float>::infinity();
    struct Case
    {
        const char* name;
        int rows, cols;
        QVector<float> points;
        const char* message;
    };
    const Case cases[] = {
        {"rows 0", 0, 2, points, "0 x 2"},
        {"cols negative", 2, -1, points, "2 x -1"},
        {"too many", 65, 64, QVector<float>(65 * 64 * 32, 1.0f), "at most 4096"},
        {"huge", 1 << 20, 1 << 20, points, "at most 4096"},
        {"short data", 2, 2, points.mid(0, 127), "127 floats"},
        {"NaN", 2, 2, withNaN, "patch 2"},
        {"inf", 2, 2, withInf, "patch 3"},
    };
    for (const Case& k : cases) {
        PatchMesh mesh;
        mesh.vertices.append({1, 2, 3, 4});
        QString why;
        EXPECT_FALSE(kelmor::gl::tessellatePatches(k.rows, k.cols, k.points, {}, kWhole, kPicture, &mesh, &why))
            << k.name;
        EXPECT_TRUE(why.contains(k.message)) << k.name << ": " << why.toStdString();
        EXPECT_TRUE(mesh.vertices.isEmpty()) << k.name;
        EXPECT_TRUE(mesh.indices.isEmpty()) << k.name;
    }
    // A NaN after the floats the patches need is ignored, as are extra floats.
    QVector<float> longer = points;
    longer << std::numeric_limits<float>::quiet_NaN() << 5.0f;
    PatchMesh mesh;
    EXPECT_TRUE(kelmor::gl::tessellatePatches(2, 2, longer, {}, kWhole, kPicture, &mesh));
    EXPECT_EQ(mesh.vertices.size(), 16);
    // A broken roi reads as the whole picture.
    QString why;
    EXPECT_TRUE(kelmor::gl::tessellatePatches(2, 2, points, {}, QRectF(kNaN, 0, 1, 1), kPicture, &mesh, &why));
    EXPECT_TRUE(why.contains("whole picture")) << why.toStdString();
    EXPECT_FLOAT_EQ(mesh.vertices.last().u, 1.0f);
}

TEST(PatchTessellation, RectanglePointsRefuseBadInput)
{
    EXPECT_TRUE(kelmor::gl::rectanglePatchPoints(0, 3, QRectF(0, 0, 10, 10)).isEmpty());
    EXPECT_TRUE(kelmor::gl::rectanglePatchPoints(3, -2, QRectF(0, 0, 10, 10)).isEmpty());
    EXPECT_TRUE(kelmor::gl::rectanglePatchPoints(100, 100, QRectF(0, 0, 10, 10)).isEmpty());
    EXPECT_TRUE(kelmor::gl::rectanglePatchPoints(1, 1, QRectF(0, kNaN, 10, 10)).isEmpty());
}

} // namespace
