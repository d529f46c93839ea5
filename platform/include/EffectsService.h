// EffectsService: the effect settings of layers and screens, kept for the
// compositor. The layer service forwards effect records per layer,
// monitor-effect records per screen, the map of output widgets and each
// layer's list of renderers (by packed bank/layer key); this service keeps
// the latest of each, reports it back, and announces every change.
//
// Threading: GUI thread only; getInstance() may be called from any thread.
// Ownership: records are copied; the pointers in the output map and the
// renderer lists are not owned and are never dereferenced here.
#pragma once

#include "KelmorPlatformExport.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QVariant>

class KELMOR_PLATFORM_EXPORT EffectsService : public QObject
{
    Q_OBJECT
public:
    static EffectsService& getInstance();

    void setEffectsObj(int layerId, QMap<QString, QVariant> record);
    void setMonitorEffects(int screenId, QMap<QString, QVariant> record);
    void setOutputRenderer(QMap<int, void*> outputs);
    void setAllRendererList(int bankLayerKey, QList<void*> renderers);

    QMap<QString, QVariant> effects(int layerId) const;
    QMap<QString, QVariant> monitorEffects(int screenId) const;
    QMap<int, void*> outputRenderers() const;
    QList<void*> rendererList(int bankLayerKey) const;
    bool hasRendererList(int bankLayerKey) const;

    /// Forgets everything kept (used between shows and by tests).
    void clear();

signals:
    void effectsChanged(int layerId);
    void monitorEffectsChanged(int screenId);
    void outputRendererChanged();
    void rendererListChanged(int bankLayerKey);
    /// clear() forgot every record.
    void cleared();

private:
    explicit EffectsService(QObject* parent = nullptr);
    ~EffectsService() override;

    // GUI thread.
    QMap<int, QMap<QString, QVariant>> m_effects;
    QMap<int, QMap<QString, QVariant>> m_monitorEffects;
    QMap<int, void*> m_outputs;
    QMap<int, QList<void*>> m_rendererLists;
};
