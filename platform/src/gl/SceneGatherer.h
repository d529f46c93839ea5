// The first half of an output frame: reads the screens, render objects,
// players, previews and effect records, and writes down what to draw as a
// Scene (Scene.h).
//
// Effect records are parsed once per change (EffectsService's signals), not
// per frame; each render object gets the compositor's change listener the
// first time it is gathered.
//
// Threading: GUI thread only (every object it reads lives there).
// Ownership: owned by the compositor; owns the parsed effect records only.
#pragma once

#include "gl/EffectSettings.h"
#include "gl/Scene.h"

#include <QHash>
#include <QObject>
#include <QPair>
#include <QSet>
#include <functional>

namespace kelmor::gl {

class SceneGatherer : public QObject
{
    Q_OBJECT
public:
    /// `changed` is called (GUI thread) when an effect record changes what
    /// the screens show: the owner asks for an output frame.
    explicit SceneGatherer(std::function<void()> changed);

    /// What the open screens show now.
    Scene gather();

private:
    void gatherScreen(ScreenWidget* widget, Scene& scene);
    LayerEffects layerEffectsFor(const QtAV::NoxOpenGLRender* render, int layerId) const;
    ScreenEffects screenEffectsFor(int screenId) const;
    void onEffectsChanged(int layerId);
    void onMonitorEffectsChanged(int screenId);

    struct LayerRecord
    {
        LayerEffects effects;
        bool hasBank = false;  // the record names its bank ("bankId")
        int bank = 0;
    };
    // GUI thread.
    std::function<void()> m_changed;
    QHash<int, LayerRecord> m_layerEffects;                    // parsed once per change
    QHash<int, QPair<quint64, ScreenEffects>> m_screenEffects; // id -> (change order, effects)
    quint64 m_effectsChanges = 0;
    /// Render objects given the change listener, kept while on a screen.
    QSet<const QtAV::NoxOpenGLRender*> m_listened;
};

} // namespace kelmor::gl
