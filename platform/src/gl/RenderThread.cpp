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
    m_worker->wait();
    {
        // The worker's last act was under this mutex: what it did is seen
        // as done before the members go (a thread's end alone is not, to a
        // race detector that does not see inside Qt).
        std::lock_guard<std::mutex> lock(m_mutex);
    }
    delete m_worker;
}

void RenderThread::post(std::function<void()> job, QObject* receiver, std::function<void()> done)
{
    waitHome();
    m_context->doneCurrent();
    m_context->moveToThread(m_worker);
    m_dones.push_back(Done{++m_posted, receiver, std::move(done)});
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_away = true;
        m_job = std::move(job);
    }
    m_wake.notify_all();
}

void RenderThread::frameDone()
{
    if (m_dones.empty())
        return;
    Done done = std::move(m_dones.front());
    m_dones.pop_front();
    {
        // Queued a moment before the worker counts the frame home: what the
        // frame wrote is this thread's once it is counted.
        std::unique_lock<std::mutex> lock(m_mutex);
        m_home.wait(lock, [&] { return m_completed >= done.frame || glAbandoned(); });
    }
    if (done.receiver && done.run)
        done.run();
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
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_wake.wait(lock, [this] { return m_stop || m_job; });
            if (!m_job)
                return; // stopped with nothing lent
            job = std::move(m_job);
            m_job = nullptr;
        }
        // The context is this thread's until it is moved back.
        const bool current = !glAbandoned() && m_context->makeCurrent(m_surface);
        if (current) {
            job();
            m_context->doneCurrent();
        } else if (!glAbandoned()) {
            qDebug() << "render thread: the context could not be made current; frame skipped";
        }
        job = nullptr; // what it captured goes here, not on the GUI thread
        m_context->moveToThread(m_gui);
        // By name, so that Qt makes the call's event itself; queued before
        // the context is marked home, so this object (which waits for home
        // before it goes) is alive.
        QMetaObject::invokeMethod(this, "frameDone", Qt::QueuedConnection);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_away = false;
            ++m_completed;
        }
        m_home.notify_all();
    }
}

} // namespace kelmor::gl
