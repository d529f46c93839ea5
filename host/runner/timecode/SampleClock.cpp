#include "timecode/SampleClock.h"

#include <algorithm>

namespace {

constexpr double kCreep = 1e-4; // the live estimate may move later by this much per second

} // namespace

void SampleClock::startPaced(qint64 startNs, int sampleRate)
{
    m_rate = std::max(1, sampleRate);
    m_live = false;
    m_known = true;
    m_startNs = static_cast<double>(startNs);
}

void SampleClock::startLive(int sampleRate)
{
    m_rate = std::max(1, sampleRate);
    m_live = true;
    m_known = false;
    m_startNs = 0.0;
    m_lastArrivalNs = 0;
}

void SampleClock::observe(qint64 endSample, qint64 arrivalNs)
{
    if (!m_live)
        return;
    const double bound = static_cast<double>(arrivalNs) - durationNs(static_cast<double>(endSample));
    if (!m_known) {
        m_startNs = bound;
        m_known = true;
    } else {
        m_startNs += kCreep * static_cast<double>(std::max<qint64>(0, arrivalNs - m_lastArrivalNs));
        m_startNs = std::min(m_startNs, bound);
    }
    m_lastArrivalNs = arrivalNs;
}

qint64 SampleClock::timeOf(double sample) const
{
    if (!m_known)
        return 0;
    return static_cast<qint64>(m_startNs + durationNs(sample));
}

double SampleClock::durationNs(double samples) const
{
    return samples * 1e9 / static_cast<double>(m_rate);
}
