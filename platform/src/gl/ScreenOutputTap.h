// A listener for the finished picture of one output screen: after each
// redraw of the screen the compositor hands it the output framebuffer (the
// picture after the monitor effects, exactly what snapshots and recordings
// read). Used to publish screens to other programs.
//
// Threading: GUI thread, with the compositor's context current and the
// output framebuffer complete. The tap must not keep the framebuffer.
#pragma once

class QOpenGLFramebufferObject;

namespace kelmor::gl {

class ScreenOutputTap
{
public:
    virtual ~ScreenOutputTap() = default;
    /// Whether the tap wants pictures now (cheap; checked before every call).
    virtual bool wantsPictures() const = 0;
    virtual void outputDrawn(QOpenGLFramebufferObject& output) = 0;
};

} // namespace kelmor::gl
