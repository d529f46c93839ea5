#include "gl/LayerPainter.h"

#include "gl/GlContext.h"

#include <QDebug>
#include <QOpenGLContext>
#include <QOpenGLExtraFunctions>
#include <QOpenGLFunctions>
#include <cmath>

namespace kelmor::gl {

namespace {

// Widget pixels (top-left origin) to clip space; the texture row is flipped
// for pictures whose row 0 is their bottom.
const char* kMeshVertex = R"(
attribute vec2 position;
attribute vec2 picture;
uniform vec2 target;
uniform float bottomUp;
varying vec2 texCoord;
void main() {
    texCoord = vec2(picture.x, bottomUp > 0.5 ? 1.0 - picture.y : picture.y);
    gl_Position = vec4(position.x / target.x * 2.0 - 1.0, 1.0 - position.y / target.y * 2.0, 0.0, 1.0);
}
)";

const char* kQuadVertex = R"(
attribute vec2 position;
uniform vec2 target;
varying vec2 widget;
void main() {
    widget = position;
    gl_Position = vec4(position.x / target.x * 2.0 - 1.0, 1.0 - position.y / target.y * 2.0, 0.0, 1.0);
}
)";

// Colour pipeline shared by both programs: gamma, contrast around mid grey,
// brightness, saturation, then the opacity of the layer times its fade.
const char* kEffects = R"(
uniform sampler2D picture;
uniform float opacity;
uniform float brightness;
uniform float contrast;
uniform float saturation;
uniform float gammaValue;
vec4 shade(vec2 uv) {
    vec4 c = texture2D(picture, uv);
    vec3 rgb = pow(max(c.rgb, vec3(0.0)), vec3(1.0 / gammaValue));
    rgb = (rgb - 0.5) * contrast + 0.5 + brightness;
    float luma = dot(rgb, vec3(0.2126, 0.7152, 0.0722));
    rgb = clamp(mix(vec3(luma), rgb, saturation), 0.0, 1.0);
    return vec4(rgb, c.a * opacity);
}
)";

// The same without colour work, for layers whose effects are all neutral:
// on a software rasteriser the per-pixel pow of the full pipeline costs more
// than the draw itself.
const char* kPlainEffects = R"(
uniform sampler2D picture;
uniform float opacity;
vec4 shade(vec2 uv) {
    vec4 c = texture2D(picture, uv);
    return vec4(c.rgb, c.a * opacity);
}
)";

const char* kMeshFragment = R"(
varying vec2 texCoord;
void main() { gl_FragColor = shade(texCoord); }
)";

// The widget position goes back through the quad's inverse homography to the
// unit square, then into the region of interest. Points outside the square
// (the folded part of a crossed quad) are not drawn.
const char* kQuadFragment = R"(
varying vec2 widget;
uniform mat3 quadToUnit;
uniform vec4 roi;
uniform float bottomUp;
void main() {
    vec3 p = quadToUnit * vec3(widget, 1.0);
    if (abs(p.z) < 1e-12) discard;
    vec2 st = p.xy / p.z;
    if (st.x < -0.0001 || st.y < -0.0001 || st.x > 1.0001 || st.y > 1.0001) discard;
    vec2 uv = roi.xy + clamp(st, 0.0, 1.0) * roi.zw;
    if (bottomUp > 0.5) uv.y = 1.0 - uv.y;
    gl_FragColor = shade(uv);
}
)";

std::unique_ptr<QOpenGLShaderProgram> build(const char* vertex, const char* effects,
                                            const char* fragment)
{
    auto program = std::make_unique<QOpenGLShaderProgram>();
    const QByteArray fragmentSource = QByteArray(effects) + fragment;
    if (!program->addShaderFromSourceCode(QOpenGLShader::Vertex, vertex)
        || !program->addShaderFromSourceCode(QOpenGLShader::Fragment, fragmentSource)) {
        qDebug() << "compositor: shader did not compile:" << program->log();
        return nullptr;
    }
    program->bindAttributeLocation("position", 0);
    program->bindAttributeLocation("picture", 1);
    if (!program->link()) {
        qDebug() << "compositor: shader did not link:" << program->log();
        return nullptr;
    }
    return program;
}

bool hasArea(const QRect& r)
{
    return r.width() > 0 && r.height() > 0;
}

QRectF boundsOf(const QVector<WarpVertex>& vertices)
{
    if (vertices.isEmpty())
        return QRectF();
    float x0 = vertices[0].x, x1 = x0, y0 = vertices[0].y, y1 = y0;
    for (const WarpVertex& v : vertices) {
        x0 = std::min(x0, v.x);
        x1 = std::max(x1, v.x);
        y0 = std::min(y0, v.y);
        y1 = std::max(y1, v.y);
    }
    return QRectF(QPointF(x0, y0), QPointF(x1, y1));
}

bool meshPlacement(const QtAV::RenderDrawState& s, const QRectF& roi, const QSizeF& picture,
                   Placement* out, QString* why)
{
    PatchMesh mesh;
    if (!tessellatePatches(s.patch.rows, s.patch.cols, s.patch.points, s.patchRoi, roi, picture,
                           &mesh, why))
        return false;
    out->mode = Placement::Mesh;
    out->vertices = mesh.vertices;
    out->indices = mesh.indices;
    out->extent = boundsOf(mesh.vertices);
    return true;
}

// Whether the quad (in order) turns the same way at every corner.
bool isConvex(const QVector<QPointF>& c)
{
    int sign = 0;
    for (int i = 0; i < 4; ++i) {
        const QPointF a = c[(i + 1) % 4] - c[i];
        const QPointF b = c[(i + 2) % 4] - c[(i + 1) % 4];
        const double cross = a.x() * b.y() - a.y() * b.x();
        const int s = cross > 0 ? 1 : (cross < 0 ? -1 : 0);
        if (s != 0 && sign != 0 && s != sign)
            return false;
        if (s != 0)
            sign = s;
    }
    return true;
}

// A crossed or concave quad has no projective map whose image is the quad
// itself (its picture would fall outside it): it is drawn as given, as the
// two triangles lt-lb-rb and lt-rb-rt, each mapped affinely.
void trianglesPlacement(const QtAV::RenderDrawState& s, const QRectF& roi, Placement* out)
{
    const QVector<QPointF>& c = s.corners; // lt, lb, rb, rt
    const float u0 = roi.left(), v0 = roi.top(), u1 = roi.right(), v1 = roi.bottom();
    out->mode = Placement::Mesh;
    out->vertices = {{float(c[0].x()), float(c[0].y()), u0, v0},
                     {float(c[1].x()), float(c[1].y()), u0, v1},
                     {float(c[2].x()), float(c[2].y()), u1, v1},
                     {float(c[3].x()), float(c[3].y()), u1, v0}};
    out->indices = {0, 1, 2, 0, 2, 3};
    out->extent = boundsOf(out->vertices);
}

bool quadPlacement(const QtAV::RenderDrawState& s, const QRectF& roi, Placement* out, QString* why)
{
    QTransform inverse;
    if (!quadUnprojection(s.corners, &inverse, why))
        return false;
    if (!isConvex(s.corners)) {
        qDebug() << "compositor: layer" << s.layerId << "screen" << s.screenId
                 << "corners cross or bend inwards; drawn as two triangles as given";
        trianglesPlacement(s, roi, out);
        return true;
    }
    out->mode = Placement::Quad;
    out->quadToUnit = inverse;
    out->roi = roi;
    const QVector<QPointF>& c = s.corners; // lt, lb, rb, rt
    for (int i : {0, 1, 2, 0, 2, 3})
        out->quadCover.append(WarpVertex{float(c[i].x()), float(c[i].y()), 0.f, 0.f});
    out->extent = boundsOf(out->quadCover);
    return true;
}

void rectPlacement(const QtAV::RenderDrawState& s, const QRectF& roi, Placement* out)
{
    const QRectF g(s.geometry);
    const float l = g.left(), t = g.top(), r = g.left() + g.width(), b = g.top() + g.height();
    const float u0 = roi.left(), v0 = roi.top(), u1 = roi.right(), v1 = roi.bottom();
    out->mode = Placement::Mesh;
    out->vertices = {{l, t, u0, v0}, {l, b, u0, v1}, {r, b, u1, v1}, {r, t, u1, v0}};
    out->indices = {0, 1, 2, 0, 2, 3};
    out->extent = g;
    if (roi == QRectF(0, 0, 1, 1))
        out->plainRect = s.geometry;
}

} // namespace

Placement placementFor(const QtAV::RenderDrawState& s, const QSizeF& pictureSize)
{
    Placement p;
    p.revision = s.revision;
    const bool usable = std::isfinite(s.originalSize.width()) && std::isfinite(s.originalSize.height())
        && s.originalSize.width() > 0 && s.originalSize.height() > 0;
    if (!usable && !s.originalSize.isNull())
        qDebug() << "compositor: layer" << s.layerId << "screen" << s.screenId << "original size"
                 << s.originalSize << "ignored; the picture's own size is used";
    const QSizeF original = usable ? s.originalSize : pictureSize;
    QString why;
    const QRectF roi = normalisedRoi(s.roi, original, &why);
    if (!why.isEmpty())
        qDebug() << "compositor: layer" << s.layerId << "screen" << s.screenId
                 << "region of interest:" << why;
    // Any patch setting asks for the warp; one that cannot be drawn says why.
    const bool warped = !s.patch.points.isEmpty() || s.patchCount > 0;
    if (warped) {
        why.clear();
        if (meshPlacement(s, roi, original, &p, &why))
            return p;
        qDebug() << "compositor: layer" << s.layerId << "screen" << s.screenId
                 << "patch warp ignored:" << why;
    }
    if (!s.corners.isEmpty()) {
        why.clear();
        if (quadPlacement(s, roi, &p, &why))
            return p;
        qDebug() << "compositor: layer" << s.layerId << "screen" << s.screenId
                 << "corners ignored:" << why;
    }
    if (!hasArea(s.geometry)) {
        qDebug() << "compositor: layer" << s.layerId << "screen" << s.screenId << "geometry"
                 << s.geometry << "is empty; nothing drawn";
        return p;
    }
    rectPlacement(s, roi, &p);
    return p;
}

LayerPainter::LayerPainter() = default;
LayerPainter::~LayerPainter() = default;

bool LayerPainter::ensurePrograms()
{
    if (m_mesh && m_quad && m_meshPlain && m_quadPlain)
        return true;
    if (m_failed)
        return false;
    m_mesh = build(kMeshVertex, kEffects, kMeshFragment);
    m_quad = build(kQuadVertex, kEffects, kQuadFragment);
    m_meshPlain = build(kMeshVertex, kPlainEffects, kMeshFragment);
    m_quadPlain = build(kQuadVertex, kPlainEffects, kQuadFragment);
    m_failed = !m_mesh || !m_quad || !m_meshPlain || !m_quadPlain;
    return !m_failed;
}

void LayerPainter::setCommonUniforms(QOpenGLShaderProgram& program, const QtAV::FrameTexture& texture,
                                     const QSize& target, float opacity, const LayerEffects& effects)
{
    program.setUniformValue("target", QVector2D(target.width(), target.height()));
    program.setUniformValue("bottomUp", texture.bottomUp ? 1.f : 0.f);
    program.setUniformValue("picture", 0);
    program.setUniformValue("opacity", std::clamp(opacity * effects.opacity, 0.f, 1.f));
    program.setUniformValue("brightness", effects.brightness);
    program.setUniformValue("contrast", effects.contrast);
    program.setUniformValue("saturation", effects.saturation);
    program.setUniformValue("gammaValue", effects.gamma > 0.f ? effects.gamma : 1.f);
}

void LayerPainter::draw(const Placement& placement, const QtAV::FrameTexture& texture,
                        const QSize& target, float opacity, const LayerEffects& effects)
{
    if (placement.mode == Placement::None || !texture.isValid() || opacity <= 0.f
        || !ensurePrograms())
        return;
    QOpenGLContext* context = QOpenGLContext::currentContext();
    QOpenGLFunctions* gl = context->functions();
    // Other GL users (libmpv) leave state behind: set all of it on every draw.
    resetDrawState(context);
    gl->glViewport(0, 0, target.width(), target.height());
    gl->glEnable(GL_BLEND);
    gl->glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
    gl->glActiveTexture(GL_TEXTURE0);
    gl->glBindTexture(GL_TEXTURE_2D, texture.id);
    gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);

    const bool quad = placement.mode == Placement::Quad;
    // Opacity is applied by both variants; the rest needs the full one.
    const bool plain = effects.brightness == 0.f && effects.contrast == 1.f
        && effects.saturation == 1.f && effects.gamma == 1.f;
    QOpenGLShaderProgram& program = quad ? (plain ? *m_quadPlain : *m_quad)
                                         : (plain ? *m_meshPlain : *m_mesh);
    program.bind();
    setCommonUniforms(program, texture, target, opacity, effects);
    const QVector<WarpVertex>& vertices = quad ? placement.quadCover : placement.vertices;
    const GLsizei stride = sizeof(WarpVertex);
    program.enableAttributeArray(0);
    gl->glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, stride, &vertices.constData()->x);
    if (quad) {
        const QTransform& m = placement.quadToUnit;
        const float columns[9] = {float(m.m11()), float(m.m12()), float(m.m13()),
                                  float(m.m21()), float(m.m22()), float(m.m23()),
                                  float(m.dx()),  float(m.dy()),  float(m.m33())};
        program.setUniformValue("quadToUnit", QMatrix3x3(columns).transposed());
        const QRectF& r = placement.roi;
        program.setUniformValue("roi", QVector4D(r.x(), r.y(), r.width(), r.height()));
        gl->glDrawArrays(GL_TRIANGLES, 0, vertices.size());
    } else {
        program.enableAttributeArray(1);
        gl->glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, stride, &vertices.constData()->u);
        gl->glDrawElements(GL_TRIANGLES, placement.indices.size(), GL_UNSIGNED_INT,
                           placement.indices.constData());
        program.disableAttributeArray(1);
    }
    program.disableAttributeArray(0);
    program.release();
    gl->glBindTexture(GL_TEXTURE_2D, 0);
}

} // namespace kelmor::gl
