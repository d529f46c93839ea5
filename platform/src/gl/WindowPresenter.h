// Presentation of one output window on a thread of its own, synchronised to
// the display's refresh (swap interval 1).
//
// A swap with vsync waits for the display's next refresh: up to a whole
// refresh interval. Done by the compositor itself, each window's wait would
// hold the GUI thread, every other window and the next output frame. Here
// the compositor only hands the window's finished picture over (a texture of
// its context and a fence that marks the end of the commands that drew it);
// the presenter thread, with a context of its own in the compositor's share
// group, waits for the fence on the GPU, copies the texture into the
// window's back buffer and swaps. A window's vsync wait then holds its own
// presenter only. A picture of the window's own size is copied with nearest
// filtering (the same texels as linear at 1:1): where its texture's storage
// matches the window's buffer (a libmpv picture, MpvRenderTarget.h), a
// software GL driver then copies memory instead of drawing the copy.
//
// Mailbox: the presenter holds at most two pictures, the one it shows now
// and the next one. A picture handed over while the next one waits replaces
// it (the newer picture is shown; counted as replaced): a slow display drops
// pictures rather than queueing them.
//
// Threading: construction, start(), stop(), destruction, present(),
// reclaim(), release(), holds() and the counters from the compositor's thread (the GUI
// thread) with the compositor's context current; the presenter thread makes
// only its own context current. The window is not owned and must outlive the
// presenter. stopAll() runs as the application object goes.
#pragma once

#include <QSize>
#include <QThread>
#include <QtGlobal>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

class QOpenGLContext;
class QWindow;

namespace kelmor::gl {

class WindowPresenter : public QThread
{
    Q_OBJECT
public:
    /// Makes the presenter's context (sharing with the compositor's);
    /// isValid() is false when it cannot be made. `name` names the thread.
    explicit WindowPresenter(const QString& name);
    /// Stops the thread after the swap under way, if any; a picture not yet
    /// taken is dropped.
    ~WindowPresenter() override;

    bool isValid() const { return m_valid; }
    /// Starts presenting into `window` (made after the presenter, with swap
    /// interval 1, and outliving it). Once only.
    void start(QWindow* window);

    /// Hands over a finished picture: `texture` (of the compositor's share
    /// group, `size` pixels, row 0 at the bottom, or at the top with
    /// `topDown`) is copied to the window at `windowPixels`. Replaces a
    /// picture handed over and not yet taken.
    void present(unsigned texture, const QSize& size, const QSize& windowPixels,
                 bool topDown = false);
    /// Drops the picture waiting to be taken, if any (its texture is free
    /// again).
    void reclaim();
    /// Whether the presenter holds `texture` now (showing it or about to).
    bool holds(unsigned texture) const;
    /// Makes the presenter let go of `texture`, which is about to be
    /// deleted: a picture of it not yet taken is dropped, and a copy of it
    /// under way is waited for (at most `limitMs`). False when the copy was
    /// still under way at the limit.
    bool release(unsigned texture, int limitMs);

    /// Stops the thread after the swap under way; its context and GL objects
    /// are freed. Nothing is presented afterwards. Idempotent.
    void stop();
    /// Whether any presenter holds `texture` now (any thread).
    static bool anyHolds(unsigned texture);
    /// Stops every presenter's thread: the GL platform is about to go (the
    /// application object's end), no presentation thread may outlive it.
    static void stopAll();

    /// Pictures swapped onto the window so far.
    quint64 presented() const { return m_presented.load(); }
    /// Pictures replaced by a newer one before they were taken.
    quint64 replaced() const { return m_replaced.load(); }

protected:
    void run() override;

private:
    struct Job
    {
        unsigned texture = 0;
        QSize size;
        QSize windowPixels;
        bool topDown = false;  // texture row 0 is the picture's top
        void* fence = nullptr; // GLsync of the compositor's draw; null: finished already
    };
    void dropFence(Job& job);
    void show(const Job& job);

    QWindow* m_window = nullptr;              // not owned; set before the thread starts
    std::unique_ptr<QOpenGLContext> m_context; // made on the GUI thread, then owned by run()
    bool m_valid = false;                     // GUI thread, set once in the constructor
    bool m_fences = false;                    // sync objects available; set before start()

    mutable std::mutex m_mutex;               // guards the fields below
    std::condition_variable m_wake;
    std::condition_variable m_copied;         // m_showing went back to 0
    Job m_next;                               // waiting to be taken (texture 0: none)
    unsigned m_showing = 0;                   // texture being copied now
    std::vector<void*> m_orphanFences;        // fences of pictures that could not be shown
    bool m_stop = false;

    std::atomic<quint64> m_presented{0};
    std::atomic<quint64> m_replaced{0};
    unsigned m_readFramebuffer = 0;           // presenter thread (its own context)
};

} // namespace kelmor::gl
