// What a tick draws, from its Scene: the render objects' placements, the
// virtualScreen feeds, each frame source brought up to date once at the
// largest size it is drawn, and the dropped-frame count.
#include "gl/Compositor.h"

#include "gl/GlContext.h"

#include <QDebug>
#include <QtMath>
#include <algorithm>

namespace kelmor::gl {

namespace {

constexpr int kMaxTextureSide = 4096;

} // namespace

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
    if (it == m_memos.end())
        it = m_memos.insert(item.render, Memo());
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
    for (auto& s : m_screens) {
        for (const Item& item : s->items) {
            if (!item.isVirtual || !item.player)
                continue;
            Screen* shown = item.virtualNamed ? screenById(item.virtualScreen) : nullptr;
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
            auto last = m_virtualFed.find(item.player);
            if (last != m_virtualFed.end() && last.value() == fed)
                continue;
            // A virtualScreen player's source is the one its pushed pictures
            // go to (AVPlayer::pushFrame).
            auto* pushed = dynamic_cast<QtAV::PushedFrameSource*>(item.source);
            if (!drawable) {
                qDebug() << "virtualScreen: source" << item.virtualFile
                         << "names no open screen; the layer shows nothing";
                if (pushed)
                    pushed->push(QtAV::VideoFrame());
            } else if (shown->draws > 0 && pushed) {
                QOpenGLFramebufferObject* out = shown->surface->output();
                pushed->push(QtAV::VideoFrame::fromTexture(out->texture(), out->size(), true));
            }
            m_virtualFed.insert(item.player, fed);
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

void Compositor::updateSources(const Scene& scene)
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
    addPreviewSources(scene);
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
    for (QtAV::VideoFrameSource* source : scene.registered) {
        if (source->hasPendingFrame() && !sourceUse(source))
            source->discardPendingFrame();
    }
}

void Compositor::sourceGone(QtAV::VideoFrameSource* source)
{
    awaitRenderThread();
    // The last tick's items keep naming it until the next tick; a picture
    // drawn before then (a recording's last, a grab) shows nothing there.
    for (const auto& screen : m_screens) {
        for (Item& item : screen->items) {
            if (item.source == source)
                item.source = nullptr;
        }
    }
    if (m_lastScene) {
        // Late frames draw the last scene again.
        for (Scene::Preview& preview : m_lastScene->previews) {
            if (preview.source == source)
                preview.source = nullptr;
        }
        m_lastScene->registered.removeAll(source);
    }
    const auto lent = m_lent.find(source);
    if (lent == m_lent.end())
        return;
    const unsigned texture = lent->id;
    m_lent.erase(lent);
    for (const auto& screen : m_screens)
        screen->surface->releaseTexture(texture);
}

void Compositor::noteDroppedFrames(QtAV::VideoFrameSource* source, quint64 count)
{
    awaitRenderThread();
    std::lock_guard<std::mutex> lock(m_dropsMutex);
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
    std::lock_guard<std::mutex> lock(m_dropsMutex);
    m_drops.settle(m_shown);
}

} // namespace kelmor::gl

namespace kelmor::gl {

// The counts have a lock of their own: a host reading them (the runner does
// once a second) never waits for a frame being drawn on the render thread.
quint64 Compositor::droppedFrames(QtAV::AVPlayer* player) const
{
    std::lock_guard<std::mutex> lock(m_dropsMutex);
    return m_drops.dropped(player);
}

QHash<QtAV::AVPlayer*, quint64> Compositor::droppedFrameCounts() const
{
    std::lock_guard<std::mutex> lock(m_dropsMutex);
    return m_drops.all();
}

} // namespace kelmor::gl
