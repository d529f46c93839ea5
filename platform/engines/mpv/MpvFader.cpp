#include "MpvFader.h"

#include <algorithm>

namespace QtAV {

MpvFader::MpvFader(std::function<void(double)> apply, std::function<void(Direction)> finished)
    : m_apply(std::move(apply)), m_finished(std::move(finished))
{
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(16);
    QObject::connect(&m_timer, &QTimer::timeout, this, [this] { tick(); });
}

void MpvFader::start(Direction direction, int msec)
{
    if (direction == None)
        return;
    m_direction = direction;
    m_to = direction == In ? 1.0 : 0.0;
    m_from = (direction == In && m_factor >= 1.0) ? 0.0 : m_factor;
    m_duration = std::max(msec, 0);
    m_factor = m_from;
    m_apply(m_factor);
    m_clock.start();
    // Even a zero-length fade finishes from the event loop, never inside the
    // caller's own call.
    m_timer.start();
}

bool MpvFader::cancel(Direction direction)
{
    if (m_direction == None || m_direction != direction)
        return false;
    m_timer.stop();
    m_direction = None;
    return true;
}

void MpvFader::tick()
{
    if (m_direction == None) {
        m_timer.stop();
        return;
    }
    const double t = m_duration > 0
        ? std::min(1.0, static_cast<double>(m_clock.elapsed()) / static_cast<double>(m_duration))
        : 1.0;
    m_factor = m_from + (m_to - m_from) * t;
    m_apply(m_factor);
    if (t >= 1.0) {
        const Direction done = m_direction;
        m_timer.stop();
        m_direction = None;
        m_finished(done);
    }
}

} // namespace QtAV
