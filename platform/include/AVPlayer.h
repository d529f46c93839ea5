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

/// One layer's media player: keeps the layer's media state and hands the
/// media work to the process's engine, reporting back through its signals.
/// GUI thread (audio() from any thread); released with releaseObj().
class KELMOR_PLATFORM_EXPORT AVPlayer : public QObject
{
    Q_OBJECT
public:
    /// A paused player with no source, its audio output and master clock. Its
    /// backend comes from the process's engine (mediaEngine()); without one
    /// the player keeps its state only.
    explicit AVPlayer(QObject* parent = nullptr);
    /// Detaches its outputs (they are not destroyed) and ends its backend.
    ~AVPlayer() override;

    /// Decoder ids in the order to try (see VideoDecoder::id).
    void setPriority(const QVector<int>& ids);
    /// The decoder ids as last set (empty: the engine's default).
    QVector<int> priority() const { return m_priority; }

    /// Opens a source (paused, so that its first frame is ready).
    void setFile(const QString& path);
    /// The current source as given to setFile() or playReady().
    QString file() const { return m_file; }

    /// Stores the media type, an opaque string ("video", "picture", ...),
    /// and tells the engine, which may open sources by their type.
    void setMediaType(const QString& type);
    /// The media type as last set (empty until then).
    QString getMediaType() const { return m_mediaType; }

    /// The player's audio output; never null. Any thread.
    AudioOutput* audio() const { return m_audio.get(); }
    /// The player's master clock; never null.
    AVClock* masterClock() const { return m_clock; }

    /// The video outputs, in the order added.
    QList<VideoRenderer*> videoOutputs() const { return m_outputs; }
    /// Adds an output; adding one twice, or null, changes nothing.
    void addVideoRenderer(VideoRenderer* renderer);
    /// true when the output was there.
    bool removeVideoRenderer(VideoRenderer* renderer);
    /// Removes every output (none is destroyed).
    void clearVideoRenderers();

    // Transport.
    /// false starts or resumes, true pauses.
    void pause(bool p);
    /// Whether the player is paused as last asked (true until it is played).
    bool isPaused() const { return m_paused; }
    /// Pauses at the start position and emits stopped() (with an engine).
    void stop();
    /// Back to the start position; pauses there when `pause` is true.
    void resetPlay(bool pause);
    /// Prepares `file` at `msec`, paused when isPause is true, and emits
    /// playReadySucess() when that frame is ready.
    void playReady(const QString& file, qint64 msec, bool isPause);
    /// The same on the current source.
    void playReady(qint64 msec, bool isPause);
    /// Seeks exactly to `msec` ms; positionChanged(msec) follows at once.
    void setPosition(qint64 msec);
    /// The position in ms: the engine's, or without one the last position
    /// asked for.
    qint64 position() const;
    /// Where every pass starts, in ms (0 by default).
    void setStartPosition(qint64 msec);
    /// The start position as last set, in ms.
    qint64 startPosition() const { return m_startPosition; }
    /// Where every pass ends, in ms; negative (the default, -1): the end of
    /// the item.
    void setStopPosition(qint64 msec);
    /// The stop position as last set, in ms (-1 until then).
    qint64 stopPosition() const { return m_stopPosition; }
    /// Extra passes after the first (-1: forever).
    void setRepeat(int count);
    /// The repeat count as last set (0 until then).
    int repeat() const { return m_repeat; }

    // Fades of the picture's opacity and the audio, over `msec` from now.
    /// Fades the picture's opacity and the audio in over `msec` ms;
    /// fadeInFinished() follows when it has run to its end.
    void setFadeIn(int msec);
    /// Fades the picture's opacity and the audio out over `msec` ms;
    /// fadeOutFinished() follows when it has run to its end.
    void setFadeOut(int msec);
    /// Cancel a running fade where it stands; true when one was running.
    bool stopFadeIn();
    /// Cancels a running fade-out where it stands; true when one was running.
    bool stopFadeOut();

    /// Redraw the current picture on every output.
    void updateFrame();
    /// Redraws the current picture on every output (as updateFrame()).
    void refreshUi();

    /// Stops, lets go of the media and then emits sig_deleteObj().
    void releaseObj();
    /// Whether releaseObj() was called.
    bool isReleased() const { return m_released; }

    /// The current source's stream figures (frame rate, size, decoder,
    /// audio); zeros until it has loaded, or without an engine.
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
    /// A texture shared by another process (see SpoutNode): shown as a
    /// pushed frame until the next one; texture 0 blanks the picture, and so
    /// does the destruction of the object that announced it.
    void setTextureID(int textureId, int width, int height, QString sourceName);

signals:
    /// Playback stopped: stop() was called, or the last pass ended (its last
    /// frame is held).
    void stopped();
    /// The source is open and its first picture or sound was decoded;
    /// statistics() now holds its figures. Not emitted for a source that
    /// cannot be played (mediaError() instead).
    void loaded();
    /// The position in ms: about every 100 ms while playing, and at once
    /// after setPosition().
    void positionChanged(qint64 position);
    /// A fade-out ran to its end (a cancelled or replaced one reports
    /// nothing).
    void fadeOutFinished();
    /// A fade-in ran to its end (a cancelled or replaced one reports
    /// nothing).
    void fadeInFinished();
    /// The frame playReady() asked for is ready.
    void playReadySucess();
    /// releaseObj() has finished: the player has let go of its media and may
    /// be deleted now. Emitted from the event loop, never inside releaseObj().
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
    QObject* m_textureFeeder = nullptr;          // who announced the texture shown (setTextureID)
    QMetaObject::Connection m_feederGone;        // its destroyed() -> blank
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
