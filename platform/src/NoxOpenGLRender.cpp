// The render object's settings; drawing reads them.
#include "NoxOpenGLRender.h"

namespace QtAV {

NoxOpenGLRender::NoxOpenGLRender() = default;
NoxOpenGLRender::~NoxOpenGLRender() = default;

VideoRendererId NoxOpenGLRender::id() const
{
    return VideoRendererId_NoxGL;
}

void NoxOpenGLRender::setOriginalWH(double width, double height)
{
    QMutexLocker lock(&m_settingsMutex);
    m_originalSize = QSizeF(width, height);
}

QSizeF NoxOpenGLRender::originalSize() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_originalSize;
}

void NoxOpenGLRender::setGeometry(int x, int y, int width, int height)
{
    QMutexLocker lock(&m_settingsMutex);
    m_geometry = QRect(x, y, width, height);
}

QRect NoxOpenGLRender::geometry() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_geometry;
}

void NoxOpenGLRender::setPlayerLayerID(int screenId, int layerId)
{
    QMutexLocker lock(&m_settingsMutex);
    m_screenId = screenId;
    m_layerId = layerId;
}

int NoxOpenGLRender::screenId() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_screenId;
}

int NoxOpenGLRender::layerId() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_layerId;
}

void NoxOpenGLRender::setFrameRate(double fps)
{
    QMutexLocker lock(&m_settingsMutex);
    m_frameRate = fps;
}

double NoxOpenGLRender::frameRate() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_frameRate;
}

void NoxOpenGLRender::setRect(QPointF leftTop, QPointF leftBottom, QPointF rightBottom,
                              QPointF rightTop)
{
    QMutexLocker lock(&m_settingsMutex);
    m_corners = {leftTop, leftBottom, rightBottom, rightTop};
}

bool NoxOpenGLRender::hasCorners() const
{
    QMutexLocker lock(&m_settingsMutex);
    return !m_corners.isEmpty();
}

QVector<QPointF> NoxOpenGLRender::corners() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_corners;
}

void NoxOpenGLRender::setZ(double z)
{
    QMutexLocker lock(&m_settingsMutex);
    m_z = z;
}

double NoxOpenGLRender::z() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_z;
}

void NoxOpenGLRender::setVisible(bool visible)
{
    QMutexLocker lock(&m_settingsMutex);
    m_visible = visible;
}

bool NoxOpenGLRender::isVisible() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_visible;
}

} // namespace QtAV
