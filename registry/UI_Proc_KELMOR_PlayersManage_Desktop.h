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

/// The registry of the layers' scene players, filed by bank and layer: every
/// look-up of a layer goes through it, and its teardown ends a layer's
/// objects. One per process (getInstance()); GUI thread, no locks.
class KELMOR_PLAYER_EXPORT UI_Proc_KELMOR_PlayersManage_Desktop : public QObject
{
    Q_OBJECT
public:
    /// The process's registry, made on the first call (thread-safe, from any
    /// thread); it lives until the process exits.
    static UI_Proc_KELMOR_PlayersManage_Desktop& getInstance();

    /// Builds an empty registry (with a pool of 2 threads that nothing
    /// uses). Hosts use getInstance(): deleteplayerByID() always acts on that
    /// instance.
    explicit UI_Proc_KELMOR_PlayersManage_Desktop(QObject* parent = nullptr);
    /// Joins the unused pool and drops the maps; the scene players filed are
    /// not deleted.
    ~UI_Proc_KELMOR_PlayersManage_Desktop() override;

    /// Files the scene player (logs "comand pushPlayer: "); an entry under
    /// the same key is replaced silently and left alive.
    void insertScenePlayer(int bankId, int layerId, ScenePlayer* scenePlayer);
    /// The scene player of the layer (bank first); null when absent. Never
    /// inserts.
    ScenePlayer* getScenePlayer(int bankId, int layerId);
    /// The layer's media player (layer first); null when absent.
    QtAV::AVPlayer* getplayerByID(int layerId, int bankId);
    /// A copy of the bank's layers; empty when the bank is unknown.
    QMap<int, ScenePlayer*> getModulePlayerMap(int bankId);
    /// The first scene player holding this player (ascending bank, then
    /// layer), or null.
    ScenePlayer* getScenePlayer(QtAV::AVPlayer* player);
    /// The highest bank holding this player, or -1.
    int getBankIdRelyPlayer(QtAV::AVPlayer* player);
    /// Takes the entry out of its bank (the bank's map stays); the scene
    /// player is not deleted.
    void removeScenePlayer(int bankId, int layerId);
    /// Cuts the player's six playback signals from every receiver;
    /// "sig_deleteObj()" stays connected. A null player is ignored (logged).
    void disConnect(QtAV::AVPlayer* player);

    /// Ends one layer, named by the record's "bankId" and "layerId", in this
    /// order: its Spout node stops and is deleted; the player's fades stop
    /// and it pauses; its timer is deleted (joining its thread); the player's
    /// playback signals are cut (disConnect()), it is released with
    /// AVPlayer::releaseObj() (deleted later on its sig_deleteObj()); the
    /// scene player is deleted and its entry removed. Render objects are not
    /// touched. An unknown layer is ignored.
    void deleteplayerByID(QMap<QString, QVariant> record);
    /// Ends every layer of every bank (as deleteplayerByID(), in ascending
    /// bank and layer order) and empties the registry.
    void clearAllPlayer();
    /// Has no effect; kept for its callers.
    static void stopPlayerThread(QtAV::AVPlayer* player);

private:
    friend struct RegistryTestAccess;

    QMap<int, QMap<int, ScenePlayer*>> scenePlayerMap; // GUI thread
    WorkerPool threadPool;                             // built with 2 threads, unused
};
