// One player's backend on its own libmpv core.
//
// The core is made once, with the backend, and serves the player for its
// whole life: a new source is loaded into the same core ("loadfile replace").
// Calls from the player never wait on libmpv: requests are asynchronous
// (MpvAsync.h) and libmpv's events are read on the player's thread, where a
// queued drain posted by libmpv's wakeup callback runs (MpvRelay.h). Making
// the core (mpv_create/mpv_initialize, a few milliseconds) is the one
// synchronous step, in the constructor.
//
// Core settings: "vo=libmpv" where the output screens have an OpenGL context
// (pictures reach the screens through MpvFrameSource.h, "keepaspect=no" so
// the picture fills the texture the screens ask for), "vo=null" otherwise,
// "ao" from the engine's options,
// "keep-open=yes" (the end of an item is held, paused, on its last frame),
// "idle=yes", "hr-seek=yes", "ytdl=no", "image-display-duration=inf" (a
// picture stays until the next source), "network-timeout=5".
//
// Events are matched to the source they belong to by playlist entry id: the
// reply to our loadfile names the entry, and START_FILE / FILE_LOADED /
// END_FILE of any other entry (a replaced source ends after the new one was
// asked for) are dropped.
//
// Transport, as this engine implements the seam:
// - open(file): loads paused; loaded() follows once the source is open, its
//   figures (frame rate, size) are read and a picture or sound was decoded
//   from it (see "Bad sources"). An empty file unloads the core.
// - setPaused(false) starts or resumes; after the end of the last pass it
//   starts again from the start position. setPaused(true) pauses.
// - stop(): pauses, goes back to the start position (the source stays loaded)
//   and emits stopped().
// - The end of the last pass emits stopped() once; the last frame is held.
// - playReady(file, ms, pause): loads the file when it differs from the
//   current one, holds paused, seeks exactly to ms, emits playReadySucess()
//   when that frame is ready (libmpv's PLAYBACK_RESTART after the seek), then
//   plays unless `pause`. A video or audio file that is loaded for it is
//   loaded at ms in one step (libmpv's "start" for that load, the start
//   position again once it is open): libmpv decodes no frame before ms, and
//   the screens render only the frame at ms.
// - resetPlay(pause): exact seek to the start position; paused there when
//   `pause`, playing otherwise.
// - seek(ms): exact seek; positionChanged(ms) is emitted at once.
// - setStartPosition/setStopPosition: libmpv's "start"/"end", which bound every
//   pass, repeats included (a negative stop position: the item's end).
// - setRepeat(n): libmpv's "loop-file": n extra passes, -1 for ever, seamless.
// - positionChanged(ms): from the observed "time-pos", at most about every
//   100 ms, while playing.
// - Fades (MpvFader.h) multiply the volume and are kept as opacity().
// - Clock type 1: the position follows updateExternalClock (MpvClock.h).
//   The host's time is compared with where the player is now: the last
//   "time-pos" carried on by the time since it came (while playing). A
//   jump is met with an exact seek; while it lands (until libmpv's
//   PLAYBACK_RESTART, at most 1 s) no other seek is made and "time-pos"
//   values, which may still be from before the seek, are neither taken
//   nor reported; once it lands, the host's latest time is followed. A
//   seek made while playing is made paused and aims ahead of the host's
//   time (twice as far as such seeks lately took to land, 60 to 500 ms);
//   the landed frame is held until the host's time reaches it and then
//   plays on, so that how long the seek took does not matter. (libmpv
//   reports the next frame's time as soon as it has it ready, which may be
//   before its time: the hold lasts longer by how far the first position
//   after the last holds led the host's time.) A host time
//   that jumps again during the hold ends it with a new seek; a pause, a
//   play or a new source ends it too. Play asked for while the host's time
//   is fresh (given in the last 500 ms) starts the same way: held until the
//   host's time reaches the paused frame, or sought to where it is when it
//   is more than 30 ms past the frame (or a seek was landing). A held
//   player reports no positions, as a paused one does not. An item that
//   has ended stays at its end while the host's time is past it.
// - Audio (MpvAudio.h): from any thread.
// - Decoders (MpvDecoders.h): one debug line per source names the decoder.
// - release() (MpvBackendRelease.cpp) never waits on libmpv: with a render
//   context, the core is told to stop (asynchronously) and the context is
//   freed only once libmpv reports its video output gone ("current-vo"
//   unavailable), from a later turn of the player's thread; meanwhile the
//   output screens keep taking the core's due frames (the source stays
//   registered, VideoFrameSource.h), so the video output never waits for a
//   frame that is not drawn. Freeing the context earlier would block until
//   libmpv's video output gave up on its frame (up to 200 ms). Then the core
//   is destroyed on the reaper's thread (MpvReaper.h), and released() is
//   reported on the player's thread. Events of a released core are dropped.
// - Bad sources (MpvBackendChecks.cpp): a source that cannot be played is
//   reported with sink.mediaError(path, reason) and one debug line ("mpv:
//   cannot play ..."), once per open; the next open works as usual. A local
//   path that is missing, a directory, an empty file or unreadable is refused
//   before libmpv sees it; libmpv refuses what is not media, a playlist and
//   an unreachable URL. A source that opens is judged at its first
//   PLAYBACK_RESTART (its first frame, or its end, is there): unless a
//   picture ("video-params") or sound ("audio-params") was decoded from it,
//   it is an error. loaded() and playReadySucess() wait for that judgement,
//   so a source that errs never reports either; neither do positions or the
//   end of the item. A damaged source that does decode plays what it can and
//   then ends like any other.
//
// Live sources (MpvSources.h): the media type chooses the URL and per-file
// loadfile options. "captureCard" (a device path, opened as
// "av://v4l2:<path>", or a capture URL) and "networkVideo" (a stream URL) are
// opened for low latency. A "networkVideo" stream is live: when it drops (its
// end, or an error) or fails to open while the layer plays, one debug line
// says so ("mpv: stream <url> dropped (<reason>), retry <n> in <ms> ms") and
// it is reopened after 500 ms, doubling up to 5 s; a stream that opened and
// drops again starts from 500 ms. No stopped() is sent for a drop; the
// reopened stream plays on at once (loaded() is reported again, with its
// figures). A pause or stop() cancels the pending reopen, and a new source
// ends the retries; a stream that is down is reopened when play is asked
// for again. While paused, a stream that fails to open gives the usual
// "mpv: cannot play" line, and one that drops a line ending "while paused".
#pragma once

#include "MediaEngine.h"
#include "MpvAudio.h"
#include "MpvEngine.h"
#include "MpvFader.h"
#include "MpvFrameSource.h"
#include "MpvSources.h"

#include <QElapsedTimer>
#include <QString>
#include <atomic>
#include <cstdint>
#include <memory>

struct mpv_handle;
struct mpv_event;

namespace QtAV {

class MpvEventPump;
class MpvRelay;

class KELMOR_ENGINE_MPV_EXPORT MpvBackend : public PlayerBackend
{
public:
    MpvBackend(PlayerEventSink& sink, MpvEngine& engine);
    ~MpvBackend() override;

    AVPlayer* player() const { return m_sink.player(); }

    void setDecoderPriority(const QVector<int>& decoderIds) override;
    void setMediaType(const QString& type) override;
    void open(const QString& file) override;
    void setPaused(bool paused) override;
    void stop() override;
    void resetPlay(bool pause) override;
    void playReady(const QString& file, qint64 msec, bool pause) override;
    void seek(qint64 msec) override;
    qint64 position() const override;
    void setStartPosition(qint64 msec) override;
    void setStopPosition(qint64 msec) override;
    void setRepeat(int count) override;
    void fadeIn(int msec) override;
    void fadeOut(int msec) override;
    bool stopFadeIn() override;
    bool stopFadeOut() override;
    void setClockType(int type) override;
    void updateExternalClock(qint64 msec) override;
    void updateFrame() override;
    void refreshUi() override;
    void setTextureID(int textureId, int width, int height, const QString& source) override;
    void outputsChanged(const QList<VideoRenderer*>& outputs) override;
    PlayerStatistics statistics() const override;
    VideoFrameSource* frameSource() override;
    double opacity() const override { return m_opacity.load(); }
    void release() override;

    void setVolume(double volume) override;
    bool closeAudio() override;
    bool openAudio() override;
    void setChannelLayout(int layout) override;
    /// The engine's audio output changed (any thread).
    void applyAudioOutput(const QString& ao, const QString& device);

    /// Whether the core is up (false after release or when it failed to start).
    bool hasCore() const { return m_mpv != nullptr; }
    /// Reads a libmpv property as text, synchronously. Diagnostics and tests
    /// only: it waits on the core, so it is never used by the backend itself.
    QString propertyForDiagnostics(const char* name) const;

private:
    struct Ready
    {
        bool active = false;    // a play-ready is under way
        bool seekSent = false;  // its seek was requested (or its load starts at msec)
        bool inLoad = false;    // the load of its source starts at msec: no seek
        bool armed = false;     // libmpv accepted the seek: the next restart is it
        bool restarted = false; // its frame is there; waiting for the source's judgement
        bool pause = true;      // held paused afterwards
        qint64 msec = 0;
        std::uint64_t serial = 0;
    };

    // Core and events (MpvBackendEvents.cpp).
    void startCore();
    void drainEvents();
    void handleEvent(const mpv_event& event);
    void onCommandReply(const mpv_event& event);
    void onPropertyChange(const mpv_event& event);
    void onFileLoaded();
    void onEndFile(const mpv_event& event);
    void onPlaybackRestart();
    void onEndReached();
    void onStatReply(const mpv_event& event);
    void reportDecoder(const QString& hwdecCurrent);
    void syncPictureSize();
    void completeReady();               // the play-ready's frame is there: report it
    void promptWhileReadying();         // frames taken at once while a play-ready runs

    // Bad sources (MpvBackendChecks.cpp).
    /// A local path that cannot be media (missing, a directory, empty,
    /// unreadable): reported from the event loop; true when refused.
    bool refuseLocalPath(const QString& file);
    /// Asks the core whether a picture or sound was decoded (once per open).
    void judgeSource();
    void onProbeReply(const mpv_event& event);
    /// The current source cannot be played: lets go of it and reports it.
    void failSource(const QString& reason);
    /// loaded() once the figures are read and the source was judged playable.
    void reportLoadedWhenDue();

    // Transport steps shared by the commands (MpvBackend.cpp).
    void requestPause(bool paused);
    void seekTo(qint64 msec);
    void sendReadySeek();
    void rearmRepeat();

    PlayerEventSink& m_sink;             // the player's; outlives the backend
    MpvEngine& m_engine;                 // process-wide; outlives the backend

    // Player's thread, unless noted.
    mpv_handle* m_mpv = nullptr;         // null once released or if start failed
    std::unique_ptr<MpvEventPump> m_pump;
    std::shared_ptr<MpvRelay> m_relay;   // shared with libmpv's callback and the reaper
    MpvAudio m_audio;                     // its own mutex; any thread
    std::unique_ptr<MpvFader> m_fader;
    std::unique_ptr<MpvFrameSource> m_frames; // null: no GL, frames are not drawn
    std::atomic<double> m_opacity{1.0};  // written here, read from any thread

    QString m_file;
    QString m_mediaType;
    QVector<int> m_priority;
    std::uint64_t m_loadSerial = 0;      // one per open()
    std::uint64_t m_readySerial = 0;     // one per playReady()
    std::int64_t m_wantedEntry = -1;     // playlist entry of the current source
    std::int64_t m_startedEntry = -1;    // entry of the last START_FILE
    bool m_loaded = false;               // FILE_LOADED seen for the wanted entry
    bool m_failed = false;               // the current source could not be opened
    bool m_ended = false;                // the last pass ended (stopped() sent)
    bool m_playable = false;             // a picture or sound was decoded from the source
    bool m_judging = false;              // the decoding probe is under way
    int m_probeHits = 0;                 // probe replies that found a decoded stream
    bool m_figuresRead = false;          // the figures of loaded() are in
    bool m_loadReported = false;         // loaded() sent for this open
    bool m_endHeld = false;              // the end came before the source was judged
    bool m_errorSent = false;            // mediaError sent for this open
    bool m_paused = true;                // what the player asked for
    bool m_released = false;
    Ready m_ready;

    qint64 m_position = 0;               // last "time-pos", in ms
    QElapsedTimer m_positionReport;      // since the last positionChanged
    qint64 m_startPosition = 0;
    qint64 m_stopPosition = -1;
    int m_repeat = 0;

    // The external clock (MpvBackendClock.cpp). Player's thread.
    bool m_externalClock = false;
    double m_speed = 1.0;
    QElapsedTimer m_positionAge;         // since m_position was last set
    bool m_clockSeeking = false;         // a seek of the external clock is landing
    QElapsedTimer m_clockSeekSince;      // since that seek was asked for
    bool m_clockSeekPlaying = false;     // it was asked for while playing
    qint64 m_clockSeekMs = 0;            // how long such seeks take to land, lately
    qint64 m_clockTarget = 0;            // where the clock seek goes
    bool m_clockHolding = false;         // held on the landed frame until the host's time gets there
    std::uint64_t m_clockHoldSerial = 0; // a scheduled release runs only if still current
    qint64 m_clockHoldHost = 0;          // the host's time when the hold began
    QElapsedTimer m_clockHoldAge;        // since the hold began
    qint64 m_clockReportMs = 0;          // how far the first position reported after a hold led the host's time, lately
    bool m_clockReportProbe = false;     // the next position tells that
    bool m_clockReportKnown = false;     // m_clockReportMs was measured
    qint64 m_lastHostMsec = 0;           // the host's time last given
    QElapsedTimer m_lastHostAge;         // since it was given
    /// Where the player is now: the last position, carried on while playing.
    qint64 estimatedPosition() const;
    /// The host's time now: the last given, carried on while playing.
    qint64 hostNow() const;
    /// Compares the host's time with the player's: seeks or trims speed.
    void followHost(qint64 hostMsec);
    void startClockSeek(qint64 hostMsec);
    /// A clock seek landed (PLAYBACK_RESTART) or was given up.
    void clockSeekLanded();
    /// Holds the frame at `frameMsec` (paused) until the host's time, now
    /// `host`, gets there; then releaseClockHold().
    void holdUntilHost(qint64 frameMsec, qint64 host);
    /// The held frame's time has come: play on.
    void releaseClockHold();
    /// Ends a hold without playing on (the player was told otherwise).
    void dropClockHold();
    /// A new position came (libmpv's "time-pos").
    void clockPositionCame();
    /// Play was asked for on the host's clock: holds the frame until the
    /// host's time reaches it, or seeks to where that time is; false when
    /// playing starts at once.
    bool startOnHostClock();
    /// How far the first position after a hold leads the host's time.
    qint64 reportLeadMs() const;

    qint64 m_voDrops = 0;                // last "frame-drop-count" (libmpv's video output)
    PlayerStatistics m_stats;
    double m_containerFps = 0.0;
    double m_estimatedFps = 0.0;
    QString m_reportedDecoder;           // hwdec-current already written for this source
    QString m_hwdecSeen;                 // the last "hwdec-current" observed

    // Release (MpvBackendRelease.cpp). Player's thread.
    /// Reads the events of the core being released; the one that tells its
    /// video output is gone schedules finishRelease().
    void drainRetiring();
    /// Frees the render context and hands the core to the reaper.
    void finishRelease();
    /// Destroys `mpv` (may be null) on the reaper's thread, then reports released().
    void handToReaper(mpv_handle* mpv);
    mpv_handle* m_retiring = nullptr;    // the released core while its render context is let go

    // Live sources (MpvSources.h); the functions are in MpvBackendLive.cpp.
    // Player's thread.
    void sendLoad();                     // loadfile of m_source, tagged with m_loadSerial
    /// libmpv's "start" as the start position asks ("none" at 0).
    QByteArray startOption() const;
    qint64 m_loadAt = -1;                // a play-ready's position for the next load; -1: none
    bool m_loadIsReady = false;          // the last load starts at a play-ready's position
    bool onLiveEnd(const mpv_event& event); // true: the end of a reopening stream, handled
    void pauseLive(bool paused);         // no reopen while paused; a down stream reopens on play
    void reopenLive();
    MpvSource m_source;                  // how the current file is opened
    MpvRetry m_retry;                    // back-off of the current stream
    std::uint64_t m_reopenSerial = 0;    // a scheduled reopen runs only if still current
    bool m_streamDown = false;           // the stream dropped or failed; not being opened
};

} // namespace QtAV
