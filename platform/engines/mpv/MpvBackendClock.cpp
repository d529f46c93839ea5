// The external clock of the libmpv backend (clock type 1): the player follows
// the host's time (see "Clock type 1" in MpvBackend.h, and MpvClock.h for
// when to seek and how far to bend the speed).
#include "MpvBackend.h"

#include "MpvAsync.h"
#include "MpvClock.h"
#include "MpvRelay.h"

#include <QTimer>
#include <algorithm>

namespace QtAV {

using namespace mpvasync;

namespace {

constexpr qint64 kClockSeekGiveUpMs = 1000; // a clock seek not seen landing by then is let go
constexpr qint64 kMinLeadMs = 60;           // a seek while playing aims at least this far ahead
constexpr qint64 kMaxLeadMs = 500;          // ... and at most this far
constexpr qint64 kMaxCarryMs = 100;         // a position is carried on for at most this long
constexpr qint64 kFreshHostMs = 500;        // a host time this recent counts when play is asked for
constexpr qint64 kStartSlackMs = 2 * MpvClock::kToleranceMsec; // play at once when the host is this close past the frame

} // namespace

void MpvBackend::setClockType(int type)
{
    m_externalClock = type == 1;
    if (!m_externalClock) {
        if (m_clockHolding)
            releaseClockHold();
        if (m_speed != 1.0) {
            m_speed = 1.0;
            setDouble(m_mpv, Prop::Speed, 1.0);
        }
    }
}

qint64 MpvBackend::estimatedPosition() const
{
    const bool playing = !m_paused && !m_ended && !m_ready.active && !m_clockSeeking && !m_clockHolding;
    if (!playing || !m_positionAge.isValid())
        return m_position;
    const qint64 age = std::min(m_positionAge.elapsed(), kMaxCarryMs);
    return m_position + static_cast<qint64>(static_cast<double>(age) * m_speed);
}

qint64 MpvBackend::hostNow() const
{
    if (!m_lastHostAge.isValid())
        return m_lastHostMsec;
    return m_lastHostMsec + (m_paused ? 0 : m_lastHostAge.elapsed());
}

void MpvBackend::updateExternalClock(qint64 msec)
{
    if (!m_externalClock || !m_loaded)
        return;
    m_lastHostMsec = msec;
    m_lastHostAge.start();
    if (m_ended && msec >= m_position - MpvClock::kJumpMsec)
        return; // the item has ended and the host's time is past its end
    if (m_clockSeeking) {
        if (m_clockSeekSince.elapsed() < kClockSeekGiveUpMs)
            return; // the last seek is still landing; followed when it lands
        m_clockSeeking = false;
        m_clockSeekPlaying = false; // not a measure of how long seeks take
    }
    if (m_clockHolding) {
        // Held until the host's time reaches the frame; a host time that
        // went elsewhere meanwhile needs a new seek.
        const qint64 expected = m_clockHoldHost + m_clockHoldAge.elapsed();
        if (std::llabs(msec - expected) <= MpvClock::kJumpMsec)
            return;
        dropClockHold();
        startClockSeek(msec);
        return;
    }
    followHost(msec);
}

void MpvBackend::followHost(qint64 msec)
{
    const ClockStep step = MpvClock::follow(msec, estimatedPosition());
    if (step.seek) {
        startClockSeek(msec);
        return;
    }
    if (qAbs(step.speed - m_speed) > 0.001) {
        m_speed = step.speed;
        setDouble(m_mpv, Prop::Speed, m_speed);
    }
}

void MpvBackend::startClockSeek(qint64 msec)
{
    const bool playing = !m_paused && !m_ended && !m_ready.active;
    const qint64 lead = playing ? std::clamp(2 * m_clockSeekMs, kMinLeadMs, kMaxLeadMs) : 0;
    const qint64 target = std::max<qint64>(0, msec + lead);
    if (playing)
        requestPause(true); // held on the landed frame until the host's time gets there
    m_clockHolding = playing;
    ++m_clockHoldSerial;
    m_ended = false;
    seekTo(target);
    m_position = target;
    m_positionAge.start();
    m_clockSeeking = true;
    m_clockSeekPlaying = playing;
    m_clockSeekSince.start();
    m_clockTarget = target;
    if (m_speed != 1.0) {
        m_speed = 1.0; // the trim starts afresh from the landed frame
        setDouble(m_mpv, Prop::Speed, 1.0);
    }
}

void MpvBackend::clockSeekLanded()
{
    if (!m_clockSeeking)
        return;
    m_clockSeeking = false;
    if (m_clockSeekPlaying) {
        const qint64 took = std::min(m_clockSeekSince.elapsed(), kMaxLeadMs);
        m_clockSeekMs = m_clockSeekMs == 0 ? took : (3 * m_clockSeekMs + took) / 4;
    }
    m_positionAge.start(); // the sought position holds from now
    if (m_clockHolding) {
        holdUntilHost(m_clockTarget, m_lastHostMsec + m_lastHostAge.elapsed());
        return;
    }
    if (m_externalClock && m_lastHostAge.isValid())
        followHost(hostNow());
}

void MpvBackend::holdUntilHost(qint64 frameMsec, qint64 host)
{
    m_clockHolding = true;
    m_clockHoldHost = host;
    m_clockHoldAge.start();
    const qint64 wait = frameMsec + reportLeadMs() - host;
    if (wait <= 0) {
        releaseClockHold(); // its time has come already: play on at once
        return;
    }
    const std::uint64_t serial = ++m_clockHoldSerial;
    // The pump lives on the player's thread and dies with the backend.
    QTimer::singleShot(static_cast<int>(std::min(wait, kMaxLeadMs + kFreshHostMs)), Qt::PreciseTimer,
                       m_pump.get(), [this, serial] {
                           if (serial == m_clockHoldSerial && m_clockHolding)
                               releaseClockHold();
                       });
}

bool MpvBackend::startOnHostClock()
{
    if (!m_externalClock || !m_loaded || m_ended || m_ready.active || !m_lastHostAge.isValid()
        || m_lastHostAge.elapsed() > kFreshHostMs)
        return false;
    const qint64 host = m_lastHostMsec + m_lastHostAge.elapsed();
    if (m_clockSeeking || host - m_position > kStartSlackMs) {
        startClockSeek(host); // held paused, aimed ahead, released on time
        return true;
    }
    if (host - m_position >= -kStartSlackMs / 2)
        return false; // close enough: play at once, the trim does the rest
    if (m_position - host > MpvClock::kJumpMsec)
        return false; // far ahead of the host: followed (sought) by its next time
    holdUntilHost(m_position, host);
    return true;
}

qint64 MpvBackend::reportLeadMs() const
{
    if (m_clockReportKnown)
        return m_clockReportMs;
    // Until measured: libmpv reports a frame's time about a frame early.
    const double fps = m_containerFps > 0.0 ? m_containerFps : m_estimatedFps;
    return fps > 1.0 ? static_cast<qint64>(1000.0 / fps) : 40;
}

void MpvBackend::releaseClockHold()
{
    m_clockHolding = false;
    ++m_clockHoldSerial;
    m_positionAge.start();
    if (!m_paused && !m_ready.active) {
        requestPause(false);
        m_clockReportProbe = true;
    }
    // The host's time may have moved on while the frame was held (a host
    // given a time close to the held frame's: a trim, not a seek).
    if (m_externalClock && m_lastHostAge.isValid())
        followHost(hostNow() - reportLeadMs());
}

void MpvBackend::clockPositionCame()
{
    if (!m_clockReportProbe || !m_externalClock || m_paused || m_clockHolding)
        return;
    m_clockReportProbe = false;
    // The hold lasted reportLeadMs() longer than the host's time asked: the
    // lead seen now comes on top of that.
    const qint64 lead = std::clamp<qint64>(reportLeadMs() + m_position - hostNow(), -kMaxCarryMs,
                                           2 * kMaxCarryMs);
    m_clockReportMs = m_clockReportKnown ? (m_clockReportMs + lead) / 2 : lead;
    m_clockReportKnown = true;
}

void MpvBackend::dropClockHold()
{
    m_clockHolding = false;
    ++m_clockHoldSerial;
}

} // namespace QtAV
