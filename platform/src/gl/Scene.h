// What one output frame draws, gathered from the module's objects.
//
// The compositor's tick has two halves. The first (SceneGatherer) reads the
// objects the host and the module change: screens, render objects, players,
// previews and effect records. It writes down everything the second half
// needs as plain values and identities, in a Scene. The second half (the
// Compositor's drawing) reads only the Scene, the frame sources it names and
// its own GL objects; it never calls a render object, a player, a preview or
// a service. That keeps the drawing movable off the GUI thread: what it
// reads is a copy, and what it gives back (preview pictures, screens drawn)
// it returns rather than hands over itself (SceneResults).
//
// Threading: gathered on the GUI thread; read-only once gathered.
// Lifetime: a Scene names objects by pointer. Pointers are identities only
// (memo keys, drop counts), except `source`, which the drawing calls: a frame
// source unregisters itself (unregisterFrameSource) before it goes, and the
// compositor then forgets it in the Scene it keeps for late frames (the
// last one drawn, drawn again by the render thread while the GUI thread is
// busy) as in its screens' items; a preview going is forgotten the same way.
#pragma once

#include "NoxOpenGLRender.h"
#include "gl/EffectSettings.h"

#include <QImage>
#include <QSize>
#include <QString>
#include <QVector>
#include <utility>
#include <vector>

class ScreenWidget;

namespace QtAV {
class AVPlayer;
class PreviewRenderer;
class VideoFrameSource;
}

namespace kelmor::gl {

struct Scene
{
    /// One visible render object of a screen.
    struct Item
    {
        const QtAV::NoxOpenGLRender* render = nullptr; // identity
        QtAV::RenderDrawState state;
        QtAV::AVPlayer* player = nullptr;              // identity
        QtAV::VideoFrameSource* source = nullptr;      // the player's pictures, or null
        float opacity = 1.f;                           // the player's fade
        LayerEffects effects;                          // the layer's effects for this render object
        /// A virtualScreen player: the screen it names (`virtualNamed` false:
        /// its source names no screen id) and its source, for the debug line.
        bool isVirtual = false;
        bool virtualNamed = false;
        int virtualScreen = 0;
        QString virtualFile;
    };
    struct Screen
    {
        ScreenWidget* widget = nullptr; // identity
        int id = 0;
        ScreenEffects effects;          // the later of its own and the all-screens record
        std::vector<Item> items;        // visible, ascending z (equal z: pushing order)
    };
    /// A preview: of a player's pictures (`screenId` -1) or of a screen.
    struct Preview
    {
        QtAV::PreviewRenderer* preview = nullptr; // identity
        QtAV::VideoFrameSource* source = nullptr; // its player's source, or null
        QSize size;                               // its target's size, checked
        double maxRate = 30.0;
        int screenId = -1;
    };

    std::vector<Screen> screens;    // the open screens, in the order they opened
    /// Every render object on a screen, shown or not: the drawing keeps
    /// their memos (placements) while they exist.
    std::vector<const QtAV::NoxOpenGLRender*> renders;
    std::vector<Preview> previews;
    /// Sources that must hear of output frames even unshown.
    QVector<QtAV::VideoFrameSource*> registered;
    quint64 effectsChanges = 0;     // grows with every effect record change
};

/// What the drawing hands back to the GUI thread after a tick.
struct SceneResults
{
    std::vector<std::pair<QtAV::PreviewRenderer*, QImage>> previews;
    std::vector<int> screensDrawn; // ids, in drawing order (ScreenService::screenDrawn)
};

} // namespace kelmor::gl
