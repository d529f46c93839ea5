// Ending layers: one at a time (deleteplayerByID) or all of them
// (clearAllPlayer).
//
// The order is fixed: the layer's outputs first (its Spout node), then its
// fades and playback, then its timer (whose destructor waits for the timer
// thread), then the player's signal connections, and only then the player,
// which is handed back with releaseObj. The player announces the end of its
// release with "sig_deleteObj()", which stays connected so that the layer
// service deletes it (onSigDeleteObj). Render objects are not touched here.
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include "AVPlayer.h"
#include "ScenePlayer.h"
#include "SpoutNode.h"
#include "UI_Proc_KELMOR_PlayerTimer_Desktop.h"

#include <QDebug>

void UI_Proc_KELMOR_PlayersManage_Desktop::deleteplayerByID(QMap<QString, QVariant> record)
{
    const int bankId = record.value(QStringLiteral("bankId")).toInt();
    const int layerId = record.value(QStringLiteral("layerId")).toInt();

    UI_Proc_KELMOR_PlayersManage_Desktop& registry = getInstance();
    ScenePlayer* scene = registry.getScenePlayer(bankId, layerId);
    if (!scene)
        return;

    if (scene->spoutNode) {
        scene->spoutNode->stop();
        delete scene->spoutNode;
        scene->spoutNode = nullptr;
    }

    QtAV::AVPlayer* player = scene->player;
    if (player) {
        player->stopFadeIn();
        player->stopFadeOut();
        player->pause(true);
    } else {
        qDebug() << "deleteplayerByID: scene player without player; nothing to stop";
    }

    if (scene->playerTimer) {
        delete scene->playerTimer; // joins the timer's thread
        scene->playerTimer = nullptr;
    }

    if (player) {
        qDebug() << "comand deletePlayer: " << static_cast<QObject*>(player);
        registry.disConnect(player);
        player->releaseObj(); // deleted later, on its "sig_deleteObj()"
        scene->player = nullptr;
    }

    delete scene;
    registry.removeScenePlayer(bankId, layerId);
}

void UI_Proc_KELMOR_PlayersManage_Desktop::clearAllPlayer()
{
    // The scan runs over copies of the maps, so that the removals made by
    // deleteplayerByID do not disturb it.
    QMap<QString, QVariant> record;
    const QMap<int, QMap<int, ScenePlayer*>> banks = scenePlayerMap;
    for (auto bank = banks.constBegin(); bank != banks.constEnd(); ++bank) {
        const QMap<int, ScenePlayer*> layers = bank.value();
        for (auto layer = layers.constBegin(); layer != layers.constEnd(); ++layer) {
            record.insert(QStringLiteral("bankId"), bank.key());
            record.insert(QStringLiteral("layerId"), layer.key());
            deleteplayerByID(record);
        }
    }
    scenePlayerMap.clear();
}

void UI_Proc_KELMOR_PlayersManage_Desktop::stopPlayerThread(QtAV::AVPlayer* player)
{
    // Has no effect: the timer's thread ends with the timer (deleteplayerByID).
    Q_UNUSED(player)
}
