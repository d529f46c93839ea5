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
    struct Video {
        double frame_rate = 0.0;
        int width = 0;
        int height = 0;
        QString decoder;
    } video;
    struct Audio {
        int sample_rate = 0;
        int channels = 0;
    } audio;
};

/// What a backend tells its player. Call on the player's thread only.
class KELMOR_PLATFORM_EXPORT PlayerEventSink
{
public:
    virtual ~PlayerEventSink();
    virtual AVPlayer* player() const = 0;      ///< the player this sink reports to
    virtual void loaded() = 0;                 ///< the source is open
    virtual void stopped() = 0;                ///< playback ended or was stopped
    virtual void positionChanged(qint64 msec) = 0;
    virtual void fadeInFinished() = 0;
    virtual void fadeOutFinished() = 0;
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

    virtual void setDecoderPriority(const QVector<int>& decoderIds) = 0;
    virtual void setMediaType(const QString& type) = 0;
    /// Opens `file` paused, so that its first frame is ready.
    virtual void open(const QString& file) = 0;
    virtual void setPaused(bool paused) = 0;
    virtual void stop() = 0;
    virtual void resetPlay(bool pause) = 0;
    /// Prepares `file` at `msec`, held paused or playing.
    virtual void playReady(const QString& file, qint64 msec, bool pause) = 0;
    virtual void seek(qint64 msec) = 0;
    virtual qint64 position() const = 0;
    virtual void setStartPosition(qint64 msec) = 0;
    virtual void setStopPosition(qint64 msec) = 0;
    virtual void setRepeat(int count) = 0;
    virtual void fadeIn(int msec) = 0;
    virtual void fadeOut(int msec) = 0;
    /// Cancel a running fade where it stands; true when one was running.
    virtual bool stopFadeIn() = 0;
    virtual bool stopFadeOut() = 0;
    virtual void setClockType(int type) = 0;
    virtual void updateExternalClock(qint64 msec) = 0;
    virtual void updateFrame() = 0;
    virtual void refreshUi() = 0;
    virtual void setTextureID(int textureId, int width, int height, const QString& source) = 0;
    /// The player's list of video outputs changed.
    virtual void outputsChanged(const QList<VideoRenderer*>& outputs) = 0;
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
    virtual void setVolume(double volume) = 0;
    virtual bool closeAudio() = 0;
    virtual bool openAudio() = 0;
    virtual void setChannelLayout(int layout) = 0;
};

class KELMOR_PLATFORM_EXPORT MediaEngine
{
public:
    virtual ~MediaEngine();
    virtual QString name() const = 0;
    /// Whether the engine offers the decoder (see VideoDecoder).
    virtual bool hasDecoder(int decoderId) const = 0;
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
