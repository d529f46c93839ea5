// Draws one render object's picture into a screen's compose framebuffer.
//
// Three ways to place the picture, chosen from the render object's settings:
// - a Bezier patch warp (rows x cols patches, WarpGeometry.h), drawn as a
//   mesh tessellated when the settings change;
// - four corners: the region of interest is mapped onto the quadrilateral
//   projectively (the fragment shader inverts the quad's homography per
//   pixel, so the mapping is exact, not the bilinear one of two triangles);
//   a crossed or concave quad, which no projective map fills, is drawn as
//   given: two triangles (lt-lb-rb, lt-rb-rt), each mapped affinely;
// - otherwise the geometry rectangle.
// Settings that cannot be drawn (non-finite numbers, degenerate quads, short
// patch data, empty rectangles) fall back to the next way, with one debug line
// per change of settings; nothing undefined is ever drawn.
//
// Layer effects (EffectSettings.h) and the player's fade opacity are applied
// in the fragment shader; the picture is blended over what is below it.
//
// Threading: GUI thread with the compositor's context current. The geometry of
// each render object is cached under its settings revision: nothing is
// allocated on the draw path while settings stay the same.
#pragma once

#include "NoxOpenGLRender.h"
#include "VideoFrameSource.h"
#include "gl/EffectSettings.h"
#include "gl/WarpGeometry.h"

#include <QHash>
#include <QOpenGLShaderProgram>
#include <QTransform>
#include <memory>

namespace kelmor::gl {

/// How a render object is placed, computed from its settings.
struct Placement
{
    enum Mode { None, Mesh, Quad };
    Mode mode = None;
    quint64 revision = 0;
    QVector<WarpVertex> vertices;   // Mesh: triangles' vertices
    QVector<quint32> indices;       // Mesh: triangles
    QTransform quadToUnit;          // Quad: widget pixel -> unit square
    QVector<WarpVertex> quadCover;  // Quad: the quad's two triangles (x, y only)
    QRectF roi;                     // normalised region of interest (Quad)
    QRectF extent;                  // widget pixels covered
    QRect plainRect;                // the whole picture in this rectangle, nothing else
                                    // (the geometry, no warp, no region of interest); else null
};

/// Computes a placement (also used to size the player's texture).
Placement placementFor(const QtAV::RenderDrawState& state, const QSizeF& pictureSize);

class LayerPainter
{
public:
    LayerPainter();
    ~LayerPainter();

    /// Draws `texture` with `placement` onto the bound framebuffer of
    /// `target` pixels, faded to `opacity` and with `effects`.
    void draw(const Placement& placement, const QtAV::FrameTexture& texture, const QSize& target,
              float opacity, const LayerEffects& effects);

private:
    bool ensurePrograms();
    void setCommonUniforms(QOpenGLShaderProgram& program, const QtAV::FrameTexture& texture,
                           const QSize& target, float opacity, const LayerEffects& effects);

    std::unique_ptr<QOpenGLShaderProgram> m_mesh;
    std::unique_ptr<QOpenGLShaderProgram> m_quad;
    std::unique_ptr<QOpenGLShaderProgram> m_meshPlain; // neutral effects: no colour work
    std::unique_ptr<QOpenGLShaderProgram> m_quadPlain;
    bool m_failed = false;
};

} // namespace kelmor::gl
