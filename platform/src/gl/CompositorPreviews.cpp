// Previews: small pictures of a player's frames or of a whole screen, drawn
// into a target of the preview's size and read back at the preview's rate.
#include "gl/Compositor.h"

#include "AVPlayer.h"
#include "PreviewRenderer.h"
#include "ScreenService.h"
#include "gl/GlContext.h"

#include <QOpenGLContext>
#include <QOpenGLFunctions>

namespace kelmor::gl {

namespace {

QSize previewSize(const QtAV::PreviewRenderer* preview)
{
    const QSize size = preview->rendererSize();
    if (size.width() <= 0 || size.height() <= 0 || size.width() > 4096 || size.height() > 4096)
        return QSize(160, 90);
    return size;
}

} // namespace

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

} // namespace kelmor::gl
