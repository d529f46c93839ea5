#include "PreviewRenderer.h"

#include "ScreenService.h"
#include "VideoFrameSource.h"

#include <QDebug>

namespace QtAV {

PreviewRenderer::PreviewRenderer(QObject* parent)
    : QObject(parent)
{
    ScreenService::getInstance().addPreview(this);
}

PreviewRenderer::~PreviewRenderer()
{
    ScreenService::getInstance().removePreview(this);
}

VideoRendererId PreviewRenderer::id() const
{
    static const VideoRendererId previewId = VideoRenderer::registerName("Preview");
    return previewId;
}

void PreviewRenderer::setMaxRate(double fps)
{
    if (!(fps > 0.0 && fps <= 120.0)) {
        qDebug() << "PreviewRenderer::setMaxRate ignored:" << fps << "is not in (0, 120]";
        return;
    }
    m_maxRate = fps;
}

void PreviewRenderer::setScreenId(int screenId)
{
    if (screenId < -1) {
        qDebug() << "PreviewRenderer::setScreenId ignored:" << screenId << "is not a screen id or -1";
        return;
    }
    m_screenId = screenId;
    requestCompositorFrame(); // the first picture comes without waiting for a change
}

double PreviewRenderer::maxRate() const
{
    return m_maxRate;
}

QImage PreviewRenderer::picture() const
{
    return m_picture;
}

void PreviewRenderer::setPicture(const QImage& picture)
{
    m_picture = picture;
    emit pictureChanged();
}

} // namespace QtAV
