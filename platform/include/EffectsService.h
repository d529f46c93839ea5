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

/// The effect settings of layers and screens, kept for the compositor: the
/// latest record of each, reported back and announced on every change. GUI
/// thread; one per process (getInstance()).
class KELMOR_PLATFORM_EXPORT EffectsService : public QObject
{
    Q_OBJECT
public:
    /// The process's effects service, made on the first call (thread-safe,
    /// from any thread).
    static EffectsService& getInstance();

    /// Keeps the layer's effect record (replacing the one before) and emits
    /// effectsChanged(layerId).
    void setEffectsObj(int layerId, QMap<QString, QVariant> record);
    /// Keeps the screen's monitor-effect record under `screenId` as given
    /// (-1 from the layer service: all screens) and emits
    /// monitorEffectsChanged(screenId).
    void setMonitorEffects(int screenId, QMap<QString, QVariant> record);
    /// Keeps the map of output widgets (screen id -> widget, replacing the
    /// one before) and emits outputRendererChanged().
    void setOutputRenderer(QMap<int, void*> outputs);
    /// Keeps a layer's renderer list under its packed key layerId + (bankId
    /// << 16) and emits rendererListChanged(bankLayerKey).
    void setAllRendererList(int bankLayerKey, QList<void*> renderers);

    /// The layer's last effect record; empty when none was set.
    QMap<QString, QVariant> effects(int layerId) const;
    /// The screen's last monitor-effect record; empty when none was set.
    QMap<QString, QVariant> monitorEffects(int screenId) const;
    /// The last map of output widgets (screen id -> widget).
    QMap<int, void*> outputRenderers() const;
    /// The layer's last renderer list (packed key); empty when none was set.
    QList<void*> rendererList(int bankLayerKey) const;
    /// Whether a renderer list was set for the packed key (it may be empty).
    bool hasRendererList(int bankLayerKey) const;

    /// Forgets everything kept (used between shows and by tests).
    void clear();

signals:
    /// setEffectsObj() kept a record for `layerId`.
    void effectsChanged(int layerId);
    /// setMonitorEffects() kept a record for `screenId`.
    void monitorEffectsChanged(int screenId);
    /// setOutputRenderer() kept a new map of output widgets.
    void outputRendererChanged();
    /// setAllRendererList() kept a list for the packed key.
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
