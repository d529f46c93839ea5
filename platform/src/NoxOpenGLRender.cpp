// The render object's settings; drawing reads them.
#include "NoxOpenGLRender.h"

#include <QDebug>

#include <algorithm>

namespace QtAV {

NoxOpenGLRender::NoxOpenGLRender() = default;
NoxOpenGLRender::~NoxOpenGLRender() = default;

VideoRendererId NoxOpenGLRender::id() const
{
    return VideoRendererId_NoxGL;
}

void NoxOpenGLRender::setOriginalWH(double width, double height)
{
    SettingsWrite write(*this);
    m_originalSize = QSizeF(width, height);
}

QSizeF NoxOpenGLRender::originalSize() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_originalSize;
}

QRect NoxOpenGLRender::boundedGeometry(int x, int y, int width, int height, bool* saturated)
{
    bool clamped = false;
    auto bound = [&clamped](int v) {
        const int b = std::clamp(v, -kPlacementLimit, kPlacementLimit);
        clamped = clamped || b != v;
        return b;
    };
    // QRect keeps the far edge x + width - 1; with both terms bounded it
    // cannot overflow, nor can width() = right - left + 1.
    const QRect rect(bound(x), bound(y), bound(width), bound(height));
    if (saturated)
        *saturated = clamped;
    return rect;
}

void NoxOpenGLRender::setGeometry(int x, int y, int width, int height)
{
    bool saturated = false;
    const QRect rect = boundedGeometry(x, y, width, height, &saturated);
    if (saturated)
        qDebug() << "NoxOpenGLRender::setGeometry: (" << x << y << width << height
                 << ") saturated to" << rect;
    SettingsWrite write(*this);
    m_geometry = rect;
}

QRect NoxOpenGLRender::geometry() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_geometry;
}

void NoxOpenGLRender::setPlayerLayerID(int screenId, int layerId)
{
    SettingsWrite write(*this);
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
    SettingsWrite write(*this);
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
    SettingsWrite write(*this);
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
    SettingsWrite write(*this);
    m_z = z;
}

double NoxOpenGLRender::z() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_z;
}

void NoxOpenGLRender::setVisible(bool visible)
{
    SettingsWrite write(*this);
    m_visible = visible;
}

bool NoxOpenGLRender::isVisible() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_visible;
}

RenderDrawState NoxOpenGLRender::drawState() const
{
    QMutexLocker lock(&m_settingsMutex);
    const BaseSettings base = baseSettingsLocked();
    RenderDrawState s;
    s.revision = base.revision;
    s.originalSize = m_originalSize;
    s.geometry = m_geometry;
    s.corners = m_corners;
    s.roi = base.roi;
    s.patchRoi = base.patchRoi;
    s.patchCount = base.patchCount;
    s.patch = base.patch;
    s.z = m_z;
    s.visible = m_visible;
    s.screenId = m_screenId;
    s.layerId = m_layerId;
    s.received = base.frame;
    s.receiveCount = base.receiveCount;
    return s;
}

} // namespace QtAV
