#include "gl/GlContext.h"

#include "VideoFrameSource.h"
#include "gl/Compositor.h"
#include "gl/RenderThread.h"
#include "gl/WindowPresenter.h"

#include <QDebug>
#include <QGuiApplication>
#include <QMutex>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLExtraFunctions>
#include <QOpenGLFunctions>
#include <QThread>
#include <atomic>
#include <memory>

namespace kelmor::gl {

namespace {

struct SharedGl
{
    bool tried = false;                         // GUI thread
    std::atomic<bool> abandoned{false};         // set on the GUI thread; the display is gone
    std::unique_ptr<QOffscreenSurface> surface; // GUI thread
    std::unique_ptr<QOpenGLContext> context;    // GUI thread
    /// Set and cleared on the GUI thread; read by the render thread itself.
    std::atomic<RenderThread*> render{nullptr};
};

// Never destroyed: the context is freed by releaseShared while the
// application object goes. A process that ends through exit() without
// leaving main (Qt's X11 platform does so when its connection breaks) runs
// static destructors while the display may be gone; the context is then left
// to the OS instead of being destroyed on a dead connection.
SharedGl& shared()
{
    static SharedGl* gl = new SharedGl;
    return *gl;
}

QMutex g_compositorMutex;          // guards g_compositor
Compositor* g_compositor = nullptr;

// The application object is going: the context goes first, while Qt's GL
// platform is still there to free it.
void releaseShared()
{
    SharedGl& gl = shared();
    if (gl.abandoned)
        return;
    // The render thread gives the context back and stops; windows'
    // presentation threads use the share group: they stop too. Engine
    // threads tell it of wanted frames under the compositor's mutex
    // (requestCompositorFrame): past this exchange none holds it.
    RenderThread* render = nullptr;
    {
        QMutexLocker lock(&g_compositorMutex);
        render = gl.render.exchange(nullptr);
    }
    delete render;
    WindowPresenter::stopAll();
    if (gl.context)
        gl.context->doneCurrent();
    gl.context.reset();
    gl.surface.reset();
}

bool makeShared(SharedGl& gl)
{
    auto* app = qobject_cast<QGuiApplication*>(QCoreApplication::instance());
    if (!app) {
        qDebug() << "compositor: no QGuiApplication, output screens keep their state only";
        return false;
    }
    if (QThread::currentThread() != app->thread()) {
        qDebug() << "compositor: GL asked for off the GUI thread, refused";
        return false;
    }
    QSurfaceFormat format = QSurfaceFormat::defaultFormat();
    format.setSwapInterval(0); // the compositor paces itself; windows never block each other
    // A display under load now and then refuses one surface or context; a
    // few tries, a moment apart, keep that from costing the process its
    // screens for good.
    constexpr int kTries = 6; // 50 ms apart, doubling: 1.55 s in all at worst
    for (int attempt = 1;; ++attempt) {
        gl.surface = std::make_unique<QOffscreenSurface>();
        gl.surface->setFormat(format);
        gl.surface->create();
        gl.context = std::make_unique<QOpenGLContext>();
        gl.context->setFormat(format);
        if (QOpenGLContext* global = QOpenGLContext::globalShareContext())
            gl.context->setShareContext(global);
        const char* failed = !gl.surface->isValid()                        ? "offscreen surface"
                             : !gl.context->create()                       ? "context"
                             : !gl.context->makeCurrent(gl.surface.get())  ? "make current"
                                                                           : nullptr;
        if (!failed)
            break;
        gl.context.reset();
        gl.surface.reset();
        // Without an X display there is nothing to wait for.
        if (attempt == kTries || qEnvironmentVariableIsEmpty("DISPLAY")) {
            qDebug() << "compositor: no OpenGL context could be made (" << failed
                     << "failed), output screens keep their state only";
            return false;
        }
        qDebug() << "compositor: OpenGL" << failed << "failed, try" << attempt << "of" << kTries;
        QThread::msleep(50UL << (attempt - 1));
    }
    const auto* version = reinterpret_cast<const char*>(
        gl.context->functions()->glGetString(GL_VERSION));
    const auto* renderer = reinterpret_cast<const char*>(
        gl.context->functions()->glGetString(GL_RENDERER));
    qDebug() << "compositor: OpenGL" << (version ? version : "(unknown)") << "on"
             << (renderer ? renderer : "(unknown)");
    return true;
}

} // namespace

QOpenGLContext* sharedContext()
{
    SharedGl& gl = shared();
    if (gl.abandoned)
        return nullptr;
    if (RenderThread* render = gl.render.load()) {
        if (!render->isCurrentThread())
            render->waitHome(); // lent out: the frame under way ends first
    }
    if (!gl.tried) {
        gl.tried = true;
        if (makeShared(gl))
            qAddPostRoutine(releaseShared); // while the GL platform still exists
    }
    if (!gl.context)
        return nullptr;
    if (QOpenGLContext::currentContext() != gl.context.get()
        || gl.context->surface() != gl.surface.get())
        gl.context->makeCurrent(gl.surface.get());
    return gl.context.get();
}

void resetDrawState(QOpenGLContext* context)
{
    QOpenGLFunctions* gl = context->functions();
    static const bool vertexArrays = context->hasExtension("GL_ARB_vertex_array_object")
        || context->format().majorVersion() >= 3 || context->isOpenGLES();
    if (vertexArrays)
        context->extraFunctions()->glBindVertexArray(0);
    gl->glBindBuffer(GL_ARRAY_BUFFER, 0);
    gl->glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    gl->glDisable(GL_DEPTH_TEST);
    gl->glDisable(GL_SCISSOR_TEST);
    gl->glDisable(GL_CULL_FACE);
    gl->glDisable(GL_STENCIL_TEST);
    gl->glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
}

bool glAbandoned()
{
    return shared().abandoned.load();
}

QOffscreenSurface* sharedSurface()
{
    return shared().abandoned ? nullptr : shared().surface.get();
}

void abandonSharedContext()
{
    SharedGl& gl = shared();
    if (gl.abandoned)
        return;
    gl.abandoned = true;
    // Not destroyed and not released from current: either would talk to the
    // display. The process is ending; the OS takes them back.
    static_cast<void>(gl.context.release());
    static_cast<void>(gl.surface.release());
    qDebug() << "compositor: display gone, OpenGL abandoned";
}

bool startRenderThread()
{
    SharedGl& gl = shared();
    if (gl.render.load())
        return true;
    if (!sharedContext())
        return false;
    if (!QOpenGLContext::supportsThreadedOpenGL()) {
        qDebug() << "compositor: this GL platform draws on the GUI thread only; no render thread";
        return false;
    }
    gl.render.store(new RenderThread(gl.context.get(), gl.surface.get()));
    qDebug() << "compositor: output frames are drawn on a render thread";
    return true;
}

bool renderThreadRunning()
{
    return shared().render.load() != nullptr;
}

RenderThread* renderThread()
{
    return shared().render.load();
}

void awaitRenderThread()
{
    if (RenderThread* render = shared().render.load())
        render->waitHome();
}

QVector<QtAV::VideoFrameSource*>& registeredSources()
{
    // GUI thread. Never destroyed: sources held by the compositor's memos
    // unregister while the service goes, among the static destructors.
    static auto* sources = new QVector<QtAV::VideoFrameSource*>;
    return *sources;
}

void setActiveCompositor(Compositor* compositor)
{
    QMutexLocker lock(&g_compositorMutex);
    g_compositor = compositor;
}

} // namespace kelmor::gl

namespace QtAV {

QOpenGLContext* compositorContext()
{
    return kelmor::gl::sharedContext();
}

void awaitOutputFrame()
{
    kelmor::gl::awaitRenderThread();
}

void requestCompositorFrame()
{
    QMutexLocker lock(&kelmor::gl::g_compositorMutex);
    if (kelmor::gl::g_compositor)
        kelmor::gl::g_compositor->requestFrame();
}

void requestPromptCompositorFrame()
{
    QMutexLocker lock(&kelmor::gl::g_compositorMutex);
    if (kelmor::gl::g_compositor)
        kelmor::gl::g_compositor->requestFrame(true);
}

void reportDroppedFrames(VideoFrameSource* source, quint64 count)
{
    if (!source || count == 0)
        return;
    QMutexLocker lock(&kelmor::gl::g_compositorMutex);
    if (kelmor::gl::g_compositor)
        kelmor::gl::g_compositor->noteDroppedFrames(source, count);
}

VideoFrameSource::~VideoFrameSource() = default;

void registerFrameSource(VideoFrameSource* source)
{
    QVector<VideoFrameSource*>& all = kelmor::gl::registeredSources();
    if (source && !all.contains(source))
        all.append(source);
}

void unregisterFrameSource(VideoFrameSource* source)
{
    kelmor::gl::awaitRenderThread(); // a frame being drawn may be reading it
    kelmor::gl::registeredSources().removeAll(source);
    // Its texture goes next: a presentation thread copying it lets go first.
    // The compositor is set and destroyed on this (the GUI) thread, so it is
    // used outside the lock, which the engines' threads take to ask for
    // frames: they never wait for the copy.
    kelmor::gl::Compositor* compositor = nullptr;
    {
        QMutexLocker lock(&kelmor::gl::g_compositorMutex);
        compositor = kelmor::gl::g_compositor;
    }
    if (compositor)
        compositor->sourceGone(source);
}

} // namespace QtAV
