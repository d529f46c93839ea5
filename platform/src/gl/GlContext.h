// The compositor's GL context: one QOpenGLContext on an offscreen surface,
// made on first use on the GUI thread and kept for the life of the process.
// Every output screen draws with it (windows by making it current on their
// own surface), and libmpv's render contexts are made on it, so every texture
// of every player is usable by every screen without sharing tricks.
//
// With a render thread (startRenderThread) the context is lent to it for each
// output frame and comes back after; the GUI thread's users get it through
// sharedContext(), which waits for it.
//
// The application should set Qt::AA_ShareOpenGLContexts before building its
// QGuiApplication, so that a host's own GL widgets (previews) share with it.
#pragma once

#include "KelmorPlatformExport.h"

#include <QVector>

class QOpenGLContext;
class QOffscreenSurface;

namespace QtAV {
class VideoFrameSource;
}

namespace kelmor::gl {

class Compositor;

/// The context, current on its offscreen surface; null without GL. On the
/// GUI thread with a render thread running, waits for the frame under way
/// (awaitRenderThread). On the render thread, during a frame, the context.
QOpenGLContext* sharedContext();
/// Undoes what other GL users (libmpv) may leave bound: vertex array,
/// buffers, scissor, depth test, culling. Call before drawing.
void resetDrawState(QOpenGLContext* context);

/// Whether abandonSharedContext() was called (any thread).
bool glAbandoned();

/// Its offscreen surface (valid whenever sharedContext() is not null).
QOffscreenSurface* sharedSurface();

/// The display connection is gone (or the process is ending without the
/// application object's end): no GL call may be made any more. From now on
/// sharedContext() is null, so nothing draws, grabs or reads back, and
/// surfaces leave their GL objects to the OS; the context itself is neither
/// made current nor destroyed again. Recorders still finish their files from
/// the pictures they have. GUI thread; cannot be undone.
void abandonSharedContext();

class RenderThread;

/// Starts drawing output frames on a render thread (RenderThread.h); true
/// when one runs. Refused (false, with a debug line) without GL or where the
/// GL platform cannot draw from other threads. GUI thread; it runs until the
/// context goes.
bool startRenderThread();
/// Whether a render thread runs (any thread).
bool renderThreadRunning();
/// The render thread, or null (any thread).
RenderThread* renderThread();
/// Returns once the render thread holds nothing: the GUI thread may touch
/// GL and what a frame touches until it returns to its event loop. No wait
/// without a render thread or on it. sharedContext() does this itself.
void awaitRenderThread();

/// The sources registered with registerFrameSource (GUI thread).
QVector<QtAV::VideoFrameSource*>& registeredSources();

/// The compositor that requestCompositorFrame() reaches (set by the
/// compositor itself as it is built and destroyed; any thread may read it).
void setActiveCompositor(Compositor* compositor);

} // namespace kelmor::gl
