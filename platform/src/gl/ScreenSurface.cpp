#include "gl/ScreenSurface.h"

#include "gl/GlContext.h"

#include <QDebug>
#include <QGuiApplication>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QScreen>

namespace kelmor::gl {

namespace {

constexpr int kMaxScreenSide = 8192;

std::unique_ptr<QOpenGLFramebufferObject> makeTarget(const QSize& size)
{
    QOpenGLFramebufferObjectFormat format;
    format.setAttachment(QOpenGLFramebufferObject::NoAttachment);
    format.setInternalTextureFormat(GL_RGBA8);
    auto fbo = std::make_unique<QOpenGLFramebufferObject>(size, format);
    if (!fbo->isValid())
        return nullptr;
    QOpenGLFunctions* gl = QOpenGLContext::currentContext()->functions();
    gl->glBindTexture(GL_TEXTURE_2D, fbo->texture());
    gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    gl->glBindTexture(GL_TEXTURE_2D, 0);
    return fbo;
}

} // namespace

ScreenSurface::ScreenSurface(const ScreenInfo& info, std::function<void()> exposed, bool vsync)
{
    QSize size = info.geometry.size();
    if (!info.offscreen && info.monitor >= 0 && info.monitor < QGuiApplication::screens().size())
        size = QGuiApplication::screens().at(info.monitor)->size();
    if (size.width() <= 0 || size.height() <= 0 || size.width() > kMaxScreenSide
        || size.height() > kMaxScreenSide) {
        qDebug() << "openScreen: size" << size << "of screen" << info.screenId
                 << "is not drawable; the screen shows nothing";
        return;
    }
    m_size = size;
    if (!sharedContext())
        return;
    vsync = vsync && !info.offscreen;
    m_outputCount = vsync ? kPresentedOutputs : 1;
    m_compose = makeTarget(size);
    bool made = m_compose != nullptr;
    for (int i = 0; i < m_outputCount && made; ++i) {
        m_outputs[i] = makeTarget(size);
        made = m_outputs[i] != nullptr;
    }
    if (!made) {
        qDebug() << "openScreen: no framebuffer of" << size << "for screen" << info.screenId;
        m_compose.reset();
        for (auto& output : m_outputs)
            output.reset();
        return;
    }
    if (info.offscreen)
        return;
    // The presenter's context first: without one the window is made for the
    // compositor's swaps (swap interval 0), which must never wait.
    if (vsync) {
        m_presenter = std::make_unique<WindowPresenter>(QStringLiteral("Output %1").arg(info.screenId));
        sharedContext(); // current again after the presenter's context was made
        if (!m_presenter->isValid())
            m_presenter.reset();
    }
    m_window = std::make_unique<ScreenWindow>(info, std::move(exposed), m_presenter != nullptr);
    if (!m_presenter)
        return;
    m_presenter->start(m_window.get());
    qDebug() << "openScreen: screen" << info.screenId
             << "is presented with vsync by a thread of its own";
}

ScreenSurface::~ScreenSurface()
{
    m_presenter.reset(); // its thread stops before the framebuffers and window go
    if (sharedContext()) {
        m_compose.reset();
        for (auto& output : m_outputs)
            output.reset();
    } else {
        // No context to free them with (process exit): let the driver do it.
        m_compose.release();
        for (auto& output : m_outputs)
            static_cast<void>(output.release());
    }
}

void ScreenSurface::advanceOutput()
{
    if (!m_presenter)
        return;
    const auto free = [this](int i) {
        return i != m_current && !m_presenter->holds(m_outputs[i]->texture());
    };
    for (int attempt = 0; attempt < 2; ++attempt) {
        for (int i = 0; i < m_outputCount; ++i) {
            if (free(i)) {
                m_current = i;
                return;
            }
        }
        // The presenter holds the picture it shows and one more it has not
        // taken yet: that one is dropped, the newer picture replaces it.
        m_presenter->reclaim();
    }
}

void ScreenSurface::beginCompose()
{
    QOpenGLFunctions* gl = QOpenGLContext::currentContext()->functions();
    m_compose->bind();
    gl->glViewport(0, 0, m_size.width(), m_size.height());
    gl->glDisable(GL_SCISSOR_TEST);
    gl->glClearColor(0.f, 0.f, 0.f, 1.f);
    gl->glClear(GL_COLOR_BUFFER_BIT);
}

void ScreenSurface::beginOutput()
{
    QOpenGLFunctions* gl = QOpenGLContext::currentContext()->functions();
    output()->bind();
    gl->glViewport(0, 0, m_size.width(), m_size.height());
    gl->glDisable(GL_SCISSOR_TEST);
    gl->glClearColor(0.f, 0.f, 0.f, 1.f);
    gl->glClear(GL_COLOR_BUFFER_BIT);
}

bool ScreenSurface::canDrawToWindow() const
{
    return m_window && !m_presenter && m_window->isExposed()
        && m_window->size() * m_window->devicePixelRatio() == m_size;
}

bool ScreenSurface::beginWindow()
{
    QOpenGLContext* context = sharedContext();
    if (!canDrawToWindow() || !context)
        return false;
    if (!context->makeCurrent(m_window.get())) {
        context->makeCurrent(sharedSurface());
        return false;
    }
    QOpenGLFunctions* gl = context->functions();
    gl->glBindFramebuffer(GL_FRAMEBUFFER, context->defaultFramebufferObject());
    gl->glViewport(0, 0, m_size.width(), m_size.height());
    gl->glDisable(GL_SCISSOR_TEST);
    gl->glClearColor(0.f, 0.f, 0.f, 1.f);
    gl->glClear(GL_COLOR_BUFFER_BIT);
    return true;
}

void ScreenSurface::endWindow()
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    context->swapBuffers(m_window.get());
    context->makeCurrent(sharedSurface());
}

void ScreenSurface::present()
{
    if (!m_window || !m_window->isExposed())
        return;
    if (m_presenter) {
        m_presenter->present(output()->texture(), m_size,
                             m_window->size() * m_window->devicePixelRatio());
        return;
    }
    QOpenGLContext* context = sharedContext();
    if (!context || !context->makeCurrent(m_window.get()))
        return;
    const QSize target = m_window->size() * m_window->devicePixelRatio();
    QOpenGLFramebufferObject::blitFramebuffer(nullptr, QRect(QPoint(0, 0), target), output(),
                                              QRect(QPoint(0, 0), m_size), GL_COLOR_BUFFER_BIT,
                                              GL_LINEAR);
    context->swapBuffers(m_window.get());
    context->makeCurrent(sharedSurface());
}

bool ScreenSurface::presentTexture(const QtAV::FrameTexture& texture)
{
    if (!m_presenter || !m_window || !m_window->isExposed() || texture.size != m_size)
        return false;
    m_presenter->present(texture.id, m_size, m_window->size() * m_window->devicePixelRatio(),
                         !texture.bottomUp);
    return true;
}

void ScreenSurface::releaseTexture(unsigned texture)
{
    // A copy takes a few milliseconds; a thread stuck longer (a display
    // going away) is not waited for: the GL object itself lives on until
    // that thread lets go of it, only the picture may be wrong.
    constexpr int kCopyWaitMs = 500;
    if (m_presenter && !m_presenter->release(texture, kCopyWaitMs))
        qDebug() << "releaseTexture: the presentation thread still copies texture" << texture
                 << "after" << kCopyWaitMs << "ms";
}

QImage ScreenSurface::readOutput() const
{
    if (!output())
        return QImage();
    QImage image = output()->toImage(true);
    return image.convertToFormat(QImage::Format_RGB32);
}

ScreenWindow::ScreenWindow(const ScreenInfo& info, std::function<void()> exposed, bool vsync)
    : m_info(info), m_exposed(std::move(exposed))
{
    setSurfaceType(QSurface::OpenGLSurface);
    QSurfaceFormat format = QSurfaceFormat::defaultFormat();
    // With vsync the window's own presenter waits for the refresh; without,
    // the compositor swaps it and must never wait.
    format.setSwapInterval(vsync ? 1 : 0);
    setFormat(format);
    setFlags(Qt::Window | Qt::FramelessWindowHint);
    setTitle(QStringLiteral("Output %1").arg(info.screenId));
    connect(qApp, &QGuiApplication::screenRemoved, this, &ScreenWindow::onScreenRemoved);
    place();
}

ScreenWindow::~ScreenWindow() = default;

void ScreenWindow::place()
{
    const QList<QScreen*> screens = QGuiApplication::screens();
    if (m_info.monitor >= 0 && m_info.monitor < screens.size()) {
        QScreen* monitor = screens.at(m_info.monitor);
        setScreen(monitor);
        setGeometry(monitor->geometry());
        showFullScreen();
        return;
    }
    if (m_info.monitor >= 0)
        qDebug() << "openScreen: monitor" << m_info.monitor << "of screen" << m_info.screenId
                 << "does not exist; shown at" << m_info.geometry;
    setGeometry(m_info.geometry);
    show();
}

void ScreenWindow::exposeEvent(QExposeEvent*)
{
    if (isExposed() && m_exposed)
        m_exposed();
}

void ScreenWindow::onScreenRemoved(QScreen* screen)
{
    if (screen != this->screen())
        return;
    qDebug() << "screen" << m_info.screenId << ": its monitor" << screen->name()
             << "was removed; moved to the primary monitor";
    m_info.monitor = -1;
    if (QScreen* primary = QGuiApplication::primaryScreen()) {
        setScreen(primary);
        m_info.geometry.moveTopLeft(primary->geometry().topLeft());
    }
    place();
}

} // namespace kelmor::gl
