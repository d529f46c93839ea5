// The engine seam: everything a media player does to media (open, play,
// pause, seek, stop, positions, fades, audio, frames) goes through a
// PlayerBackend made by the process's MediaEngine.
//
// One engine per process. installMediaEngine() chooses it, and must be called
// before the first player is built; once a player has asked for the engine the
// choice is fixed and later installs are refused (one debug line).
//
// When the host installs nothing, the first player made after the Qt
// application object loads the default engine, libmpv
// (libKelmorEngineMpv, found next to libKelmorPlatform), so a host that only
// links the module plays real media. Other choices are explicit: a host
// installs its own engine (the tests install their recording engine), or
// installStateOnlyEngine() for a host that plays and draws nothing, whose
// players keep their state only: they remember what they were told and
// report nothing by themselves. The choice is logged once, as one debug line
// starting "media engine:". If the default engine cannot be loaded (libmpv
// missing at run time), one debug line says why and the players keep their
// state only. A player made before the application object exists gets no
// engine (one debug line) and keeps its state; the choice stays open.
//
// A backend talks back through the PlayerEventSink its player gives it. Every
// sink call must be made on the player's thread; a backend whose engine works
// on other threads hands its events over to the player's thread first.
#pragma once

#include "KelmorPlatformExport.h"

#include <QList>
#include <QString>
#include <QVector>
#include <memory>

namespace QtAV {

class AVPlayer;
class VideoFrameSource;
class VideoRenderer;

/// Stream figures a backend reports.
struct KELMOR_PLATFORM_EXPORT PlayerStatistics
{
    /// Figures of the video stream; zeros while unknown.
    struct Video {
        double frame_rate = 0.0;  ///< frames a second
        int width = 0;            ///< picture width in pixels
        int height = 0;           ///< picture height in pixels
        QString decoder;          ///< the decoder in use ("FFmpeg", "CUDA"); empty while unknown
    } video;                      ///< the video stream
    /// Figures of the audio stream; zeros while unknown.
    struct Audio {
        int sample_rate = 0;      ///< samples a second, in Hz
        int channels = 0;         ///< number of channels
    } audio;                      ///< the audio stream
};

/// What a backend tells its player. Call on the player's thread only.
class KELMOR_PLATFORM_EXPORT PlayerEventSink
{
public:
    virtual ~PlayerEventSink();
    virtual AVPlayer* player() const = 0;      ///< the player this sink reports to
    virtual void loaded() = 0;                 ///< the source is open
    virtual void stopped() = 0;                ///< playback ended or was stopped
    /// The position in ms (about every 100 ms while playing, and at once
    /// after a seek).
    virtual void positionChanged(qint64 msec) = 0;
    virtual void fadeInFinished() = 0;         ///< a fade-in ran to its end
    virtual void fadeOutFinished() = 0;        ///< a fade-out ran to its end
    virtual void playReadySucess() = 0;        ///< the frame asked for is ready
    virtual void released() = 0;               ///< the backend let go of its media
    /// The source `path` cannot be played (missing, not media, nothing in it
    /// decodes, unreachable); `reason` says why in a few words. Reported once
    /// per attempt to open it, and never together with loaded() or
    /// playReadySucess() for that attempt. Reported from the event loop,
    /// never from inside the call that opened the source, so that a host that
    /// connects right after that call still hears of it.
    virtual void mediaError(const QString& path, const QString& reason) = 0;
};

/// One player's media work. Unless noted, called on the player's thread.
class KELMOR_PLATFORM_EXPORT PlayerBackend
{
public:
    virtual ~PlayerBackend();

    /// Decoder ids (VideoDecoder) in the order to try; empty: the engine's
    /// default.
    virtual void setDecoderPriority(const QVector<int>& decoderIds) = 0;
    /// The player's media type, an opaque string; the engine may open the
    /// next source by it.
    virtual void setMediaType(const QString& type) = 0;
    /// Opens `file` paused, so that its first frame is ready.
    virtual void open(const QString& file) = 0;
    /// false starts or resumes (after the end of the last pass: from the
    /// start position again); true pauses.
    virtual void setPaused(bool paused) = 0;
    /// Pauses at the start position and reports stopped().
    virtual void stop() = 0;
    /// Goes back to the start position, paused there when `pause`, playing
    /// otherwise.
    virtual void resetPlay(bool pause) = 0;
    /// Prepares `file` at `msec`, held paused or playing.
    virtual void playReady(const QString& file, qint64 msec, bool pause) = 0;
    /// Seeks exactly to `msec` ms and reports positionChanged(msec).
    virtual void seek(qint64 msec) = 0;
    /// The position in ms.
    virtual qint64 position() const = 0;
    /// Where every pass starts, in ms.
    virtual void setStartPosition(qint64 msec) = 0;
    /// Where every pass ends, in ms; negative: the end of the item.
    virtual void setStopPosition(qint64 msec) = 0;
    /// `count` extra passes after the first; -1: for ever.
    virtual void setRepeat(int count) = 0;
    /// Ramps the audio and the picture's opacity in over `msec` ms, then
    /// reports fadeInFinished().
    virtual void fadeIn(int msec) = 0;
    /// Ramps the audio and the picture's opacity out over `msec` ms, then
    /// reports fadeOutFinished().
    virtual void fadeOut(int msec) = 0;
    /// Cancel a running fade where it stands; true when one was running.
    virtual bool stopFadeIn() = 0;
    /// Cancels a running fade-out where it stands; true when one was running.
    virtual bool stopFadeOut() = 0;
    /// The master clock's type (AVClock::ClockType); with ExternalClock the
    /// position follows updateExternalClock().
    virtual void setClockType(int type) = 0;
    /// The host's time in ms, for the external clock.
    virtual void updateExternalClock(qint64 msec) = 0;
    /// Redraws the current picture on the player's outputs.
    virtual void updateFrame() = 0;
    /// Redraws the current picture on the player's outputs.
    virtual void refreshUi() = 0;
    /// A texture shared by another process (SpoutNode): its GL name, size in
    /// pixels and source name. An engine that plays no shared texture
    /// ignores it.
    virtual void setTextureID(int textureId, int width, int height, const QString& source) = 0;
    /// The player's list of video outputs changed.
    virtual void outputsChanged(const QList<VideoRenderer*>& outputs) = 0;
    /// The current source's stream figures.
    virtual PlayerStatistics statistics() const = 0;
    /// The backend's pictures for the output screens; null when it draws
    /// none (the player then shows the frames pushed to it). Valid until
    /// release() or destruction.
    virtual VideoFrameSource* frameSource() { return nullptr; }
    /// The picture's opacity as the fades leave it, 0..1 (any thread).
    virtual double opacity() const { return 1.0; }
    /// Stop and free the media; call sink.released() when done.
    virtual void release() = 0;

    // Audio: may be called from any thread.
    /// The audio volume, 0.0 silence to 1.0 unity gain (fades multiply it).
    virtual void setVolume(double volume) = 0;
    /// Closes the audio output; false when it could not be closed.
    virtual bool closeAudio() = 0;
    /// Opens the audio output again; false when it could not be opened.
    virtual bool openAudio() = 0;
    /// The channel layout (an AudioFormat::ChannelLayout number); the audio
    /// output calls it right before openAudio().
    virtual void setChannelLayout(int layout) = 0;
};

/// Makes the players' backends. One per process, chosen with
/// installMediaEngine().
class KELMOR_PLATFORM_EXPORT MediaEngine
{
public:
    virtual ~MediaEngine();
    /// The engine's name, as mediaEngineName() reports it ("mpv" for
    /// libmpv).
    virtual QString name() const = 0;
    /// Whether the engine offers the decoder (see VideoDecoder).
    virtual bool hasDecoder(int decoderId) const = 0;
    /// A backend for one player, reporting through `sink`; called once, on
    /// the player's thread, as the player is built.
    virtual std::unique_ptr<PlayerBackend> createBackend(PlayerEventSink& sink) = 0;
};

/// Chooses the process's engine; false (and the engine is dropped) once the
/// choice is fixed. Call before the first player is built. A null engine
/// chooses the state-only mode, as installStateOnlyEngine() does.
KELMOR_PLATFORM_EXPORT bool installMediaEngine(std::unique_ptr<MediaEngine> engine);
/// Chooses no engine: players keep their state only (hosts that play and
/// draw nothing). false once the choice is fixed.
KELMOR_PLATFORM_EXPORT bool installStateOnlyEngine();
/// The process's engine, or null when players keep state only. The first
/// call after the Qt application object exists fixes the choice, loading
/// the default engine (libmpv) when none was installed; a call before it
/// returns null and leaves the choice open.
KELMOR_PLATFORM_EXPORT MediaEngine* mediaEngine();
/// The name of the chosen engine ("mpv", the host's engine's name), "none"
/// for the state-only mode, or empty while the choice is open.
KELMOR_PLATFORM_EXPORT QString mediaEngineName();

} // namespace QtAV
