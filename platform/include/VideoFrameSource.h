// QtAV::VideoFrameSource: a player's pictures as the output screens draw them.
//
// Decode once, draw many: every player has at most one source, and the
// compositor of the output screens asks it for its texture at most once per
// output frame, however many render objects show the player. A source only
// renders or uploads when a new frame exists (or the size it is asked for
// changed); otherwise updateTexture() hands back the texture it already has.
//
// Threading: updateTexture() and pictureSize() run on the thread that draws
// output frames, with the compositor's GL context current: the GUI thread,
// or the render thread while a frame is lent to it (ScreenService::
// setRenderThread). A source's other operations on the GUI thread that touch
// what updateTexture() uses first call awaitOutputFrame(); a source that
// goes away first waits there too (compositorContext() does). A source
// learns of new frames on any thread; it then calls requestCompositorFrame(),
// which is safe from any thread and cheap when a frame is already asked for.
//
// Texture orientation: FrameTexture::bottomUp tells whether texture row 0 is
// the bottom of the picture (an OpenGL framebuffer's own texture) or its top
// (uploaded images, libmpv rendering with FLIP_Y off).
//
// Ownership: the source owns its texture; the texture id stays valid until
// the next updateTexture() call or until the source is destroyed.
#pragma once

#include "KelmorPlatformExport.h"

#include <QSize>
#include <QtGlobal>

class QOpenGLContext;

namespace QtAV {

/// One picture in a GL texture of the compositor's context group.
struct FrameTexture
{
    unsigned id = 0;        ///< GL texture name; 0 for "no picture"
    QSize size;             ///< texture size in pixels
    bool bottomUp = false;  ///< row 0 is the picture's bottom
    /// Whether there is a picture: a texture name and a non-empty size.
    bool isValid() const { return id != 0 && size.width() > 0 && size.height() > 0; }
};

/// A player's pictures as the output screens draw them: decoded once,
/// brought into one texture per output frame however many render objects
/// show it. GUI thread with the compositor's context current.
class KELMOR_PLATFORM_EXPORT VideoFrameSource
{
public:
    /// Destroys the source; the texture it owns goes with it.
    virtual ~VideoFrameSource();

    /// Brings the texture up to date with the newest frame, at `wanted` size
    /// or smaller (never larger than the picture). Invalid when there is no
    /// picture (nothing loaded, audio only, blanked).
    virtual FrameTexture updateTexture(const QSize& wanted) = 0;
    /// Grows by one each time updateTexture() changed the picture (any thread).
    virtual quint64 serial() const = 0;
    /// True when a new frame waits to be brought into the texture (any thread).
    virtual bool hasPendingFrame() const = 0;
    /// The picture's own size; empty while unknown.
    virtual QSize pictureSize() const = 0;
    /// A new frame is due but nothing shows this source: let the engine move
    /// on without drawing it (GUI thread, compositor's context current).
    virtual void discardPendingFrame() {}
};

/// Adds a source to those that must hear of output frames even while no
/// screen shows them (an engine that waits for its frames to be taken). GUI
/// thread. Registering one twice, or null, changes nothing.
KELMOR_PLATFORM_EXPORT void registerFrameSource(VideoFrameSource* source);
/// Every source calls this before it is destroyed, registered or not, and
/// before it deletes its texture: it waits for an output frame being drawn,
/// takes the source off the list above, and makes the output screens forget
/// it (the render thread may draw the last frame's items again while the GUI
/// thread is busy) and let go of its texture (a window's presentation thread
/// copying it is waited for, briefly). An unknown one is ignored. GUI thread.
KELMOR_PLATFORM_EXPORT void unregisterFrameSource(VideoFrameSource* source);

/// The compositor's GL context, made current on its own offscreen surface, or
/// null where OpenGL is not available (no QGuiApplication, no GL driver).
/// GUI thread only. Made on first use; every output screen draws with it and
/// every GL resource of a frame source belongs to its share group.
KELMOR_PLATFORM_EXPORT QOpenGLContext* compositorContext();

/// Returns once no output frame is being drawn off the GUI thread (with a
/// render thread, ScreenService::setRenderThread): until the GUI thread goes
/// back to its event loop, nothing else draws, so state a source shares with
/// the drawing may be changed. No wait without a render thread, or when
/// called on it. GUI thread.
KELMOR_PLATFORM_EXPORT void awaitOutputFrame();

/// Asks the output screens for a new output frame soon (any thread). Output
/// frames are paced to the display's refresh: the frame comes at the next
/// refresh interval after the last one.
KELMOR_PLATFORM_EXPORT void requestCompositorFrame();
/// Asks for a new output frame at once, not at the display's pace (any
/// thread). For a frame the engine waits on while the host waits for it too:
/// a layer being readied, whose engine holds its first picture until the
/// screens take it. Costs one output frame drawn outside the pace.
KELMOR_PLATFORM_EXPORT void requestPromptCompositorFrame();

/// Tells the output screens that `count` frames of `source` were due but
/// never reached its texture: replaced by a newer frame before an output
/// frame took them, or dropped by the engine because they could not be drawn
/// in time. Called by a source from updateTexture() (GUI thread, during an
/// output frame); the screens add them to the dropped frames of the player
/// they show the source for (ScreenService::droppedFrames), as long as the
/// source was shown in the output frame before too. Null or 0: nothing.
KELMOR_PLATFORM_EXPORT void reportDroppedFrames(VideoFrameSource* source, quint64 count);

} // namespace QtAV
