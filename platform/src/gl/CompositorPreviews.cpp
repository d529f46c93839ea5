// Previews: small pictures of a player's frames or of a whole screen, drawn
// into a target of the preview's size and read back at the preview's rate.
#include "gl/Compositor.h"

#include "gl/GlContext.h"

#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <algorithm>

namespace kelmor::gl {

void Compositor::addPreviewSources(const Scene& scene)
{
    for (const Scene::Preview& preview : scene.previews) {
        if (!preview.source)
            continue;
        if (SourceUse* use = sourceUse(preview.source))
            use->wanted = use->wanted.expandedTo(preview.size);
        else
            m_sources.push_back(SourceUse{preview.source, preview.size, {}});
    }
}

void Compositor::fillPreviews(const Scene& scene, SceneResults& out)
{
    for (const Scene::Preview& preview : scene.previews) {
        if (preview.screenId >= 0)
            continue; // a screen's preview: fillScreenPreviews
        const SourceUse* use = preview.source ? sourceUse(preview.source) : nullptr;
        if (!use || !use->texture.isValid())
            continue;
        PreviewMemo& memo = m_previews[preview.preview];
        const qint64 now = m_clock.elapsed();
        const quint64 serial = preview.source->serial();
        if (memo.serial == serial || now - memo.lastAt < 1000.0 / preview.maxRate) {
            if (memo.serial != serial)
                requestFrame(); // not yet: come back for it
            continue;
        }
        out.previews.emplace_back(preview.preview, showInPreview(preview, memo, use->texture));
        memo.serial = serial;
        memo.lastAt = now;
    }
}

void Compositor::fillScreenPreviews(const Scene& scene, SceneResults& out)
{
    for (const Scene::Preview& preview : scene.previews) {
        if (preview.screenId < 0)
            continue;
        Screen* screen = screenById(preview.screenId);
        if (!screen || !screen->surface || !screen->surface->isValid() || screen->draws == 0)
            continue;
        // Refilled only when the screen was redrawn since, and not above the
        // preview's rate: the read-back is of the small target only.
        PreviewMemo& memo = m_previews[preview.preview];
        const qint64 now = m_clock.elapsed();
        const bool changed = memo.screen != screen || memo.serial != screen->draws;
        if (!changed)
            continue;
        if (now - memo.lastAt < 1000.0 / preview.maxRate) {
            requestFrame(); // not yet: come back for it
            continue;
        }
        ensureOutput(*screen); // its last picture may have gone to its window only
        QOpenGLFramebufferObject* target = screen->surface->output();
        out.previews.emplace_back(
            preview.preview,
            showInPreview(preview, memo, QtAV::FrameTexture{target->texture(), target->size(), true}));
        memo.screen = screen;
        memo.serial = screen->draws;
        memo.lastAt = now;
    }
}

QImage Compositor::showInPreview(const Scene::Preview& preview, PreviewMemo& memo,
                                 const QtAV::FrameTexture& picture)
{
    const QSize size = preview.size;
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
    return memo.target->toImage(true).convertToFormat(QImage::Format_RGB32);
}

void Compositor::previewGone(QtAV::PreviewRenderer* preview)
{
    awaitRenderThread();
    if (m_previews.contains(preview)) {
        sharedContext();
        m_previews.remove(preview);
    }
    // Late frames draw the last scene: not for this preview any more.
    if (m_lastScene) {
        auto& previews = m_lastScene->previews;
        previews.erase(std::remove_if(previews.begin(), previews.end(),
                                      [preview](const Scene::Preview& p) {
                                          return p.preview == preview;
                                      }),
                       previews.end());
    }
    std::lock_guard<std::mutex> lock(m_pendingMutex);
    auto& pending = m_pending.previews;
    pending.erase(std::remove_if(pending.begin(), pending.end(),
                                 [preview](const auto& p) { return p.first == preview; }),
                  pending.end());
}

} // namespace kelmor::gl
