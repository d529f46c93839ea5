#include "gl/FrameCopy.h"

#include "gl/GlContext.h"

#include <QOpenGLContext>
#include <QOpenGLExtraFunctions>
#include <QOpenGLFunctions>

namespace kelmor::gl {

FrameCopy::~FrameCopy()
{
    // Without the context (process exit) the driver frees it with the context.
    if (m_read && sharedContext())
        QOpenGLContext::currentContext()->functions()->glDeleteFramebuffers(1, &m_read);
}

bool FrameCopy::fits(const QtAV::FrameTexture& texture, const QRect& rect, const QSize& target)
{
    return texture.isValid() && !rect.isEmpty() && texture.size == rect.size()
        && QRect(QPoint(0, 0), target).contains(rect);
}

bool FrameCopy::copy(const QtAV::FrameTexture& texture, const QRect& rect, const QSize& target)
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    if (!context || !fits(texture, rect, target))
        return false;
    QOpenGLFunctions* gl = context->functions();
    QOpenGLExtraFunctions* extra = context->extraFunctions();
    GLint draw = 0;
    gl->glGetIntegerv(GL_FRAMEBUFFER_BINDING, &draw);
    if (!m_read)
        gl->glGenFramebuffers(1, &m_read);
    gl->glBindFramebuffer(GL_FRAMEBUFFER, m_read);
    gl->glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture.id, 0);
    const bool complete = gl->glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
    gl->glBindFramebuffer(GL_FRAMEBUFFER, GLuint(draw));
    if (!complete)
        return false;
    resetDrawState(context);
    extra->glBindFramebuffer(GL_READ_FRAMEBUFFER, m_read);
    extra->glBindFramebuffer(GL_DRAW_FRAMEBUFFER, GLuint(draw));
    // Screen rows run top down, framebuffer rows bottom up.
    const int top = target.height() - rect.y();
    const int bottom = top - rect.height();
    const int y0 = texture.bottomUp ? bottom : top;
    const int y1 = texture.bottomUp ? top : bottom;
    extra->glBlitFramebuffer(0, 0, rect.width(), rect.height(), rect.x(), y0,
                             rect.x() + rect.width(), y1, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    gl->glBindFramebuffer(GL_FRAMEBUFFER, GLuint(draw));
    // The texture stays the source's own: let it go from the read framebuffer.
    extra->glBindFramebuffer(GL_READ_FRAMEBUFFER, m_read);
    gl->glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, 0, 0);
    gl->glBindFramebuffer(GL_FRAMEBUFFER, GLuint(draw));
    return true;
}

} // namespace kelmor::gl
