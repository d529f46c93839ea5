// ScreenService: the process's output screens.
//
// The host opens and closes screens (openScreen/closeScreen); the layer
// service finds a screen's widget from a screen-identity record
// ({"screenId", "screenType", "clientGuid"}) and lists the open screens.
//
// Matching a record: the open screen whose id, type and client guid all equal
// the record's; failing that, the first open screen (in opening order) with
// the record's screen id; failing that, none.
//
// Threading: GUI thread only; getInstance() may be called from any thread.
// Ownership: the service owns its widgets. Closing a screen deletes its
// widget but never the render objects on it (those belong to the layer
// service, which removes them).
#pragma once

#include "ScreenWidget.h"

#include <QHash>
#include <QImage>
#include <QList>
#include <QMap>
#include <QObject>
#include <QVariant>
#include <map>
#include <memory>

namespace kelmor::gl {
class Compositor;
}
namespace kelmor::pipewire {
class ScreenPublisher;
}
namespace QtAV {
class AVPlayer;
class PreviewRenderer;
}

/// The process's output screens: opened and closed by the host, found by
/// the layer service from screen-identity records, drawn by the compositor.
/// GUI thread; one per process (getInstance()).
class KELMOR_PLATFORM_EXPORT ScreenService : public QObject
{
    Q_OBJECT
public:
    /// The process's screen service, made on the first call (thread-safe,
    /// from any thread).
    static ScreenService& getInstance();

    /// Opens a screen, or returns the already open screen with the same
    /// id, type and client guid.
    ScreenWidget* openScreen(const ScreenInfo& info);
    /// Closes the screen with exactly this identity; false when none is open.
    bool closeScreen(int screenId, int screenType, const QString& clientGuid);
    /// Closes every open screen, in opening order.
    void closeAllScreens();

    /// The widget named by a screen-identity record, or null.
    ScreenWidget* getScreenWidget(QMap<QString, QVariant> record);
    /// Screen id -> widget of every open screen (one entry per id: the
    /// first opened).
    QMap<int, void*> getListOutput();
    /// The open screens in opening order.
    QList<ScreenWidget*> widgetList() const;
    /// The first open screen with this id (opening order), or null.
    ScreenWidget* screenById(int screenId) const;

    // Pictures of a screen, for the host (snapshots, previsualisation).
    /// The screen's composited picture as it is now (pending changes are drawn
    /// first), monitor effects included; a null image when no screen with
    /// this id is open or nothing can be drawn.
    QImage grabScreen(int screenId);
    /// Writes grabScreen(screenId) to `path` as PNG; false, with a debug line
    /// naming the reason, when the screen is not open or the file cannot be
    /// written.
    bool saveSnapshot(int screenId, const QString& path);
    /// Records every composited picture of the screen into a video file
    /// (`fps` frames a second, the screen's size) until stopRecording or the
    /// screen closes. False, with a debug line, when the screen is not open,
    /// already records, or the file cannot be made.
    bool startRecording(int screenId, const QString& path, int fps = 30);
    /// As above, into a file the caller opened for writing: `fd` is taken over
    /// (closed when the recording ends or fails to start) and `path` only
    /// names the file in messages and picks the container by its extension.
    /// A file that could not be started is left for the caller to remove.
    bool startRecording(int screenId, int fd, const QString& path, int fps);
    /// Finishes the file; false when the screen was not recording.
    bool stopRecording(int screenId);

    // Sharing a screen with other programs.
    /// Publishes the screen's finished picture (what the audience sees, as
    /// snapshots read it) as a PipeWire video source node named `nodeName`
    /// (BGRx, the screen's size and refresh rate). The picture is read back
    /// only while a consumer streams from the node, and is dropped rather
    /// than waited for when the consumer is slow. Publishing an already
    /// published screen renames its node. False, with a debug line, when
    /// the screen is not open or not drawn, the name is empty, longer than
    /// 128 characters, holds control characters or is used by another
    /// published screen, or PipeWire cannot be used. Without a daemon the
    /// node appears once one runs.
    bool publishScreen(int screenId, const QString& nodeName);
    /// Ends a publication; false when the screen was not published. Closing
    /// a screen ends its publication too.
    bool unpublishScreen(int screenId);
    /// The node name a screen is published as; empty when it is not.
    QString publishedName(int screenId) const;
    /// The publication of a screen (diagnostics), or null.
    const kelmor::pipewire::ScreenPublisher* publication(int screenId) const;

    // Presentation of windowed screens.
    /// How a windowed screen's pictures reach its window.
    enum class Presentation {
        /// Vsync where the GL platform lets a thread of its own draw into a
        /// window (QOpenGLContext::supportsThreadedOpenGL), Immediate
        /// elsewhere. The default.
        Auto,
        /// Each window is presented by a thread of its own with swap interval
        /// 1: no tearing, and one window's wait for its display's refresh
        /// never holds another window, the next output frame or the GUI
        /// thread. Each window keeps its own context bound to it, which also
        /// makes it cheaper than Immediate on a CPU rasteriser (no context
        /// switch between windows).
        Vsync,
        /// The compositor swaps every window itself with its one context,
        /// without waiting for a refresh (swap interval 0): may tear.
        Immediate,
    };
    /// Chooses how windows opened from now on are presented; screens already
    /// open keep theirs.
    void setPresentation(Presentation presentation);
    /// The choice for windows opened from now on.
    Presentation presentation() const;

    /// Output frames are drawn on a render thread of their own, for the life
    /// of the process, from the first screen opened on (the default) or
    /// from now on (`true`): the GUI thread only gathers what to draw
    /// (cheap) and goes on with commands and events while the frame is
    /// drawn, so a slow frame never holds a command; and while the GUI
    /// thread is busy elsewhere (a host's widgets, a long command), the
    /// render thread draws the frames the players want itself, from what
    /// was gathered last. The GUI thread still waits for a frame under way
    /// before it touches GL or what a frame reads (a player's frame source
    /// made or freed, a grab, a recording started): those wait at most one
    /// frame. A host that keeps compositorContext() across its event loop's
    /// turns, or that wants every frame drawn on the GUI thread, calls
    /// `false` before its first screen. Returns whether frames are now
    /// drawn on it: false (with a debug line) without GL, or where Qt's GL
    /// platform cannot draw from other threads; `false` is refused once it
    /// runs.
    bool setRenderThread(bool on);
    /// Whether output frames are drawn on a render thread.
    bool renderThread() const;
    /// Whether the first open screen with this id is a window presented with
    /// vsync by a thread of its own.
    bool presentsWithVsync(int screenId) const;
    /// Pictures swapped onto that window by its presentation thread so far
    /// (0 when it has none).
    quint64 presentedFrames(int screenId) const;

    /// Output frames drawn so far for the first open screen with this id
    /// (opening order); 0 when none is open or nothing is drawn. For
    /// diagnostics and benchmarks: the count grows by one each time the
    /// screen's picture is redrawn.
    quint64 drawnFrames(int screenId) const;

    /// Frames of `player` that were due while it was shown on an open screen
    /// but never reached one, since the player was made: replaced by a newer
    /// frame before an output frame took them, or dropped by the engine
    /// because the screens could not draw them in time (an overloaded
    /// machine). 0 for null, unknown or never-shown players.
    quint64 droppedFrames(QtAV::AVPlayer* player) const;
    /// Every player with dropped frames, with its total (as above).
    QHash<QtAV::AVPlayer*, quint64> droppedFrameCounts() const;

    /// The connection to the display is gone: no GL call is made from now on
    /// (nothing draws; snapshots fail; a recording stopped from now on is
    /// finished from the pictures it already has). For a host that ends the
    /// process right after; cannot be undone.
    void displayConnectionLost();

    // Previews in the host's window (PreviewRenderer registers itself).
    /// Registers a preview for the compositor to fill (the preview's
    /// constructor calls it); a null or already registered one is ignored.
    void addPreview(QtAV::PreviewRenderer* preview);
    /// Unregisters a preview (its destructor calls it).
    void removePreview(QtAV::PreviewRenderer* preview);
    /// The registered previews, in registration order.
    QList<QtAV::PreviewRenderer*> previews() const;

signals:
    /// openScreen() opened a new screen with this id.
    void screenOpened(int screenId);
    /// A screen with this id was closed (its widget is deleted).
    void screenClosed(int screenId);
    /// The screen's picture was drawn anew (GUI thread, once per output frame).
    void screenDrawn(int screenId);

private:
    explicit ScreenService(QObject* parent = nullptr);
    ~ScreenService() override;

    /// The compositor, made with the first screen where a QGuiApplication
    /// exists (null otherwise: screens then keep their state only).
    kelmor::gl::Compositor* compositor();

    QList<ScreenWidget*> m_widgets; // GUI thread; owned
    QList<QtAV::PreviewRenderer*> m_previews; // GUI thread; not owned
    Presentation m_presentation = Presentation::Auto; // GUI thread
    bool m_renderThreadWanted = true;  // GUI thread: started with the first screen
    bool m_renderThreadTried = false;  // GUI thread
    std::unique_ptr<kelmor::gl::Compositor> m_compositor; // GUI thread
    /// Published screens by id (GUI thread; owned).
    std::map<int, std::unique_ptr<kelmor::pipewire::ScreenPublisher>> m_published;
};
