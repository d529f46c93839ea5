// Records the composited pictures of an output screen to a video file, so a
// show can be previewed without projectors.
//
// Threading: start(), pushFrame(), stop(), isRecording(), path(), size(),
// codecName(), setH264Allowed() and the queue-capacity calls are made from one
// thread (the GUI thread that composites). Encoding runs on the recorder's own
// std::thread, so pushFrame() only hands the picture over and never waits on
// the encoder.
// Lifetime: one recording runs from a successful start() to stop(); the
// destructor stops a recording still running and finishes its file. The
// recorder may be started again after stop().
// Ownership: pushFrame() keeps a shallow (implicitly shared) copy of the
// QImage; the picture must own its pixels, not wrap a buffer the caller
// reuses, since the encoder thread reads them later.
#pragma once

#include "KelmorPlatformExport.h"

#include <QElapsedTimer>
#include <QImage>
#include <QSize>
#include <QString>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace kelmor::gl {

class KELMOR_PLATFORM_EXPORT ScreenRecorder {
public:
    /// Pictures waiting for the encoder by default; past this the oldest one
    /// is dropped.
    static constexpr int kDefaultQueueCapacity = 8;
    static constexpr int kMaxQueueCapacity = 256;
    /// Timestamps past this (24 h) are refused: the constant frame rate would
    /// otherwise make the encoder repeat a picture for an unbounded time.
    static constexpr qint64 kMaxMsec = 24LL * 3600 * 1000;

    ScreenRecorder();
    ~ScreenRecorder();
    ScreenRecorder(const ScreenRecorder&) = delete;
    ScreenRecorder& operator=(const ScreenRecorder&) = delete;

    /// Opens `path` for a video of `size` at `fps` frames per second. The
    /// container follows the extension (.mp4, .mkv, .mov, .avi; anything else
    /// is matroska). Codec: H.264 (libx264, preset veryfast, yuv420p) when
    /// FFmpeg offers it and it is allowed, else MPEG-4 part 2. An odd width or
    /// height is cropped by one pixel to the even size the codec needs. False
    /// with a debug line naming the reason: bad size, fps <= 0 or > 240,
    /// already recording, cannot create the file, no encoder.
    /// `fd` >= 0: write into that open file instead of opening `path` (which
    /// then only names it and picks the container); the recorder takes the
    /// descriptor over, closes it when the recording ends or fails to start,
    /// and leaves removing a file it could not start to the caller.
    bool start(const QString& path, QSize size, int fps, int fd = -1);
    /// Queues one picture shown at `msec` since the recording started. The
    /// video has a constant frame rate: frame n shows the newest picture at or
    /// before n/fps seconds (timestamps have millisecond resolution, so a
    /// picture counts for frame n when `msec` falls in the millisecond holding
    /// n/fps). Frames before the first picture show the first picture. A
    /// picture of another size is scaled. When the queue is full the oldest
    /// queued picture is dropped (one debug line per second at most). Null
    /// pictures, negative or too-large timestamps, and calls while not
    /// recording are ignored with a debug line.
    void pushFrame(const QImage& picture, qint64 msec);
    /// Encodes what is queued, finishes the file (flushes the encoder, writes
    /// the trailer) and joins the thread. Returns the number of frames written
    /// to the file; 0 when not recording. Safe to call twice or without start.
    int stop();

    bool isRecording() const;
    /// Path, requested size and encoder name ("libx264" or "mpeg4") of the
    /// current or last recording.
    QString path() const;
    QSize size() const;
    QString codecName() const;
    /// Allows H.264 (default true). Off, MPEG-4 part 2 is used; for machines
    /// where H.264 is unwanted and for testing that path. Takes effect on the
    /// next start().
    void setH264Allowed(bool allowed);
    /// Pictures the queue holds before it drops the oldest (1..256, default
    /// 8); a deeper queue rides out longer encoder stalls at the cost of
    /// memory. Only while not recording; otherwise ignored with a debug line.
    void setQueueCapacity(int capacity);
    int queueCapacity() const;

private:
    struct Encoder; // FFmpeg state, defined in the .cpp
    struct Queued {
        QImage picture;
        qint64 msec = 0;
    };

    void run(); // the encoder thread
    bool logAllowed(QElapsedTimer& last);

    // GUI thread only.
    bool m_recording = false;
    bool m_h264Allowed = true;
    QString m_path;
    QSize m_size;
    QString m_codecName;
    int m_droppedSinceLog = 0;   // pictures dropped for a full queue, not yet reported
    QElapsedTimer m_dropLog;     // rate limit of the drop line
    QElapsedTimer m_ignoreLog;   // rate limit of the ignored-picture line
    std::thread m_thread;

    // Created by start() on the GUI thread, then owned by the encoder thread
    // until stop() joins it; freed by stop() after the join.
    std::unique_ptr<Encoder> m_encoder;

    // Guarded by m_mutex; m_wake tells the encoder thread that a picture was
    // queued or a stop was requested.
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::vector<Queued> m_slots; // the ring; resized only while no encoder thread runs
    int m_head = 0;              // oldest queued picture
    int m_count = 0;             // queued pictures
    bool m_stopRequested = false;
};

} // namespace kelmor::gl
