// The table of module operations a show step can call, by exact name:
// every public operation of the service (UI_Proc_KELMOR_Player_Desktop),
// of the registry (UI_Proc_KELMOR_PlayersManage_Desktop), and of a layer's
// timer (UI_Proc_KELMOR_PlayerTimer_Desktop, as "timer.<name>" with the
// layer {"bank", "layer"} first).
//
// Threading: GUI thread. The table is built on first use and never changes.
#pragma once

#include "Operation.h"

#include <QList>
#include <QPointer>
#include <QVector>
#include <functional>

namespace QtAV { class AVPlayer; }

const QVector<Operation>& operationTable();
/// Every entry with this name (overloads differ in their argument count).
QVector<const Operation*> findOperations(const QString& name);

/// Layers taken out of the registry by removeScenePlayer are kept here (the
/// registry no longer owns them) and handed back to it at shutdown, so that
/// clearAllPlayer ends them like every other layer.
void refileRemovedLayers();

/// The players of the layers made by creatnewlayer steps (null once
/// deleted): shutdown waits until every one is gone.
QList<QPointer<QtAV::AVPlayer>>& createdPlayers();

/// Called with each player a creatnewlayer step adds to createdPlayers(),
/// right after the layer is filed (null: none).
void setPlayerCreatedHook(std::function<void(QtAV::AVPlayer*)> hook);
/// Further listeners told of each such player after the hook (protocol rooms
/// that follow layers); the id is for removePlayerCreatedListener.
int addPlayerCreatedListener(std::function<void(QtAV::AVPlayer*)> listener);
void removePlayerCreatedListener(int id);
