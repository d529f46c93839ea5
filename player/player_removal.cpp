// Taking render objects off screens: one screen's render object of a layer,
// all of a layer's render objects, and a layer's custom outputs.
//
// A render object is referred to by three holders (its screen's widget, the
// layer's player and the scene player's rendererMap); it is destroyed only
// after all three have let go of it, widget first, so that nothing draws or
// feeds a destroyed object.
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "player_internal.h"

#include "AVPlayer.h"
#include "NoxOpenGLRender.h"
#include "ScenePlayer.h"
#include "ScreenService.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QDebug>
#include <QSet>

using namespace kelmor;

namespace {

/// Last check before a render object is destroyed: an open screen or the
/// layer's own player that still refers to it (the screen record named
/// another screen, or the caller passed another player) lets go of it here.
void releaseRemainingHolders(QtAV::VideoRenderer* renderer, QtAV::AVPlayer* layerPlayer,
                             const char* command)
{
    if (QtAV::NoxOpenGLRender* render = asRenderObject(renderer)) {
        for (ScreenWidget* widget : ScreenService::getInstance().widgetList()) {
            if (widget && widget->renders().contains(render)) {
                qDebug() << command << ": render object still shown on screen"
                         << widget->screenId() << "; taken off it";
                widget->removeRender(render);
            }
        }
    }
    if (layerPlayer && layerPlayer->videoOutputs().contains(renderer)) {
        qDebug() << command << ": render object still an output of the layer's player; removed";
        layerPlayer->removeVideoRenderer(renderer);
    }
}

} // namespace

void UI_Proc_KELMOR_Player_Desktop::delRenderer(QMap<QString, QVariant> record,
                                                QtAV::AVPlayer* player)
{
    const int bankId = record.value(QStringLiteral("bankId")).toInt();
    const int layerId = record.value(QStringLiteral("layerId")).toInt();
    const ScreenKey key = screenKeyOf(record);

    ScenePlayer* scene = registry().getScenePlayer(bankId, layerId);
    if (!scene)
        return;

    if (scene->rendererMap.contains(key)) {
        ScreenWidget* widget = ScreenService::getInstance().getScreenWidget(record);
        QtAV::VideoRenderer* renderer = scene->rendererMap[key];
        if (!renderer) {
            // A null entry left by a region look-up: nothing to take off a
            // screen, and the renderer list has not changed.
            scene->rendererMap.remove(key);
            return;
        }
        if (rendererNamed(renderer, kNoxGL)) {
            scene->rendererMap.remove(key);
            if (widget)
                widget->removeRender(asRenderObject(renderer));
            else
                qDebug() << "delRenderer: no screen widget for screen" << key.screenId
                         << "; nothing taken off a screen";
            if (player)
                player->removeVideoRenderer(renderer);
            else
                qDebug() << "delRenderer: null player; no output removed from it";
            releaseRemainingHolders(renderer, scene->player, "delRenderer");
            delete renderer;
        }
    }

    setAllRenderList(layerId, bankId);
}

void UI_Proc_KELMOR_Player_Desktop::delLayerAllRenderer(int bankId, int layerId, bool clearOutputs)
{
    QtAV::AVPlayer* player = registry().getplayerByID(layerId, bankId);
    ScenePlayer* scene = registry().getScenePlayer(bankId, layerId);
    if (!player || !scene)
        return;

    // Guards against one object recorded under two screen numbers.
    QSet<QtAV::VideoRenderer*> destroyed;
    for (auto it = scene->rendererMap.cbegin(); it != scene->rendererMap.cend(); ++it) {
        QtAV::VideoRenderer* renderer = it.value();
        if (!renderer || destroyed.contains(renderer))
            continue;
        ScreenWidget* widget =
            ScreenService::getInstance().getScreenWidget(screenRecordOf(it.key()));
        if (widget)
            widget->removeRender(asRenderObject(renderer));
        player->removeVideoRenderer(renderer);
        releaseRemainingHolders(renderer, player, "delLayerAllRenderer");
        destroyed.insert(renderer);
        delete renderer;
    }
    scene->rendererMap.clear();

    // Also drops outputs that were never recorded per screen (previews).
    if (clearOutputs)
        scene->player->clearVideoRenderers();

    setAllRenderList(layerId, bankId);
}

void UI_Proc_KELMOR_Player_Desktop::delCustomRenderer(int layerId, int bankId)
{
    ScenePlayer* scene = registry().getScenePlayer(bankId, layerId);
    if (!scene)
        return;
    QtAV::AVPlayer* player = scene->player;
    if (ignoreNullPlayer(player, "delCustomRenderer"))
        return;

    // The index moves on after a removal too, so an output directly behind
    // a removed one is not looked at in this pass. The outputs are only
    // detached: their owner (the host's preview) destroys them.
    for (int i = 0; i < player->videoOutputs().size(); ++i) {
        QtAV::VideoRenderer* output = player->videoOutputs().at(i);
        if (output && output->videoRenderType() == QtAV::VideoRenderType_Custom)
            player->removeVideoRenderer(output);
    }
}
