// One published output screen: reads the screen's finished picture back
// from its output framebuffer and sends it to the screen's PipeWire video
// source node (PwVideoPublisher).
//
// Read-back only happens while a consumer streams from the node. It is
// asynchronous: the picture is read into one of two pixel buffer objects
// after the draw, and mapped and sent at the next turn of the event loop
// (or at the next draw, whichever comes first), so the compositor does not
// wait for the GPU. When a consumer connects, the screen is redrawn once so
// the consumer gets the current picture even if nothing moves; while nothing
// moves, the picture is sent again once a second (kIdleResendMsec), so a
// consumer can tell an unchanging screen from a stalled one.
//
// Threading: GUI thread, except outputDrawn, which the compositor calls with
// its context current on the thread that draws its frames (the GUI thread or
// the render thread); the picture read back is sent from the GUI thread
// after that frame. The node's consumer notices arrive from the PipeWire
// thread as a wake-up of this object (GuiWakeup).
#pragma once

#include <atomic>

#include "KelmorPlatformExport.h"
#include "gl/ScreenOutputTap.h"
#include "pipewire/GuiWakeup.h"
#include "pipewire/PwVideoPublisher.h"

#include <QObject>
#include <QOpenGLBuffer>
#include <QSize>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>
#include <vector>

namespace kelmor::pipewire {

/// Exported for the tests (ScreenService::publication()).
class KELMOR_PLATFORM_EXPORT ScreenPublisher : public QObject, public gl::ScreenOutputTap
{
    Q_OBJECT
public:
    /// `redraw` asks the compositor to draw the screen again.
    ScreenPublisher(int screenId, const QString& nodeName, QSize size, int rate,
                    std::function<void()> redraw);
    ~ScreenPublisher() override;

    bool start();
    QString nodeName() const { return m_nodeName; }
    const PwVideoPublisher& node() const { return *m_node; }
    /// Pictures read back from the screen so far (diagnostics).
    quint64 readBacks() const { return m_readBacks.load(); }

    static constexpr int kIdleResendMsec = 1000;

    bool wantsPictures() const override;
    void outputDrawn(QOpenGLFramebufferObject& output) override;

private slots:
    /// The last read-back is sent (GUI thread, after the frame that made it).
    void sendReadBack();

private:
    void collect();
    void consumerChanged();
    void destroyBuffers();

    // GUI thread, and the thread that draws output frames (outputDrawn:
    // the render thread while a frame is lent to it); the GUI thread touches
    // the buffers only after awaitOutputFrame().
    const int m_screenId;
    const QString m_nodeName;
    const QSize m_size;
    const std::function<void()> m_redraw;
    std::unique_ptr<GuiWakeup> m_wakeup; // outlives m_node's callbacks (reset first)
    std::unique_ptr<PwVideoPublisher> m_node;
    QOpenGLBuffer m_pbo[2]{QOpenGLBuffer(QOpenGLBuffer::PixelPackBuffer),
                           QOpenGLBuffer(QOpenGLBuffer::PixelPackBuffer)};
    std::atomic<quint64> m_readBacks{0}; // any thread reads
    int m_next = 0;            // the buffer the next read-back goes into
    int m_pending = -1;        // the buffer holding a picture not yet sent
    std::atomic<bool> m_collectQueued{false}; // a collect is queued to the GUI thread
    QTimer* m_idle = nullptr;  // child: redraws an unchanging screen for its consumer
    bool m_rgbaOnly = false;   // GLES: read RGBA and swap to BGRA on the CPU
    std::vector<uint8_t> m_swap; // GLES only
};

} // namespace kelmor::pipewire
