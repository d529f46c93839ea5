// The bounded hand-over from the LTC reader thread to the GUI thread. When
// the GUI thread falls behind, the oldest readings go (they are stale for a
// chase anyway) and are counted.
//
// Threading: push() on the reader thread, takeAll() on the GUI thread; the
// mutex guards every field.
#pragma once

#include "timecode/LtcReading.h"

#include <deque>
#include <mutex>
#include <vector>

class LtcQueue
{
public:
    static constexpr size_t kCapacity = 64; ///< readings held at most (2.5 s of LTC at 25 fps)

    /// Adds a reading, dropping the oldest when full. Returns true when the
    /// queue was empty before (the reader then wakes the GUI thread).
    bool push(LtcReading reading);
    /// Takes every reading; `dropped` gets how many were dropped since the
    /// last call.
    void takeAll(std::vector<LtcReading>& out, quint64& dropped);

private:
    std::mutex m_mutex;
    std::deque<LtcReading> m_items; // m_mutex
    quint64 m_dropped = 0;          // m_mutex
};
