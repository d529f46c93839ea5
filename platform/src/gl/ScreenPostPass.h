// The finishing pass of an output screen: copies the composited layers into
// the screen's output framebuffer, applying the screen's monitor effects
// (EffectSettings.h): brightness/contrast, soft edges for projector edge
// blending (each side's ramp from edgeBlendFactor, computed in the shader with
// the same formula), and the projector alignment test pattern (a grid every
// 1/16 of the width, a centre crosshair, a large centre circle and a circle in
// each quarter, over dark grey) in place of the picture.
//
// Threading: GUI thread with the compositor's context current.
#pragma once

#include "gl/EffectSettings.h"

#include <QOpenGLShaderProgram>
#include <memory>

class QOpenGLFramebufferObject;

namespace kelmor::gl {

class ScreenPostPass
{
public:
    ScreenPostPass();
    ~ScreenPostPass();

    /// Draws `compose` into `output` with `effects` (a plain copy when they
    /// are neutral).
    void run(QOpenGLFramebufferObject& compose, QOpenGLFramebufferObject& output,
             const ScreenEffects& effects);

private:
    std::unique_ptr<QOpenGLShaderProgram> m_program;
    bool m_failed = false;
};

} // namespace kelmor::gl
