// A PipeWire video source node fed with pictures of one output screen.
//
// The node (media class Video/Source, named as asked) offers BGRx at the
// screen's size and rate; any consumer (OBS, GStreamer's pipewiresrc, a
// "spout" layer) can link to it. The stream drives its own graph cycles: a
// picture is sent when one is given, never on a clock of its own. Pictures
// are only wanted while a consumer streams from the node (hasConsumer), so
// an unwatched screen costs no read-back. When no buffer is free the picture
// is dropped rather than waited for: sending never blocks the caller on a
// slow consumer. A daemon that is missing, dies or restarts is handled by
// the process's session (the node is made again once connected).
//
// Threading: constructor, destructor, start() and send() on the owner's (GUI)
// thread; `consumerChanged` runs with the session's lock held (loop thread,
// or inside start()).
#pragma once

#include "KelmorPlatformExport.h"
#include "pipewire/PwSession.h"

#include <QSize>
#include <QString>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

struct pw_stream;
struct spa_pod;

namespace kelmor::pipewire {

struct StreamHooks;

/// Exported for the benchmark's producer (bench/pipewire_bench.cpp).
class KELMOR_PLATFORM_EXPORT PwVideoPublisher : private PwSession::Client
{
public:
    PwVideoPublisher(const QString& nodeName, QSize size, int rate,
                     std::function<void(bool)> consumerChanged);
    ~PwVideoPublisher() override;
    PwVideoPublisher(const PwVideoPublisher&) = delete;
    PwVideoPublisher& operator=(const PwVideoPublisher&) = delete;

    bool start();

    /// Whether a consumer streams from the node now (any thread).
    bool hasConsumer() const { return m_streaming.load(); }
    /// Sends one picture of the node's size: `rows` 4-byte BGRA pixels per
    /// row, `stride` bytes apart, the bottom row first when `bottomUp`.
    /// false when it was dropped (no consumer, no free buffer, wrong size).
    bool send(const uint8_t* rows, int stride, bool bottomUp);

    /// Pictures sent and dropped so far (diagnostics).
    quint64 sent() const { return m_sent.load(); }
    quint64 dropped() const { return m_dropped.load(); }

private:
    void connected() override;
    void disconnected() override;
    void destroyStream();
    void onStateChanged(int state, const char* error);
    void onParamChanged(unsigned id, const struct spa_pod* param);

    // Set once; read-only afterwards.
    const QString m_name;
    const QString m_label;                // "publish NAME", for debug lines
    const QSize m_size;
    const int m_rate;
    const std::function<void(bool)> m_consumerChanged;

    std::shared_ptr<PwSession> m_session; // owner's thread (shared with others)

    // Loop thread, or the session's lock held.
    StreamHooks* m_hooks = nullptr; // the stream's listener (PwStreamClient.h)
    pw_stream* m_stream = nullptr;
    bool m_formatSet = false;      // the consumer agreed on the format
    bool m_closing = false;        // the destructor runs: tell the owner nothing

    std::atomic<bool> m_streaming{false};
    std::atomic<quint64> m_sent{0};
    std::atomic<quint64> m_dropped{0};
};

} // namespace kelmor::pipewire
