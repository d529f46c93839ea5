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

class KELMOR_PLATFORM_EXPORT AVClock : public QObject
{
    Q_OBJECT
public:
    enum ClockType {
        AudioClock = 0,
        ExternalClock = 1,
        VideoClock = 2,
    };

    explicit AVClock(QObject* parent = nullptr);
    ~AVClock() override;

    void setClockType(int type);
    int clockType() const { return m_type; }
    bool isExternal() const { return m_type == ExternalClock; }

    /// The host's time in milliseconds; the player chases it while the clock
    /// is external.
    void updateExternalClock(qint64 msec);
    qint64 externalClock() const { return m_external; }
    int externalUpdateCount() const { return m_updates; }

signals:
    void clockTypeChanged(int type);
    void externalClockUpdated(qint64 msec);

private:
    // GUI thread.
    int m_type = AudioClock;
    qint64 m_external = 0;
    int m_updates = 0;
};

} // namespace QtAV
