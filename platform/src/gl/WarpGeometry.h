// CPU-side geometry of the output-screen compositor: where a layer's picture
// lands on the screen widget and which part of the picture it shows.
//
// Threading: pure functions without shared state; any thread may call them at
// any time. Lifetime/ownership: results are returned by value or written to
// the caller's out-parameters; nothing is kept. They never log: a `why`
// out-parameter says what was clamped, ignored or refused, and the caller
// (the GL compositor, once per settings change) logs it.
//
// Coordinates: widget pixels with a top-left origin; texture coordinates
// u,v in 0..1 of the whole source picture with v = 0 the top row; regions of
// interest in original-picture units (the picture's size W x H as the layer
// service reports it, e.g. 1920 x 1080).
//
// Bezier patch warp - the contract hosts compute their control points against:
//  - `rows` x `cols` patches; patch index p = r * cols + c, row-major, top row
//    first, left column first.
//  - `points` holds 32 floats per patch, patches in index order: 16 control
//    points P[i][j] (i = 0..3 top to bottom, j = 0..3 left to right,
//    row-major), each as x then y in widget pixels. Control point (i, j) of
//    patch p is at points[p * 32 + (i * 4 + j) * 2] (x) and the float after
//    it (y). Floats after rows * cols * 32 are ignored.
//  - `patchRoi` (original-picture units, one rectangle per patch in index
//    order) is the part of the picture that patch shows; each rectangle goes
//    through normalisedRoi. When it has fewer rectangles than patches, none
//    of them is used: patch (r, c) shows cell (r, c) of `roi` (already
//    normalised, as from normalisedRoi) split evenly into rows x cols.
//  - The patch parameter (s, t) in [0,1]^2 maps linearly onto the patch's
//    source rectangle (s across, t down) and through the bicubic Bezier
//    surface S(s, t) = sum_i sum_j B_i(t) B_j(s) P[i][j] onto widget pixels.
//  - Neighbouring patches join without gaps when they share their border
//    control points: the mesh puts its vertices at the same positions along
//    a shared border.
#pragma once

#include "KelmorPlatformExport.h"

#include <QPointF>
#include <QRectF>
#include <QSize>
#include <QSizeF>
#include <QString>
#include <QTransform>
#include <QVector>

namespace kelmor {
namespace gl {

/// One mesh vertex: x, y in widget pixels; u, v texture coordinates 0..1 of
/// the whole source picture, top-left origin (v = 0 is the top row).
struct WarpVertex
{
    float x, y;
    float u, v;
};

/// The region of interest as normalised texture coordinates of the picture,
/// clamped to [0,1] x [0,1]. An empty, NaN/inf, negative-size or wholly
/// outside region (or an original size <= 0 / non-finite) gives the whole
/// picture (0,0,1,1); when something was clamped or ignored, *why (if given)
/// says what, otherwise *why is cleared. A null ROI (exactly 0,0,0,0) means
/// "not set": the whole picture, no message.
KELMOR_PLATFORM_EXPORT QRectF normalisedRoi(const QRectF& roi, const QSizeF& original,
                                            QString* why = nullptr);

/// The projective map (homography) taking the unit square (0,0)-(1,1) onto
/// the quadrilateral given in setRect order (lt, lb, rb, rt):
/// (0,0)->lt, (0,1)->lb, (1,1)->rb, (1,0)->rt. Only the first four corners
/// are used (more give a note in *why). False (and *why; *unitToQuad
/// untouched) when fewer than 4 corners, any coordinate non-finite, or the
/// quad is degenerate: all corners within 1e-9 px of each other, or any
/// three corners collinear - one of them closer than 1e-4 of the quad's
/// larger bounding-box side to the line through the other two. A crossed
/// (bow-tie) quad whose homography exists is accepted and drawn as given.
KELMOR_PLATFORM_EXPORT bool quadProjection(const QVector<QPointF>& corners, QTransform* unitToQuad,
                                           QString* why = nullptr);

/// The inverse of quadProjection (widget pixel -> unit square), for the
/// fragment shader. Same refusals as quadProjection.
KELMOR_PLATFORM_EXPORT bool quadUnprojection(const QVector<QPointF>& corners, QTransform* quadToUnit,
                                             QString* why = nullptr);

/// A triangle mesh of a patch warp, ready to upload.
struct PatchMesh
{
    QVector<WarpVertex> vertices;
    /// Triangles, three vertex indices each.
    QVector<quint32> indices;
    /// Per patch in index order: segments across (width) and down (height)
    /// the patch was cut into. Patch p's vertices are a row-major
    /// (height + 1) x (width + 1) grid, the blocks in patch order.
    QVector<QSize> segments;
};

/// Tessellates a Bezier patch warp (layout at the top of this header) into
/// triangles.
///
/// Segments: the distance between the piecewise-linear mesh and the true
/// surface is bounded through the second derivatives, which the control
/// points' second differences bound: |S_ss| <= 6 max|d2s P|,
/// |S_tt| <= 6 max|d2t P|, |S_st| <= 9 max|dsdt P|. With cells of 1/ns x 1/nt
/// the error is at most (|S_ss|/ns^2 + 2|S_st|/(ns nt) + |S_tt|/nt^2) / 8,
/// kept within `tolerancePx` by ns = ceil(sqrt((|S_ss|+|S_st|) / (4 tol))) and
/// nt likewise, each clamped to [1, 64]. A patch whose control points lie on
/// a plane-affine grid (e.g. the plain rectangle) gets 1 x 1. A patch column
/// shares the largest `ns` of its patches and a patch row the largest `nt`, so
/// shared borders have the same vertices (no cracks). Should the mesh exceed
/// 2^21 vertices, every count is scaled down (the tolerance is then not met
/// and *why says so).
///
/// Returns true with *out filled; *why then is empty, or lists the patch
/// rectangles that normalisedRoi clamped or ignored. Returns false, with *why
/// set and *out cleared, when rows <= 0, cols <= 0, rows * cols > 4096,
/// `points` is shorter than rows * cols * 32, or any used float is
/// non-finite; the caller then draws without the warp. A non-finite or
/// non-positive tolerance is taken as 0.5 px; tolerances below 0.01 px as
/// 0.01 px. An empty or non-finite `roi` reads as the whole picture, and it
/// is clipped to [0,1]^2.
KELMOR_PLATFORM_EXPORT bool tessellatePatches(int rows, int cols, const QVector<float>& points,
                                              const QVector<QRectF>& patchRoi, const QRectF& roi,
                                              const QSizeF& original, PatchMesh* out,
                                              QString* why = nullptr, double tolerancePx = 0.5);

/// Control points (32 floats per patch, layout above) that describe the plain
/// rectangle `target` (widget pixels) cut into rows x cols equal patches, for
/// hosts and tests: a warp made from them draws exactly like the unwarped
/// picture. Empty for rows <= 0, cols <= 0, rows * cols > 4096 or a
/// non-finite target.
KELMOR_PLATFORM_EXPORT QVector<float> rectanglePatchPoints(int rows, int cols, const QRectF& target);

} // namespace gl
} // namespace kelmor
