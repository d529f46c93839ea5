// The render thread: where output frames are drawn when the compositor is
// asked to draw off the GUI thread (ScreenService::setRenderThread).
//
// The shared GL context is lent, not shared. The GUI thread gathers a frame
// (Scene.h), then hands the context and the drawing to this thread (post);
// the thread draws, gives the context back and queues the frame's results to
// the GUI thread. While the thread holds the context ("away"), the GUI
// thread goes on with commands and events; whatever on the GUI thread needs
// GL, or state the drawing touches (the compositor's, the frame sources'),
// first waits for the context to come home (awaitRenderThread(), which
// sharedContext() calls). The rule that keeps the two apart: only the GUI
// thread lends the context, and only from the compositor's tick, so between
// that wait and the GUI thread's return to its event loop nothing else draws.
//
// Threading: post, waitHome and the destructor on the GUI thread; busy and
// isCurrentThread from any thread.
// Ownership: owned by the shared GL context's holder (GlContext.cpp), which
// stops it before the context goes; it never owns the context or surface.
#pragma once

#include <QObject>
#include <QPointer>
#include <QThread>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

class QOffscreenSurface;
class QOpenGLContext;

namespace kelmor::gl {

class RenderThread : public QObject
{
    Q_OBJECT
public:
    RenderThread(QOpenGLContext* context, QOffscreenSurface* surface);
    /// Waits for the frame under way, then stops and joins the thread; the
    /// context is home afterwards. Not called once the display is lost (the
    /// thread may be stuck in it; the process is ending).
    ~RenderThread();

    /// Lends the context and runs `job` on the thread with it current; once
    /// the context is home, `done` runs on the GUI thread (not if `receiver`
    /// is gone by then), after what the job wrote is visible to it; the
    /// `done`s run in the order of their frames. Waits for a frame under way
    /// first. GUI thread.
    void post(std::function<void()> job, QObject* receiver, std::function<void()> done);
    /// Returns once the context is home. No wait on the thread itself. After
    /// abandonSharedContext() it waits at most `kAbandonedWaitMs`: a display
    /// that is gone may hold a frame forever.
    void waitHome();
    /// Whether a frame is under way (the context is away).
    bool busy() const;
    /// Whether the calling thread is the render thread.
    bool isCurrentThread() const;

    static constexpr int kAbandonedWaitMs = 500;

private slots:
    /// The frame lent out came home: runs its `done` (GUI thread).
    void frameDone();

private:
    class Worker;
    void run();

    QOpenGLContext* const m_context;   // lent to the worker between post and home
    QOffscreenSurface* const m_surface;
    QThread* const m_gui;
    Worker* m_worker = nullptr;        // GUI thread (made and joined there)
    struct Done
    {
        quint64 frame;                 // its number in m_posted's count
        QPointer<QObject> receiver;
        std::function<void()> run;
    };
    // GUI thread: frames lent, and what runs when each has come home (in
    // order; one frameDone call each).
    quint64 m_posted = 0;
    std::deque<Done> m_dones;

    mutable std::mutex m_mutex;        // guards the fields below
    std::condition_variable m_wake;    // a job or stop for the worker
    std::condition_variable m_home;    // the context came home
    std::function<void()> m_job;       // the frame to draw (made on the GUI thread)
    bool m_away = false;
    bool m_stop = false;
    quint64 m_completed = 0;           // frames that came home
};

} // namespace kelmor::gl
