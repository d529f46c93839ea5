// How a layer's source is handed to libmpv, by the layer's media type, and
// the back-off of a live stream that is reopened after it dropped.
//
// Threading: MpvSources is a set of pure functions (any thread). An MpvRetry
// is plain state owned by one backend and used on that player's thread only.
//
// Media types:
// - "captureCard": a capture device path ("/dev/video0") is opened through
//   libavdevice's v4l2 input as "av://v4l2:/dev/video0"; any URL ("av://...",
//   or another scheme libmpv knows) is passed as it is. Opened for low
//   latency. A device that cannot be opened is reported like any bad source.
// - "networkVideo": a stream URL (rtsp, srt, udp, rtmp, http(s)) passed as it
//   is, opened for low latency, and taken to be live: its end while the layer
//   plays is a drop, and the backend reopens it with MpvRetry's back-off. A
//   finished recording served over the network is played as "video".
// - Any other type ("video", "audio", "picture", ...) and no type: the path as
//   it is, with no per-file options.
//
// Low latency, as per-file options of "loadfile <url> replace <options>"
// (libmpv 0.35: the third argument; they hold for that entry only and the
// core's settings return with the next source):
// - cache=no, cache-pause=no: no read-ahead beyond the demuxer's own queue,
//   and no pausing to refill it; a live source cannot be buffered ahead of
//   real time anyway, and every buffered second is a second of delay.
// - demuxer-lavf-o-add=fflags=+nobuffer: FFmpeg hands packets on without
//   its probing buffer.
// - demuxer-lavf-analyzeduration=0.5: half a second of probing (FFmpeg's
//   default is 5 s); enough to find the streams of an MPEG-TS that starts
//   mid-GOP, which 0.1 s is not always.
// - video-sync=audio: frames are timed by the audio clock (libmpv's
//   default, stated so that a core setting made for files cannot make a live
//   source wait for the display). Frames keep their timestamps ("untimed" is
//   left off): audio and picture stay in step.
// - network-timeout=5 (network only): a silent stream counts as dropped
//   after 5 s instead of libmpv's 60.
// - keep-open=no (network only): the end of a live stream ends the entry,
//   so the backend sees the drop as END_FILE and holds no "end" state.
// - rtsp-transport=tcp for rtsp:// and rtsps://: interleaved TCP passes
//   firewalls and loses no packets; UDP's reordering buffer adds delay.
// Decoder threads are left as the core has them: a single thread (libmpv's
// low-latency profile) would save a few frames of delay but cannot decode
// 4K H.264 in real time.
#pragma once

#include "MpvEngine.h" // export macro

#include <QByteArray>
#include <QString>

namespace QtAV {

/// What libmpv is asked to open for one source.
struct MpvSource
{
    QByteArray url;      // the "loadfile" URL
    QByteArray options;  // per-file options, "key=value,key=value"; may be empty
    bool live = false;   // a capture or a stream: opened for low latency
    bool reopens = false; // reopened after a drop while the layer plays
};

namespace MpvSources {

/// The source for `file` played as `mediaType`. An empty file gives an empty
/// URL (nothing to open).
KELMOR_ENGINE_MPV_EXPORT MpvSource sourceFor(const QString& mediaType, const QString& file);

} // namespace MpvSources

/// Back-off of a live stream's reopening: 500 ms, doubling, at most 5 s.
class KELMOR_ENGINE_MPV_EXPORT MpvRetry
{
public:
    static constexpr int kFirstDelayMs = 500;
    static constexpr int kMaxDelayMs = 5000;

    /// Counts one more attempt and gives the delay before it.
    int next();
    /// The attempts counted since the last reset (the last next()'s number).
    int attempt() const { return m_attempt; }
    /// The delay the next call of next() will give.
    int nextDelay() const { return m_delay; }
    /// The stream opened again: the next drop starts from the first delay.
    void reset();

private:
    int m_attempt = 0;              // owner's thread
    int m_delay = kFirstDelayMs;    // owner's thread
};

} // namespace QtAV
