// Receives one PipeWire video source for a "spout" layer.
//
// The source is named as a node name or an object serial. The receiver
// watches the daemon's registry: while no such node exists it waits (one
// debug line); when it appears a stream is connected to it; when it goes
// away the stream is dropped and the picture blanked (one debug line), and
// it is picked up again when it returns. A daemon that is missing, dies or
// restarts is handled by the process's session (reconnection with backoff).
//
// Accepted: BGRA, RGBA, BGRx, RGBx, NV12, I420, up to kMaxSide pixels a side,
// in shared memory (mapped). Larger streams are refused (debug line, blank).
// A source that sends nothing for kStallMsec is blanked until frames come
// again (one debug line).
// A change of size or format is followed at once.
//
// Handing over: each frame is converted on the loop thread into a packed
// picture and put in a one-picture slot (the newest wins); `frameReady` is
// then called on the loop thread, and the owner takes the picture with
// takeNewest() on its own thread. A blank is a picture of width 0.
//
// Threading: constructor, start(), takeNewest() and the destructor on the
// owner's thread; after the destructor has returned no callback runs.
// Callbacks run on the session's loop thread with its lock held.
#pragma once

#include "pipewire/FrameConvert.h"
#include "pipewire/PwSession.h"

#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

struct pw_stream;
struct spa_pod;
struct spa_source;

namespace kelmor::pipewire {

struct StreamHooks;

class PwVideoReceiver : private PwSession::Client
{
public:
    static constexpr int kMaxSide = 8192;
    static constexpr int kStallMsec = 4000;
    static constexpr int kLinkDelayMsec = 250;

    PwVideoReceiver(const QString& source, std::function<void()> frameReady);
    ~PwVideoReceiver() override;
    PwVideoReceiver(const PwVideoReceiver&) = delete;
    PwVideoReceiver& operator=(const PwVideoReceiver&) = delete;

    bool start();
    const QString& source() const { return m_source; }

    /// Swaps the newest picture into `picture` when one came since the last
    /// call (true); a blank has width 0. The vector handed in is reused.
    bool takeNewest(PackedPicture& picture);

    /// Frames converted so far (any thread; diagnostics and benchmarks).
    quint64 framesReceived() const { return m_frames.load(); }

private:
    void connected() override;
    void disconnected() override;
    void nodeAdded(const PwNodeInfo& node) override;
    void nodeRemoved(unsigned id) override;
    void connectStream(unsigned serial);
    void destroyStream();
    void blank(const char* why);
    void publish();
    void onParamChanged(unsigned id, const struct spa_pod* param);
    void onProcess();
    void onWatchdog();
    void onStateChanged(int state, const char* error);

    // Set once; read-only afterwards.
    const QString m_source;
    const QString m_label;                // "spout SOURCE", for debug lines
    const std::function<void()> m_frameReady;

    std::shared_ptr<PwSession> m_session; // owner's thread (shared with others)

    // Loop thread (or the session's lock held).
    StreamHooks* m_hooks = nullptr; // the stream's listener (PwStreamClient.h)
    pw_stream* m_stream = nullptr;
    spa_source* m_watchdog = nullptr;  // once a second: the stall watch
    spa_source* m_linkTimer = nullptr; // links a source shortly after it appears
    unsigned m_targetId = ~0u;      // the source's node id while it exists
    unsigned m_targetSerial = 0;    // and its object serial (what links name)
    bool m_closing = false;         // the destructor runs: tell the owner nothing
    bool m_showing = false;         // the layer shows this source's frames
    bool m_refused = false;         // the negotiated format is not shown
    PixelLayout m_layout = PixelLayout::Unknown;
    int m_width = 0;
    int m_height = 0;
    qint64 m_lastFrameMsec = 0;     // monotonic time of the last frame
    QString m_lastProblem;          // the last refused buffer's reason, said once
    FrameConvert m_convert;
    PackedPicture m_work;           // the picture being filled

    std::mutex m_slotMutex;         // guards m_latest and m_hasNew
    PackedPicture m_latest;
    bool m_hasNew = false;

    std::atomic<quint64> m_frames{0};
};

} // namespace kelmor::pipewire
