// QtAV::AVPlayer: one layer's media player.
//
// The player keeps its state (source, media type, video outputs, positions
// asked for, repeat, decoder priority, audio output, master clock) and does
// its media work through the process's engine (MediaEngine.h). Without an
// engine it keeps its state only and emits nothing by itself, except the
// sig_deleteObj() that completes releaseObj().
//
// Threading: the player lives on the GUI thread; call it there, with one
// exception: audio() and its AudioOutput may be used from any thread.
// Signals are emitted on the player's thread.
//
// Ownership: the player owns its AudioOutput and AVClock. Its video outputs
// are only referred to; their owner removes them before destroying them.
// releaseObj() hands the player back: it stops and lets go of its media,
// then emits sig_deleteObj(), after which whoever owns the player deletes it
// (the layer service does so in its onSigDeleteObj slot).
//
// Media types are opaque strings here ("video", "audio", "picture", ...);
// the layer service gives them their meaning.
//
// Transport, as the engines implement it (the libmpv engine's details are in
// platform/engines/mpv/MpvBackend.h):
// - setFile opens the source paused with its first frame ready; loaded()
//   follows once it is open and its first picture (or its sound) has been
//   decoded (statistics() then holds its frame rate and size).
// - A source that cannot be played emits mediaError(path, reason) and never
//   loaded() or playReadySucess() for that attempt (see "Media errors").
// - pause(false) starts or resumes; after the end of the last pass it starts
//   again from the start position. pause(true) pauses.
// - stop() pauses at the start position and emits stopped(); the end of the
//   last pass emits stopped() once and holds the last frame.
// - playReady(file, ms, isPause) loads the file if it differs, seeks exactly
//   to ms and emits playReadySucess() once that frame is ready, then plays
//   unless isPause. resetPlay(pause) goes back to the start position.
// - setPosition seeks exactly and emits positionChanged(ms) at once; while
//   playing, positionChanged comes about every 100 ms.
// - setStartPosition/setStopPosition bound every pass; setRepeat(n) plays n
//   extra passes without a gap (-1: for ever).
// - setFadeIn/setFadeOut ramp the audio (times the output's volume) and the
//   picture's opacity over msec, then emit fadeInFinished()/fadeOutFinished()
//   once; stopFadeIn/stopFadeOut leave a running fade where it stands.
// - With the master clock external, the position follows
//   updateExternalClock: small drift by playback speed, jumps by a seek.
//
// Media errors, for hosts: mediaError(path, reason) is emitted on the
// player's thread, from the event loop (never inside the call that opened
// the source), usually within a fraction of a second of setFile() or
// playReady(), when the source cannot be played:
// - it is missing, a directory, empty or unreadable;
// - it is not media (text, random bytes, an unknown format) or a playlist;
// - it opens but neither a picture nor sound can be decoded from it (a
//   damaged header, a picture that is not one);
// - a stream or device cannot be reached (a live stream that drops later
//   is reopened instead, see MpvBackend.h).
// `path` is the source as given; `reason` is a short human-readable text
// (its words are not a stable interface). It comes once per attempt: a
// later setFile() or playReady() of the same bad source reports it again.
// An attempt that errs emits neither loaded() nor playReadySucess(). A
// damaged file that does open and decode plays what it can and ends like
// any other, with no mediaError. Connect to it as to the other signals:
//
//   QObject::connect(player, &QtAV::AVPlayer::mediaError, host,
//                    [](const QString& path, const QString& reason) { ... });
#pragma once

#include "AVClock.h"
#include "AudioOutput.h"
#include "KelmorPlatformExport.h"
#include "MediaEngine.h"
#include "VideoFrame.h"
#include "VideoFrameSource.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QVector>
#include <memory>

namespace QtAV {

class VideoRenderer;

class KELMOR_PLATFORM_EXPORT AVPlayer : public QObject
{
    Q_OBJECT
public:
    explicit AVPlayer(QObject* parent = nullptr);
    ~AVPlayer() override;

    /// Decoder ids in the order to try (see VideoDecoder::id).
    void setPriority(const QVector<int>& ids);
    QVector<int> priority() const { return m_priority; }

    /// Opens a source (paused, so that its first frame is ready).
    void setFile(const QString& path);
    QString file() const { return m_file; }

    void setMediaType(const QString& type);
    QString getMediaType() const { return m_mediaType; }

    AudioOutput* audio() const { return m_audio.get(); }
    AVClock* masterClock() const { return m_clock; }

    // Video outputs, in the order added.
    QList<VideoRenderer*> videoOutputs() const { return m_outputs; }
    /// Adds an output; adding one twice, or null, changes nothing.
    void addVideoRenderer(VideoRenderer* renderer);
    /// true when the output was there.
    bool removeVideoRenderer(VideoRenderer* renderer);
    void clearVideoRenderers();

    // Transport.
    /// false starts or resumes, true pauses.
    void pause(bool p);
    bool isPaused() const { return m_paused; }
    void stop();
    /// Back to the start position; pauses there when `pause` is true.
    void resetPlay(bool pause);
    /// Prepares `file` at `msec`, paused when isPause is true, and emits
    /// playReadySucess() when that frame is ready.
    void playReady(const QString& file, qint64 msec, bool isPause);
    /// The same on the current source.
    void playReady(qint64 msec, bool isPause);
    void setPosition(qint64 msec);
    qint64 position() const;
    void setStartPosition(qint64 msec);
    qint64 startPosition() const { return m_startPosition; }
    void setStopPosition(qint64 msec);
    qint64 stopPosition() const { return m_stopPosition; }
    /// Extra passes after the first (-1: forever).
    void setRepeat(int count);
    int repeat() const { return m_repeat; }

    // Fades of the picture's opacity and the audio, over `msec` from now.
    void setFadeIn(int msec);
    void setFadeOut(int msec);
    /// Cancel a running fade where it stands; true when one was running.
    bool stopFadeIn();
    bool stopFadeOut();

    /// Redraw the current picture on every output.
    void updateFrame();
    void refreshUi();

    /// Stops, lets go of the media and then emits sig_deleteObj().
    void releaseObj();
    bool isReleased() const { return m_released; }

    PlayerStatistics statistics() const;

    // Pictures for the output screens.
    /// Hands the player a picture made outside its engine (an NDI receiver,
    /// another output screen, a shared texture). Any thread. The pushed
    /// pictures are what the player shows while its media type is "ndi",
    /// "virtualScreen" or "spout", or when its engine draws nothing.
    void pushFrame(const VideoFrame& frame);
    /// Where the output screens take this player's pictures from (GUI thread);
    /// null once released.
    VideoFrameSource* frameSource() const;
    /// The picture's opacity as the fades leave it, 0..1.
    double pictureOpacity() const;

public slots:
    /// A texture shared by another process (see SpoutNode).
    void setTextureID(int textureId, int width, int height, QString sourceName);

signals:
    void stopped();
    void loaded();
    void positionChanged(qint64 position);
    void fadeOutFinished();
    void fadeInFinished();
    void playReadySucess();
    void sig_deleteObj();
    /// The source `path` cannot be played; see "Media errors" above.
    void mediaError(const QString& path, const QString& reason);

private:
    class EventSink;
    void announceDeletion();

    // All fields: GUI thread.
    std::unique_ptr<EventSink> m_sink;
    std::unique_ptr<AudioOutput> m_audio;
    AVClock* m_clock = nullptr;             // child QObject
    std::unique_ptr<PlayerBackend> m_backend; // null: state only
    std::unique_ptr<VideoFrameSource> m_pushed; // frames pushed from outside; own mutex
    QString m_file;
    QString m_mediaType;
    QVector<int> m_priority;
    QList<VideoRenderer*> m_outputs;
    bool m_paused = true;
    bool m_released = false;
    qint64 m_position = 0;
    qint64 m_startPosition = 0;
    qint64 m_stopPosition = -1;
    int m_repeat = 0;
};

} // namespace QtAV
