#include "pipewire/ScreenPublisher.h"

#include "VideoFrameSource.h"

#include <QDebug>
#include <QOpenGLContext>
#include <QOpenGLFramebufferObject>
#include <QOpenGLFunctions>
#include <QTimer>

#ifndef GL_BGRA
#define GL_BGRA 0x80E1
#endif
#ifndef GL_FRAMEBUFFER_BINDING
#define GL_FRAMEBUFFER_BINDING 0x8CA6
#endif

namespace kelmor::pipewire {

ScreenPublisher::ScreenPublisher(int screenId, const QString& nodeName, QSize size, int rate,
                                 std::function<void()> redraw)
    : m_screenId(screenId), m_nodeName(nodeName), m_size(size), m_redraw(std::move(redraw))
{
    m_idle = new QTimer(this);
    m_idle->setInterval(kIdleResendMsec);
    connect(m_idle, &QTimer::timeout, this, [this] {
        if (wantsPictures() && m_redraw)
            m_redraw();
    });
    m_wakeup = std::make_unique<GuiWakeup>([this] { consumerChanged(); });
    GuiWakeup* wakeup = m_wakeup.get();
    // PipeWire thread: only wakes the GUI thread, which reads the state.
    m_node = std::make_unique<PwVideoPublisher>(nodeName, size, rate,
                                                [wakeup](bool) { wakeup->signal(); });
}

void ScreenPublisher::consumerChanged()
{
    // A new consumer gets the current picture at once, and the picture
    // again while the screen stays unchanged.
    if (m_node && m_node->hasConsumer()) {
        if (!m_idle->isActive()) {
            m_idle->start();
            if (m_redraw)
                m_redraw();
        }
    } else {
        m_idle->stop();
    }
}

ScreenPublisher::~ScreenPublisher()
{
    m_node.reset(); // after this no consumer notice wakes this object any more
    destroyBuffers();
}

bool ScreenPublisher::start()
{
    return m_node->start();
}

bool ScreenPublisher::wantsPictures() const
{
    return m_node && m_node->hasConsumer();
}

void ScreenPublisher::outputDrawn(QOpenGLFramebufferObject& output)
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    if (!context || output.size() != m_size)
        return;
    if (m_pending >= 0)
        collect(); // the previous picture goes first
    QOpenGLFunctions* gl = context->functions();
    QOpenGLBuffer& pbo = m_pbo[m_next];
    const int bytes = m_size.width() * m_size.height() * 4;
    if (!pbo.isCreated()) {
        m_rgbaOnly = context->isOpenGLES();
        if (!pbo.create()) {
            qDebug() << "publishScreen" << m_screenId << ": no pixel buffer objects; nothing sent";
            return;
        }
        pbo.setUsagePattern(QOpenGLBuffer::StreamRead);
        pbo.bind();
        pbo.allocate(bytes);
    } else {
        pbo.bind();
    }
    GLint previous = 0;
    gl->glGetIntegerv(GL_FRAMEBUFFER_BINDING, &previous);
    gl->glBindFramebuffer(GL_FRAMEBUFFER, output.handle());
    gl->glPixelStorei(GL_PACK_ALIGNMENT, 4);
    gl->glReadPixels(0, 0, m_size.width(), m_size.height(), m_rgbaOnly ? GL_RGBA : GL_BGRA,
                     GL_UNSIGNED_BYTE, nullptr);
    gl->glBindFramebuffer(GL_FRAMEBUFFER, GLuint(previous));
    pbo.release();
    m_readBacks.fetch_add(1);
    m_pending = m_next;
    m_next = 1 - m_next;
    // Sent from the GUI thread, where the idle timer lives too (this may run
    // on the render thread): after the frame, so the read-back has landed.
    if (!m_collectQueued.exchange(true))
        QMetaObject::invokeMethod(this, "sendReadBack", Qt::QueuedConnection);
}

void ScreenPublisher::sendReadBack()
{
    QtAV::awaitOutputFrame(); // the frame that read back is over
    m_collectQueued.store(false);
    if (m_idle->isActive())
        m_idle->start(); // a second from this picture
    if (m_pending >= 0)
        collect();
}

void ScreenPublisher::collect()
{
    const int index = m_pending;
    m_pending = -1;
    if (index < 0 || !m_pbo[index].isCreated())
        return;
    QOpenGLContext* context = QOpenGLContext::currentContext();
    if (!context)
        context = QtAV::compositorContext();
    if (!context)
        return;
    QOpenGLBuffer& pbo = m_pbo[index];
    pbo.bind();
    const auto* pixels = static_cast<const uint8_t*>(pbo.map(QOpenGLBuffer::ReadOnly));
    if (pixels) {
        const int stride = m_size.width() * 4;
        if (m_rgbaOnly) {
            m_swap.assign(pixels, pixels + size_t(stride) * m_size.height());
            for (size_t i = 0; i + 3 < m_swap.size(); i += 4)
                std::swap(m_swap[i], m_swap[i + 2]);
            m_node->send(m_swap.data(), stride, true);
        } else {
            m_node->send(pixels, stride, true);
        }
        pbo.unmap();
    }
    pbo.release();
}

void ScreenPublisher::destroyBuffers()
{
    if (!m_pbo[0].isCreated() && !m_pbo[1].isCreated())
        return;
    if (!QtAV::compositorContext())
        return; // no context any more (process exit): the driver frees them
    m_pbo[0].destroy();
    m_pbo[1].destroy();
}

} // namespace kelmor::pipewire
