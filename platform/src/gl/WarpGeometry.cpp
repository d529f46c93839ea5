// Region of interest, corner projection and Bezier patch tessellation for the
// output-screen compositor. Pure functions; see WarpGeometry.h.
#include "gl/WarpGeometry.h"

#include <QPolygonF>

#include <algorithm>
#include <cmath>
#include <vector>

namespace kelmor {
namespace gl {

namespace {

const QRectF kWholePicture(0.0, 0.0, 1.0, 1.0);
constexpr int kMaxPatches = 4096;
constexpr int kFloatsPerPatch = 32;
constexpr int kMaxSegments = 64;
// About 32 MiB of vertices and 48 MiB of indices at most.
constexpr qint64 kMaxVertices = qint64(1) << 21;

bool finite(double v) { return std::isfinite(v); }
bool finite(const QRectF& r) { return finite(r.x()) && finite(r.y()) && finite(r.width()) && finite(r.height()); }

void setWhy(QString* why, const QString& text)
{
    if (why)
        *why = text;
}

QString rectText(const QRectF& r)
{
    return QStringLiteral("(%1, %2, %3 x %4)").arg(r.x()).arg(r.y()).arg(r.width()).arg(r.height());
}

/// Distance of `p` from the line through `a` and `b` (the distance to `a`
/// when they coincide).
double distanceToLine(const QPointF& p, const QPointF& a, const QPointF& b)
{
    const double dx = b.x() - a.x(), dy = b.y() - a.y();
    const double len = std::hypot(dx, dy);
    if (len == 0.0)
        return std::hypot(p.x() - a.x(), p.y() - a.y());
    return std::abs(dx * (p.y() - a.y()) - dy * (p.x() - a.x())) / len;
}

/// Why the quad cannot be projected onto, or empty when it can.
QString degeneracy(const QVector<QPointF>& c)
{
    double minX = c[0].x(), maxX = minX, minY = c[0].y(), maxY = minY;
    for (int i = 0; i < 4; ++i) {
        if (!finite(c[i].x()) || !finite(c[i].y()))
            return QStringLiteral("corner %1 is not finite").arg(i);
        minX = std::min(minX, c[i].x());
        maxX = std::max(maxX, c[i].x());
        minY = std::min(minY, c[i].y());
        maxY = std::max(maxY, c[i].y());
    }
    const double scale = std::max(maxX - minX, maxY - minY);
    if (!(scale > 1e-9))
        return QStringLiteral("the corners coincide (zero area)");
    const double tolerance = 1e-4 * scale;
    for (int skip = 0; skip < 4; ++skip) {
        // The three corners other than `skip`: collinear when the one farthest
        // from the line through the other two is still within the tolerance,
        // i.e. the triangle's smallest height is below it.
        QPointF t[3];
        for (int i = 0, k = 0; i < 4; ++i)
            if (i != skip)
                t[k++] = c[i];
        const double h = std::max({distanceToLine(t[0], t[1], t[2]), distanceToLine(t[1], t[0], t[2]),
                                   distanceToLine(t[2], t[0], t[1])});
        if (h <= tolerance)
            return QStringLiteral("three corners are collinear (all but corner %1)").arg(skip);
    }
    return QString();
}

bool transformFinite(const QTransform& m)
{
    const double v[] = {m.m11(), m.m12(), m.m13(), m.m21(), m.m22(), m.m23(), m.m31(), m.m32(), m.m33()};
    return std::all_of(std::begin(v), std::end(v), [](double x) { return finite(x); });
}

struct Bernstein
{
    double b[4];
    explicit Bernstein(double s)
    {
        const double r = 1.0 - s;
        b[0] = r * r * r;
        b[1] = 3.0 * s * r * r;
        b[2] = 3.0 * s * s * r;
        b[3] = s * s * s;
    }
};

/// The 16 control points of one patch.
struct Patch
{
    QPointF p[4][4]; // [i = row, top to bottom][j = column, left to right]

    Patch(const QVector<float>& points, int index)
    {
        const float* f = points.constData() + qint64(index) * kFloatsPerPatch;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                p[i][j] = QPointF(f[(i * 4 + j) * 2], f[(i * 4 + j) * 2 + 1]);
    }

    QPointF at(const Bernstein& bs, const Bernstein& bt) const
    {
        double x = 0.0, y = 0.0;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j) {
                const double w = bt.b[i] * bs.b[j];
                x += w * p[i][j].x();
                y += w * p[i][j].y();
            }
        return QPointF(x, y);
    }

    /// Segments across and down that keep the linear mesh within `tolerance`
    /// of the surface (bounds derived in WarpGeometry.h).
    QSize segments(double tolerance) const
    {
        auto len = [](const QPointF& v) { return std::hypot(v.x(), v.y()); };
        double dss = 0.0, dtt = 0.0, dst = 0.0;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 2; ++j) {
                dss = std::max(dss, len(p[i][j + 2] - 2.0 * p[i][j + 1] + p[i][j]));
                dtt = std::max(dtt, len(p[j + 2][i] - 2.0 * p[j + 1][i] + p[j][i]));
            }
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                dst = std::max(dst, len(p[i + 1][j + 1] - p[i + 1][j] - p[i][j + 1] + p[i][j]));
        const double sss = 6.0 * dss, stt = 6.0 * dtt, sst = 9.0 * dst;
        auto count = [tolerance](double bound) {
            const double n = std::ceil(std::sqrt(bound / (4.0 * tolerance)));
            return !(n <= kMaxSegments) ? kMaxSegments : std::max(1, int(n));
        };
        return QSize(count(sss + sst), count(stt + sst));
    }
};

/// The roi handed to tessellatePatches, made safe to split into cells.
QRectF usableRoi(const QRectF& roi, QString* note)
{
    if (!finite(roi) || !(roi.width() > 0.0) || !(roi.height() > 0.0)) {
        *note = QStringLiteral("roi %1 unusable, whole picture used").arg(rectText(roi));
        return kWholePicture;
    }
    const QRectF clipped = roi.intersected(kWholePicture);
    if (!(clipped.width() > 0.0) || !(clipped.height() > 0.0)) {
        *note = QStringLiteral("roi %1 outside the picture, whole picture used").arg(rectText(roi));
        return kWholePicture;
    }
    if (clipped != roi)
        *note = QStringLiteral("roi %1 clipped to %2").arg(rectText(roi), rectText(clipped));
    return clipped;
}

/// Source rectangles of all patches, in index order, as left/top/right/bottom
/// so that neighbouring cells share their edges exactly.
struct Source
{
    double left, top, right, bottom;
};

QVector<Source> patchSources(int rows, int cols, const QVector<QRectF>& patchRoi, const QRectF& roi,
                             const QSizeF& original, QStringList* notes)
{
    const int count = rows * cols;
    QVector<Source> sources(count);
    if (patchRoi.size() >= count) {
        for (int p = 0; p < count; ++p) {
            QString why;
            const QRectF r = normalisedRoi(patchRoi[p], original, &why);
            if (!why.isEmpty())
                *notes << QStringLiteral("patch %1: %2").arg(p).arg(why);
            sources[p] = {r.left(), r.top(), r.left() + r.width(), r.top() + r.height()};
        }
        return sources;
    }
    QString note;
    const QRectF r = usableRoi(roi, &note);
    if (!note.isEmpty())
        *notes << note;
    for (int row = 0; row < rows; ++row)
        for (int col = 0; col < cols; ++col)
            sources[row * cols + col] = {r.x() + r.width() * col / cols, r.y() + r.height() * row / rows,
                                         r.x() + r.width() * (col + 1) / cols,
                                         r.y() + r.height() * (row + 1) / rows};
    return sources;
}

} // namespace

QRectF normalisedRoi(const QRectF& roi, const QSizeF& original, QString* why)
{
    setWhy(why, QString());
    if (roi.x() == 0.0 && roi.y() == 0.0 && roi.width() == 0.0 && roi.height() == 0.0)
        return kWholePicture;
    const double w = original.width(), h = original.height();
    if (!finite(w) || !finite(h) || !(w > 0.0) || !(h > 0.0)) {
        setWhy(why, QStringLiteral("original size %1 x %2 unusable, whole picture shown").arg(w).arg(h));
        return kWholePicture;
    }
    if (!finite(roi)) {
        setWhy(why, QStringLiteral("roi %1 not finite, whole picture shown").arg(rectText(roi)));
        return kWholePicture;
    }
    if (!(roi.width() > 0.0) || !(roi.height() > 0.0)) {
        setWhy(why, QStringLiteral("roi %1 empty or negative, whole picture shown").arg(rectText(roi)));
        return kWholePicture;
    }
    const double x0 = roi.x() / w, y0 = roi.y() / h;
    const double x1 = (roi.x() + roi.width()) / w, y1 = (roi.y() + roi.height()) / h;
    const double l = std::max(x0, 0.0), t = std::max(y0, 0.0);
    const double r = std::min(x1, 1.0), b = std::min(y1, 1.0);
    if (!(r > l) || !(b > t)) {
        setWhy(why, QStringLiteral("roi %1 outside the %2 x %3 picture, whole picture shown")
                        .arg(rectText(roi)).arg(w).arg(h));
        return kWholePicture;
    }
    const QRectF result(l, t, r - l, b - t);
    if (l != x0 || t != y0 || r != x1 || b != y1)
        setWhy(why, QStringLiteral("roi %1 clipped to the %2 x %3 picture").arg(rectText(roi)).arg(w).arg(h));
    return result;
}

bool quadProjection(const QVector<QPointF>& corners, QTransform* unitToQuad, QString* why)
{
    setWhy(why, QString());
    if (corners.size() < 4) {
        setWhy(why, QStringLiteral("quad needs 4 corners, got %1").arg(corners.size()));
        return false;
    }
    const QVector<QPointF> c = corners.mid(0, 4);
    const QString bad = degeneracy(c);
    if (!bad.isEmpty()) {
        setWhy(why, QStringLiteral("quad refused: %1").arg(bad));
        return false;
    }
    // Qt's square corners go (0,0), (1,0), (1,1), (0,1); setRect's order is
    // lt, lb, rb, rt.
    QPolygonF quad;
    quad << c[0] << c[3] << c[2] << c[1];
    QTransform m;
    if (!QTransform::squareToQuad(quad, m) || !transformFinite(m) || !m.isInvertible()) {
        setWhy(why, QStringLiteral("quad refused: no projective map onto it"));
        return false;
    }
    if (unitToQuad)
        *unitToQuad = m;
    if (corners.size() > 4)
        setWhy(why, QStringLiteral("quad: %1 corners after the fourth ignored").arg(corners.size() - 4));
    return true;
}

bool quadUnprojection(const QVector<QPointF>& corners, QTransform* quadToUnit, QString* why)
{
    QTransform forward;
    if (!quadProjection(corners, &forward, why))
        return false;
    bool ok = false;
    const QTransform inverse = forward.inverted(&ok);
    if (!ok || !transformFinite(inverse)) {
        setWhy(why, QStringLiteral("quad refused: projective map not invertible"));
        return false;
    }
    if (quadToUnit)
        *quadToUnit = inverse;
    return true;
}

bool tessellatePatches(int rows, int cols, const QVector<float>& points, const QVector<QRectF>& patchRoi,
                       const QRectF& roi, const QSizeF& original, PatchMesh* out, QString* why,
                       double tolerancePx)
{
    setWhy(why, QString());
    auto refuse = [&](const QString& text) {
        setWhy(why, QStringLiteral("patch warp refused: %1").arg(text));
        if (out)
            *out = PatchMesh();
        return false;
    };
    if (rows <= 0 || cols <= 0)
        return refuse(QStringLiteral("%1 x %2 patches").arg(rows).arg(cols));
    if (rows > kMaxPatches || cols > kMaxPatches || rows * cols > kMaxPatches)
        return refuse(QStringLiteral("%1 x %2 patches, at most %3").arg(rows).arg(cols).arg(kMaxPatches));
    const int count = rows * cols;
    const int needed = count * kFloatsPerPatch;
    if (points.size() < needed)
        return refuse(QStringLiteral("%1 floats of control points, %2 needed").arg(points.size()).arg(needed));
    for (int k = 0; k < needed; ++k)
        if (!finite(points[k]))
            return refuse(QStringLiteral("control-point float %1 (patch %2) not finite").arg(k).arg(k / kFloatsPerPatch));
    const double tolerance = !(tolerancePx > 0.0) || !finite(tolerancePx) ? 0.5 : std::max(tolerancePx, 0.01);

    QStringList notes;
    const QVector<Source> sources = patchSources(rows, cols, patchRoi, roi, original, &notes);
    std::vector<Patch> patches;
    patches.reserve(size_t(count));
    // A patch column shares its widest count across, a patch row its count down.
    QVector<int> across(cols, 1), down(rows, 1);
    for (int p = 0; p < count; ++p) {
        patches.emplace_back(points, p);
        const QSize n = patches.back().segments(tolerance);
        across[p % cols] = std::max(across[p % cols], n.width());
        down[p / cols] = std::max(down[p / cols], n.height());
    }
    auto totalVertices = [&] {
        qint64 a = 0, d = 0;
        for (int n : across)
            a += n + 1;
        for (int n : down)
            d += n + 1;
        return a * d;
    };
    if (totalVertices() > kMaxVertices) {
        notes << QStringLiteral("mesh limited to %1 vertices, tolerance %2 px not met").arg(kMaxVertices).arg(tolerance);
        // All ones give 4 * count <= 16384 vertices, so this ends.
        while (totalVertices() > kMaxVertices) {
            const double f = 0.99 * std::sqrt(double(kMaxVertices) / double(totalVertices()));
            for (int& n : across)
                n = std::max(1, int(n * f));
            for (int& n : down)
                n = std::max(1, int(n * f));
        }
    }

    PatchMesh mesh;
    mesh.vertices.reserve(int(totalVertices()));
    mesh.segments.reserve(count);
    for (int p = 0; p < count; ++p) {
        const int ns = across[p % cols], nt = down[p / cols];
        const Source& src = sources[p];
        const quint32 base = quint32(mesh.vertices.size());
        for (int l = 0; l <= nt; ++l) {
            const double t = double(l) / nt;
            const Bernstein bt(t);
            const double v = (1.0 - t) * src.top + t * src.bottom;
            for (int k = 0; k <= ns; ++k) {
                const double s = double(k) / ns;
                const QPointF xy = patches[size_t(p)].at(Bernstein(s), bt);
                const double u = (1.0 - s) * src.left + s * src.right;
                mesh.vertices.append({float(xy.x()), float(xy.y()), float(u), float(v)});
            }
        }
        for (int l = 0; l < nt; ++l)
            for (int k = 0; k < ns; ++k) {
                const quint32 a = base + quint32(l * (ns + 1) + k); // top left of the cell
                const quint32 b = a + quint32(ns + 1);              // bottom left
                mesh.indices << a << b << a + 1 << a + 1 << b << b + 1;
            }
        mesh.segments.append(QSize(ns, nt));
    }
    if (out)
        *out = mesh;
    setWhy(why, notes.join(QStringLiteral("; ")));
    return true;
}

QVector<float> rectanglePatchPoints(int rows, int cols, const QRectF& target)
{
    QVector<float> points;
    if (rows <= 0 || cols <= 0 || rows > kMaxPatches || cols > kMaxPatches || rows * cols > kMaxPatches
        || !finite(target))
        return points;
    points.reserve(rows * cols * kFloatsPerPatch);
    // Control point j of column c sits at (3c + j) / (3 cols) of the width, so
    // neighbours share their border points and the grid is evenly spaced.
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            for (int i = 0; i < 4; ++i)
                for (int j = 0; j < 4; ++j) {
                    points << float(target.x() + target.width() * (3 * c + j) / (3 * cols))
                           << float(target.y() + target.height() * (3 * r + i) / (3 * rows));
                }
    return points;
}

} // namespace gl
} // namespace kelmor
