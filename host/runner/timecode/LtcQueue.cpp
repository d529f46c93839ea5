#include "timecode/LtcQueue.h"

bool LtcQueue::push(LtcReading reading)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const bool wasEmpty = m_items.empty();
    if (m_items.size() >= kCapacity) {
        m_items.pop_front();
        ++m_dropped;
    }
    m_items.push_back(std::move(reading));
    return wasEmpty;
}

void LtcQueue::takeAll(std::vector<LtcReading>& out, quint64& dropped)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    out.assign(std::make_move_iterator(m_items.begin()), std::make_move_iterator(m_items.end()));
    m_items.clear();
    dropped = m_dropped;
    m_dropped = 0;
}
