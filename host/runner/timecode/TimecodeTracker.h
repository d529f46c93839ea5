// TimecodeTracker: what the decoded LTC says the time is.
//
// Every frame is checked before it counts: its length tells the rate (24,
// 25 or 30 frames per second within 2 %; at 30, the drop-frame bit tells
// 29.97 drop-frame from 30), its label must exist at that rate, and it must
// be read forwards. A frame that passes is then either
// - the continuation of the lock: the label the running timecode has at the
//   frame's start; it re-anchors the clock (one such frame is enough), or
// - the second of two consecutive frames (the label after the previous
//   frame's, one frame's time later) that do not continue the lock: the
//   timecode starts (when stopped) or jumps there.
// So no single odd frame (noise, a drop-out, a wrong rate, a reversed word)
// moves the time; it is counted as refused.
//
// The lock is lost when the LTC falls silent (a Silence reading), the input
// ends, or no frame continued it for 300 ms (tick()): the timecode stops.
// now() goes on from the last anchor after a stop (the chase freewheels on
// it for a while); it is exact between frames because each frame carries
// the time its first sample was heard.
//
// Threading: GUI thread (pure logic; the fuzz target drives it directly).
#pragma once

#include "timecode/LtcReading.h"
#include "timecode/Timecode.h"

#include <QtGlobal>

class TimecodeTracker
{
public:
    /// What one reading or tick changed.
    struct Change
    {
        bool started = false;  ///< the timecode runs (again)
        bool jumped = false;   ///< it runs on from another place (or rate)
        bool stopped = false;  ///< it stopped
        bool refused = false;  ///< the frame did not count
        const char* why = nullptr; ///< refused: why (a short phrase)
    };

    /// Without a continuing frame for this long, the lock is lost.
    static constexpr qint64 kLossNs = 300'000'000;

    Change feed(const LtcReading& reading);
    /// Checks for a lost lock at `nowNs`.
    Change tick(qint64 nowNs);

    bool running() const { return m_running; }
    /// Whether a lock was ever had (now() means something).
    bool everLocked() const { return m_everLocked; }
    timecode::Rate rate() const { return m_rate; }
    /// The timecode at `nowNs` in nanoseconds since 00:00:00:00, counted
    /// on from the last anchor (also after a stop).
    double nowNs(qint64 steadyNs) const;
    /// The label of the frame running at `steadyNs`.
    timecode::Label labelAt(qint64 steadyNs) const;
    /// When the last anchored frame started (steady clock, ns).
    qint64 anchorStartNs() const { return m_anchorNs; }
    qint64 anchorCount() const { return m_anchorCount; }

private:
    struct Checked
    {
        bool ok = false;
        timecode::Rate rate = timecode::Rate::Fps25;
        qint64 count = -1;
        qint64 startNs = 0;
    };
    static Checked check(const LtcReading& reading, const char*& why);
    bool continuesLock(const Checked& frame) const;
    static bool follows(const Checked& earlier, const Checked& later);
    void anchor(const Checked& frame);

    bool m_running = false;
    bool m_everLocked = false;
    timecode::Rate m_rate = timecode::Rate::Fps25;
    qint64 m_anchorCount = 0; // the frame the clock counts from
    qint64 m_anchorNs = 0;    // when that frame started
    Checked m_previous;       // the last frame that passed the checks
};
