// Keeps the latest effect settings of layers and screens for the compositor.
#include "EffectsService.h"

EffectsService& EffectsService::getInstance()
{
    static EffectsService instance;
    return instance;
}

EffectsService::EffectsService(QObject* parent)
    : QObject(parent)
{
}

EffectsService::~EffectsService() = default;

void EffectsService::setEffectsObj(int layerId, QMap<QString, QVariant> record)
{
    m_effects.insert(layerId, record);
    emit effectsChanged(layerId);
}

void EffectsService::setMonitorEffects(int screenId, QMap<QString, QVariant> record)
{
    m_monitorEffects.insert(screenId, record);
    emit monitorEffectsChanged(screenId);
}

void EffectsService::setOutputRenderer(QMap<int, void*> outputs)
{
    m_outputs = outputs;
    emit outputRendererChanged();
}

void EffectsService::setAllRendererList(int bankLayerKey, QList<void*> renderers)
{
    m_rendererLists.insert(bankLayerKey, renderers);
    emit rendererListChanged(bankLayerKey);
}

QMap<QString, QVariant> EffectsService::effects(int layerId) const
{
    return m_effects.value(layerId);
}

QMap<QString, QVariant> EffectsService::monitorEffects(int screenId) const
{
    return m_monitorEffects.value(screenId);
}

QMap<int, void*> EffectsService::outputRenderers() const
{
    return m_outputs;
}

QList<void*> EffectsService::rendererList(int bankLayerKey) const
{
    return m_rendererLists.value(bankLayerKey);
}

bool EffectsService::hasRendererList(int bankLayerKey) const
{
    return m_rendererLists.contains(bankLayerKey);
}

void EffectsService::clear()
{
    m_effects.clear();
    m_monitorEffects.clear();
    m_outputs.clear();
    m_rendererLists.clear();
    emit cleared();
}
