// The registry's filing and look-ups of scene players.
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include "AVPlayer.h"
#include "ScenePlayer.h"

#include <QDebug>
#include <QGlobalStatic>

namespace {
Q_GLOBAL_STATIC(UI_Proc_KELMOR_PlayersManage_Desktop, registryInstance)
}

UI_Proc_KELMOR_PlayersManage_Desktop& UI_Proc_KELMOR_PlayersManage_Desktop::getInstance()
{
    return *registryInstance();
}

UI_Proc_KELMOR_PlayersManage_Desktop::UI_Proc_KELMOR_PlayersManage_Desktop(QObject* parent)
    : QObject(parent), threadPool(2)
{
}

// threadPool is declared last and so destroyed first, then the map nodes;
// the scene players themselves are left alive.
UI_Proc_KELMOR_PlayersManage_Desktop::~UI_Proc_KELMOR_PlayersManage_Desktop() = default;

void UI_Proc_KELMOR_PlayersManage_Desktop::insertScenePlayer(int bankId, int layerId,
                                                             ScenePlayer* scenePlayer)
{
    qDebug() << "comand pushPlayer: "
             << static_cast<QObject*>(scenePlayer ? scenePlayer->player : nullptr);
    scenePlayerMap[bankId].insert(layerId, scenePlayer);
}

ScenePlayer* UI_Proc_KELMOR_PlayersManage_Desktop::getScenePlayer(int bankId, int layerId)
{
    const auto bank = scenePlayerMap.constFind(bankId);
    if (bank == scenePlayerMap.constEnd())
        return nullptr;
    return bank->value(layerId, nullptr);
}

QtAV::AVPlayer* UI_Proc_KELMOR_PlayersManage_Desktop::getplayerByID(int layerId, int bankId)
{
    ScenePlayer* scenePlayer = getScenePlayer(bankId, layerId);
    return scenePlayer ? scenePlayer->player : nullptr;
}

QMap<int, ScenePlayer*> UI_Proc_KELMOR_PlayersManage_Desktop::getModulePlayerMap(int bankId)
{
    return scenePlayerMap.value(bankId);
}

ScenePlayer* UI_Proc_KELMOR_PlayersManage_Desktop::getScenePlayer(QtAV::AVPlayer* player)
{
    const auto banks = scenePlayerMap; // shared copy: a slot may change the map
    for (const QMap<int, ScenePlayer*>& layers : banks) {
        for (ScenePlayer* scenePlayer : layers) {
            if (scenePlayer && scenePlayer->player == player)
                return scenePlayer;
        }
    }
    return nullptr;
}

int UI_Proc_KELMOR_PlayersManage_Desktop::getBankIdRelyPlayer(QtAV::AVPlayer* player)
{
    int bankId = -1;
    const auto banks = scenePlayerMap; // shared copy: a slot may change the map
    for (auto bank = banks.constBegin(); bank != banks.constEnd(); ++bank) {
        for (ScenePlayer* scenePlayer : bank.value()) {
            if (scenePlayer && scenePlayer->player == player) {
                bankId = bank.key(); // later banks win
                break;
            }
        }
    }
    return bankId;
}

void UI_Proc_KELMOR_PlayersManage_Desktop::removeScenePlayer(int bankId, int layerId)
{
    const auto bank = scenePlayerMap.find(bankId);
    if (bank == scenePlayerMap.end())
        return;
    bank->remove(layerId); // the bank's map stays, even when empty
}

void UI_Proc_KELMOR_PlayersManage_Desktop::disConnect(QtAV::AVPlayer* player)
{
    if (!player) {
        qDebug() << "disConnect ignored: null player";
        return;
    }
    // "sig_deleteObj()" stays connected so that the release still completes.
    static const char* const kPlaybackSignals[] = {
        "2stopped()",         "2loaded()",          "2positionChanged(qint64)",
        "2fadeOutFinished()", "2fadeInFinished()", "2playReadySucess()",
    };
    for (const char* signal : kPlaybackSignals)
        QObject::disconnect(player, signal, nullptr, nullptr);
}
