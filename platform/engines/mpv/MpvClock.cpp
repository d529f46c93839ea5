#include "MpvClock.h"

#include <algorithm>
#include <cstdlib>

namespace QtAV {

ClockStep MpvClock::follow(qint64 hostMsec, qint64 positionMsec)
{
    ClockStep step;
    const qint64 behind = hostMsec - positionMsec; // > 0: the player is late
    if (std::llabs(behind) > kJumpMsec) {
        step.seek = true;
        return step;
    }
    if (std::llabs(behind) <= kToleranceMsec)
        return step;
    // Work a difference off over about half a second: 20 ms late plays 4 %
    // fast, 25 ms or more 5 %.
    step.speed = 1.0 + std::clamp(static_cast<double>(behind) / 500.0,
                                  -kMaxCorrection, kMaxCorrection);
    return step;
}

} // namespace QtAV
