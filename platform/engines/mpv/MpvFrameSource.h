// A player's pictures from its libmpv core, through libmpv's OpenGL render
// API, for the output screens (VideoFrameSource.h).
//
// The core runs with "vo=libmpv": libmpv decodes and times the frames, and
// says on its own threads when a new one is due (the update callback, which
// only raises a flag and asks the compositor for a frame; no libmpv call is
// made inside it). The compositor then calls updateTexture() on the GUI
// thread, once per output frame at most: only when a new frame is due, or
// when the size asked for changed, the frame is rendered into this source's
// framebuffer texture, at the size the screens need (never above the
// picture's own size), with "block for target time" off so that no layer
// waits on libmpv's timing and many layers never serialise. While a
// play-ready runs (setPrompt), a due frame is taken undrawn at once and drawn
// at the next paced output frame instead: libmpv reports the restart as soon
// as its frame is taken, and the GUI thread reads that report sooner when it
// is not drawing a large picture meanwhile.
//
// Texture orientation: rendered with FLIP_Y off, so texture row 0 is the
// picture's top row (FrameTexture::bottomUp false).
//
// Threading: made and destroyed on the GUI thread (the compositor's context
// current); updateTexture, discardPendingFrame and pollFrameDue run where
// output frames are drawn (the GUI thread, or the render thread while a
// frame is lent to it), and the GUI thread's setters wait for such a frame
// first (awaitOutputFrame); the update callback may run on any thread.
// Lifetime: made right after the core is initialised (before any source is
// loaded, as libmpv needs its render context before video starts) and
// destroyed before the core is. A released player's source is no longer
// drawn but stays registered until libmpv's video output is gone (the
// compositor takes its due frames undrawn meanwhile), so that destroying it
// never waits on libmpv (MpvBackend.h, release()).
#pragma once

#include "MpvEngine.h"
#include "MpvStartGate.h"
#include "VideoFrameSource.h"

#include <QSize>
#include <atomic>
#include <memory>

struct mpv_handle;
struct mpv_render_context;

namespace QtAV {

class MpvRenderTarget;

class MpvFrameSource : public VideoFrameSource
{
public:
    /// Null (with a debug line) when there is no compositor context or libmpv
    /// refuses the render context.
    static std::unique_ptr<MpvFrameSource> create(mpv_handle* mpv);
    ~MpvFrameSource() override;

    FrameTexture updateTexture(const QSize& wanted) override;
    quint64 serial() const override { return m_serial.load(); }
    bool hasPendingFrame() const override { return m_pending.load(); }
    QSize pictureSize() const override { return m_pictureSize; }
    void discardPendingFrame() override;

    /// The source's picture size (empty: no video; nothing is drawn).
    void setPictureSize(const QSize& size);
    /// Draw the current frame again at the next output frame.
    void redraw();
    /// Asks libmpv whether a new frame is due (where frames are drawn; the
    /// start gate).
    bool pollFrameDue();
    /// Joins a start gate (MpvStartGate.h): new frames wait for the group.
    void joinStartGate(const std::shared_ptr<MpvStartGate>& gate);
    /// While set, libmpv's new frames are taken at once rather than at the
    /// display's pace (a play-ready: libmpv holds the restart, and so the
    /// ready, until its frame is taken). Any thread.
    void setPrompt(bool prompt) { m_prompt.store(prompt); }
    /// libmpv's video output dropped `count` frames (they came too late to
    /// be drawn); reported to the screens at the next output frame that
    /// brings this source up to date, forgotten when nothing shows it.
    void noteEngineDrops(quint64 count);

    /// Render contexts made and not yet freed, in the whole process (any
    /// thread): what a leak check of released players looks at.
    KELMOR_ENGINE_MPV_EXPORT static int liveRenderContexts();

private:
    explicit MpvFrameSource(mpv_render_context* render);
    static void onUpdate(void* self); // libmpv's threads
    /// Lets libmpv take its due frame without drawing it; the texture no
    /// longer counts as holding the newest frame.
    void skipFrame();
    /// Lets libmpv take its due frame without drawing it, keeping the
    /// texture's picture; a later render draws that frame (libmpv's current).
    void takeUndrawn();

    static std::atomic<int> s_live;         // render contexts not yet freed
    mpv_render_context* m_render;           // set when made; used with the context
    std::atomic<bool> m_pending{false};     // a frame is due (any thread)
    std::atomic<bool> m_prompt{false};      // take new frames at once (any thread)
    std::atomic<quint64> m_serial{0};       // grows where frames are drawn; read anywhere
    // With the context (the thread drawing output frames; the GUI thread's
    // setters wait for that frame first).
    std::unique_ptr<MpvRenderTarget> m_target;
    QSize m_pictureSize;
    bool m_hasFrame = false;                // m_target holds a rendered frame
    bool m_frameDue = false;                // libmpv said a new frame is due, not rendered yet
    bool m_frameSeen = false;               // libmpv has had a frame for this source at all
    bool m_drawOwed = false;                // taken undrawn (takeUndrawn), to be drawn
    quint64 m_engineDrops = 0;              // dropped by libmpv, not yet reported
    std::shared_ptr<MpvStartGate> m_gate;   // while the layer's start is gated
};

} // namespace QtAV
