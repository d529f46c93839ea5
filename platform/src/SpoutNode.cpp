// Reception of PipeWire video streams for "spout" layers: the PipeWire side
// (pipewire/PwVideoReceiver) converts frames on its own thread; this side
// uploads the newest one on the GUI thread and announces it.
#include "SpoutNode.h"

#include "VideoFrameSource.h"
#include "pipewire/GuiWakeup.h"
#include "pipewire/PwVideoReceiver.h"

#include <QDebug>
#include <QOpenGLContext>
#include <QOpenGLFunctions>

#ifndef GL_BGRA
#define GL_BGRA 0x80E1
#endif

struct SpoutNode::Receiving
{
    // Declared before the receiver, so destroyed after it: the receiver's
    // PipeWire callbacks (which signal it) have ended by then.
    std::unique_ptr<kelmor::pipewire::GuiWakeup> wakeup;
    std::unique_ptr<kelmor::pipewire::PwVideoReceiver> receiver;
    kelmor::pipewire::PackedPicture picture; // GUI thread: the picture taken last
};

SpoutNode::SpoutNode(QObject* parent)
    : QObject(parent)
{
}

SpoutNode::~SpoutNode()
{
    m_rx.reset(); // no PipeWire callback reaches this node after this
    releaseTexture();
}

void SpoutNode::playSpout(QString sourceName)
{
    ++m_playCount;
    qDebug() << "SpoutNode::playSpout" << sourceName;
    if (m_playing && m_rx && sourceName == m_source)
        return; // already receiving it
    m_rx.reset();
    m_source = sourceName;
    m_playing = true;
    if (sourceName.trimmed().isEmpty()) {
        qDebug() << "SpoutNode::playSpout: no source name; nothing is received";
        return;
    }
    auto rx = std::make_unique<Receiving>();
    rx->wakeup = std::make_unique<kelmor::pipewire::GuiWakeup>([this] { deliver(); });
    kelmor::pipewire::GuiWakeup* wakeup = rx->wakeup.get();
    // PipeWire thread: wake the GUI thread; the delivery takes the newest
    // picture, however many came since the last one.
    rx->receiver = std::make_unique<kelmor::pipewire::PwVideoReceiver>(sourceName,
                                                                         [wakeup] { wakeup->signal(); });
    if (!rx->receiver->start()) {
        qDebug() << "SpoutNode::playSpout" << sourceName << "- PipeWire cannot be used; nothing is received";
        return;
    }
    m_rx = std::move(rx);
}

void SpoutNode::stop()
{
    m_playing = false;
    m_rx.reset();
}

void SpoutNode::deliver()
{
    if (!m_rx || !m_playing)
        return;
    if (!m_rx->receiver->takeNewest(m_rx->picture))
        return;
    if (m_rx->picture.width <= 0 || m_rx->picture.height <= 0) {
        emit textureReceived(0, 0, 0, m_source);
        return;
    }
    if (!upload())
        return;
    ++m_delivered;
    m_lastTimestamp = m_rx->picture.pts;
    emit textureReceived(int(m_texture), m_textureWidth, m_textureHeight, m_source);
}

bool SpoutNode::upload()
{
    QOpenGLContext* context = QtAV::compositorContext();
    if (!context) {
        if (!m_saidNoGl)
            qDebug() << "SpoutNode" << m_source << ": no OpenGL context; frames are not shown";
        m_saidNoGl = true;
        return false;
    }
    kelmor::pipewire::PackedPicture& picture = m_rx->picture;
    QOpenGLFunctions* gl = context->functions();
    GLint maxSide = 0;
    gl->glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maxSide);
    if (picture.width > maxSide || picture.height > maxSide) {
        qDebug() << "SpoutNode" << m_source << ": a picture of" << picture.width << "x"
                 << picture.height << "exceeds the GL limit" << maxSide << "; blank";
        emit textureReceived(0, 0, 0, m_source);
        return false;
    }
    GLenum format = picture.bgra ? GL_BGRA : GL_RGBA;
    if (picture.bgra && context->isOpenGLES()) {
        // GLES uploads RGBA only: swap the red and blue bytes here.
        uint8_t* p = picture.pixels.data();
        for (size_t i = 0, n = size_t(picture.width) * picture.height; i < n; ++i)
            std::swap(p[i * 4], p[i * 4 + 2]);
        format = GL_RGBA;
    }
    if (!m_texture)
        gl->glGenTextures(1, &m_texture);
    gl->glBindTexture(GL_TEXTURE_2D, m_texture);
    gl->glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    if (picture.width != m_textureWidth || picture.height != m_textureHeight) {
        gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
        gl->glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, picture.width, picture.height, 0, format,
                         GL_UNSIGNED_BYTE, picture.pixels.data());
        m_textureWidth = picture.width;
        m_textureHeight = picture.height;
    } else {
        gl->glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, picture.width, picture.height, format,
                            GL_UNSIGNED_BYTE, picture.pixels.data());
    }
    gl->glBindTexture(GL_TEXTURE_2D, 0);
    return true;
}

void SpoutNode::releaseTexture()
{
    if (!m_texture)
        return;
    // Without the compositor's context (process exit) the driver frees the
    // texture with the context.
    if (QOpenGLContext* context = QtAV::compositorContext())
        context->functions()->glDeleteTextures(1, &m_texture);
    m_texture = 0;
}
