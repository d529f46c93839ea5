// UI_Proc_KELMOR_Player_Desktop: the layer player service, through which
// every command of the host reaches a layer.
//
// Commands. Most take a command record (QMap<QString, QVariant>, by value).
// No command returns an error: an unknown layer, screen or player makes a
// command do nothing. Keys a record lacks read as their defaults (0, empty,
// false); a null player given to a player-taking command is ignored with a
// debug line naming the command.
//
// Id order differs between commands and is part of each signature: the
// comment on each group says which comes first.
//
// Events. The layers' media players and timers report to the service's
// private slots; the service reports to the host through its signals, which
// carry the bank and the layer:
//   sendPlayerIndex(layerId, bankId)      an item ended
//   sendLoadAllComple(layerId)            a layer's media is ready
//   sFadeoutFinished(), sFadeinFinished() every fade of a group has finished
//   sPositionChanged(layerId, bankId, ms) a layer's position
//   sPlayReady(bankId)                    every layer of the bank is ready
//
// Threading: call every command on the thread that owns the service (the
// host's GUI thread); signals are emitted there. The service has no locks.
// Its worker pool (2 threads) runs only the volume and sound-track job.
// getInstance() may be called from any thread.
//
// Ownership: the service owns nothing per layer. The registry's scene player
// owns a layer's player, timer and Spout node; render objects are made by
// addRenderer and destroyed by the removal commands.
#pragma once

#include "KelmorPlayerExport.h"
#include "WorkerPool.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QStringList>
#include <QVariant>
#include <QVector>

namespace QtAV {
class AVPlayer;
class VideoRenderer;
}
class UI_Proc_KELMOR_PlayerTimer_Desktop;

/// The layer player service: every command of the host reaches a layer
/// through it, and its signals report the layers' events back with their
/// bank and layer. One per process (getInstance()); commands and signals on
/// the GUI thread. Commands return no error: an unknown layer, screen or
/// player makes a command do nothing.
class KELMOR_PLAYER_EXPORT UI_Proc_KELMOR_Player_Desktop : public QObject
{
    Q_OBJECT
public:
    /// Builds a service with no bank counted for play-ready (-1), empty fade
    /// counts, a worker pool of 2 threads and the decoder priority "CUDA",
    /// "FFmpeg". Hosts use getInstance(); every instance works on the one
    /// registry (UI_Proc_KELMOR_PlayersManage_Desktop::getInstance()).
    explicit UI_Proc_KELMOR_Player_Desktop(QObject* parent = nullptr);
    /// Stops and joins the worker pool; deletes nothing per layer.
    ~UI_Proc_KELMOR_Player_Desktop() override;

    /// The process's service, made on the first call (thread-safe, from any
    /// thread) and destroyed when the process exits. Use it on the GUI
    /// thread.
    static UI_Proc_KELMOR_Player_Desktop& getInstance();

    // ---- Frame, counters and lookups (player_frame.cpp) ----
    /// The layer's media player (layer first), or null.
    QObject* getAVPlayerEchoById(int layerId, int bankId);
    /// How many of the player's outputs are render objects ("NoxGL"); 0 for
    /// a null player (logged).
    int getRendererCount(QtAV::AVPlayer* player);
    /// Arms the bank's play-ready count; sPlayReady(bankId) follows when every
    /// layer of the bank has reported ready (at once for an empty bank).
    void setCurPlayerCount(int bankId);
    /// Stores a fade time that nothing reads: each fade command carries its
    /// own length (setFadeInOut()).
    void setFadeTime(float value);
    /// Sets the fade-in counts (started and finished) back to 0 without
    /// emitting, so that the next sFadeinFinished() is about the fade-ins
    /// started from now on.
    void initFinishedFadeIn();
    /// Sets the fade-out counts (started and finished) back to 0 without
    /// emitting, so that the next sFadeoutFinished() is about the fade-outs
    /// started from now on.
    void initFinishedFadeOut();
    /// Drops every internal-stop mark set by content changes.
    void clearUseStopPlayer();

    // ---- Layer creation (player_layer_create.cpp) ----
    /// Creates the layer named by the record's "bankId" and "layerId": its
    /// media player and its timer, wired to the service, with the source
    /// "path" opened (paused) and the volume at 1.0, filed in the registry
    /// with "groupID". "timeLenMsec" is the timer's length in ms; "isSetPr"
    /// true gives the player the decoder priority CUDA, then FFmpeg; "type"
    /// "ndi" makes the source "path#videoName". An existing layer is left as
    /// it is. No render object is made and nothing starts playing.
    void creatnewlayer(QMap<QString, QVariant> record);

    // ---- Layer content change (player_content.cpp); layer first ----
    /// Swaps what a layer shows, in place: stops the old content, tears down
    /// its Spout and NDI hook-ups, blanks the layer's outputs, then sets the
    /// record's "type" ("office" is stored as "picture"), "videoPath" (for
    /// "ndi": "videoPath#videoName") and "timeLenMsec" (ms, default 1000).
    /// The stop is not reported when clock media ("video", "audio",
    /// "networkVideo") replaces clock media, or while a timed item plays.
    /// Stills ("osd", "picture") are drawn at once. Starts nothing; an
    /// unknown layer is ignored.
    void changeLayerContent(int layerId, int bankId, QMap<QString, QVariant> record);
    /// Sets only the player's media type ("office" is stored as "picture")
    /// and logs "command setLayerMediaType success". A null player is
    /// ignored (logged).
    void setLayerMediaType(QtAV::AVPlayer* player, QString type);

    // ---- Transport (player_transport.cpp) ----
    // The player-taking commands ignore a null player (logged). A timed item
    // is any media type but "video" and "audio"; its timer is driven only
    // while the player is registered.
    /// Starts or resumes the layer: the player plays, an "ndi" layer starts
    /// its NDI sender and a "spout" layer its Spout node, a "captureCard" also
    /// gets playReady(0, false), and a timed item's timer runs on from where
    /// it stood (an item already playing keeps playing).
    void play(QtAV::AVPlayer* player);
    /// Pauses the layer: the player, its NDI sender and Spout node, and a
    /// timed item's timer (which keeps its position).
    void pause(QtAV::AVPlayer* player);
    /// As pause(), except that a timed item's timer stops and goes back to 0.
    /// The player itself is only paused (AVPlayer::stop() is not called).
    void stop(QtAV::AVPlayer* player);
    /// Takes the player back to its start position, paused there when `flag`
    /// is true (AVPlayer::resetPlay()); stops the NDI sender, the Spout node
    /// and a timed item's timer.
    void resetPlay(QtAV::AVPlayer* player, bool flag);
    /// Prepares the player's current file at `msec` ms, held paused when
    /// `isPause`; its ready report becomes sendLoadAllComple() and counts
    /// towards sPlayReady(). Not paused: the NDI sender, the Spout node and a
    /// timed item's timer start; paused: they stop.
    void playReady(QtAV::AVPlayer* player, qint64 msec, bool isPause);
    /// `count` extra passes after the first, for the player (-1: for ever)
    /// and for a timed item's timer (a negative count: a single pass).
    void setRepeat(QtAV::AVPlayer* player, int count);
    /// Makes a "video" layer follow the host's clock: the player's master
    /// clock turns external and takes `value` (ms, truncated toward zero).
    /// Other media types, and a player without a clock, are left alone.
    void setSynchClock(QtAV::AVPlayer* player, float value);
    /// Starts a fade over `msec` ms: a fade-out when `fadeOut`, else a
    /// fade-in. Every start is counted: sFadeoutFinished() or
    /// sFadeinFinished() comes once as many fades of that kind have finished.
    void setFadeInOut(QtAV::AVPlayer* player, bool fadeOut, int msec);
    /// Redraws the player's current picture on its outputs.
    void refreshUi(QtAV::AVPlayer* player);
    // bank first:
    /// Seeks the layer to `msec` ms; a timed item's timer continues from
    /// there. An unknown layer is ignored.
    void setPosition(int bankId, int layerId, qint64 msec);
    /// Sets where every pass of the layer starts, in ms (the player only;
    /// the timer is not touched). An unknown layer is ignored.
    void setStartPosition(int bankId, int layerId, qint64 msec);
    /// Shows another page of an office layer: opens the record's
    /// "videoPath" (the page's own file) and redraws at once.
    void pptPageUpDown(int bankId, int layerId, QMap<QString, QVariant> record);
    // layer first:
    /// Sets the layer's play length in ms: "video" and "audio" take it as
    /// their stop position, and the layer's timer as its duration (every
    /// media type). An unknown layer is ignored.
    void setDuration(int layerId, int bankId, qint64 msec);
    /// Redraws the layer's current picture.
    void updateFrame(int layerId, int bankId);
    /// Cancels the layer's running fade where it stands: a fade-in when
    /// `fadeIn` is non-zero, else a fade-out. True when one was running;
    /// false for an unknown layer.
    bool setStopFade(int layerId, int bankId, int fadeIn);

    // ---- Renderer placement and geometry ----
    // Geometry records carry "bankId", "layerId" and the screen's "screenId",
    // "screenType", "clientGuid"; positions and sizes are in the screen
    // widget's pixels. Render objects are found by screen number alone.
    /// Shows the layer on one output screen: makes a render object, attaches
    /// it to the layer's player, pushes it to the screen's widget and records
    /// it under the screen number. It gets the original size
    /// ("originalWidth" x "originalHeight") and the placement ("rendererX",
    /// "rendererY", "crossWidth" x "crossHeight"). Unrotated ("isRotation"
    /// false): the scale ratio becomes original / actual size ("actualWidth"
    /// x "actualHeight") and the region of interest ("frameX", "frameY",
    /// crossWidth x crossHeight) is set. Rotated: placed at ("relativeX",
    /// "relativeY") with the actual size. A layer already on that screen
    /// number gets no second render object. Then the layer's renderer list
    /// is republished and the layer redrawn. An unknown layer is ignored; an
    /// unknown screen logs "screen Widget is NULL".
    void addRenderer(QMap<QString, QVariant> command);    // player_renderer_create.cpp
    /// Moves and resizes the layer's render object on one screen (never
    /// makes one): placement (rendererX, rendererY, crossWidth x
    /// crossHeight), then scale ratio and region of interest as
    /// addRenderer(). With "isRotation" or "isBezier" the placement stays and
    /// the mapping goes back to the identity over the whole original picture.
    /// "isOutArea" true places it only through the resize step. A null
    /// recorded entry (isOutArea false) logs "moveRenderer renderer is NULL".
    void moveRenderer(QMap<QString, QVariant> command);   // player_renderer_move.cpp
    /// Re-sizes the layer's render object on one screen: sets its original
    /// size, then, unrotated, the placement (rendererX, rendererY, crossWidth
    /// x crossHeight), scale ratio and region of interest as addRenderer();
    /// with "isRotation" or "isBezier" only the placement (relativeX,
    /// relativeY, actualWidth x actualHeight).
    void resizeRenderer(QMap<QString, QVariant> command); // player_renderer_resize.cpp
    /// Resizes the player's outputs that are not render objects of output
    /// screens (previews in the host's window) to `width` x `height` pixels;
    /// render objects ("NoxGL") keep their size.
    void resizeUIRenderer(QtAV::AVPlayer* player, int width, int height);
    /// Sets the four corners of the layer's render object on one screen
    /// ("lTPoint", "rTPoint", "lBpoint", "rBpoint", points in the widget's
    /// pixels): the picture is drawn into the quadrilateral they span. They
    /// are passed on unchecked. A null recorded entry logs "seVectexRect
    /// renderer is NULL".
    void seVectexRect(QMap<QString, QVariant> command);   // player_corners.cpp
    /// Stores the service's one scale ratio, originalWidth / actualWidth and
    /// originalHeight / actualHeight, which the next setRegionOfInterest() of
    /// any layer uses. A zero actual size gives an infinite or NaN ratio,
    /// stored as it is.
    void setScalOriginalRatio(double originalWidth, double originalHeight,
                              double actualWidth, double actualHeight);

    // ---- Warping and regions (player_bezier.cpp, player_roi.cpp) ----
    /// Hands the layer's patch warp to its render objects (layer first):
    /// "row" x "col" patches, the patch regions "roiData" (x, y, width,
    /// height per patch; a short trailing group is dropped) and, per
    /// "pointData" entry ({"screenId", "screenType", "clientGuid", "data"}),
    /// that screen's control points, passed on unchanged. Screens without a
    /// render object are skipped. The layer is then redrawn; an unknown
    /// layer is ignored.
    void setBezierPoint(int layerId, int bankId, QMap<QString, QVariant> record);
    /// Sets which rectangle of the source picture the layer's render object
    /// on one screen (the record's "bankId", "layerId", "screenId") shows:
    /// (x, y, width, height) in the host's units, scaled by the scale ratio
    /// (the position truncated toward zero, the size exact). A screen number
    /// without a render object is left with a null entry in the layer's
    /// rendererMap, which the next resize step removes.
    void setRegionOfInterest(QMap<QString, QVariant> record, int x, int y, int width, int height);

    // ---- Screen monitor effects (player_monitor.cpp) ----
    /// Forwards monitor-effect settings to the effects service when a screen
    /// with `screenId` is open (-1: when any screen is open); the id (-1
    /// included) and the record pass on unchanged.
    void setTP(int screenId, QMap<QString, QVariant> record);
    /// Always an empty record: screen settings cannot be read back yet.
    QMap<QString, QVariant> getTP(QMap<QString, QVariant> record);

    // ---- Outputs, effects and streams (player_outputs.cpp) ----
    /// Forwards the layer's effect record to the effects service (under
    /// `layerId`), then redraws the layer named by `layerId` and the record's
    /// "bankId" when it exists.
    void setEffectsObj(int layerId, QMap<QString, QVariant> record);
    /// Forwards a screen's monitor-effect record to the effects service,
    /// without checking that the screen is open (compare setTP()).
    void setMonitorEffect(int id, QMap<QString, QVariant> record);
    /// Hands the effects service the open output screens (screen id ->
    /// widget); the record is ignored.
    void setOutputRenderer(QMap<QString, QVariant> record);
    /// Publishes the layer's renderer list (its outputs except QML previews)
    /// to the effects service under the packed key layerId + (bankId << 16).
    /// An unknown layer is ignored.
    void setAllRenderList(int layerId, int bankId);
    /// Sets the depth of the player's render objects (higher draws on top).
    /// A player without outputs logs "setRendererZ -------------isEmpty-".
    void setRendererZ(QtAV::AVPlayer* player, double z);
    /// Shows or hides the player's render objects.
    void setWidgetRenderVisible(QtAV::AVPlayer* player, bool visible);
    /// Starts (1) or stops (0) the NDI sender of a registered player, under
    /// its current file name; other states and unregistered players do
    /// nothing.
    void setNdiState(QtAV::AVPlayer* player, int state);
    /// Starts (1) or stops (0) the Spout input of a registered "spout"
    /// layer: starting makes the layer's SpoutNode if needed (its textures
    /// feed the player's setTextureID()) and asks it for the player's file;
    /// stopping disconnects, stops and deletes the node. Other media types
    /// do nothing.
    void setSpoutState(QtAV::AVPlayer* player, int state);
    /// Accepted and ignored (only a null player is logged).
    void setRendererProperty(QtAV::AVPlayer* player, QMap<QString, QVariant> record, int value);

    // ---- Removal (player_removal.cpp) ----
    /// Takes the layer's render object off one screen (the record's
    /// "bankId", "layerId", "screenId", "screenType", "clientGuid"): off the
    /// screen's widget, off `player` (normally the layer's own; null is
    /// logged), out of the layer's rendererMap, and destroys it; then
    /// republishes the layer's renderer list. A null recorded entry is only
    /// removed.
    void delRenderer(QMap<QString, QVariant> record, QtAV::AVPlayer* player);
    /// Takes every render object of the layer (bank first) off its screen and
    /// its player and destroys them; `clearOutputs` true also detaches the
    /// player's other outputs (without destroying them). Then republishes
    /// the layer's renderer list.
    void delLayerAllRenderer(int bankId, int layerId, bool clearOutputs);
    /// Detaches the layer's custom outputs (VideoRenderType_Custom, such as
    /// previews) from its player (layer first), without destroying them. An
    /// output right after a removed one is not looked at in the same call.
    void delCustomRenderer(int layerId, int bankId);

    // ---- Volume and sound track (player_volume.cpp); layer first ----
    /// Changes the layer's volume or sound track on the worker pool and
    /// returns at once: "effectType" 7603 sets the volume to "volume" / 100
    /// ("volume" in percent); 7604 closes the audio output, sets the channel
    /// layout "soundTrack" (an AudioFormat::ChannelLayout number) and reopens
    /// it. Other or absent effect types, and unknown layers, do nothing.
    void setVolumeState(int layerId, int bankId, QMap<QString, QVariant> record);
    /// The worker-pool job of setVolumeState(): applies the record to the
    /// player's audio output on the calling thread. A null player is ignored
    /// (logged).
    static void setVolumeStateThread(QtAV::AVPlayer* player, QMap<QString, QVariant> record);

signals:
    /// A layer's item ended; `index` is the layer id. Clock media report it
    /// from the player's stop, timed items from their timer; a stop that a
    /// content change caused is not reported.
    void sendPlayerIndex(int index, int bankId);
    /// The layer's media is ready at the position playReady() asked for.
    void sendLoadAllComple(int layerId);
    /// Every fade-out started since the counts were last reset has finished.
    void sFadeoutFinished();
    /// Every fade-in started since the counts were last reset has finished.
    void sFadeinFinished();
    /// A layer's position in ms. The player reports it (about every 100 ms
    /// while playing, and at once after a seek) for every media type but
    /// "picture", "osd", "networkVideo", "ndi", "captureCard", "office" and
    /// "virtualScreen"; a timed item's timer (any type but "video" and
    /// "audio") reports it every 100 ms and 0 at the end of each pass, so a
    /// "spout" layer reports both.
    void sPositionChanged(int layerId, int bankId, qint64 position);
    /// Every layer of the bank armed by setCurPlayerCount() has reported
    /// ready (emitted at once for an empty bank).
    void sPlayReady(int bankId);

    // The slots, in this order, follow the signals in the meta-object.
private slots:
    // Media player events (player_slots_media.cpp).
    void onStopped();
    void onLoaded();
    void onPositionChanged(qint64 position);
    void onFadeOutFinished();
    void onFadeInFinishedd();
    void onPlayerLoadComple();
    // Timer events (player_slots_timer.cpp).
    void onStarted(int layerId, int bankId);
    void onStopped(int layerId, int bankId);
    void onPaused(int layerId, int bankId, bool isPause);
    void onSetProgressTimered(int layerId, int bankId, qint64 timeMsec);
    void onSetRepeated(int layerId, int bankId, int count);
    void onSetSynchClocked(int layerId, int bankId, float timeMsec);
    void onPlayReadyed(int layerId, int bankId, qint64 timeMsec, bool isPause);
    void onResetPlayed(int layerId, int bankId, bool isPause);
    // Bank readiness and release (player_frame.cpp, player_slots_media.cpp).
    void onPlayReady();
    void onSigDeleteObj();

private:
    friend struct ServiceTestAccess;

    int getBankLayer(int first, int second);
    bool isOpenGLWidgetRenderer(QtAV::VideoRenderer* renderer);
    QList<void*> getUIAndWidgetRendererList(QList<QtAV::VideoRenderer*> renderers);
    QVector<int> idsFromNames(const QStringList& names);
    static void setPathPlayerThread(QtAV::AVPlayer* player, const QString& path);
    static void setPlayThread(UI_Proc_KELMOR_PlayerTimer_Desktop* timer);

    void resizeRenderer(QMap<QString, QVariant> command, QtAV::AVPlayer* player,
                        int x, int y, int width, int height);
    void setVolumeState(QtAV::AVPlayer* player, QMap<QString, QVariant> record);
    void setPlayerTimerState(QtAV::AVPlayer* player, int op, bool flag, qint64 msec, qint64 value);
    void setPlayerTimer(UI_Proc_KELMOR_PlayerTimer_Desktop* timer, int op, bool flag,
                        qint64 msec, qint64 value);

    // All fields: the service's thread only (no locks).
    QVector<double> scaleRatio;                 // empty or {width ratio, height ratio}
    QMap<QtAV::AVPlayer*, bool> useStopPlayers; // players whose next stop is internal
    QStringList decoderNames;                   // "CUDA", "FFmpeg"
    bool readyFlag;
    int pendingReadyCount;
    int curBankId;
    WorkerPool workerPool;                      // 2 threads; the volume job only
    int fadeOutCount;
    int fadeOutFinishedCount;
    int fadeInCount;
    int fadeInFinishedCount;
    float fadeTime;                             // stored, read by nobody
};
