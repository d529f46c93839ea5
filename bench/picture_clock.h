// When a frame source's pictures change, seen from outside the threads that
// draw them: a thread polls the source's serial (atomic) every millisecond
// and notes the time of each change. The gaps between changes are what a
// viewer sees (33 ms at 30 fps when nothing is late), whichever thread drew
// the output frames.
#pragma once

#include "bench_measure.h"

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

namespace QtAV {
class VideoFrameSource;
}

namespace bench {

class PictureClock
{
public:
    /// Starts polling `source`, which must outlive this object.
    explicit PictureClock(const QtAV::VideoFrameSource* source);
    ~PictureClock(); // stops polling
    PictureClock(const PictureClock&) = delete;
    PictureClock& operator=(const PictureClock&) = delete;

    /// The changes seen since the last call.
    std::vector<Clock::time_point> take();
    /// Milliseconds between consecutive changes of `changes`, from `from` on.
    static std::vector<double> gaps(const std::vector<Clock::time_point>& changes,
                                    Clock::time_point from = Clock::time_point());

private:
    std::atomic<bool> m_stop{false};
    std::mutex m_mutex;                      // guards m_changes
    std::vector<Clock::time_point> m_changes;
    std::thread m_thread;                    // last: started once the rest exists
};

} // namespace bench
