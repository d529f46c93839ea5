// QtAV::NoxOpenGLWidgetRenderer: the shared output of one screen, hosting the
// render objects of every layer shown on it, in the order they were pushed.
//
// Threading: GUI thread only.
// Ownership: the widget refers to its render objects and never deletes them;
// the layer service removes (removeRender) and destroys them.
#pragma once

#include "KelmorPlatformExport.h"

#include <QList>
#include <QObject>

namespace QtAV {

class NoxOpenGLRender;

/// The shared output of one screen: hosts the render objects of every
/// layer shown on it, in the order pushed, without owning them. GUI thread.
class KELMOR_PLATFORM_EXPORT NoxOpenGLWidgetRenderer : public QObject
{
    Q_OBJECT
public:
    /// An output hosting no render object yet.
    explicit NoxOpenGLWidgetRenderer(QObject* parent = nullptr);
    ~NoxOpenGLWidgetRenderer() override;

    /// Appends a render object; pushing one that is already hosted, or null,
    /// changes nothing (a debug line says so).
    void pushRender(NoxOpenGLRender* render);
    /// Takes a render object off the widget; unknown or null ones are ignored.
    void removeRender(NoxOpenGLRender* render);
    /// The hosted render objects in the order pushed.
    QList<NoxOpenGLRender*> renders() const;

signals:
    /// Something this widget shows changed (a render object came or went).
    void contentChanged();

private:
    QList<NoxOpenGLRender*> m_renders; // GUI thread
};

} // namespace QtAV
