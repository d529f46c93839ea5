#include "MpvRelay.h"

#include <QMetaObject>

namespace QtAV {

void MpvRelay::onWakeup(void* self)
{
    auto* relay = static_cast<MpvRelay*>(self);
    // One posted drain is enough however many events are waiting: the drain
    // reads until the queue is empty.
    if (relay->m_drainQueued.exchange(true))
        return;
    std::lock_guard<std::mutex> lock(relay->m_mutex);
    if (!relay->m_pump || !relay->m_wakeups)
        return;
    MpvEventPump* pump = relay->m_pump;
    QMetaObject::invokeMethod(pump, [pump] { pump->drain(); }, Qt::QueuedConnection);
}

void MpvRelay::stopWakeups()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_wakeups = false;
}

void MpvRelay::detach()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_pump = nullptr;
}

void MpvRelay::post(std::function<void()> fn)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_pump)
        return;
    QMetaObject::invokeMethod(m_pump, std::move(fn), Qt::QueuedConnection);
}

} // namespace QtAV
