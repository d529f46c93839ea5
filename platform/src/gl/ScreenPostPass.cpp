#include "gl/ScreenPostPass.h"

#include "gl/GlContext.h"

#include <QDebug>
#include <QOpenGLContext>
#include <QOpenGLExtraFunctions>
#include <QOpenGLFramebufferObject>
#include <QOpenGLFunctions>

namespace kelmor::gl {

namespace {

const char* kVertex = R"(
attribute vec2 position;
varying vec2 uv;
void main() {
    uv = position * 0.5 + 0.5;
    gl_Position = vec4(position, 0.0, 1.0);
}
)";

const char* kFragment = R"(
varying vec2 uv;
uniform sampler2D composed;
uniform vec2 size;
uniform float brightness;
uniform float contrast;
uniform vec4 blend;        // left, right, top, bottom soft-edge widths in pixels
uniform float blendCurve;
uniform float blendGamma;
uniform float pattern;

float ramp(float t) {
    t = clamp(t, 0.0, 1.0);
    float f = t < 0.5 ? 0.5 * pow(2.0 * t, blendCurve) : 1.0 - 0.5 * pow(2.0 * (1.0 - t), blendCurve);
    return pow(f, 1.0 / blendGamma);
}

float side(float distance, float width) {
    return width > 0.0 ? ramp(distance / width) : 1.0;
}

float line(float d) { return 1.0 - smoothstep(0.5, 1.5, d); }

vec3 testPattern(vec2 px) {
    vec3 c = vec3(0.12);
    float cell = size.x / 16.0;
    vec2 g = abs(px - cell * floor(px / cell + 0.5));
    c = mix(c, vec3(0.85), max(line(g.x), line(g.y)));
    vec2 centre = size * 0.5;
    float r = min(size.x, size.y);
    c = mix(c, vec3(1.0, 0.9, 0.1), line(abs(length(px - centre) - 0.45 * r)));
    for (int i = 0; i < 4; ++i) {
        vec2 q = size * vec2(i == 0 || i == 2 ? 0.25 : 0.75, i < 2 ? 0.25 : 0.75);
        c = mix(c, vec3(0.1, 0.9, 1.0), line(abs(length(px - q) - 0.2 * r)));
    }
    vec2 d = abs(px - centre);
    c = mix(c, vec3(1.0, 0.15, 0.15), max(line(d.x), line(d.y)));
    vec2 edge = min(px, size - px);
    c = mix(c, vec3(1.0), line(min(edge.x, edge.y)));
    return c;
}

void main() {
    vec2 px = vec2(uv.x * size.x, (1.0 - uv.y) * size.y);
    vec3 rgb = pattern > 0.5 ? testPattern(px) : texture2D(composed, uv).rgb;
    rgb = clamp((rgb - 0.5) * contrast + 0.5 + brightness, 0.0, 1.0);
    float f = side(px.x, blend.x) * side(size.x - px.x, blend.y)
            * side(px.y, blend.z) * side(size.y - px.y, blend.w);
    gl_FragColor = vec4(rgb * f, 1.0);
}
)";

const GLfloat kCover[] = {-1.f, -1.f, 1.f, -1.f, -1.f, 1.f, 1.f, 1.f};

} // namespace

ScreenPostPass::ScreenPostPass() = default;
ScreenPostPass::~ScreenPostPass() = default;

void ScreenPostPass::run(QOpenGLFramebufferObject& compose, QOpenGLFramebufferObject& output,
                         const ScreenEffects& effects)
{
    if (!m_program && !m_failed) {
        m_program = std::make_unique<QOpenGLShaderProgram>();
        m_program->bindAttributeLocation("position", 0);
        if (!m_program->addShaderFromSourceCode(QOpenGLShader::Vertex, kVertex)
            || !m_program->addShaderFromSourceCode(QOpenGLShader::Fragment, kFragment)
            || !m_program->link()) {
            qDebug() << "compositor: screen shader failed:" << m_program->log();
            m_program.reset();
            m_failed = true;
        }
    }
    if (!m_program || effects.isNeutral()) {
        // Nothing to finish (or no shader): a copy, far cheaper than the
        // shader on a software rasteriser.
        QOpenGLFramebufferObject::blitFramebuffer(&output, &compose);
        return;
    }
    QOpenGLContext* context = QOpenGLContext::currentContext();
    QOpenGLFunctions* gl = context->functions();
    resetDrawState(context);
    output.bind();
    const QSize size = output.size();
    gl->glViewport(0, 0, size.width(), size.height());
    gl->glDisable(GL_BLEND);
    gl->glDisable(GL_SCISSOR_TEST);
    gl->glActiveTexture(GL_TEXTURE0);
    gl->glBindTexture(GL_TEXTURE_2D, compose.texture());
    m_program->bind();
    m_program->setUniformValue("composed", 0);
    m_program->setUniformValue("size", QVector2D(size.width(), size.height()));
    m_program->setUniformValue("brightness", effects.brightness);
    m_program->setUniformValue("contrast", effects.contrast);
    m_program->setUniformValue("blend", QVector4D(effects.blendLeft, effects.blendRight,
                                                  effects.blendTop, effects.blendBottom));
    m_program->setUniformValue("blendCurve", effects.blendCurve);
    m_program->setUniformValue("blendGamma", effects.blendGamma > 0.f ? effects.blendGamma : 1.f);
    m_program->setUniformValue("pattern", effects.testPattern ? 1.f : 0.f);
    m_program->enableAttributeArray(0);
    gl->glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, kCover);
    gl->glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    m_program->disableAttributeArray(0);
    m_program->release();
    gl->glBindTexture(GL_TEXTURE_2D, 0);
    output.release();
}

} // namespace kelmor::gl
