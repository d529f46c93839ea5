// The compositor's life, its screens and its output frame (tick); what a
// tick does is spread over the files listed in Compositor.h.
#include "gl/Compositor.h"

#include "PreviewRenderer.h"
#include "ScreenService.h"
#include "gl/GlContext.h"
#include "gl/RenderThread.h"

#include <QDebug>
#include <QGuiApplication>
#include <QOpenGLContext>
#include <QScreen>
#include <algorithm>

namespace kelmor::gl {

namespace {

int refreshInterval()
{
    qreal hz = 0;
    for (QScreen* s : QGuiApplication::screens())
        hz = std::max(hz, s->refreshRate());
    if (hz < 20 || hz > 240)
        hz = 60;
    return qRound(1000.0 / hz);
}

} // namespace

Compositor::Compositor()
    : m_gatherer([this] { requestFrame(); })
{
    m_clock.start();
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &Compositor::tick);
    setActiveCompositor(this);
}

Compositor::~Compositor()
{
    awaitRenderThread(); // home until the next post: no late frame from here on
    if (RenderThread* render = renderThread(); render && m_lateFrameSet)
        render->setLateFrame(nullptr, 0);
    setActiveCompositor(nullptr);
    if (sharedContext()) {
        m_screens.clear();
        m_memos.clear();
    }
}

void Compositor::requestFrame(bool prompt)
{
    if (RenderThread* render = renderThread())
        render->frameWanted(); // drawn there if the GUI thread does not come
    // A prompt request is scheduled again even when a tick is already asked
    // for: that tick may be waiting for the display's pace.
    if (prompt && !m_prompt.exchange(true)) {
        m_requested.store(true);
        QMetaObject::invokeMethod(this, "schedule", Qt::QueuedConnection);
        return;
    }
    if (m_requested.exchange(true))
        return;
    // By name: the call's event is made inside Qt, not from a functor made
    // on the calling thread (which may be libmpv's or the render thread).
    QMetaObject::invokeMethod(this, "schedule", Qt::QueuedConnection);
}

void Compositor::schedule()
{
    if (RenderThread* render = renderThread(); render && render->busy()) {
        // The frame under way asks again when it is done (done runs on this
        // thread, after busy() turned false): no timer meanwhile.
        m_tickAfterFrame = true;
        return;
    }
    const bool prompt = m_prompt.exchange(false);
    if (prompt) {
        m_timer.start(0);
        return;
    }
    if (m_timer.isActive())
        return;
    const qint64 since = m_clock.elapsed() - m_lastTick;
    const int interval = refreshInterval();
    m_timer.start(since >= interval ? 0 : int(interval - since));
}

void Compositor::screenOpened(ScreenWidget* widget)
{
    awaitRenderThread();
    if (!widget || screenFor(widget))
        return;
    auto screen = std::make_unique<Screen>();
    screen->widget = widget;
    screen->id = widget->screenId();
    if (sharedContext()) {
        const ScreenService::Presentation asked = ScreenService::getInstance().presentation();
        const bool vsync = asked == ScreenService::Presentation::Vsync
            || (asked == ScreenService::Presentation::Auto
                && QOpenGLContext::supportsThreadedOpenGL());
        screen->surface = std::make_unique<ScreenSurface>(widget->info(), [this, widget] {
            redraw(widget); // an exposed window is drawn again
        }, vsync);
    }
    connect(widget, &QtAV::NoxOpenGLWidgetRenderer::contentChanged, this,
            [this] { requestFrame(); });
    m_screens.push_back(std::move(screen));
    requestFrame();
}

void Compositor::screenClosing(ScreenWidget* widget)
{
    awaitRenderThread();
    for (auto it = m_screens.begin(); it != m_screens.end(); ++it) {
        if ((*it)->widget != widget)
            continue;
        if ((*it)->recorder && (*it)->recorder->isRecording()) {
            qDebug() << "screen" << widget->screenId() << "closed while recording; file finished:"
                     << (*it)->recorder->path();
            (*it)->recorder->stop();
        }
        sharedContext();
        disconnect(widget, nullptr, this, nullptr);
        m_screens.erase(it);
        requestFrame(); // virtualScreen layers that showed it go blank
        return;
    }
}

Compositor::Screen* Compositor::screenFor(ScreenWidget* widget)
{
    for (auto& s : m_screens) {
        if (s->widget == widget)
            return s.get();
    }
    return nullptr;
}

Compositor::Screen* Compositor::screenById(int screenId)
{
    for (auto& s : m_screens) {
        if (s->id == screenId)
            return s.get();
    }
    return nullptr;
}

bool Compositor::presentsWithVsync(ScreenWidget* widget) const
{
    awaitRenderThread();
    for (const auto& s : m_screens) {
        if (s->widget == widget)
            return s->surface && s->surface->presentsWithVsync();
    }
    return false;
}

quint64 Compositor::presentedCount(ScreenWidget* widget) const
{
    awaitRenderThread();
    for (const auto& s : m_screens) {
        if (s->widget == widget && s->surface && s->surface->presenter())
            return s->surface->presenter()->presented();
    }
    return 0;
}

quint64 Compositor::drawCount(ScreenWidget* widget) const
{
    awaitRenderThread();
    for (const auto& s : m_screens) {
        if (s->widget == widget)
            return s->draws;
    }
    return 0;
}

void Compositor::redraw(ScreenWidget* widget)
{
    awaitRenderThread();
    if (Screen* screen = screenFor(widget)) {
        screen->forced = true;
        requestFrame();
    }
}

void Compositor::tick()
{
    m_timer.stop();
    m_requested.store(false);
    RenderThread* render = renderThread();
    if (render && render->busy()) {
        // The last frame is still being drawn: this one follows it.
        m_tickAfterFrame = true;
        return;
    }
    m_lastTick = m_clock.elapsed();
    if (!sharedContext())
        return;
    if (!render) {
        drawHere();
        return;
    }
    if (!m_lateFrameSet) {
        m_lateFrameSet = true;
        render->setLateFrame([this] { drawLate(); }, refreshInterval());
    }
    auto scene = std::make_shared<Scene>(m_gatherer.gather());
    render->post(
        [this, scene] {
            SceneResults results;
            drawScene(*scene, results);
            m_lastScene = scene;
            keepResults(std::move(results), false);
        },
        this, [this] { deliverPending(); });
}

void Compositor::drawHere()
{
    awaitRenderThread();
    if (!sharedContext())
        return;
    auto scene = std::make_shared<Scene>(m_gatherer.gather());
    SceneResults results;
    drawScene(*scene, results);
    m_lastScene = scene;
    keepResults(std::move(results), false);
    deliverPending();
}

void Compositor::drawLate()
{
    // The GUI thread is busy elsewhere: the last frame's scene is drawn
    // again with the sources' new pictures.
    if (!m_lastScene)
        return;
    SceneResults results;
    drawTaken(*m_lastScene, results);
    if (keepResults(std::move(results), true))
        QMetaObject::invokeMethod(this, "deliverPending", Qt::QueuedConnection);
}

void Compositor::drawScene(Scene& scene, SceneResults& out)
{
    m_effectsChanges = scene.effectsChanges;
    // Screens the service closed without telling are dropped; the others
    // take their part of the scene.
    m_screens.erase(std::remove_if(m_screens.begin(), m_screens.end(),
                                   [&scene](const std::unique_ptr<Screen>& s) {
                                       return std::none_of(
                                           scene.screens.begin(), scene.screens.end(),
                                           [&s](const Scene::Screen& g) {
                                               return g.widget == s->widget;
                                           });
                                   }),
                    m_screens.end());
    for (Scene::Screen& gathered : scene.screens) {
        Screen* s = screenFor(gathered.widget);
        if (!s)
            continue;
        s->id = gathered.id;
        s->effects = gathered.effects;
        s->items = std::move(gathered.items);
    }
    drawTaken(scene, out);
}

void Compositor::drawTaken(const Scene& scene, SceneResults& out)
{
    ++m_tick;
    for (auto& s : m_screens) {
        for (const Item& item : s->items)
            memoFor(item).seenTick = m_tick;
        // The output framebuffer is read back by a recording and by a
        // published screen's consumer: those screens always draw into it.
        s->outputWanted = (s->recorder && s->recorder->isRecording())
            || (s->tap && s->tap->wantsPictures());
    }
    for (const QtAV::NoxOpenGLRender* render : scene.renders) {
        const auto memo = m_memos.find(render);
        if (memo != m_memos.end())
            memo->seenTick = m_tick; // shown or not, its placement is kept
    }
    feedVirtualScreens();
    updateSources(scene);
    settleDrops();
    fillPreviews(scene, out);
    for (auto& s : m_screens) {
        if (!s->surface || !s->surface->isValid())
            continue;
        const quint64 signature = signatureOf(*s);
        // A picture that went to the window only is drawn again into the
        // output once somebody reads the output.
        if (s->outputWanted && s->outputStale)
            s->forced = true;
        if (!s->forced && signature == s->signature)
            continue;
        s->signature = signature;
        s->forced = false;
        drawScreen(*s, out);
    }
    fillScreenPreviews(scene, out);
    pruneMemos();
}

bool Compositor::keepResults(SceneResults&& results, bool late)
{
    std::lock_guard<std::mutex> lock(m_pendingMutex);
    for (auto& [preview, picture] : results.previews) {
        // The newest picture of a preview replaces one not yet handed over.
        auto kept = std::find_if(m_pending.previews.begin(), m_pending.previews.end(),
                                 [p = preview](const auto& k) { return k.first == p; });
        if (kept != m_pending.previews.end())
            kept->second = std::move(picture);
        else
            m_pending.previews.emplace_back(preview, std::move(picture));
    }
    for (int id : results.screensDrawn) {
        // A late frame's screens are announced once however many late
        // frames drew them before the GUI thread came back.
        if (!late || std::find(m_pending.screensDrawn.begin(), m_pending.screensDrawn.end(), id)
                         == m_pending.screensDrawn.end())
            m_pending.screensDrawn.push_back(id);
    }
    const bool first = !m_deliveryQueued;
    m_deliveryQueued = true;
    return first;
}

void Compositor::deliverPending()
{
    SceneResults results;
    {
        std::lock_guard<std::mutex> lock(m_pendingMutex);
        std::swap(results, m_pending);
        m_deliveryQueued = false;
    }
    deliver(results);
    if (m_tickAfterFrame) {
        m_tickAfterFrame = false;
        schedule();
    }
}

void Compositor::deliver(const SceneResults& results)
{
    for (const auto& [preview, picture] : results.previews) {
        // A preview destroyed meanwhile has left the service's list.
        if (ScreenService::getInstance().previews().contains(preview))
            preview->setPicture(picture);
    }
    for (int id : results.screensDrawn)
        emit ScreenService::getInstance().screenDrawn(id);
}

} // namespace kelmor::gl
