// One output screen's drawing surfaces: the framebuffer the layers are
// composited into, the framebuffer that holds the finished picture (after the
// screen's monitor effects), and, for a windowed screen, the frameless window
// that shows it (fullscreen on a chosen monitor, or at a given geometry).
//
// The finished picture lives in a framebuffer whatever the screen's kind, so
// that snapshots, recordings and virtualScreen layers read the same picture
// an audience sees, and an offscreen screen is drawn exactly like a window.
// The compositor may skip a step where nothing is lost: with neutral monitor
// effects the layers go straight into the output framebuffer (no compose
// pass), and a window that nobody reads back takes them straight into its
// own framebuffer (beginWindow/endWindow; the output framebuffer is then
// drawn only when a picture is asked for).
//
// A window presented with vsync (WindowPresenter.h) is shown by a thread of
// its own from the output framebuffer, which then is one of three that take
// turns (advanceOutput): the one last drawn is the screen's picture, the
// presenter may hold one or two others, and a free one takes the next
// picture. Such a window never takes the layers directly.
//
// Threading: GUI thread only, with the compositor's context current.
#pragma once

#include "ScreenWidget.h"
#include "VideoFrameSource.h"
#include "gl/WindowPresenter.h"

#include <QImage>
#include <QOpenGLFramebufferObject>
#include <QPointer>
#include <QWindow>
#include <functional>
#include <memory>

namespace kelmor::gl {

class ScreenWindow;

class ScreenSurface
{
public:
    /// `exposed` is called when a window needs its picture again. `vsync`: a
    /// window is presented by a thread of its own, synchronised to the
    /// display's refresh.
    ScreenSurface(const ScreenInfo& info, std::function<void()> exposed, bool vsync = false);
    ~ScreenSurface();

    QSize size() const { return m_size; }
    bool isValid() const { return m_compose && m_outputs[m_current]; }
    bool isWindowed() const { return m_window != nullptr; }
    /// Whether the window is presented with vsync by a thread of its own.
    bool presentsWithVsync() const { return m_presenter != nullptr; }
    /// Its presenter (null when it has none).
    const WindowPresenter* presenter() const { return m_presenter.get(); }

    /// Binds the compose framebuffer, sets the viewport and clears it black.
    void beginCompose();
    /// Picks the output framebuffer the next picture is drawn into (with a
    /// presenter: one it does not hold); output() is that one from now on.
    void advanceOutput();
    /// Binds the output framebuffer, sets the viewport and clears it black.
    void beginOutput();
    /// Whether the window can take the layers directly: a window that is
    /// exposed and has exactly the screen's size in pixels.
    bool canDrawToWindow() const;
    /// Makes the window's own framebuffer current, sets the viewport and
    /// clears it black; false (the shared surface current again) when the
    /// window cannot be drawn now.
    bool beginWindow();
    /// Shows what was drawn into the window, and makes the shared surface
    /// current again.
    void endWindow();
    QOpenGLFramebufferObject* compose() const { return m_compose.get(); }
    QOpenGLFramebufferObject* output() const { return m_outputs[m_current].get(); }
    /// Shows the output picture in the window (nothing for offscreen screens).
    void present();
    /// Has the presentation thread show `texture` (the screen's size) in the
    /// window instead of the output picture; false without a presentation
    /// thread or an exposed window.
    bool presentTexture(const QtAV::FrameTexture& texture);
    /// The texture given to presentTexture is about to be deleted: the
    /// presentation thread lets go of it (a copy under way is waited for,
    /// briefly).
    void releaseTexture(unsigned texture);
    /// The output picture, top row first.
    QImage readOutput() const;

private:
    static constexpr int kPresentedOutputs = 3;

    QSize m_size;
    std::unique_ptr<QOpenGLFramebufferObject> m_compose;
    // The output framebuffers: one, or kPresentedOutputs taking turns.
    std::unique_ptr<QOpenGLFramebufferObject> m_outputs[kPresentedOutputs];
    int m_outputCount = 1;
    int m_current = 0; // the screen's picture
    std::unique_ptr<ScreenWindow> m_window;
    // Declared after the window: stopped before the window goes.
    std::unique_ptr<WindowPresenter> m_presenter;
};

/// The frameless top-level window of a windowed screen.
class ScreenWindow : public QWindow
{
    Q_OBJECT
public:
    ScreenWindow(const ScreenInfo& info, std::function<void()> exposed, bool vsync);
    ~ScreenWindow() override;

protected:
    void exposeEvent(QExposeEvent* event) override;

private slots:
    void onScreenRemoved(QScreen* screen);

private:
    void place();

    ScreenInfo m_info;               // GUI thread
    std::function<void()> m_exposed; // GUI thread
};

} // namespace kelmor::gl
