// Layer and monitor effect records, parsed once per change and looked up
// per layer and screen while drawing.
#include "gl/Compositor.h"

#include "EffectsService.h"

namespace kelmor::gl {

namespace {

int packedKey(int layerId, int bankId)
{
    return layerId + (bankId << 16);
}

} // namespace

void Compositor::onEffectsChanged(int layerId)
{
    const QMap<QString, QVariant> record = EffectsService::getInstance().effects(layerId);
    const QVariant bank = record.value(QStringLiteral("bankId"));
    m_layerEffects.insert(layerId, LayerRecord{parseLayerEffects(record), bank.isValid(), bank.toInt()});
    ++m_effectsChanges;
    requestFrame();
}

void Compositor::onMonitorEffectsChanged(int screenId)
{
    const ScreenEffects parsed =
        parseScreenEffects(EffectsService::getInstance().monitorEffects(screenId));
    m_screenEffects.insert(screenId, qMakePair(++m_effectsChanges, parsed));
    requestFrame();
}

LayerEffects Compositor::layerEffectsFor(const Item& item) const
{
    const auto it = m_layerEffects.constFind(item.state.layerId);
    if (it == m_layerEffects.constEnd())
        return LayerEffects();
    // A record names its bank; where the layer's renderer list of that bank is
    // known, only those renderers take it.
    if (it->hasBank) {
        const EffectsService& effects = EffectsService::getInstance();
        const int key = packedKey(item.state.layerId, it->bank);
        if (effects.hasRendererList(key) && !effects.rendererList(key).contains(
                static_cast<void*>(static_cast<QtAV::VideoRenderer*>(item.render))))
            return LayerEffects();
    }
    return it->effects;
}

ScreenEffects Compositor::screenEffectsFor(int screenId) const
{
    // The later of the screen's own record and the all-screens (-1) record.
    const auto own = m_screenEffects.constFind(screenId);
    const auto all = m_screenEffects.constFind(-1);
    const bool hasOwn = own != m_screenEffects.constEnd();
    const bool hasAll = all != m_screenEffects.constEnd();
    if (hasOwn && (!hasAll || own->first > all->first))
        return own->second;
    if (hasAll)
        return all->second;
    return ScreenEffects();
}

} // namespace kelmor::gl
