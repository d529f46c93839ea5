// ScenePlayer: the per-layer record that the registry files under its bank
// and layer: the layer's media player with its companions.
//
// Ownership: the registry's teardown owns and ends what the record points at
// (player, timer, Spout node); the record's own destructor deletes nothing.
// The render objects in rendererMap belong to the layer service.
// Threading: GUI thread only.
#pragma once

#include "KelmorPlatformExport.h"
#include "ScreenKey.h"

#include <QMap>

namespace QtAV {
class AVPlayer;
class VideoRenderer;
}
class SpoutNode;
class UI_Proc_KELMOR_PlayerTimer_Desktop;

/// The per-layer record the registry files under its bank and layer: the
/// layer's media player with its timer, Spout node and render objects. GUI
/// thread; its destructor deletes nothing.
class KELMOR_PLATFORM_EXPORT ScenePlayer
{
public:
    /// An empty record: every pointer null, ids 0, no render object.
    ScenePlayer();
    /// Deletes nothing: the registry's teardown ends what the record points
    /// at.
    ~ScenePlayer();
    ScenePlayer(const ScenePlayer&) = delete;
    ScenePlayer& operator=(const ScenePlayer&) = delete;

    QtAV::AVPlayer* player = nullptr;  ///< first field: the reverse lookups compare it
    SpoutNode* spoutNode = nullptr;    ///< set while a Spout stream is set up
    int groupId = 0;                   ///< the group of the layer ("groupID" at creation)
    int layerId = 0;                   ///< the layer's id, as filed in the registry
    QMap<ScreenKey, QtAV::VideoRenderer*> rendererMap; ///< render object per screen number
    UI_Proc_KELMOR_PlayerTimer_Desktop* playerTimer = nullptr; ///< the layer's timed-item timer
};
