// Gathering a Scene: the visible render objects of each screen with their
// players' sources, fades and effects, the virtualScreen players' screens,
// the previews, and the effect records parsed once per change.
#include "gl/SceneGatherer.h"

#include "AVPlayer.h"
#include "EffectsService.h"
#include "PreviewRenderer.h"
#include "ScreenService.h"
#include "gl/GlContext.h"

#include <QRegularExpression>
#include <algorithm>

namespace kelmor::gl {

namespace {

int packedKey(int layerId, int bankId)
{
    return layerId + (bankId << 16);
}

// The screen id a virtualScreen source names: "2", "screen2", "screen:2".
int virtualScreenId(const QString& file, bool* ok)
{
    static const QRegularExpression digits(QStringLiteral("(-?\\d+)\\s*$"));
    const QRegularExpressionMatch m = digits.match(file);
    *ok = m.hasMatch();
    return *ok ? m.captured(1).toInt(ok) : 0;
}

QSize previewSize(const QtAV::PreviewRenderer* preview)
{
    const QSize size = preview->rendererSize();
    if (size.width() <= 0 || size.height() <= 0 || size.width() > 4096 || size.height() > 4096)
        return QSize(160, 90);
    return size;
}

} // namespace

SceneGatherer::SceneGatherer(std::function<void()> changed)
    : m_changed(std::move(changed))
{
    EffectsService& effects = EffectsService::getInstance();
    connect(&effects, &EffectsService::effectsChanged, this, &SceneGatherer::onEffectsChanged);
    connect(&effects, &EffectsService::monitorEffectsChanged, this,
            &SceneGatherer::onMonitorEffectsChanged);
    connect(&effects, &EffectsService::rendererListChanged, this, [this] {
        ++m_effectsChanges; // a bank's record may now reach other renderers
        m_changed();
    });
    connect(&effects, &EffectsService::cleared, this, [this] {
        m_layerEffects.clear();
        m_screenEffects.clear();
        ++m_effectsChanges;
        m_changed();
    });
}

Scene SceneGatherer::gather()
{
    Scene scene;
    scene.effectsChanges = m_effectsChanges;
    ScreenService& service = ScreenService::getInstance();
    for (ScreenWidget* widget : service.widgetList()) {
        if (widget)
            gatherScreen(widget, scene);
    }
    // Render objects taken off every screen may be gone already: forgotten.
    QSet<const QtAV::NoxOpenGLRender*> present(scene.renders.begin(), scene.renders.end());
    m_listened.intersect(present);
    for (QtAV::PreviewRenderer* preview : service.previews()) {
        Scene::Preview p;
        p.preview = preview;
        p.size = previewSize(preview);
        p.maxRate = preview->maxRate();
        p.screenId = preview->screenId();
        QtAV::AVPlayer* player = preview->player();
        p.source = player ? player->frameSource() : nullptr;
        scene.previews.push_back(p);
    }
    scene.registered = registeredSources();
    return scene;
}

void SceneGatherer::gatherScreen(ScreenWidget* widget, Scene& scene)
{
    static const QString kVirtual = QStringLiteral("virtualScreen");
    Scene::Screen screen;
    screen.widget = widget;
    screen.id = widget->screenId();
    screen.effects = screenEffectsFor(screen.id);
    const QList<QtAV::NoxOpenGLRender*> renders = widget->renders();
    for (QtAV::NoxOpenGLRender* render : renders) {
        if (!render)
            continue;
        scene.renders.push_back(render);
        if (!m_listened.contains(render)) {
            render->setChangeListener(&QtAV::requestCompositorFrame);
            m_listened.insert(render);
        }
        Scene::Item item;
        item.render = render;
        item.state = render->drawState();
        if (!item.state.visible)
            continue;
        item.player = render->player();
        item.source = item.player ? item.player->frameSource() : nullptr;
        item.opacity = item.player ? float(item.player->pictureOpacity()) : 1.f;
        item.effects = layerEffectsFor(render, item.state.layerId);
        if (item.player && item.player->getMediaType() == kVirtual) {
            item.isVirtual = true;
            item.virtualFile = item.player->file();
            bool ok = false;
            item.virtualScreen = virtualScreenId(item.virtualFile, &ok);
            item.virtualNamed = ok;
        }
        screen.items.push_back(std::move(item));
    }
    std::stable_sort(screen.items.begin(), screen.items.end(),
                     [](const Scene::Item& a, const Scene::Item& b) { return a.state.z < b.state.z; });
    scene.screens.push_back(std::move(screen));
}

void SceneGatherer::onEffectsChanged(int layerId)
{
    const QMap<QString, QVariant> record = EffectsService::getInstance().effects(layerId);
    const QVariant bank = record.value(QStringLiteral("bankId"));
    m_layerEffects.insert(layerId, LayerRecord{parseLayerEffects(record), bank.isValid(), bank.toInt()});
    ++m_effectsChanges;
    m_changed();
}

void SceneGatherer::onMonitorEffectsChanged(int screenId)
{
    const ScreenEffects parsed =
        parseScreenEffects(EffectsService::getInstance().monitorEffects(screenId));
    m_screenEffects.insert(screenId, qMakePair(++m_effectsChanges, parsed));
    m_changed();
}

LayerEffects SceneGatherer::layerEffectsFor(const QtAV::NoxOpenGLRender* render, int layerId) const
{
    const auto it = m_layerEffects.constFind(layerId);
    if (it == m_layerEffects.constEnd())
        return LayerEffects();
    // A record names its bank; where the layer's renderer list of that bank is
    // known, only those renderers take it.
    if (it->hasBank) {
        const EffectsService& effects = EffectsService::getInstance();
        const int key = packedKey(layerId, it->bank);
        if (effects.hasRendererList(key) && !effects.rendererList(key).contains(
                static_cast<void*>(static_cast<QtAV::VideoRenderer*>(
                    const_cast<QtAV::NoxOpenGLRender*>(render)))))
            return LayerEffects();
    }
    return it->effects;
}

ScreenEffects SceneGatherer::screenEffectsFor(int screenId) const
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
