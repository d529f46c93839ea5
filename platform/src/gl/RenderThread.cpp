#include "gl/RenderThread.h"

#include "gl/GlContext.h"

#include <QDebug>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <algorithm>
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
        m_lent = true;
        m_job = std::move(job);
    }
    m_wake.notify_all();
}

void RenderThread::lendBack()
{
    m_lendBackQueued = false;
    if (glAbandoned())
        return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_lent || !m_late)
            return; // a frame took it along, or no late frames to draw
    }
    m_context->doneCurrent();
    m_context->moveToThread(m_worker);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lent = true;
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
        // Queued a moment before the worker counts the frame done: what the
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
    if (!m_lent)
        return;
    m_recall = true;
    m_wake.notify_all();
    if (m_late && !m_lendBackQueued) {
        // Lent again once the GUI thread's work in hand is done, unless its
        // next frame takes it along first.
        m_lendBackQueued = true;
        QMetaObject::invokeMethod(this, "lendBack", Qt::QueuedConnection);
    }
    if (glAbandoned()) {
        if (!m_home.wait_for(lock, std::chrono::milliseconds(kAbandonedWaitMs),
                             [this] { return !m_lent; }))
            qDebug() << "render thread: a frame on a lost display did not end; not waited for";
        return;
    }
    m_home.wait(lock, [this] { return !m_lent; });
}

bool RenderThread::busy() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_running || m_job;
}

bool RenderThread::isCurrentThread() const
{
    return QThread::currentThread() == m_worker;
}

void RenderThread::setLateFrame(std::function<void()> job, int intervalMs)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_late = std::move(job);
    m_lateInterval = std::chrono::milliseconds(std::max(intervalMs, 1));
}

void RenderThread::frameWanted()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_wanted)
            return;
        m_wanted = true;
        m_wantedAt = Clock::now();
        if (!m_lent || !m_late)
            return;
    }
    m_wake.notify_all();
}

void RenderThread::draw(const std::function<void()>& job)
{
    const bool current = !glAbandoned() && m_context->makeCurrent(m_surface);
    if (current) {
        job();
        m_context->doneCurrent();
    } else if (!glAbandoned()) {
        qDebug() << "render thread: the context could not be made current; frame skipped";
    }
}

void RenderThread::run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        // What to do next, in this order: a posted frame, the context home
        // (recalled, or stopping), a late frame once due.
        bool late = false;
        while (!m_job) {
            if (m_lent && (m_recall || m_stop))
                break;
            if (m_stop)
                return; // stopped with the context home
            if (m_lent && m_late && m_wanted && !glAbandoned()) {
                // The GUI thread's frame would have started by then.
                const Clock::time_point due = std::max(m_wantedAt, m_lastStart + m_lateInterval)
                    + std::chrono::milliseconds(kLateSlackMs);
                if (Clock::now() >= due) {
                    late = true;
                    break;
                }
                m_wake.wait_until(lock, due);
                continue;
            }
            m_wake.wait(lock);
        }
        if (!m_job && !late) {
            // The context goes home; the GUI thread lends it again with its
            // next frame.
            m_context->moveToThread(m_gui);
            m_lent = false;
            m_recall = false;
            m_home.notify_all();
            continue;
        }
        const bool posted = !late;
        std::function<void()> job = posted ? std::move(m_job) : m_late;
        m_job = nullptr;
        m_wanted = false;
        m_running = true;
        m_lastStart = Clock::now();
        lock.unlock();
        draw(job);
        job = nullptr; // what it captured goes here, not on the GUI thread
        if (posted) {
            // By name, so that Qt makes the call's event itself; queued
            // before the frame is counted, so this object (which calls the
            // context home before it goes) is alive.
            QMetaObject::invokeMethod(this, "frameDone", Qt::QueuedConnection);
        }
        lock.lock();
        m_running = false;
        if (posted)
            ++m_completed;
        m_home.notify_all();
    }
}

} // namespace kelmor::gl
