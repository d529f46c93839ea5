// Private to the layer player service: what the service's source files share.
//
// The service is one object split by feature across files:
//   player_frame.cpp            construction, singleton, counters, lookups,
//                               decoder ids, renderer lists, bank readiness
//   player_layer_create.cpp     creatnewlayer and its connections
//   player_content.cpp          changeLayerContent, setLayerMediaType
//   player_transport.cpp        play, pause, stop, seek, fades, durations
//   player_slots_media.cpp      slots fed by the media players
//   player_slots_timer.cpp      slots fed by the timed-item timers
//   player_outputs.cpp          effects, renderer lists, z, visibility, NDI, Spout
//   player_renderer_create.cpp  addRenderer
//   player_renderer_move.cpp    moveRenderer
//   player_renderer_resize.cpp  resizeRenderer (both), resizeUIRenderer
//   player_corners.cpp          seVectexRect, setScalOriginalRatio
//   player_roi.cpp              setRegionOfInterest
//   player_bezier.cpp           setBezierPoint
//   player_monitor.cpp          setTP, getTP
//   player_removal.cpp          delRenderer, delLayerAllRenderer, delCustomRenderer
//   player_volume.cpp           setVolumeState and its worker job
//   player_common.cpp           the helpers below
//   player_bounds.cpp           saturation of host geometry, its report
#pragma once

#include "ScreenKey.h"

#include <QList>
#include <QMap>
#include <QRect>
#include <QString>
#include <QStringList>
#include <QVariant>

namespace QtAV {
class AVPlayer;
class NoxOpenGLRender;
class VideoRenderer;
}
class ScenePlayer;
class UI_Proc_KELMOR_PlayersManage_Desktop;

namespace kelmor {

/// Type name of the render objects on output screens.
inline constexpr const char* kNoxGL = "NoxGL";
/// Type name of QML preview renderers.
inline constexpr const char* kQmlGL = "QmlGL";

UI_Proc_KELMOR_PlayersManage_Desktop& registry();

/// Whether the renderer's type name is exactly `name` (whole string; a null
/// renderer or an unnamed type never matches).
bool rendererNamed(const QtAV::VideoRenderer* renderer, const char* name);

/// The player's outputs that are render objects ("NoxGL"), in output order.
QList<QtAV::NoxOpenGLRender*> renderObjectsOf(const QtAV::AVPlayer* player);

/// "video" and "audio" run on the player's own clock; every other media type
/// is a timed item driven by the layer's timer.
bool isClockMedia(const QString& type);

/// Logs "<command> ignored: null player" and returns true for a null player.
bool ignoreNullPlayer(const QtAV::AVPlayer* player, const char* command);

/// The render-object key of a command record ("screenId", "screenType",
/// "clientGuid").
ScreenKey screenKeyOf(const QMap<QString, QVariant>& record);
/// The screen-identity record of a key: exactly "screenId", "screenType",
/// "clientGuid".
QMap<QString, QVariant> screenRecordOf(const ScreenKey& key);

} // namespace kelmor

// ---- Renderer geometry (placement, move and resize commands) ----
#include <initializer_list>

namespace kelmor {

/// The renderer-geometry keys of a command record. Keys a command does not
/// read, or a record lacks, keep their defaults (0, false, empty).
struct RendererGeometry
{
    int bankId = 0;
    int layerId = 0;
    ScreenKey screen;             ///< "screenId", "screenType", "clientGuid"
    int frameX = 0;
    int frameY = 0;
    int rendererX = 0;
    int rendererY = 0;
    int crossWidth = 0;
    int crossHeight = 0;
    int originalWidth = 0;
    int originalHeight = 0;
    int actualWidth = 0;
    int actualHeight = 0;
    int relativeX = 0;
    int relativeY = 0;
    float layerRotation = 0.0f;
    bool isScal = false;
    bool isRotation = false;
    bool isFill = false;
    bool isOutArea = false;
    bool isBezier = false;
};

/// Reads the named geometry keys from the record one after another, in the
/// order given (each command has its own order). A name that is not a
/// geometry key is a programming error: it is skipped with a debug line.
RendererGeometry readRendererGeometry(const QMap<QString, QVariant>& record,
                                      std::initializer_list<const char*> keysInOrder);

/// The render object behind a rendererMap entry, or null when the entry is
/// null or holds a renderer of another class.
QtAV::NoxOpenGLRender* asRenderObject(QtAV::VideoRenderer* renderer);

/// What one geometry command had to saturate (host values a render object
/// cannot hold, positions with no int value), told in one debug line
/// "<command>: saturated: ..." when the command ends. Each public geometry
/// command opens one; a command run inside another (addRenderer's region of
/// interest) reports through the outermost, so a command logs at most once.
/// Lives on the stack of the service's thread, for the command's duration.
class SaturationReport
{
public:
    explicit SaturationReport(const char* command);
    ~SaturationReport();
    SaturationReport(const SaturationReport&) = delete;
    SaturationReport& operator=(const SaturationReport&) = delete;

    /// Adds `what` to the open report (once, however often it is noted);
    /// with none open it is logged at once.
    static void note(const QString& what);

private:
    const char* m_command;             // the outermost command's name
    QStringList m_notes;               // what was saturated, in order
    SaturationReport* m_outer;         // the report open before this one
};

/// The placement (x, y, width, height) as a render object keeps it
/// (NoxOpenGLRender::boundedGeometry); a clamped value is noted.
QRect boundedPlacement(int x, int y, int width, int height);

} // namespace kelmor

// ---- Playback control (transport, slots, content change, outputs, volume) ----
class UI_Proc_KELMOR_PlayerTimer_Desktop;
class WorkerPool;

namespace kelmor {

/// The layer timer's play state while its item plays (1200 stopped, 1202
/// paused).
inline constexpr int kTimerPlaying = 1201;

/// The timer that drives the player's item alongside it: the layer timer of
/// the player's scene player when the player is registered and its media
/// type is a timed item (neither "video" nor "audio"); null otherwise.
UI_Proc_KELMOR_PlayerTimer_Desktop* timedItemTimer(QtAV::AVPlayer* player);

/// Blocks until every job queued on the pool before this call has finished
/// (defined with the volume job, which is what it protects; see there).
void waitForQueuedJobs(WorkerPool& pool);

/// Whether the item is an NDI stream ("ndi"), whose sender starts and stops
/// along with the player.
bool isNdiMedia(const QtAV::AVPlayer* player);

/// A clock time in milliseconds truncated toward zero; a value that is not a
/// number or lies beyond the qint64 range is clamped (NaN gives 0).
qint64 truncatedMsec(float value);

} // namespace kelmor
