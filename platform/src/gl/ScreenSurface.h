// One output screen's drawing surfaces: the framebuffer the layers are
// composited into, the framebuffer that holds the finished picture (after the
// screen's monitor effects), and, for a windowed screen, the frameless window
// that shows it (fullscreen on a chosen monitor, or at a given geometry).
//
// The finished picture lives in a framebuffer whatever the screen's kind, so
// that snapshots, recordings and virtualScreen layers read the same picture
// an audience sees, and an offscreen screen is drawn exactly like a window.
//
// Threading: GUI thread only, with the compositor's context current.
#pragma once

#include "ScreenWidget.h"

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
    /// `exposed` is called when a window needs its picture again.
    ScreenSurface(const ScreenInfo& info, std::function<void()> exposed);
    ~ScreenSurface();

    QSize size() const { return m_size; }
    bool isValid() const { return m_compose && m_output; }
    bool isWindowed() const { return m_window != nullptr; }

    /// Binds the compose framebuffer, sets the viewport and clears it black.
    void beginCompose();
    QOpenGLFramebufferObject* compose() const { return m_compose.get(); }
    QOpenGLFramebufferObject* output() const { return m_output.get(); }
    /// Shows the output picture in the window (nothing for offscreen screens).
    void present();
    /// The output picture, top row first.
    QImage readOutput() const;

private:
    QSize m_size;
    std::unique_ptr<QOpenGLFramebufferObject> m_compose;
    std::unique_ptr<QOpenGLFramebufferObject> m_output;
    std::unique_ptr<ScreenWindow> m_window;
};

/// The frameless top-level window of a windowed screen.
class ScreenWindow : public QWindow
{
    Q_OBJECT
public:
    ScreenWindow(const ScreenInfo& info, std::function<void()> exposed);
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
