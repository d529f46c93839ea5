// Drawing a screen: whether it changed, the lone layer handed to a
// presentation thread, the window or output framebuffer pass, and each layer.
#include "gl/Compositor.h"

#include "gl/GlContext.h"

#include <cstring>

namespace kelmor::gl {

namespace {

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

} // namespace

quint64 Compositor::signatureOf(const Screen& screen)
{
    quint64 h = mix(0, screen.items.size());
    h = mix(h, m_effectsChanges);
    h = mix(h, screen.effects.testPattern);
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
        || !item.effects.isNeutral())
        return false;
    if (!screen.surface->presentTexture(use->texture))
        return false;
    // Not drawn again by the engine while a presentation thread copies it.
    m_lent.insert(item.source, use->texture);
    return true;
}

void Compositor::drawScreen(Screen& screen, SceneResults& out)
{
    ScreenSurface& surface = *screen.surface;
    const ScreenEffects& effects = screen.effects;
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
    drawOutput(screen);
    ++screen.draws;
    if (screen.recorder && screen.recorder->isRecording())
        screen.recorder->pushFrame(surface.readOutput(), screen.recordClock.elapsed());
    if (screen.tap && screen.tap->wantsPictures())
        screen.tap->outputDrawn(*surface.output());
    out.screensDrawn.push_back(screen.id);
    surface.present();
    sharedContext(); // back on the shared surface after a window swap
}

void Compositor::drawOutput(Screen& screen)
{
    ScreenSurface& surface = *screen.surface;
    const ScreenEffects& effects = screen.effects;
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
    drawOutput(screen);
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
    const LayerEffects& effects = item.effects;
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
