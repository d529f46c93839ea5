#include "gl/WindowPresenter.h"

#include "gl/GlContext.h"

#include <QDebug>
#include <QOpenGLContext>
#include <QOpenGLExtraFunctions>
#include <QOpenGLFunctions>
#include <QWindow>
#include <chrono>
#include <set>

namespace kelmor::gl {

namespace {

std::mutex g_liveMutex;                  // guards g_live
std::set<WindowPresenter*> g_live;       // presenters whose thread may run

} // namespace

WindowPresenter::WindowPresenter(const QString& name)
{
    QOpenGLContext* shared = sharedContext();
    if (!shared)
        return;
    m_context = std::make_unique<QOpenGLContext>();
    QSurfaceFormat format = shared->format();
    format.setSwapInterval(1);
    m_context->setFormat(format);
    m_context->setShareContext(shared);
    if (!m_context->create()) {
        qDebug() << "openScreen: no presentation context for" << name
                 << "; the compositor presents it without vsync";
        m_context.reset();
        return;
    }
    // Sync objects order the compositor's drawing and this thread's copy on
    // the GPU; without them both sides finish their commands instead.
    m_fences = shared->format().version() >= qMakePair(3, 2) || shared->isOpenGLES()
        || shared->hasExtension("GL_ARB_sync");
    m_context->moveToThread(this);
    m_valid = true;
    setObjectName(QStringLiteral("present:%1").arg(name));
}

void WindowPresenter::start(QWindow* window)
{
    if (!m_valid || !window || m_window)
        return;
    m_window = window;
    {
        std::lock_guard<std::mutex> lock(g_liveMutex);
        g_live.insert(this);
    }
    QThread::start(QThread::HighPriority);
}

WindowPresenter::~WindowPresenter()
{
    if (!m_valid)
        return;
    stop();
    // A picture never taken leaves its fence behind (freed only while the
    // compositor's context exists).
    if (sharedContext()) {
        dropFence(m_next);
        for (void* fence : m_orphanFences)
            QOpenGLContext::currentContext()->extraFunctions()->glDeleteSync(
                static_cast<GLsync>(fence));
    }
    m_orphanFences.clear();
}

void WindowPresenter::stop()
{
    {
        std::lock_guard<std::mutex> lock(g_liveMutex);
        g_live.erase(this);
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    wait();
    // Everything the thread did happens before what follows (also for tools
    // that cannot see into QThread::wait).
    std::lock_guard<std::mutex> lock(m_mutex);
}

bool WindowPresenter::anyHolds(unsigned texture)
{
    std::lock_guard<std::mutex> lock(g_liveMutex);
    for (const WindowPresenter* presenter : g_live) {
        if (presenter->holds(texture))
            return true;
    }
    return false;
}

void WindowPresenter::stopAll()
{
    std::set<WindowPresenter*> live;
    {
        std::lock_guard<std::mutex> lock(g_liveMutex);
        live.swap(g_live);
    }
    for (WindowPresenter* presenter : live)
        presenter->stop();
}

void WindowPresenter::dropFence(Job& job)
{
    if (job.fence) {
        if (QOpenGLContext* context = QOpenGLContext::currentContext())
            context->extraFunctions()->glDeleteSync(static_cast<GLsync>(job.fence));
        job.fence = nullptr;
    }
}

void WindowPresenter::present(unsigned texture, const QSize& size, const QSize& windowPixels,
                              bool topDown)
{
    if (!m_valid || !m_window || texture == 0 || size.isEmpty() || windowPixels.isEmpty())
        return;
    QOpenGLContext* context = QOpenGLContext::currentContext();
    if (!context)
        return;
    Job job{texture, size, windowPixels, topDown, nullptr};
    if (m_fences)
        job.fence = context->extraFunctions()->glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
    // Submitted now, so that the presenter's wait on the fence can end.
    if (job.fence)
        context->functions()->glFlush();
    else
        context->functions()->glFinish();
    Job replaced;
    std::vector<void*> orphans;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        replaced = m_next;
        m_next = job;
        orphans.swap(m_orphanFences);
    }
    for (void* fence : orphans)
        context->extraFunctions()->glDeleteSync(static_cast<GLsync>(fence));
    if (replaced.texture) {
        m_replaced.fetch_add(1);
        dropFence(replaced);
    }
    m_wake.notify_one();
}

void WindowPresenter::reclaim()
{
    Job dropped;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        dropped = m_next;
        m_next = Job();
    }
    if (dropped.texture) {
        m_replaced.fetch_add(1);
        dropFence(dropped);
    }
}

bool WindowPresenter::release(unsigned texture, int limitMs)
{
    if (texture == 0)
        return true;
    Job dropped;
    bool done = false;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_next.texture == texture) {
            dropped = m_next;
            m_next = Job();
        }
        done = m_copied.wait_for(lock, std::chrono::milliseconds(limitMs),
                                 [&] { return m_showing != texture; });
    }
    if (dropped.texture) {
        m_replaced.fetch_add(1);
        dropFence(dropped);
    }
    return done;
}

bool WindowPresenter::holds(unsigned texture) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return texture != 0 && (m_showing == texture || m_next.texture == texture);
}

void WindowPresenter::run()
{
    for (;;) {
        Job job;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_wake.wait(lock, [this] { return m_stop || m_next.texture != 0; });
            if (m_stop)
                break;
            job = m_next;
            m_next = Job();
            m_showing = job.texture;
        }
        if (!glAbandoned())
            show(job);
        std::lock_guard<std::mutex> lock(m_mutex);
        m_showing = 0;
        m_copied.notify_all();
    }
    if (glAbandoned()) {
        // The display is gone: no GL call may reach it. The OS takes the
        // context back with the process.
        std::lock_guard<std::mutex> lock(m_mutex);
        static_cast<void>(m_context.release());
        return;
    }
    if (m_readFramebuffer && m_context->makeCurrent(m_window))
        m_context->functions()->glDeleteFramebuffers(1, &m_readFramebuffer);
    m_context->doneCurrent();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_context.reset();
}

void WindowPresenter::show(const Job& job)
{
    if (!m_context->makeCurrent(m_window)) {
        // The fence is deleted by the compositor's thread at the next picture.
        std::lock_guard<std::mutex> lock(m_mutex);
        if (job.fence)
            m_orphanFences.push_back(job.fence);
        return;
    }
    QOpenGLFunctions* gl = m_context->functions();
    QOpenGLExtraFunctions* extra = m_context->extraFunctions();
    if (job.fence) {
        // The GPU waits for the compositor's drawing; this thread does not.
        extra->glWaitSync(static_cast<GLsync>(job.fence), 0, GL_TIMEOUT_IGNORED);
        extra->glDeleteSync(static_cast<GLsync>(job.fence));
    }
    if (!m_readFramebuffer)
        gl->glGenFramebuffers(1, &m_readFramebuffer);
    gl->glBindFramebuffer(GL_READ_FRAMEBUFFER, m_readFramebuffer);
    gl->glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D,
                               job.texture, 0);
    gl->glBindFramebuffer(GL_DRAW_FRAMEBUFFER, m_context->defaultFramebufferObject());
    gl->glDisable(GL_SCISSOR_TEST);
    // A top-down picture is copied with its rows reversed: the window's row
    // 0 is its bottom.
    const int top = job.topDown ? 0 : job.size.height();
    const int bottom = job.topDown ? job.size.height() : 0;
    // At 1:1 nearest and linear filtering take the same texels; nearest lets
    // a software driver copy memory when the texture's storage matches the
    // window's (MpvRenderTarget.h) instead of drawing the copy.
    const GLenum filter = job.size == job.windowPixels ? GL_NEAREST : GL_LINEAR;
    extra->glBlitFramebuffer(0, bottom, job.size.width(), top, 0, 0,
                             job.windowPixels.width(), job.windowPixels.height(),
                             GL_COLOR_BUFFER_BIT, filter);
    // Detached before the texture is handed back: the compositor draws into
    // it again from its own context.
    gl->glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, 0, 0);
    // The copy is done before the texture is handed back (the compositor
    // may draw into it again at once); the swap then waits for the display's
    // refresh without holding it.
    gl->glFinish();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_showing = 0;
        m_copied.notify_all();
    }
    m_context->swapBuffers(m_window);
    m_presented.fetch_add(1);
}

} // namespace kelmor::gl
