// The render thread: where output frames are drawn when the compositor is
// asked to draw off the GUI thread (ScreenService::setRenderThread).
//
// The shared GL context is lent, not shared. The GUI thread gathers a frame
// (Scene.h), then hands the context and the drawing to this thread (post).
// The thread draws and queues the frame's results to the GUI thread; the
// context then rests with it. Whatever on the GUI thread needs GL, or state
// the drawing touches (the compositor's, the frame sources'), first calls
// the context home (waitHome(), through awaitRenderThread(), which
// sharedContext() calls): that waits for a frame under way, and the context
// stays home until the GUI thread lends it again: with its next frame, or
// once it is back in its event loop. So between that call and the GUI
// thread's return to its event loop nothing else draws.
//
// While the context rests with the thread, the thread draws a frame of its
// own (the late frame) when one was wanted (frameWanted) and the GUI thread
// has posted none for a while: a GUI thread busy elsewhere (a host's
// widgets, a long command) does not stop the screens.
//
// Threading: post, waitHome, setLateFrame and the destructor on the GUI
// thread; frameWanted, busy and isCurrentThread from any thread.
// Ownership: owned by the shared GL context's holder (GlContext.cpp), which
// stops it before the context goes; it never owns the context or surface.
#pragma once

#include <QObject>
#include <QPointer>
#include <QThread>
#include <chrono>
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
    /// Calls the context home, then stops and joins the thread. Not called
    /// once the display is lost (the thread may be stuck in it; the process
    /// is ending).
    ~RenderThread();

    /// Lends the context and runs `job` on the thread with it current; once
    /// the job is done, `done` runs on the GUI thread (not if `receiver` is
    /// gone by then), after what the job wrote is visible to it; the `done`s
    /// run in the order of their frames. Calls the context home first.
    /// GUI thread.
    void post(std::function<void()> job, QObject* receiver, std::function<void()> done);
    /// Returns once the context is home, calling it back from the thread
    /// (after the frame under way, if any); it stays home until the next
    /// post, or until the GUI thread is back in its event loop. No wait on
    /// the thread itself. After abandonSharedContext() it waits at most
    /// `kAbandonedWaitMs`: a display that is gone may hold a frame forever.
    void waitHome();
    /// Whether a frame (posted or late) is under way or waiting to start.
    bool busy() const;
    /// Whether the calling thread is the render thread.
    bool isCurrentThread() const;

    /// What the thread draws on its own, with the context current, when a
    /// frame is wanted and none has started for `intervalMs` (the display's
    /// pace) plus `kLateSlackMs`, the time the GUI thread's own frame has to
    /// come first; only while the context rests with the thread. The job
    /// tells the GUI thread itself what it drew. Null: no late frames. GUI
    /// thread.
    void setLateFrame(std::function<void()> job, int intervalMs);
    /// A frame is wanted (any thread): the GUI thread's frame normally
    /// follows; past the late frame's delay the thread draws one itself.
    void frameWanted();

    static constexpr int kAbandonedWaitMs = 500;
    static constexpr int kLateSlackMs = 4;

private slots:
    /// A posted frame is done: runs its `done` (GUI thread).
    void frameDone();
    /// The GUI thread is back in its event loop after calling the context
    /// home: lent again, so that late frames can come (GUI thread).
    void lendBack();

private:
    class Worker;
    void run();
    /// Runs `job` with the context current (the render thread).
    void draw(const std::function<void()>& job);

    QOpenGLContext* const m_context;   // the worker's while lent (m_lent)
    QOffscreenSurface* const m_surface;
    QThread* const m_gui;
    Worker* m_worker = nullptr;        // GUI thread (made and joined there)
    struct Done
    {
        quint64 frame;                 // its number in m_posted's count
        QPointer<QObject> receiver;
        std::function<void()> run;
    };
    // GUI thread: frames posted, and what runs when each is done (in
    // order; one frameDone call each).
    quint64 m_posted = 0;
    std::deque<Done> m_dones;
    bool m_lendBackQueued = false;     // a lendBack call is coming

    using Clock = std::chrono::steady_clock;
    mutable std::mutex m_mutex;        // guards the fields below
    std::condition_variable m_wake;    // a job, a recall, a wanted frame or stop, for the worker
    std::condition_variable m_home;    // the context came home, or a frame ended
    std::function<void()> m_job;       // the posted frame to draw (made on the GUI thread)
    bool m_lent = false;               // the context is the worker's
    bool m_recall = false;             // the GUI thread wants it home
    bool m_running = false;            // a frame is being drawn
    bool m_stop = false;
    quint64 m_completed = 0;           // posted frames done
    std::function<void()> m_late;      // the late frame (GUI thread sets it)
    Clock::duration m_lateInterval{};  // the display's pace, for late frames
    bool m_wanted = false;             // a frame is wanted, since m_wantedAt
    Clock::time_point m_wantedAt;
    Clock::time_point m_lastStart;     // the last frame's start, posted or late
};

} // namespace kelmor::gl
