// NdiService: NDI stream sources and senders of the layers.
//
// Instances are cheap and short-lived: the layer service builds one for a
// single call and destroys it at once. The state they act on is process-wide
// and shared by all instances: which player receives which source
// (setPlayer) and which player sends under which source name (playNDI /
// stopNDI), keyed by source name and player.
//
// The NDI runtime library is loaded at run time when it is installed; when it
// is not, one debug line says that NDI is unavailable and the state is still
// kept.
//
// Threading: any thread; the shared state is guarded by its own mutex.
// Ownership: players are referred to, never owned or dereferenced.
#pragma once

#include "KelmorPlatformExport.h"

#include <QList>
#include <QObject>
#include <QString>

namespace QtAV { class AVPlayer; }

class KELMOR_PLATFORM_EXPORT NdiService : public QObject
{
    Q_OBJECT
public:
    explicit NdiService(QObject* parent = nullptr);
    ~NdiService() override;

    /// The player receives the source "name#stream".
    void setPlayer(QString sourceName, QtAV::AVPlayer* player);
    /// Starts sending the player's picture under the source name.
    void playNDI(QString sourceName, QtAV::AVPlayer* player);
    /// Stops that sender; an unknown one is ignored.
    void stopNDI(QString sourceName, QtAV::AVPlayer* player);

    // Process-wide state, for the host and tests.
    static bool isReceiving(const QString& sourceName, QtAV::AVPlayer* player);
    static bool isSending(const QString& sourceName, QtAV::AVPlayer* player);
    static QString receiverSource(QtAV::AVPlayer* player);
    static int senderCount();
    /// Whether the NDI runtime library could be loaded on this machine.
    static bool runtimeAvailable();
    /// Forgets every source and sender of the player (a released player).
    static void forgetPlayer(QtAV::AVPlayer* player);
};
