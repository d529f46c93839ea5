// LtcInput: the LTC reader thread. It reads the audio input (AudioSource),
// a file at real-time pace in slices of at most 10 ms, decodes LTC from it
// (LtcDecoderStage) and hands the readings to the GUI thread through a
// bounded queue (LtcQueue), waking the GUI thread when the queue was empty.
//
// A live input that fails or ends is opened again after 1 s, then after 2,
// 4, up to 5 s (a sound card unplugged and plugged back, a stream that
// drops); a file that ends ends the input. The input's state changes come
// as readings (Opened, Ended, Failed) in the same queue.
//
// Threading: start() and stop() on the GUI thread; the loop on its own
// thread. stop() sets the stop flag (every blocking call of the loop gives
// up on it: libavformat's interrupt callback, the pacing wait) and joins.
#pragma once

#include "timecode/LtcQueue.h"

#include <QString>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

class AudioSource;
class LtcDecoderStage;
class SampleClock;

class LtcInput
{
public:
    /// `wake` is called on the reader thread when readings wait in an
    /// empty-before queue; it must only post to the GUI thread.
    LtcInput(QString input, int channel, std::function<void()> wake);
    ~LtcInput();
    LtcInput(const LtcInput&) = delete;
    LtcInput& operator=(const LtcInput&) = delete;

    void start();
    void stop();

    LtcQueue& queue() { return m_queue; }

private:
    void run();
    /// Reads one opened input until it ends, fails or is stopped; true when
    /// the input ended for good (a file's end).
    bool readAll(AudioSource& source);
    void feedPaced(const std::vector<float>& samples, LtcDecoderStage& stage, SampleClock& clock,
                   std::vector<LtcReading>& out);
    void publish(std::vector<LtcReading>& readings);
    void note(LtcReading::Kind kind, const QString& text);
    /// Waits until `deadlineNs` (steady clock) or the stop; false on stop.
    bool sleepUntil(qint64 deadlineNs);

    const QString m_inputName;               // constant
    const int m_channel;                // constant
    const std::function<void()> m_wake; // constant
    LtcQueue m_queue;                   // its own mutex
    std::atomic<bool> m_stop{false};
    std::mutex m_sleepMutex;            // with m_sleepWake: the interruptible waits
    std::condition_variable m_sleepWake;
    std::thread m_thread;               // GUI thread (start/stop)
};

/// Monotonic nanoseconds (the steady clock every timecode time is on).
qint64 steadyNowNs();
