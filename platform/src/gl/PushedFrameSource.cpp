#include "gl/PushedFrameSource.h"

#include <QDebug>
#include <QOpenGLContext>
#include <QOpenGLFunctions>

namespace QtAV {

PushedFrameSource::PushedFrameSource() = default;

PushedFrameSource::~PushedFrameSource()
{
    // Waits for a frame being drawn, and the screens forget this source: a
    // late frame on the render thread draws the last frame's items again.
    unregisterFrameSource(this);
    releaseTexture();
}

void PushedFrameSource::push(const VideoFrame& frame)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_frame = frame;
        ++m_pushes;
    }
    m_pending.store(true);
    requestCompositorFrame(); // folded by the compositor when already asked
}

QSize PushedFrameSource::pictureSize() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_frame.size();
}

FrameTexture PushedFrameSource::updateTexture(const QSize&)
{
    if (!m_pending.exchange(false))
        return m_current;
    VideoFrame frame;
    quint64 pushes = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        frame = m_frame;
        pushes = m_pushes;
    }
    // Every frame pushed since the last one taken, but this one, was never
    // shown.
    if (pushes > m_taken + 1)
        reportDroppedFrames(this, pushes - m_taken - 1);
    m_taken = pushes;
    ++m_serial;
    m_current = FrameTexture();
    if (!frame.isValid())
        return m_current; // an empty frame blanks the picture
    if (frame.isTexture()) {
        m_current.id = frame.textureId();
        m_current.size = frame.size();
        m_current.bottomUp = frame.isBottomUp();
        return m_current;
    }
    uploadImage(frame.image());
    if (m_uploadTexture) {
        m_current.id = m_uploadTexture;
        m_current.size = m_uploadSize;
        m_current.bottomUp = false;
    }
    return m_current;
}

void PushedFrameSource::uploadImage(const QImage& image)
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    if (!context) {
        qDebug() << "pushed frame: no GL context, picture dropped";
        return;
    }
    QOpenGLFunctions* gl = context->functions();
    const QImage rgba = image.format() == QImage::Format_RGBA8888
        ? image
        : image.convertToFormat(QImage::Format_RGBA8888);
    if (!m_uploadTexture) {
        gl->glGenTextures(1, &m_uploadTexture);
        m_uploadSize = QSize();
    }
    gl->glBindTexture(GL_TEXTURE_2D, m_uploadTexture);
    gl->glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    if (m_uploadSize != rgba.size()) {
        gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
        gl->glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, rgba.width(), rgba.height(), 0, GL_RGBA,
                         GL_UNSIGNED_BYTE, rgba.constBits());
        m_uploadSize = rgba.size();
    } else {
        gl->glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, rgba.width(), rgba.height(), GL_RGBA,
                            GL_UNSIGNED_BYTE, rgba.constBits());
    }
    gl->glBindTexture(GL_TEXTURE_2D, 0);
}

void PushedFrameSource::releaseTexture()
{
    if (!m_uploadTexture)
        return;
    // The texture belongs to the compositor's share group; without its
    // context (process exit) the driver frees it with the context.
    if (QOpenGLContext* context = compositorContext())
        context->functions()->glDeleteTextures(1, &m_uploadTexture);
    m_uploadTexture = 0;
}

} // namespace QtAV
