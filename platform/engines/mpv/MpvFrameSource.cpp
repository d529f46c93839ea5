#include "MpvFrameSource.h"
#include "MpvRenderTarget.h"

#include <QDebug>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <mpv/render_gl.h>

namespace QtAV {

namespace {

void* procAddress(void*, const char* name)
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    return context ? reinterpret_cast<void*>(context->getProcAddress(name)) : nullptr;
}

} // namespace

std::atomic<int> MpvFrameSource::s_live{0};

int MpvFrameSource::liveRenderContexts()
{
    return s_live.load();
}

std::unique_ptr<MpvFrameSource> MpvFrameSource::create(mpv_handle* mpv)
{
    if (!mpv || !compositorContext())
        return nullptr;
    mpv_opengl_init_params init{&procAddress, nullptr};
    int advanced = 0;
    mpv_render_param params[] = {
        {MPV_RENDER_PARAM_API_TYPE, const_cast<char*>(MPV_RENDER_API_TYPE_OPENGL)},
        {MPV_RENDER_PARAM_OPENGL_INIT_PARAMS, &init},
        {MPV_RENDER_PARAM_ADVANCED_CONTROL, &advanced},
        {MPV_RENDER_PARAM_INVALID, nullptr},
    };
    mpv_render_context* render = nullptr;
    const int error = mpv_render_context_create(&render, mpv, params);
    if (error < 0) {
        qDebug() << "mpv: no render context:" << mpv_error_string(error);
        return nullptr;
    }
    s_live.fetch_add(1);
    std::unique_ptr<MpvFrameSource> source(new MpvFrameSource(render));
    mpv_render_context_set_update_callback(render, &MpvFrameSource::onUpdate, source.get());
    registerFrameSource(source.get());
    return source;
}

MpvFrameSource::MpvFrameSource(mpv_render_context* render)
    : m_render(render)
{
}

MpvFrameSource::~MpvFrameSource()
{
    // libmpv frees its GL objects: the context must be current.
    if (!compositorContext()) {
        qDebug() << "mpv: render context freed without its GL context";
    }
    unregisterFrameSource(this);
    if (m_gate)
        m_gate->remove(this);
    mpv_render_context_set_update_callback(m_render, nullptr, nullptr);
    mpv_render_context_free(m_render);
    s_live.fetch_sub(1);
    m_target.reset();
}

void MpvFrameSource::onUpdate(void* self)
{
    // The compositor folds repeated requests into one; asking every time means
    // a frame is never lost when the source was not drawn at the last tick.
    auto* source = static_cast<MpvFrameSource*>(self);
    source->m_pending.store(true);
    if (source->m_prompt.load())
        requestPromptCompositorFrame();
    else
        requestCompositorFrame();
}

void MpvFrameSource::setPictureSize(const QSize& size)
{
    awaitOutputFrame(); // the drawing reads what this changes
    if (size == m_pictureSize)
        return;
    m_pictureSize = size;
    redraw();
}

bool MpvFrameSource::pollFrameDue()
{
    if (mpv_render_context_update(m_render) & MPV_RENDER_UPDATE_FRAME)
        m_frameDue = m_frameSeen = true;
    return m_frameDue;
}

void MpvFrameSource::noteEngineDrops(quint64 count)
{
    awaitOutputFrame(); // the drawing reads what this changes
    m_engineDrops += count;
    if (count > 0)
        requestCompositorFrame(); // reported with the next output frame
}

void MpvFrameSource::discardPendingFrame()
{
    m_pending.store(false);
    m_engineDrops = 0; // nothing shows this source: nothing was due on a screen
    const uint64_t flags = mpv_render_context_update(m_render);
    if (flags & MPV_RENDER_UPDATE_FRAME)
        m_frameSeen = true;
    if (m_frameDue || (flags & MPV_RENDER_UPDATE_FRAME))
        skipFrame();
}

void MpvFrameSource::skipFrame()
{
    takeUndrawn();
    m_hasFrame = false; // the texture no longer holds the newest frame
}

void MpvFrameSource::takeUndrawn()
{
    mpv_opengl_fbo fbo{0, 2, 2, 0};
    int skip = 1;
    int block = 0;
    mpv_render_param params[] = {
        {MPV_RENDER_PARAM_OPENGL_FBO, &fbo},
        {MPV_RENDER_PARAM_SKIP_RENDERING, &skip},
        {MPV_RENDER_PARAM_BLOCK_FOR_TARGET_TIME, &block},
        {MPV_RENDER_PARAM_INVALID, nullptr},
    };
    mpv_render_context_render(m_render, params);
    m_frameDue = false;
}

void MpvFrameSource::joinStartGate(const std::shared_ptr<MpvStartGate>& gate)
{
    awaitOutputFrame(); // the drawing reads what this changes
    if (m_gate == gate)
        return;
    if (m_gate)
        m_gate->remove(this);
    m_gate = gate;
    m_gate->add(this);
}

void MpvFrameSource::redraw()
{
    m_pending.store(true);
    requestCompositorFrame();
}

FrameTexture MpvFrameSource::updateTexture(const QSize& wanted)
{
    const bool due = m_pending.exchange(false);
    if (m_engineDrops > 0) {
        reportDroppedFrames(this, m_engineDrops);
        m_engineDrops = 0;
    }
    // Ask libmpv whether a new frame is due; this also lets it go on.
    const uint64_t flags = mpv_render_context_update(m_render);
    if (flags & MPV_RENDER_UPDATE_FRAME)
        m_frameSeen = true;
    if (m_pictureSize.isEmpty()) {
        // No video (yet): nothing to draw, but libmpv waits for its frames to
        // be taken, so a due one is taken undrawn.
        if (m_frameDue || (flags & MPV_RENDER_UPDATE_FRAME))
            skipFrame();
        m_hasFrame = false;
        return FrameTexture();
    }
    m_frameDue = m_frameDue || (flags & MPV_RENDER_UPDATE_FRAME);
    if (m_gate && m_hasFrame) {
        if (!m_gate->mayShow(this, m_frameDue)) {
            m_pending.store(true);
            requestCompositorFrame(); // ask again next output frame
            return FrameTexture{m_target->texture(), m_target->size(), false};
        }
        m_gate->remove(this);
        m_gate.reset();
    }
    if (!m_frameSeen) {
        // The picture's size is known before its first frame has reached
        // libmpv's video output (a decoder still working its way to a
        // play-ready's position): a render now would only clear the texture
        // black and hand that out as a picture.
        return FrameTexture();
    }
    if (m_frameDue && m_prompt.load()) {
        // A play-ready waits for libmpv to see its frame taken, and libmpv
        // reports the restart right after. Drawing the frame now (a few ms of
        // a software rasterizer for a large picture) would hold the GUI
        // thread just as that report arrives, so the frame is taken undrawn
        // and drawn, as libmpv's current frame, at the next paced output
        // frame; until then the texture keeps the picture it had.
        takeUndrawn();
        m_drawOwed = true;
        requestCompositorFrame();
        return m_hasFrame ? FrameTexture{m_target->texture(), m_target->size(), false}
                          : FrameTexture();
    }
    const QSize size = wanted.boundedTo(m_pictureSize).expandedTo(QSize(2, 2));
    const bool resized = !m_target || m_target->size() != size;
    if (!m_frameDue && !resized && !due && !m_drawOwed && m_hasFrame)
        return FrameTexture{m_target->texture(), size, false};
    m_frameDue = false;
    if (resized) {
        m_target = std::make_unique<MpvRenderTarget>(size);
        if (!m_target->isValid()) {
            qDebug() << "mpv: no framebuffer of" << size << "for the picture";
            m_target.reset();
            m_hasFrame = false;
            return FrameTexture();
        }
    }
    mpv_opengl_fbo fbo{static_cast<int>(m_target->framebuffer()), size.width(), size.height(), 0};
    int flip = 0;
    int block = 0;
    mpv_render_param params[] = {
        {MPV_RENDER_PARAM_OPENGL_FBO, &fbo},
        {MPV_RENDER_PARAM_FLIP_Y, &flip},
        {MPV_RENDER_PARAM_BLOCK_FOR_TARGET_TIME, &block},
        {MPV_RENDER_PARAM_INVALID, nullptr},
    };
    mpv_render_context_render(m_render, params);
    // libmpv leaves its own framebuffer bound.
    QOpenGLContext::currentContext()->functions()->glBindFramebuffer(
        GL_FRAMEBUFFER, QOpenGLContext::currentContext()->defaultFramebufferObject());
    m_hasFrame = true;
    m_drawOwed = false;
    ++m_serial;
    return FrameTexture{m_target->texture(), size, false};
}

} // namespace QtAV
