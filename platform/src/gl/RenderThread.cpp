#include "gl/RenderThread.h"

#include "gl/GlContext.h"

#include <QDebug>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <chrono>

namespace kelmor::gl {

class RenderThread::Worker : public QThread
{
public:
    explicit Worker(RenderThread* owner)
        : m_owner(owner)
    {
        setObjectName(QStringLiteral("kelmor render"));
    }

protected:
    void run() override { m_owner->run(); }

private:
    RenderThread* m_owner;
};

RenderThread::RenderThread(QOpenGLContext* context, QOffscreenSurface* surface)
    : m_context(context)
    , m_surface(surface)
    , m_gui(QThread::currentThread())
{
    m_worker = new Worker(this);
    m_worker->start();
}

RenderThread::~RenderThread()
{
    waitHome();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    if (glAbandoned() && !m_worker->wait(kAbandonedWaitMs)) {
        // Stuck on a display that is gone: the process is ending.
        qDebug() << "render thread: still in a frame on a lost display; left behind";
        return;
    }
    m_worker->wait();
    delete m_worker;
}

void RenderThread::post(std::function<void()> job, QObject* receiver, std::function<void()> done)
{
    waitHome();
    m_context->doneCurrent();
    m_context->moveToThread(m_worker);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_away = true;
        m_job = std::move(job);
        // Queued before the context is marked home, so the receiver (which
        // waits for home before it goes) is alive; a queued call to a
        // receiver deleted later is dropped with it.
        m_done = [receiver, done = std::move(done)] {
            QMetaObject::invokeMethod(receiver, done, Qt::QueuedConnection);
        };
    }
    m_wake.notify_all();
}

void RenderThread::waitHome()
{
    if (isCurrentThread())
        return;
    std::unique_lock<std::mutex> lock(m_mutex);
    if (glAbandoned()) {
        if (!m_home.wait_for(lock, std::chrono::milliseconds(kAbandonedWaitMs),
                             [this] { return !m_away; }))
            qDebug() << "render thread: a frame on a lost display did not end; not waited for";
        return;
    }
    m_home.wait(lock, [this] { return !m_away; });
}

bool RenderThread::busy() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_away;
}

bool RenderThread::isCurrentThread() const
{
    return QThread::currentThread() == m_worker;
}

void RenderThread::run()
{
    for (;;) {
        std::function<void()> job;
        std::function<void()> done;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_wake.wait(lock, [this] { return m_stop || m_job; });
            if (!m_job)
                return; // stopped with nothing lent
            job = std::move(m_job);
            m_job = nullptr;
            done = std::move(m_done);
            m_done = nullptr;
        }
        // The context is this thread's until it is moved back.
        const bool current = !glAbandoned() && m_context->makeCurrent(m_surface);
        if (current) {
            job();
            m_context->doneCurrent();
        } else if (!glAbandoned()) {
            qDebug() << "render thread: the context could not be made current; frame skipped";
        }
        m_context->moveToThread(m_gui);
        done();
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_away = false;
        }
        m_home.notify_all();
    }
}

} // namespace kelmor::gl
