// QtAV::AVClock: a player's master clock.
//
// Clock types: AudioClock (0) follows the audio output, ExternalClock (1)
// follows the time the host gives with updateExternalClock, VideoClock (2)
// follows the video frames. A player's clock starts as AudioClock.
//
// Threading: GUI thread. Ownership: the player owns its clock.
#pragma once

#include "KelmorPlatformExport.h"

#include <QObject>
#include <functional>

namespace QtAV {

/// A player's master clock: which time its playback follows, and the host's
/// time while that is the external clock. GUI thread; owned by its player.
class KELMOR_PLATFORM_EXPORT AVClock : public QObject
{
    Q_OBJECT
public:
    /// What the player's position follows.
    enum ClockType {
        AudioClock = 0,    ///< the audio output (a player's clock starts so)
        ExternalClock = 1, ///< the host's time, given with updateExternalClock()
        VideoClock = 2,    ///< the video frames
    };

    /// A clock of type AudioClock. The player makes its own; hosts reach it
    /// with AVPlayer::masterClock().
    explicit AVClock(QObject* parent = nullptr);
    ~AVClock() override;

    /// Sets the clock type (a ClockType value, kept as given) and emits
    /// clockTypeChanged(); the player's engine follows it.
    void setClockType(int type);
    /// The clock type as last set.
    int clockType() const { return m_type; }
    /// Whether the clock type is ExternalClock.
    bool isExternal() const { return m_type == ExternalClock; }

    /// The host's time in milliseconds; the player chases it while the clock
    /// is external.
    void updateExternalClock(qint64 msec);
    /// The host's time last given to updateExternalClock(), in ms (0 before).
    qint64 externalClock() const { return m_external; }
    /// How many times updateExternalClock() was called.
    int externalUpdateCount() const { return m_updates; }

signals:
    /// setClockType() was called with `type`.
    void clockTypeChanged(int type);
    /// updateExternalClock() was called with `msec`.
    void externalClockUpdated(qint64 msec);

private:
    // GUI thread.
    int m_type = AudioClock;
    qint64 m_external = 0;
    int m_updates = 0;
};

} // namespace QtAV
