// MediaErrorReport: tells the show's audience (stdout and every control
// client) when a layer's media cannot be played, as a host line
//   {"t", "host": "mediaError", "bankId", "layerId", "path", "reason"}
// from the player's mediaError signal (AVPlayer.h, "Media errors").
//
// Every player a creatnewlayer step makes is handed to watch() at once (the
// operation table's player-created hook), so no error is missed and nothing
// is polled. The layer is looked up in the registry when the error comes; a
// player taken out of the registry is named by the ids it was created under.
//
// Threading: GUI thread (the players emit there; the connections are direct).
#pragma once

#include <QHash>
#include <QObject>
#include <QPair>
#include <QString>

class EventHub;

namespace QtAV { class AVPlayer; }

class MediaErrorReport : public QObject
{
    Q_OBJECT
public:
    /// Installs itself as the operation table's player-created hook.
    explicit MediaErrorReport(EventHub& hub, QObject* parent = nullptr);
    ~MediaErrorReport() override;

    /// Reports the player's media errors from now on (null or a player
    /// already watched: nothing changes).
    void watch(QtAV::AVPlayer* player);

private:
    void onMediaError(const QString& path, const QString& reason);

    EventHub& m_hub;                                // outlives this object (main)
    QHash<const QObject*, QPair<int, int>> m_created; // GUI thread: player -> (bank, layer) at creation
};
