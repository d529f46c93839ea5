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

class KELMOR_PLAYER_EXPORT UI_Proc_KELMOR_Player_Desktop : public QObject
{
    Q_OBJECT
public:
    explicit UI_Proc_KELMOR_Player_Desktop(QObject* parent = nullptr);
    ~UI_Proc_KELMOR_Player_Desktop() override;

    static UI_Proc_KELMOR_Player_Desktop& getInstance();

    // ---- Frame, counters and lookups (player_frame.cpp) ----
    /// The layer's media player (layer first), or null.
    QObject* getAVPlayerEchoById(int layerId, int bankId);
    /// How many of the player's outputs are render objects ("NoxGL").
    int getRendererCount(QtAV::AVPlayer* player);
    /// Arms the bank's play-ready count; sPlayReady(bankId) follows when every
    /// layer of the bank has reported ready (at once for an empty bank).
    void setCurPlayerCount(int bankId);
    void setFadeTime(float value);
    void initFinishedFadeIn();
    void initFinishedFadeOut();
    /// Drops every internal-stop mark set by content changes.
    void clearUseStopPlayer();

    // ---- Layer creation (player_layer_create.cpp) ----
    void creatnewlayer(QMap<QString, QVariant> record);

    // ---- Layer content change (player_content.cpp); layer first ----
    void changeLayerContent(int layerId, int bankId, QMap<QString, QVariant> record);
    void setLayerMediaType(QtAV::AVPlayer* player, QString type);

    // ---- Transport (player_transport.cpp) ----
    void play(QtAV::AVPlayer* player);
    void pause(QtAV::AVPlayer* player);
    void stop(QtAV::AVPlayer* player);
    void resetPlay(QtAV::AVPlayer* player, bool flag);
    void playReady(QtAV::AVPlayer* player, qint64 msec, bool isPause);
    void setRepeat(QtAV::AVPlayer* player, int count);
    void setSynchClock(QtAV::AVPlayer* player, float value);
    void setFadeInOut(QtAV::AVPlayer* player, bool fadeOut, int msec);
    void refreshUi(QtAV::AVPlayer* player);
    // bank first:
    void setPosition(int bankId, int layerId, qint64 msec);
    void setStartPosition(int bankId, int layerId, qint64 msec);
    void pptPageUpDown(int bankId, int layerId, QMap<QString, QVariant> record);
    // layer first:
    void setDuration(int layerId, int bankId, qint64 msec);
    void updateFrame(int layerId, int bankId);
    bool setStopFade(int layerId, int bankId, int fadeIn);

    // ---- Renderer placement and geometry ----
    void addRenderer(QMap<QString, QVariant> command);    // player_renderer_create.cpp
    void moveRenderer(QMap<QString, QVariant> command);   // player_renderer_move.cpp
    void resizeRenderer(QMap<QString, QVariant> command); // player_renderer_resize.cpp
    void resizeUIRenderer(QtAV::AVPlayer* player, int width, int height);
    void seVectexRect(QMap<QString, QVariant> command);   // player_corners.cpp
    void setScalOriginalRatio(double originalWidth, double originalHeight,
                              double actualWidth, double actualHeight);

    // ---- Warping and regions (player_bezier.cpp, player_roi.cpp) ----
    void setBezierPoint(int layerId, int bankId, QMap<QString, QVariant> record);
    void setRegionOfInterest(QMap<QString, QVariant> record, int x, int y, int width, int height);

    // ---- Screen monitor effects (player_monitor.cpp) ----
    void setTP(int screenId, QMap<QString, QVariant> record);
    QMap<QString, QVariant> getTP(QMap<QString, QVariant> record);

    // ---- Outputs, effects and streams (player_outputs.cpp) ----
    void setEffectsObj(int layerId, QMap<QString, QVariant> record);
    void setMonitorEffect(int id, QMap<QString, QVariant> record);
    void setOutputRenderer(QMap<QString, QVariant> record);
    void setAllRenderList(int layerId, int bankId);
    void setRendererZ(QtAV::AVPlayer* player, double z);
    void setWidgetRenderVisible(QtAV::AVPlayer* player, bool visible);
    void setNdiState(QtAV::AVPlayer* player, int state);
    void setSpoutState(QtAV::AVPlayer* player, int state);
    void setRendererProperty(QtAV::AVPlayer* player, QMap<QString, QVariant> record, int value);

    // ---- Removal (player_removal.cpp) ----
    void delRenderer(QMap<QString, QVariant> record, QtAV::AVPlayer* player);
    void delLayerAllRenderer(int bankId, int layerId, bool clearOutputs);
    void delCustomRenderer(int layerId, int bankId);

    // ---- Volume and sound track (player_volume.cpp); layer first ----
    void setVolumeState(int layerId, int bankId, QMap<QString, QVariant> record);
    static void setVolumeStateThread(QtAV::AVPlayer* player, QMap<QString, QVariant> record);

signals:
    void sendPlayerIndex(int index, int bankId);
    void sendLoadAllComple(int layerId);
    void sFadeoutFinished();
    void sFadeinFinished();
    void sPositionChanged(int layerId, int bankId, qint64 position);
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
