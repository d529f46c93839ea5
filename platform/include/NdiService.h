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

/// A short-lived handle on the process-wide NDI state: which player
/// receives which source and which player sends under which name. Any
/// thread; players are referred to, never owned.
class KELMOR_PLATFORM_EXPORT NdiService : public QObject
{
    Q_OBJECT
public:
    /// A handle on the shared state; the first one made in the process tries
    /// to load the NDI runtime.
    explicit NdiService(QObject* parent = nullptr);
    /// Destroys the handle; the shared state stays.
    ~NdiService() override;

    /// The player receives the source "name#stream": recorded in the shared
    /// state (replacing the player's previous source). A null player is
    /// ignored (logged).
    void setPlayer(QString sourceName, QtAV::AVPlayer* player);
    /// The player sends under the source name: recorded as the pair (source
    /// name, player) in the shared state, which is all this does (no picture
    /// goes out on the network). A null player is ignored (logged).
    void playNDI(QString sourceName, QtAV::AVPlayer* player);
    /// Stops that sender; an unknown one is ignored.
    void stopNDI(QString sourceName, QtAV::AVPlayer* player);

    // Process-wide state, for the host and tests.
    /// Whether setPlayer() gave the player exactly this source.
    static bool isReceiving(const QString& sourceName, QtAV::AVPlayer* player);
    /// Whether playNDI() recorded this (source name, player) pair and no
    /// stopNDI() or forgetPlayer() removed it.
    static bool isSending(const QString& sourceName, QtAV::AVPlayer* player);
    /// The source the player receives; empty when none.
    static QString receiverSource(QtAV::AVPlayer* player);
    /// How many (source name, player) senders are recorded.
    static int senderCount();
    /// Whether the NDI runtime library could be loaded on this machine.
    static bool runtimeAvailable();
    /// Forgets every source and sender of the player (a released player).
    static void forgetPlayer(QtAV::AVPlayer* player);
};
