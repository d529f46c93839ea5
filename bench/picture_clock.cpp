#include "picture_clock.h"

#include "VideoFrameSource.h"

namespace bench {

PictureClock::PictureClock(const QtAV::VideoFrameSource* source)
    : m_thread([this, source] {
        quint64 last = source->serial();
        while (!m_stop.load()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            const quint64 now = source->serial();
            if (now == last)
                continue;
            last = now;
            std::lock_guard<std::mutex> lock(m_mutex);
            m_changes.push_back(Clock::now());
        }
    })
{
}

PictureClock::~PictureClock()
{
    m_stop.store(true);
    m_thread.join();
}

std::vector<Clock::time_point> PictureClock::take()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<Clock::time_point> changes;
    changes.swap(m_changes);
    return changes;
}

std::vector<double> PictureClock::gaps(const std::vector<Clock::time_point>& changes,
                                       Clock::time_point from)
{
    std::vector<double> out;
    for (size_t i = 1; i < changes.size(); ++i) {
        if (changes[i - 1] < from)
            continue;
        out.push_back(std::chrono::duration<double, std::milli>(changes[i] - changes[i - 1]).count());
    }
    return out;
}

} // namespace bench
