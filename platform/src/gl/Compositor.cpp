#include "gl/Compositor.h"

#include "AVPlayer.h"
#include "EffectsService.h"
#include "PreviewRenderer.h"
#include "ScreenService.h"
#include "gl/GlContext.h"

#include <QDebug>
#include <QGuiApplication>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QRegularExpression>
#include <QScreen>
#include <QtMath>
#include <algorithm>
#include <cstring>
#include <unistd.h>

namespace kelmor::gl {

namespace {

constexpr int kMaxTextureSide = 4096;

quint64 mix(quint64 seed, quint64 value)
{
    return seed ^ (value + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2));
}

quint64 bitsOf(float f)
{
    quint32 bits = 0;
    std::memcpy(&bits, &f, sizeof bits);
    return bits;
}

int refreshInterval()
{
    qreal hz = 0;
    for (QScreen* s : QGuiApplication::screens())
        hz = std::max(hz, s->refreshRate());
    if (hz < 20 || hz > 240)
        hz = 60;
    return qRound(1000.0 / hz);
}

// The screen id a virtualScreen source names: "2", "screen2", "screen:2".
int virtualScreenId(const QString& file, bool* ok)
{
    static const QRegularExpression digits(QStringLiteral("(-?\\d+)\\s*$"));
    const QRegularExpressionMatch m = digits.match(file);
    *ok = m.hasMatch();
    return *ok ? m.captured(1).toInt(ok) : 0;
}

QSize previewSize(const QtAV::PreviewRenderer* preview)
{
    const QSize size = preview->rendererSize();
    if (size.width() <= 0 || size.height() <= 0 || size.width() > 4096 || size.height() > 4096)
        return QSize(160, 90);
    return size;
}

int packedKey(int layerId, int bankId)
{
    return layerId + (bankId << 16);
}

} // namespace

Compositor::Compositor()
{
    m_clock.start();
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &Compositor::tick);
    EffectsService& effects = EffectsService::getInstance();
    connect(&effects, &EffectsService::effectsChanged, this, &Compositor::onEffectsChanged);
    connect(&effects, &EffectsService::monitorEffectsChanged, this,
            &Compositor::onMonitorEffectsChanged);
    connect(&effects, &EffectsService::rendererListChanged, this, [this] {
        ++m_effectsChanges; // a bank's record may now reach other renderers
        requestFrame();
    });
    connect(&effects, &EffectsService::cleared, this, [this] {
        m_layerEffects.clear();
        m_screenEffects.clear();
        ++m_effectsChanges;
        requestFrame();
    });
    setActiveCompositor(this);
}

Compositor::~Compositor()
{
    setActiveCompositor(nullptr);
    if (sharedContext()) {
        m_screens.clear();
        m_memos.clear();
    }
}

void Compositor::requestFrame()
{
    if (m_requested.exchange(true))
        return;
    QMetaObject::invokeMethod(this, [this] { schedule(); }, Qt::QueuedConnection);
}

void Compositor::schedule()
{
    if (m_timer.isActive())
        return;
    const qint64 since = m_clock.elapsed() - m_lastTick;
    const int interval = refreshInterval();
    m_timer.start(since >= interval ? 0 : int(interval - since));
}

void Compositor::screenOpened(ScreenWidget* widget)
{
    if (!widget || screenFor(widget))
        return;
    auto screen = std::make_unique<Screen>();
    screen->widget = widget;
    if (sharedContext()) {
        const ScreenService::Presentation asked = ScreenService::getInstance().presentation();
        const bool vsync = asked == ScreenService::Presentation::Vsync
            || (asked == ScreenService::Presentation::Auto
                && QOpenGLContext::supportsThreadedOpenGL());
        screen->surface = std::make_unique<ScreenSurface>(widget->info(), [this, widget] {
            if (Screen* s = screenFor(widget))
                s->forced = true;
            requestFrame();
        }, vsync);
    }
    connect(widget, &QtAV::NoxOpenGLWidgetRenderer::contentChanged, this,
            [this] { requestFrame(); });
    m_screens.push_back(std::move(screen));
    requestFrame();
}

void Compositor::screenClosing(ScreenWidget* widget)
{
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
        if (s->widget->screenId() == screenId)
            return s.get();
    }
    return nullptr;
}

bool Compositor::presentsWithVsync(ScreenWidget* widget) const
{
    for (const auto& s : m_screens) {
        if (s->widget == widget)
            return s->surface && s->surface->presentsWithVsync();
    }
    return false;
}

quint64 Compositor::presentedCount(ScreenWidget* widget) const
{
    for (const auto& s : m_screens) {
        if (s->widget == widget && s->surface && s->surface->presenter())
            return s->surface->presenter()->presented();
    }
    return 0;
}

quint64 Compositor::drawCount(ScreenWidget* widget) const
{
    for (const auto& s : m_screens) {
        if (s->widget == widget)
            return s->draws;
    }
    return 0;
}

void Compositor::setOutputTap(ScreenWidget* widget, ScreenOutputTap* tap)
{
    if (Screen* screen = screenFor(widget))
        screen->tap = tap;
}

void Compositor::redraw(ScreenWidget* widget)
{
    if (Screen* screen = screenFor(widget)) {
        screen->forced = true;
        requestFrame();
    }
}

void Compositor::noteDroppedFrames(QtAV::VideoFrameSource* source, quint64 count)
{
    m_drops.note(source, count);
}

void Compositor::settleDrops()
{
    m_shown.clear();
    for (const auto& s : m_screens) {
        if (!s->surface || !s->surface->isValid())
            continue;
        for (const Item& item : s->items) {
            if (item.source && item.player)
                m_shown.emplace_back(item.source, item.player);
        }
    }
    m_drops.settle(m_shown);
}

void Compositor::onEffectsChanged(int layerId)
{
    const QMap<QString, QVariant> record = EffectsService::getInstance().effects(layerId);
    const QVariant bank = record.value(QStringLiteral("bankId"));
    m_layerEffects.insert(layerId, LayerRecord{parseLayerEffects(record), bank.isValid(), bank.toInt()});
    ++m_effectsChanges;
    requestFrame();
}

void Compositor::onMonitorEffectsChanged(int screenId)
{
    const ScreenEffects parsed =
        parseScreenEffects(EffectsService::getInstance().monitorEffects(screenId));
    m_screenEffects.insert(screenId, qMakePair(++m_effectsChanges, parsed));
    requestFrame();
}

LayerEffects Compositor::layerEffectsFor(const Item& item) const
{
    const auto it = m_layerEffects.constFind(item.state.layerId);
    if (it == m_layerEffects.constEnd())
        return LayerEffects();
    // A record names its bank; where the layer's renderer list of that bank is
    // known, only those renderers take it.
    if (it->hasBank) {
        const EffectsService& effects = EffectsService::getInstance();
        const int key = packedKey(item.state.layerId, it->bank);
        if (effects.hasRendererList(key) && !effects.rendererList(key).contains(
                static_cast<void*>(static_cast<QtAV::VideoRenderer*>(item.render))))
            return LayerEffects();
    }
    return it->effects;
}

ScreenEffects Compositor::screenEffectsFor(int screenId) const
{
    // The later of the screen's own record and the all-screens (-1) record.
    const auto own = m_screenEffects.constFind(screenId);
    const auto all = m_screenEffects.constFind(-1);
    const bool hasOwn = own != m_screenEffects.constEnd();
    const bool hasAll = all != m_screenEffects.constEnd();
    if (hasOwn && (!hasAll || own->first > all->first))
        return own->second;
    if (hasAll)
        return all->second;
    return ScreenEffects();
}

QImage Compositor::grab(ScreenWidget* widget)
{
    Screen* screen = screenFor(widget);
    if (!screen || !screen->surface || !screen->surface->isValid())
        return QImage();
    tick();
    if (!sharedContext())
        return QImage();
    ensureOutput(*screen);
    return screen->surface->readOutput();
}

bool Compositor::startRecording(ScreenWidget* widget, const QString& path, int fps, int fd)
{
    Screen* screen = screenFor(widget);
    if (!screen || !screen->surface || !screen->surface->isValid() || !sharedContext()) {
        if (fd >= 0)
            ::close(fd);
        qDebug() << "startRecording: screen" << (widget ? widget->screenId() : -1)
                 << "cannot be drawn; nothing recorded";
        return false;
    }
    if (screen->recorder && screen->recorder->isRecording()) {
        qDebug() << "startRecording: screen" << widget->screenId() << "already records to"
                 << screen->recorder->path();
        if (fd >= 0)
            ::close(fd);
        return false;
    }
    if (!screen->recorder)
        screen->recorder = std::make_unique<ScreenRecorder>();
    if (!screen->recorder->start(path, screen->surface->size(), fps, fd))
        return false;
    screen->recordClock.start();
    screen->forced = true; // the first picture at time 0
    tick();
    return true;
}

void Compositor::finishRecordings()
{
    for (auto& s : m_screens) {
        if (s->recorder && s->recorder->isRecording())
            qDebug() << "finishRecordings: screen" << s->widget->screenId() << s->recorder->stop()
                     << "frames in" << s->recorder->path();
    }
}

bool Compositor::stopRecording(ScreenWidget* widget)
{
    Screen* screen = screenFor(widget);
    if (!screen || !screen->recorder || !screen->recorder->isRecording())
        return false;
    // The picture on screen lasts until now.
    if (sharedContext()) {
        ensureOutput(*screen);
        screen->recorder->pushFrame(screen->surface->readOutput(), screen->recordClock.elapsed());
    }
    const int frames = screen->recorder->stop();
    qDebug() << "stopRecording: screen" << widget->screenId() << frames << "frames in"
             << screen->recorder->path();
    return true;
}

void Compositor::tick()
{
    m_timer.stop();
    m_requested.store(false);
    m_lastTick = m_clock.elapsed();
    if (!sharedContext())
        return;
    ++m_tick;
    // Screens the service closed without telling are dropped.
    const QList<ScreenWidget*> open = ScreenService::getInstance().widgetList();
    m_screens.erase(std::remove_if(m_screens.begin(), m_screens.end(),
                                   [&open](const std::unique_ptr<Screen>& s) {
                                       return !open.contains(s->widget);
                                   }),
                    m_screens.end());
    for (auto& s : m_screens) {
        gatherItems(*s);
        // The output framebuffer is read back by a recording and by a
        // published screen's consumer: those screens always draw into it.
        s->outputWanted = (s->recorder && s->recorder->isRecording())
            || (s->tap && s->tap->wantsPictures());
    }
    feedVirtualScreens();
    updateSources();
    settleDrops();
    fillPreviews();
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
        drawScreen(*s);
    }
    fillScreenPreviews();
    pruneMemos();
}

void Compositor::gatherItems(Screen& screen)
{
    screen.items.clear();
    const QList<QtAV::NoxOpenGLRender*> renders = screen.widget->renders();
    for (QtAV::NoxOpenGLRender* render : renders) {
        if (!render)
            continue;
        Item item;
        item.render = render;
        item.state = render->drawState();
        Memo& memo = memoFor(item);
        memo.seenTick = m_tick;
        if (!item.state.visible)
            continue;
        item.player = render->player();
        item.source = item.player ? item.player->frameSource() : nullptr;
        item.opacity = item.player ? float(item.player->pictureOpacity()) : 1.f;
        screen.items.push_back(std::move(item));
    }
    std::stable_sort(screen.items.begin(), screen.items.end(),
                     [](const Item& a, const Item& b) { return a.state.z < b.state.z; });
}

void Compositor::ensurePlacement(Memo& memo, const QtAV::RenderDrawState& state,
                                 const QSizeF& picture)
{
    if (memo.placement.revision == state.revision && memo.placementPicture == picture)
        return;
    memo.placement = placementFor(state, picture);
    memo.placementPicture = picture;
}

Compositor::Memo& Compositor::memoFor(const Item& item)
{
    auto it = m_memos.find(item.render);
    if (it == m_memos.end()) {
        it = m_memos.insert(item.render, Memo());
        item.render->setChangeListener(&QtAV::requestCompositorFrame);
    }
    return it.value();
}

void Compositor::pruneMemos()
{
    for (auto it = m_memos.begin(); it != m_memos.end();) {
        if (it->seenTick == m_tick) {
            ++it;
            continue;
        }
        // Taken off every screen: the render object may be gone already, so
        // only the memo's own resources are freed.
        it = m_memos.erase(it);
    }
    for (auto it = m_virtualFed.begin(); it != m_virtualFed.end();) {
        bool shown = false;
        for (const auto& s : m_screens) {
            for (const Item& item : s->items)
                shown = shown || item.player == it.key();
        }
        it = shown ? std::next(it) : m_virtualFed.erase(it);
    }
}

void Compositor::feedVirtualScreens()
{
    static const QString kVirtual = QStringLiteral("virtualScreen");
    for (auto& s : m_screens) {
        for (const Item& item : s->items) {
            QtAV::AVPlayer* player = item.player;
            if (!player || player->getMediaType() != kVirtual)
                continue;
            bool ok = false;
            const int id = virtualScreenId(player->file(), &ok);
            Screen* shown = ok ? screenById(id) : nullptr;
            const bool drawable = shown && shown->surface && shown->surface->isValid();
            if (drawable) {
                shown->outputWanted = true;
                if (shown->outputStale) {
                    // Its last picture went to its window only: drawn into
                    // the output at this tick, given at the next.
                    shown->forced = true;
                    requestFrame();
                    continue;
                }
            }
            const quint64 fed = drawable ? shown->draws : ~quint64(0);
            auto last = m_virtualFed.find(player);
            if (last != m_virtualFed.end() && last.value() == fed)
                continue;
            if (!drawable) {
                qDebug() << "virtualScreen: source" << player->file()
                         << "names no open screen; the layer shows nothing";
                player->pushFrame(QtAV::VideoFrame());
            } else if (shown->draws > 0) {
                QOpenGLFramebufferObject* out = shown->surface->output();
                player->pushFrame(QtAV::VideoFrame::fromTexture(out->texture(), out->size(), true));
            }
            m_virtualFed.insert(player, fed);
        }
    }
}

Compositor::SourceUse* Compositor::sourceUse(QtAV::VideoFrameSource* source)
{
    for (SourceUse& use : m_sources) {
        if (use.source == source)
            return &use;
    }
    return nullptr;
}

void Compositor::updateSources()
{
    m_sources.clear();
    for (auto& s : m_screens) {
        for (Item& item : s->items) {
            if (!item.source)
                continue;
            // The texture only needs the detail the largest use shows: the
            // drawn extent, scaled up by the part of the picture it shows.
            const QSize picture = item.source->pictureSize();
            const QSizeF pictureF = picture.isEmpty() ? item.state.originalSize : QSizeF(picture);
            Memo& memo = memoFor(item);
            ensurePlacement(memo, item.state, pictureF);
            const QRectF roi = normalisedRoi(item.state.roi, pictureF);
            const QRectF extent = memo.placement.extent;
            QSize need(qCeil(extent.width() / std::max(roi.width(), 1e-3)),
                       qCeil(extent.height() / std::max(roi.height(), 1e-3)));
            if (!picture.isEmpty())
                need = need.boundedTo(picture);
            need = need.boundedTo(QSize(kMaxTextureSide, kMaxTextureSide)).expandedTo(QSize(2, 2));
            SourceUse* use = sourceUse(item.source);
            if (!use) {
                m_sources.push_back(SourceUse{item.source, need, {}});
            } else {
                use->wanted = use->wanted.expandedTo(need);
            }
        }
    }
    addPreviewSources();
    for (auto it = m_lent.begin(); it != m_lent.end();)
        it = WindowPresenter::anyHolds(it->id) ? std::next(it) : m_lent.erase(it);
    for (SourceUse& use : m_sources) {
        const auto lent = m_lent.constFind(use.source);
        if (lent != m_lent.constEnd()) {
            // A presentation thread still copies its picture: brought up to
            // date at the next output frame.
            use.texture = *lent;
            requestFrame();
            continue;
        }
        use.texture = use.source->updateTexture(use.wanted);
    }
    // Players no screen shows still get their due frames taken (undrawn), or
    // their engine would wait for them.
    for (QtAV::VideoFrameSource* source : registeredSources()) {
        if (source->hasPendingFrame() && !sourceUse(source))
            source->discardPendingFrame();
    }
}

void Compositor::addPreviewSources()
{
    for (QtAV::PreviewRenderer* preview : ScreenService::getInstance().previews()) {
        QtAV::AVPlayer* player = preview->player();
        QtAV::VideoFrameSource* source = player ? player->frameSource() : nullptr;
        if (!source)
            continue;
        const QSize size = previewSize(preview);
        if (SourceUse* use = sourceUse(source))
            use->wanted = use->wanted.expandedTo(size);
        else
            m_sources.push_back(SourceUse{source, size, {}});
    }
}

void Compositor::fillPreviews()
{
    for (QtAV::PreviewRenderer* preview : ScreenService::getInstance().previews()) {
        if (preview->screenId() >= 0)
            continue; // a screen's preview: fillScreenPreviews
        QtAV::AVPlayer* player = preview->player();
        QtAV::VideoFrameSource* source = player ? player->frameSource() : nullptr;
        const SourceUse* use = source ? sourceUse(source) : nullptr;
        if (!use || !use->texture.isValid())
            continue;
        PreviewMemo& memo = m_previews[preview];
        const qint64 now = m_clock.elapsed();
        if (memo.serial == source->serial() || now - memo.lastAt < 1000.0 / preview->maxRate()) {
            if (memo.serial != source->serial())
                requestFrame(); // not yet: come back for it
            continue;
        }
        showInPreview(preview, memo, use->texture);
        memo.serial = source->serial();
        memo.lastAt = now;
    }
}

void Compositor::fillScreenPreviews()
{
    for (QtAV::PreviewRenderer* preview : ScreenService::getInstance().previews()) {
        if (preview->screenId() < 0)
            continue;
        Screen* screen = screenById(preview->screenId());
        if (!screen || !screen->surface || !screen->surface->isValid() || screen->draws == 0)
            continue;
        // Refilled only when the screen was redrawn since, and not above the
        // preview's rate: the read-back is of the small target only.
        PreviewMemo& memo = m_previews[preview];
        const qint64 now = m_clock.elapsed();
        const bool changed = memo.screen != screen || memo.serial != screen->draws;
        if (!changed)
            continue;
        if (now - memo.lastAt < 1000.0 / preview->maxRate()) {
            requestFrame(); // not yet: come back for it
            continue;
        }
        ensureOutput(*screen); // its last picture may have gone to its window only
        QOpenGLFramebufferObject* out = screen->surface->output();
        showInPreview(preview, memo, QtAV::FrameTexture{out->texture(), out->size(), true});
        memo.screen = screen;
        memo.serial = screen->draws;
        memo.lastAt = now;
    }
}

void Compositor::showInPreview(QtAV::PreviewRenderer* preview, PreviewMemo& memo,
                               const QtAV::FrameTexture& picture)
{
    const QSize size = previewSize(preview);
    if (!memo.target || memo.target->size() != size) {
        QOpenGLFramebufferObjectFormat format;
        format.setInternalTextureFormat(GL_RGBA8);
        memo.target = std::make_shared<QOpenGLFramebufferObject>(size, format);
        QtAV::RenderDrawState whole;
        whole.revision = 1;
        whole.geometry = QRect(QPoint(0, 0), size);
        memo.placement = placementFor(whole, QSizeF(size));
    }
    memo.target->bind();
    QOpenGLContext::currentContext()->functions()->glClearColor(0, 0, 0, 1);
    QOpenGLContext::currentContext()->functions()->glClear(GL_COLOR_BUFFER_BIT);
    m_painter.draw(memo.placement, picture, size, 1.f, LayerEffects());
    memo.target->release();
    preview->setPicture(memo.target->toImage(true).convertToFormat(QImage::Format_RGB32));
}

void Compositor::previewGone(QtAV::PreviewRenderer* preview)
{
    if (m_previews.contains(preview)) {
        sharedContext();
        m_previews.remove(preview);
    }
}

quint64 Compositor::signatureOf(const Screen& screen)
{
    quint64 h = mix(0, screen.items.size());
    const ScreenEffects fx = screenEffectsFor(screen.widget->screenId());
    h = mix(h, m_effectsChanges);
    h = mix(h, fx.testPattern);
    for (const Item& item : screen.items) {
        h = mix(h, quintptr(item.render));
        h = mix(h, item.state.revision);
        h = mix(h, item.state.receiveCount);
        h = mix(h, bitsOf(item.opacity));
        if (item.source) {
            h = mix(h, quintptr(item.source));
            h = mix(h, item.source->serial());
            if (const SourceUse* use = sourceUse(item.source))
                h = mix(h, use->texture.id);
        }
    }
    return h;
}

bool Compositor::presentLoneLayer(Screen& screen)
{
    if (screen.items.size() != 1)
        return false;
    Item& item = screen.items.front();
    if (!item.source || item.opacity != 1.f || dynamic_cast<QtAV::PushedFrameSource*>(item.source))
        return false;
    // A frame given to the render object itself is drawn the usual way.
    Memo& memo = memoFor(item);
    if (memo.receiveCount != item.state.receiveCount
        || (memo.received && memo.receiveCount > 0 && memo.serialAtReceive == item.source->serial()))
        return false;
    const SourceUse* use = sourceUse(item.source);
    if (!use || !use->texture.isValid())
        return false;
    const QSize known = item.source->pictureSize();
    ensurePlacement(memo, item.state, known.isEmpty() ? QSizeF(use->texture.size) : QSizeF(known));
    const QRect whole(QPoint(0, 0), screen.surface->size());
    if (memo.placement.plainRect != whole || !FrameCopy::fits(use->texture, whole, whole.size())
        || !layerEffectsFor(item).isNeutral())
        return false;
    if (!screen.surface->presentTexture(use->texture))
        return false;
    // Not drawn again by the engine while a presentation thread copies it.
    m_lent.insert(item.source, use->texture);
    return true;
}

void Compositor::drawScreen(Screen& screen)
{
    ScreenSurface& surface = *screen.surface;
    const ScreenEffects effects = screenEffectsFor(screen.widget->screenId());
    if (effects.isNeutral() && !screen.outputWanted && surface.presentsWithVsync()
        && presentLoneLayer(screen)) {
        // Nobody reads this picture back and one engine picture fills the
        // screen 1:1: the window's presentation thread copies the layer's
        // own texture, no output framebuffer is drawn.
        screen.outputStale = true;
        ++screen.draws;
        return;
    }
    if (effects.isNeutral() && !screen.outputWanted && surface.canDrawToWindow()
        && surface.beginWindow()) {
        // Nobody reads this picture back: the window takes the layers itself,
        // one pass fewer than through the output framebuffer.
        for (Item& item : screen.items)
            drawItem(screen, item);
        surface.endWindow();
        screen.outputStale = true;
        ++screen.draws;
        sharedContext();
        return;
    }
    drawOutput(screen, effects);
    ++screen.draws;
    if (screen.recorder && screen.recorder->isRecording())
        screen.recorder->pushFrame(surface.readOutput(), screen.recordClock.elapsed());
    if (screen.tap && screen.tap->wantsPictures())
        screen.tap->outputDrawn(*surface.output());
    emit ScreenService::getInstance().screenDrawn(screen.widget->screenId());
    surface.present();
    sharedContext(); // back on the shared surface after a window swap
}

void Compositor::drawOutput(Screen& screen, const ScreenEffects& effects)
{
    ScreenSurface& surface = *screen.surface;
    surface.advanceOutput();
    if (effects.isNeutral()) {
        // Nothing to finish: the layers go straight into the output.
        surface.beginOutput();
        for (Item& item : screen.items)
            drawItem(screen, item);
        surface.output()->release();
    } else {
        surface.beginCompose();
        for (Item& item : screen.items)
            drawItem(screen, item);
        surface.compose()->release();
        m_post.run(*surface.compose(), *surface.output(), effects);
    }
    screen.outputStale = false;
}

void Compositor::ensureOutput(Screen& screen)
{
    if (!screen.outputStale || !screen.surface || !screen.surface->isValid())
        return;
    drawOutput(screen, screenEffectsFor(screen.widget->screenId()));
}

void Compositor::drawItem(Screen& screen, Item& item)
{
    Memo& memo = memoFor(item);
    const SourceUse* use = item.source ? sourceUse(item.source) : nullptr;
    const quint64 serial = item.source ? item.source->serial() : 0;
    QtAV::FrameTexture texture = use ? use->texture : QtAV::FrameTexture();
    // A frame given to the render object itself shows until the player's next
    // new frame; an empty one blanks it until then.
    if (memo.receiveCount != item.state.receiveCount) {
        memo.receiveCount = item.state.receiveCount;
        memo.serialAtReceive = serial;
        if (!memo.received)
            memo.received = std::make_shared<QtAV::PushedFrameSource>();
        memo.received->push(item.state.received);
    }
    const bool received = memo.received && memo.receiveCount > 0 && memo.serialAtReceive == serial;
    if (received)
        texture = memo.received->updateTexture(QSize());
    if (!texture.isValid())
        return;
    // The same picture size as when the source was sized, so the placement
    // made then is reused; a received frame without a source has its own.
    const QSize known = item.source ? item.source->pictureSize() : QSize();
    ensurePlacement(memo, item.state, known.isEmpty() ? QSizeF(texture.size) : QSizeF(known));
    const LayerEffects effects = layerEffectsFor(item);
    // Alone on the screen, plain and 1:1, with an engine's picture (opaque:
    // libmpv composes any alpha onto its background; pushed pictures may
    // have alpha): one copy instead of a shader pass.
    if (screen.items.size() == 1 && !received && !memo.placement.plainRect.isNull()
        && item.opacity == 1.f && effects.isNeutral()
        && !dynamic_cast<QtAV::PushedFrameSource*>(item.source)
        && m_copy.copy(texture, memo.placement.plainRect, screen.surface->size()))
        return;
    m_painter.draw(memo.placement, texture, screen.surface->size(), item.opacity, effects);
}

} // namespace kelmor::gl
