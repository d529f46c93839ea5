// UI_Proc_KELMOR_PlayersManage_Desktop: the process-wide registry of the
// layers' scene players, filed by bank and layer.
//
// Id order: getScenePlayer, insertScenePlayer and removeScenePlayer take
// (bankId, layerId); getplayerByID takes (layerId, bankId). The asymmetry is
// part of the interface.
//
// Scans run in ascending bankId and, within a bank, ascending layerId, over a
// shared copy of the maps, so that a slot run during a scan may change them.
//
// Ownership: the registry files scene players but its map operations never
// delete them; deleteplayerByID and clearAllPlayer end a layer's objects
// (Spout node, fades, player, timer) in a fixed order and delete the record.
//
// Threading: no locks. Use it from the thread that runs the layer service
// (the GUI thread). getInstance() may be called from any thread; the registry
// lives until the process exits and must not be used during that late
// shutdown.
#pragma once

#include "KelmorPlayerExport.h"
#include "WorkerPool.h"

#include <QMap>
#include <QObject>
#include <QVariant>

class ScenePlayer;
namespace QtAV { class AVPlayer; }

class KELMOR_PLAYER_EXPORT UI_Proc_KELMOR_PlayersManage_Desktop : public QObject
{
    Q_OBJECT
public:
    static UI_Proc_KELMOR_PlayersManage_Desktop& getInstance();

    explicit UI_Proc_KELMOR_PlayersManage_Desktop(QObject* parent = nullptr);
    ~UI_Proc_KELMOR_PlayersManage_Desktop() override;

    /// Files the scene player (logs "comand pushPlayer: "); an entry under
    /// the same key is replaced silently and left alive.
    void insertScenePlayer(int bankId, int layerId, ScenePlayer* scenePlayer);
    /// null when absent; never inserts.
    ScenePlayer* getScenePlayer(int bankId, int layerId);
    /// The layer's media player (layer first); null when absent.
    QtAV::AVPlayer* getplayerByID(int layerId, int bankId);
    /// A copy of the bank's layers; empty when the bank is unknown.
    QMap<int, ScenePlayer*> getModulePlayerMap(int bankId);
    /// The first scene player holding this player, or null.
    ScenePlayer* getScenePlayer(QtAV::AVPlayer* player);
    /// The highest bank holding this player, or -1.
    int getBankIdRelyPlayer(QtAV::AVPlayer* player);
    /// Takes the entry out of its bank (the bank's map stays); the scene
    /// player is not deleted.
    void removeScenePlayer(int bankId, int layerId);
    /// Cuts the player's six playback signals from every receiver;
    /// "sig_deleteObj()" stays connected.
    void disConnect(QtAV::AVPlayer* player);

    /// Ends one layer, named by the record's "bankId" and "layerId".
    void deleteplayerByID(QMap<QString, QVariant> record);
    /// Ends every layer of every bank and empties the registry.
    void clearAllPlayer();
    /// Has no effect; kept for its callers.
    static void stopPlayerThread(QtAV::AVPlayer* player);

private:
    friend struct RegistryTestAccess;

    QMap<int, QMap<int, ScenePlayer*>> scenePlayerMap; // GUI thread
    WorkerPool threadPool;                             // built with 2 threads, unused
};
