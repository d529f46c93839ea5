#include "timecode/TimecodeTracker.h"

#include <cmath>

using timecode::Rate;

namespace {

constexpr double kRateTolerance = 0.02;   // a frame's length may differ this much from the rate's
constexpr double kTimingTolerance = 0.25; // of a frame: the next frame's start may be this far off

bool lengthFits(qint64 lengthNs, double fps)
{
    const double expected = 1e9 / fps;
    return std::fabs(static_cast<double>(lengthNs) - expected) <= kRateTolerance * expected;
}

} // namespace

TimecodeTracker::Checked TimecodeTracker::check(const LtcReading& r, const char*& why)
{
    Checked c;
    if (r.reverse) {
        why = "read backwards";
        return c;
    }
    if (lengthFits(r.lengthNs, 24.0)) {
        c.rate = Rate::Fps24;
    } else if (lengthFits(r.lengthNs, 25.0)) {
        c.rate = Rate::Fps25;
    } else if (lengthFits(r.lengthNs, 30.0) || lengthFits(r.lengthNs, 30000.0 / 1001.0)) {
        c.rate = r.dropFlag ? Rate::Fps2997Drop : Rate::Fps30;
    } else {
        why = "length fits no frame rate";
        return c;
    }
    if (r.dropFlag && c.rate != Rate::Fps2997Drop) {
        why = "drop-frame bit at a rate without drop-frame";
        return c;
    }
    const timecode::Label label{r.hours, r.minutes, r.seconds, r.frames};
    c.count = timecode::toCount(label, c.rate);
    if (c.count < 0) {
        why = "label does not exist at its rate";
        return c;
    }
    c.startNs = r.startNs;
    c.ok = true;
    return c;
}

bool TimecodeTracker::follows(const Checked& earlier, const Checked& later)
{
    if (!earlier.ok || !later.ok || earlier.rate != later.rate)
        return false;
    if (later.count != timecode::nextCount(earlier.count, later.rate))
        return false;
    const double frame = timecode::frameNs(later.rate);
    const double gap = static_cast<double>(later.startNs - earlier.startNs);
    return std::fabs(gap - frame) <= kTimingTolerance * frame;
}

bool TimecodeTracker::continuesLock(const Checked& frame) const
{
    if (!m_running || frame.rate != m_rate)
        return false;
    const double frameLen = timecode::frameNs(m_rate);
    const double framesSince = static_cast<double>(frame.startNs - m_anchorNs) / frameLen;
    const double whole = std::round(framesSince);
    if (whole < 1.0 || std::fabs(framesSince - whole) > kTimingTolerance)
        return false;
    const qint64 perDay = timecode::framesPerDay(m_rate);
    const qint64 expected = (m_anchorCount + static_cast<qint64>(whole)) % perDay;
    return frame.count == expected;
}

void TimecodeTracker::anchor(const Checked& frame)
{
    m_rate = frame.rate;
    m_anchorCount = frame.count;
    m_anchorNs = frame.startNs;
}

TimecodeTracker::Change TimecodeTracker::feed(const LtcReading& reading)
{
    Change change;
    switch (reading.kind) {
    case LtcReading::Kind::Frame:
        break;
    case LtcReading::Kind::Silence:
    case LtcReading::Kind::Ended:
    case LtcReading::Kind::Failed:
        m_previous = Checked();
        if (m_running) {
            m_running = false;
            change.stopped = true;
        }
        return change;
    case LtcReading::Kind::Opened:
        return change;
    }

    const char* why = nullptr;
    const Checked frame = check(reading, why);
    if (!frame.ok) {
        m_previous = Checked();
        change.refused = true;
        change.why = why;
        return change;
    }
    if (continuesLock(frame)) {
        anchor(frame);
        m_previous = frame;
        return change;
    }
    if (follows(m_previous, frame)) {
        if (m_running) {
            change.jumped = true;
        } else {
            change.started = true;
            m_running = true;
        }
        m_everLocked = true;
        anchor(frame);
        m_previous = frame;
        return change;
    }
    m_previous = frame;
    // The first frame after a stop or at the start waits for a second one;
    // only a frame that breaks a running lock counts as refused.
    if (m_running) {
        change.refused = true;
        change.why = "does not follow the running timecode";
    }
    return change;
}

TimecodeTracker::Change TimecodeTracker::tick(qint64 nowNs)
{
    Change change;
    if (m_running && nowNs - m_anchorNs > kLossNs + static_cast<qint64>(timecode::frameNs(m_rate))) {
        m_running = false;
        m_previous = Checked();
        change.stopped = true;
    }
    return change;
}

double TimecodeTracker::nowNs(qint64 steadyNs) const
{
    return timecode::countToNs(m_anchorCount, m_rate) + static_cast<double>(steadyNs - m_anchorNs);
}

timecode::Label TimecodeTracker::labelAt(qint64 steadyNs) const
{
    const double since = static_cast<double>(steadyNs - m_anchorNs) / timecode::frameNs(m_rate);
    const qint64 frames = static_cast<qint64>(std::floor(since));
    return timecode::fromCount(m_anchorCount + frames, m_rate);
}
