// Following the host's clock (AVClock::ExternalClock).
//
// Each updateExternalClock(ms) compares the host's time with the player's
// position. A small difference is worked off smoothly by playing slightly
// faster or slower (libmpv's "speed", at most 5 % off, with pitch
// correction); a jump of more than kJumpMsec is met with an exact seek.
#pragma once

#include "MpvEngine.h" // export macro

#include <QtGlobal>

namespace QtAV {

struct ClockStep
{
    bool seek = false;   // seek exactly to the host's time
    double speed = 1.0;  // the playback speed to use from now on
};

class KELMOR_ENGINE_MPV_EXPORT MpvClock
{
public:
    /// Beyond this difference the player seeks instead of drifting back.
    static constexpr qint64 kJumpMsec = 250;
    /// Within this difference the player plays at normal speed.
    static constexpr qint64 kToleranceMsec = 15;
    /// The largest speed correction (fraction of normal speed).
    static constexpr double kMaxCorrection = 0.05;

    /// What to do when the host says `hostMsec` and the player is at `positionMsec`.
    static ClockStep follow(qint64 hostMsec, qint64 positionMsec);
};

} // namespace QtAV
