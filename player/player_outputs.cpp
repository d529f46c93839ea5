// Routing a layer's picture beyond its render objects: effect settings and
// renderer lists for the effects service, NDI and Spout streams, and the
// depth and visibility of the layer's render objects. The work is done by
// the sibling services and the renderers; this file decides who is called,
// with what, and when.
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "player_internal.h"

#include "AVPlayer.h"
#include "EffectsService.h"
#include "NdiService.h"
#include "NoxOpenGLRender.h"
#include "ScenePlayer.h"
#include "ScreenService.h"
#include "SpoutNode.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QDebug>

using namespace kelmor;

namespace {

// The Spout node's texture feeds the player's texture slot.
const char* const kTextureSignal = "2textureReceived(int,int,int,QString)";
const char* const kTextureSlot = "1setTextureID(int, int, int, QString)";

} // namespace

void UI_Proc_KELMOR_Player_Desktop::setEffectsObj(int layerId, QMap<QString, QVariant> record)
{
    const int bankId = record.value(QStringLiteral("bankId")).toInt();
    EffectsService::getInstance().setEffectsObj(layerId, record);
    // The effects service is told even for an unknown layer; only the
    // redraw needs a player.
    if (QtAV::AVPlayer* player = registry().getplayerByID(layerId, bankId))
        player->refreshUi();
}

void UI_Proc_KELMOR_Player_Desktop::setMonitorEffect(int id, QMap<QString, QVariant> record)
{
    EffectsService::getInstance().setMonitorEffects(id, record);
}

void UI_Proc_KELMOR_Player_Desktop::setOutputRenderer(QMap<QString, QVariant> record)
{
    Q_UNUSED(record) // the outputs come from the screen service, not the record
    EffectsService::getInstance().setOutputRenderer(ScreenService::getInstance().getListOutput());
}

void UI_Proc_KELMOR_Player_Desktop::setAllRenderList(int layerId, int bankId)
{
    QtAV::AVPlayer* player = registry().getplayerByID(layerId, bankId);
    if (!player)
        return;
    EffectsService::getInstance().setAllRendererList(
        getBankLayer(layerId, bankId), getUIAndWidgetRendererList(player->videoOutputs()));
}

void UI_Proc_KELMOR_Player_Desktop::setRendererZ(QtAV::AVPlayer* player, double z)
{
    if (ignoreNullPlayer(player, "setRendererZ"))
        return;
    if (player->videoOutputs().isEmpty()) {
        qDebug() << "setRendererZ -------------isEmpty-";
        return;
    }
    for (QtAV::NoxOpenGLRender* render : renderObjectsOf(player))
        render->setZ(z);
}

void UI_Proc_KELMOR_Player_Desktop::setWidgetRenderVisible(QtAV::AVPlayer* player, bool visible)
{
    if (ignoreNullPlayer(player, "setWidgetRenderVisible"))
        return;
    for (QtAV::NoxOpenGLRender* render : renderObjectsOf(player))
        render->setVisible(visible);
}

void UI_Proc_KELMOR_Player_Desktop::setNdiState(QtAV::AVPlayer* player, int state)
{
    if (ignoreNullPlayer(player, "setNdiState"))
        return;
    if (!registry().getScenePlayer(player))
        return;
    // A handle for this call only: the senders live in the NDI service's
    // process-wide state, keyed by file and player.
    NdiService ndi(nullptr);
    if (state == 1)
        ndi.playNDI(player->file(), player);
    else if (state == 0)
        ndi.stopNDI(player->file(), player);
}

void UI_Proc_KELMOR_Player_Desktop::setSpoutState(QtAV::AVPlayer* player, int state)
{
    if (ignoreNullPlayer(player, "setSpoutState"))
        return;
    if (player->getMediaType() != QLatin1String("spout"))
        return;
    ScenePlayer* scene = registry().getScenePlayer(player);
    if (!scene)
        return;
    // The node is made on demand, for a stop as well: a stop then makes,
    // connects and at once ends one, which leaves the same end state.
    if (!scene->spoutNode) {
        scene->spoutNode = new SpoutNode(nullptr);
        QObject::connect(scene->spoutNode, kTextureSignal, scene->player, kTextureSlot);
    }
    if (state == 1)
        scene->spoutNode->playSpout(player->file());
    if (state == 0) {
        QObject::disconnect(scene->spoutNode, kTextureSignal, scene->player, kTextureSlot);
        scene->spoutNode->stop();
        delete scene->spoutNode;
        scene->spoutNode = nullptr;
    }
}

void UI_Proc_KELMOR_Player_Desktop::setRendererProperty(QtAV::AVPlayer* player,
                                                        QMap<QString, QVariant> record, int value)
{
    // Accepted and ignored: renderer properties are not applied by this
    // service. Only a null player is worth a word.
    Q_UNUSED(record)
    Q_UNUSED(value)
    ignoreNullPlayer(player, "setRendererProperty");
}
