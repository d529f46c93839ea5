#include "NoxOpenGLWidgetRenderer.h"

#include "NoxOpenGLRender.h"

#include <QDebug>

namespace QtAV {

NoxOpenGLWidgetRenderer::NoxOpenGLWidgetRenderer(QObject* parent)
    : QObject(parent)
{
}

NoxOpenGLWidgetRenderer::~NoxOpenGLWidgetRenderer() = default;

void NoxOpenGLWidgetRenderer::pushRender(NoxOpenGLRender* render)
{
    if (!render) {
        qDebug() << "pushRender ignored: null render object";
        return;
    }
    if (m_renders.contains(render)) {
        qDebug() << "pushRender ignored: render object already hosted";
        return;
    }
    m_renders.append(render);
    emit contentChanged();
}

void NoxOpenGLWidgetRenderer::removeRender(NoxOpenGLRender* render)
{
    if (m_renders.removeAll(render) > 0)
        emit contentChanged();
}

QList<NoxOpenGLRender*> NoxOpenGLWidgetRenderer::renders() const
{
    return m_renders;
}

} // namespace QtAV
