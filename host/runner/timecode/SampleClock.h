// When a sample of the LTC audio was heard, on the steady clock.
//
// A file read at real-time pace starts at a known instant: sample n is heard
// at start + n / rate, exactly. A live input (a sound card, network audio)
// delivers blocks after the device's own buffering; the time of a sample is
// estimated from the blocks' arrival times: each block's last sample cannot
// have been heard after the block arrived, so the earliest such bound over
// the run is the best estimate of the input's start, with a slow creep
// (100 parts per million) so that a sound card whose clock runs slower than
// the machine's is followed as well.
//
// Threading: owned and used by the reader thread.
#pragma once

#include <QtGlobal>

class SampleClock
{
public:
    /// Paced: sample 0 is heard at `startNs`.
    void startPaced(qint64 startNs, int sampleRate);
    /// Live: the first block tells the start.
    void startLive(int sampleRate);
    /// Live: samples up to `endSample` (exclusive) arrived at `arrivalNs`.
    void observe(qint64 endSample, qint64 arrivalNs);
    /// When `sample` was heard (ns on the steady clock); 0 before any
    /// observation of a live input.
    qint64 timeOf(double sample) const;
    /// Nanoseconds that `samples` last.
    double durationNs(double samples) const;
    int sampleRate() const { return m_rate; }

private:
    int m_rate = 48000;
    bool m_live = false;
    bool m_known = false;     // a live start was estimated
    double m_startNs = 0.0;   // when sample 0 was heard
    qint64 m_lastArrivalNs = 0;
};
