// The compositor of the output screens.
//
// One output frame (tick), on the GUI thread with the shared context current:
// 1. gather what to draw (SceneGatherer.h): every open screen's visible
//    render objects, in ascending z (equal z keeps the order they were
//    pushed), with their players' frame sources, fades and effects, and the
//    previews; from here on the tick reads only that Scene (Scene.h);
// 2. feed virtualScreen players the previous picture of the screen they name;
// 3. bring each frame source's texture up to date once, at the largest size
//    any of its render objects needs (decode once, draw many);
// 4. redraw only the screens whose content changed (settings, new frames,
//    fades, effects), finish them with their monitor effects, show windows,
//    and hand recorded screens' pictures to their recorders. With neutral
//    monitor effects the layers are drawn straight into the output
//    framebuffer; a window whose picture nobody reads back (no recording, no
//    virtualScreen layer showing it) takes them straight into its own
//    framebuffer, and its output framebuffer is drawn only when a picture is
//    asked for (grab). A layer alone on a screen, plain and 1:1, is copied
//    there (FrameCopy.h). A window presented with vsync always takes its
//    picture from the output framebuffer, through its own presentation
//    thread (WindowPresenter.h): the compositor never waits for a refresh;
// 5. hand the previews their pictures and announce the screens drawn
//    (SceneResults), back among the module's objects.
// Ticks are asked for (requestFrame) by frame sources with new frames, by
// render objects whose settings change, by effect and screen changes and by
// window exposes, and run at most once per refresh interval of the displays
// (60 Hz offscreen). With nothing changing, no tick runs: an idle screen costs
// nothing. On the render thread, steps 2 to 4 of a frame a source wanted and
// the GUI thread did not post in time run again from the last Scene (a late
// frame, drawLate); results wait in one place until the GUI thread takes
// them (keepResults, deliverPending).
//
// Files, one part of the object each:
//   Compositor.cpp          life, screens opened and closed, scheduling, tick
//   CompositorSources.cpp   placements, virtualScreen feeds, frame sources
//                           brought up to date, dropped frames
//   CompositorDraw.cpp      change signatures, drawing screens and layers,
//                           the lone layer handed to a presentation thread
//   CompositorPreviews.cpp  player and screen previews
//   CompositorReadback.cpp  grabs, recordings, output taps
//   SceneGatherer.cpp       the tick's first half: what to draw, effect records
//
// Threading: the public operations on the GUI thread, except requestFrame
// (any thread). Steps 2 to 4 read no module object but the frame sources
// (the Scene is their copy): with a render thread (startRenderThread,
// RenderThread.h) they run there, with the context lent to it, while the
// GUI thread goes on; every public operation first calls the context home,
// waiting for a frame under way. Grabs and a recording's first picture draw
// on the GUI thread.
// Ownership: ScreenService owns the compositor; the compositor owns each
// screen's surfaces and recorder, never the widgets, render objects, players
// or frame sources (it reads them during a frame only; a source that goes
// unregisters first, and is forgotten).
#pragma once

#include "ScreenWidget.h"
#include "gl/EffectSettings.h"
#include "gl/FrameCopy.h"
#include "gl/FrameDrops.h"
#include "gl/LayerPainter.h"
#include "gl/PushedFrameSource.h"
#include "gl/ScreenPostPass.h"
#include "gl/ScreenOutputTap.h"
#include "gl/ScreenRecorder.h"
#include "gl/ScreenSurface.h"
#include "gl/Scene.h"
#include "gl/SceneGatherer.h"

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QTimer>
#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace QtAV {
class AVPlayer;
class PreviewRenderer;
}

namespace kelmor::gl {

class Compositor : public QObject
{
    Q_OBJECT
public:
    Compositor();
    ~Compositor() override;

    /// Asks for a tick (any thread): at the display's pace, or at once with
    /// `prompt` (requestPromptCompositorFrame).
    void requestFrame(bool prompt = false);

    void screenOpened(ScreenWidget* widget);
    void screenClosing(ScreenWidget* widget);

    /// Draws what is pending and returns the screen's picture (null image when
    /// the screen cannot be drawn).
    QImage grab(ScreenWidget* widget);
    /// `fd` >= 0: the open file to write (taken over; see ScreenRecorder::start).
    bool startRecording(ScreenWidget* widget, const QString& path, int fps, int fd = -1);
    bool stopRecording(ScreenWidget* widget);
    /// Finishes every running recording from the pictures it has, without
    /// drawing (the display may be gone).
    void finishRecordings();

    /// Hands every finished picture of the screen to `tap` (null: none);
    /// the tap is not owned and is forgotten when the screen closes.
    void setOutputTap(ScreenWidget* widget, ScreenOutputTap* tap);
    /// Redraws the screen at the next tick even when nothing changed.
    void redraw(ScreenWidget* widget);

    /// A preview is being destroyed: forget it.
    void previewGone(QtAV::PreviewRenderer* preview);

    /// Whether the screen's window is presented with vsync by a thread of its
    /// own (WindowPresenter.h).
    bool presentsWithVsync(ScreenWidget* widget) const;
    /// Pictures that thread swapped onto the window so far (0 without one).
    quint64 presentedCount(ScreenWidget* widget) const;
    /// Output frames drawn so far for a screen (tests, diagnostics).
    quint64 drawCount(ScreenWidget* widget) const;

    /// A frame source is being destroyed and is about to delete its texture
    /// (unregisterFrameSource; GUI thread): no presentation thread may keep
    /// it, and no later source at the same address may be taken for it.
    void sourceGone(QtAV::VideoFrameSource* source);

    /// A source's dropped frames (reportDroppedFrames; GUI thread).
    void noteDroppedFrames(QtAV::VideoFrameSource* source, quint64 count);
    /// Frames a player had due while shown that never reached a screen
    /// (FrameDrops.h). Never waits for a frame being drawn.
    quint64 droppedFrames(QtAV::AVPlayer* player) const;
    QHash<QtAV::AVPlayer*, quint64> droppedFrameCounts() const;

private slots:
    void tick();
    void schedule();
    /// Hands the results kept since the last call to the previews and the
    /// service, then asks for a tick that came while a frame was drawn.
    void deliverPending();

private:
    using Item = Scene::Item;
    struct SourceUse
    {
        QtAV::VideoFrameSource* source = nullptr;
        QSize wanted;
        QtAV::FrameTexture texture;
    };
    struct Memo
    {
        Placement placement;
        QSizeF placementPicture;
        quint64 receiveCount = 0;
        quint64 serialAtReceive = 0;
        std::shared_ptr<QtAV::PushedFrameSource> received; // shared: QHash copies memos
        quint64 seenTick = 0;
    };
    struct Screen
    {
        ScreenWidget* widget = nullptr;   // identity, and the window's owner
        int id = 0;                       // as of the last tick
        ScreenEffects effects;            // as of the last tick
        std::unique_ptr<ScreenSurface> surface;
        std::vector<Item> items;          // the last tick's, from its Scene
        quint64 signature = 0;            // of what was last drawn
        bool forced = true;               // draw at the next tick whatever changed
        bool outputWanted = false;        // this tick: a recording or a virtualScreen layer reads the output
        bool outputStale = false;         // the last draw went to the window only
        quint64 draws = 0;
        std::unique_ptr<ScreenRecorder> recorder;
        QElapsedTimer recordClock;
        ScreenOutputTap* tap = nullptr;   // not owned (a published screen's reader)
    };

    /// A whole output frame drawn on the calling (GUI) thread, now: for
    /// grabs and a recording's first picture, which need it before they
    /// return. Waits for a frame under way on the render thread first.
    void drawHere();
    /// Steps 2 to 4 of a tick, from `scene` (its screens' items move into
    /// the screens); what goes back to the module's objects lands in `out`.
    void drawScene(Scene& scene, SceneResults& out);
    /// Steps 2 to 4 with the screens' items as they are (drawScene, after
    /// taking the scene's; drawLate, again).
    void drawTaken(const Scene& scene, SceneResults& out);
    /// The render thread's own frame while the GUI thread is busy
    /// (RenderThread::setLateFrame): the last scene again.
    void drawLate();
    /// Adds a frame's results to those not yet delivered (a newer preview
    /// picture replaces an older one; a late frame's screens are announced
    /// once). Returns true when no delivery was asked for since the last.
    bool keepResults(SceneResults&& results, bool late);
    /// Step 5: previews and screenDrawn, on the GUI thread.
    static void deliver(const SceneResults& results);
    void feedVirtualScreens();
    void updateSources(const Scene& scene);
    SourceUse* sourceUse(QtAV::VideoFrameSource* source);
    quint64 signatureOf(const Screen& screen);
    void drawScreen(Screen& screen, SceneResults& out);
    /// Hands a presented window the texture of its only layer when that is
    /// an engine's picture filling the screen 1:1, plain and opaque; false
    /// (nothing done) otherwise.
    bool presentLoneLayer(Screen& screen);
    /// Draws the screen's items into its output framebuffer (through the
    /// compose framebuffer and the monitor effects when they are not neutral).
    void drawOutput(Screen& screen);
    /// Draws the output framebuffer when the last draw went to the window only.
    void ensureOutput(Screen& screen);
    void drawItem(Screen& screen, Item& item);
    Memo& memoFor(const Item& item);
    /// Makes memo.placement current for these settings and picture size.
    void ensurePlacement(Memo& memo, const QtAV::RenderDrawState& state, const QSizeF& picture);
    Screen* screenFor(ScreenWidget* widget);
    Screen* screenById(int screenId);
    void pruneMemos();
    void addPreviewSources(const Scene& scene);
    void fillPreviews(const Scene& scene, SceneResults& out);
    /// Previews of whole screens (PreviewRenderer::setScreenId), after the
    /// screens were drawn.
    void fillScreenPreviews(const Scene& scene, SceneResults& out);

    void settleDrops();

    std::atomic<bool> m_requested{false}; // a tick is asked for (any thread)
    std::atomic<bool> m_prompt{false};    // ... and wanted at once (any thread)

    // GUI thread.
    QTimer m_timer;                         // single shot, to the next tick
    bool m_tickAfterFrame = false;          // a tick came while the render thread drew
    bool m_lateFrameSet = false;            // drawLate given to the render thread
    qint64 m_lastTick = -1000;
    SceneGatherer m_gatherer;
    QElapsedTimer m_clock;                  // started in the constructor; read anywhere

    // With the context: the GUI thread, or the render thread while a frame
    // is lent to it (RenderThread.h); the GUI thread's entry points wait for
    // the frame (awaitRenderThread) before they touch these.
    quint64 m_tick = 0;
    std::vector<std::unique_ptr<Screen>> m_screens;   // opening order
    std::vector<SourceUse> m_sources;                 // this tick's sources, reused
    QHash<const QtAV::NoxOpenGLRender*, Memo> m_memos;
    QHash<QtAV::AVPlayer*, quint64> m_virtualFed;     // player -> screen draws pushed
    quint64 m_effectsChanges = 0;                     // the last tick's Scene's
    /// The last scene drawn (its screens' items moved into m_screens), for
    /// late frames; the frame sources and previews that go leave it.
    std::shared_ptr<Scene> m_lastScene;
    struct PreviewMemo
    {
        quint64 serial = ~quint64(0);
        qint64 lastAt = -1000000;
        std::shared_ptr<QOpenGLFramebufferObject> target; // shared: QHash copies memos
        Placement placement;  // the whole picture over the target, made with it
        const void* screen = nullptr; // a screen preview: the Screen it last showed
    };
    QHash<QtAV::PreviewRenderer*, PreviewMemo> m_previews;
    /// Sources whose texture a presentation thread may still be copying
    /// (presentLoneLayer), with that texture.
    QHash<QtAV::VideoFrameSource*, QtAV::FrameTexture> m_lent;
    /// Draws `picture` over the whole of the preview's target (made or
    /// resized to the preview's size) and returns the result, read back.
    QImage showInPreview(const Scene::Preview& preview, PreviewMemo& memo,
                         const QtAV::FrameTexture& picture);
    LayerPainter m_painter;
    FrameCopy m_copy;
    ScreenPostPass m_post;
    std::mutex m_pendingMutex;                        // guards the two below (either thread)
    SceneResults m_pending;                           // results not yet delivered
    bool m_deliveryQueued = false;                    // a deliverPending call is coming
    mutable std::mutex m_dropsMutex;                  // guards m_drops (read from the GUI thread any time)
    FrameDrops m_drops;
    FrameDrops::Shown m_shown;                        // reused every tick
};

} // namespace kelmor::gl
