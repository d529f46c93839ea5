#include "MpvRenderTarget.h"

#include <QDebug>
#include <QOpenGLContext>
#include <QOpenGLFunctions>

#ifndef GL_BGRA
#define GL_BGRA 0x80E1
#endif

namespace QtAV {

MpvRenderTarget::MpvRenderTarget(const QSize& size)
    : m_size(size)
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    if (!context || size.isEmpty()) {
        qDebug() << "MpvRenderTarget: no GL context or an empty size" << size;
        return;
    }
    QOpenGLFunctions* gl = context->functions();
    GLint boundTexture = 0;
    GLint boundFramebuffer = 0;
    gl->glGetIntegerv(GL_TEXTURE_BINDING_2D, &boundTexture);
    gl->glGetIntegerv(GL_FRAMEBUFFER_BINDING, &boundFramebuffer);

    gl->glGenTextures(1, &m_texture);
    gl->glBindTexture(GL_TEXTURE_2D, m_texture);
    gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    // An unsized internal format with BGRA data: the driver may take the
    // data's own layout as the texture's storage. OpenGL ES takes no BGRA
    // data without an extension: there the texture is plain RGBA.
    const GLenum data = context->isOpenGLES() ? GL_RGBA : GL_BGRA;
    gl->glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, size.width(), size.height(), 0, data,
                     GL_UNSIGNED_BYTE, nullptr);
    gl->glGenFramebuffers(1, &m_framebuffer);
    gl->glBindFramebuffer(GL_FRAMEBUFFER, m_framebuffer);
    gl->glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, m_texture, 0);
    const GLenum status = gl->glCheckFramebufferStatus(GL_FRAMEBUFFER);

    gl->glBindTexture(GL_TEXTURE_2D, GLuint(boundTexture));
    gl->glBindFramebuffer(GL_FRAMEBUFFER, GLuint(boundFramebuffer));
    if (status != GL_FRAMEBUFFER_COMPLETE) {
        qDebug() << "MpvRenderTarget: framebuffer of" << size << "incomplete, status" << Qt::hex
                 << status;
        gl->glDeleteFramebuffers(1, &m_framebuffer);
        gl->glDeleteTextures(1, &m_texture);
        m_framebuffer = 0;
        m_texture = 0;
    }
}

MpvRenderTarget::~MpvRenderTarget()
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    if (!context) {
        if (m_texture)
            qDebug() << "MpvRenderTarget: destroyed without a GL context; its texture and"
                        " framebuffer stay until the context's share group goes";
        return;
    }
    QOpenGLFunctions* gl = context->functions();
    if (m_framebuffer)
        gl->glDeleteFramebuffers(1, &m_framebuffer);
    if (m_texture)
        gl->glDeleteTextures(1, &m_texture);
}

} // namespace QtAV
