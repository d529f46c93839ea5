// QtAV::VideoRenderer: the interface through which a media player hands its
// pictures to an output, plus the region and patch settings that the layer
// service gives each output.
//
// Identity. Every renderer class has a type id (`id()`); the static `name(id)`
// turns it into the type name the service compares ("NoxGL" for render objects
// on output screens, "QmlGL" for QML previews). Further names can be
// registered with `registerName`, which hands out stable ids.
//
// Render type. `videoRenderType()` tells screen outputs (VideoRenderType_Output,
// 0) from custom outputs such as previews in a host window
// (VideoRenderType_Custom, 1); the service removes custom outputs by it.
//
// Threading. Setters and getters may be called from any thread: the settings
// are guarded by the renderer's own mutex. `receive` is called by the engine
// on whatever thread delivers frames.
//
// Ownership. A renderer is owned by whoever created it; a player that shows
// on it (AVPlayer::addVideoRenderer) only refers to it, and the renderer
// refers back to that player (player()) so that an output screen can find the
// pictures to draw. Destroying a renderer takes it off its player.
//
// Changes. Every setter bumps settingsRevision() and then calls the change
// listener (setChangeListener), outside the lock, on the setter's thread: the
// output screen that hosts the renderer uses it to schedule a redraw.
#pragma once

#include "KelmorPlatformExport.h"
#include "VideoFrame.h"

#include <QMutex>
#include <functional>
#include <QRectF>
#include <QSize>
#include <QVector>

namespace QtAV {

class AVPlayer;

/// A renderer class's type id; VideoRenderer::name() gives its type name.
using VideoRendererId = int;

/// Type id of the render objects on output screens; its name is "NoxGL".
extern KELMOR_PLATFORM_EXPORT const VideoRendererId VideoRendererId_NoxGL;
/// Type id of QML preview renderers; its name is "QmlGL".
extern KELMOR_PLATFORM_EXPORT const VideoRendererId VideoRendererId_QmlGL;

/// What kind of output a renderer is (VideoRenderer::videoRenderType()).
enum VideoRenderType {
    VideoRenderType_Output = 0, ///< draws on an output screen
    VideoRenderType_Custom = 1, ///< a custom output (a preview in the host's window)
};

/// Control points of a patch warp as the service hands them on.
struct PatchInfo
{
    int rows = 0;          ///< patch rows of the grid
    int cols = 0;          ///< patch columns of the grid
    QVector<float> points; ///< control-point data of every patch, as given
};

/// An output a media player hands its pictures to, with the region and
/// patch settings the layer service gives it. Settings are guarded by the
/// renderer's own mutex (any thread); owned by whoever created it.
class KELMOR_PLATFORM_EXPORT VideoRenderer
{
public:
    /// Takes the renderer off the player that shows on it, if any.
    virtual ~VideoRenderer();

    /// The renderer class's type id; name(id()) is its type name.
    virtual VideoRendererId id() const = 0;
    /// VideoRenderType_Output (0) unless a subclass says otherwise; custom
    /// outputs such as previews return VideoRenderType_Custom (1).
    virtual int videoRenderType() const { return VideoRenderType_Output; }

    /// The type name of `id`, or null for an id nobody registered.
    static const char* name(VideoRendererId id);
    /// Registers a type name and returns its id; a name registered before
    /// returns its existing id. Names are compared as whole strings.
    static VideoRendererId registerName(const char* name);

    /// Takes the next picture to show; an empty frame blanks the output until
    /// the player's next new frame.
    virtual bool receive(const VideoFrame& frame);
    /// The last frame given to receive() (empty before the first).
    VideoFrame currentFrame() const;
    /// Grows by one with every receive().
    quint64 receiveCount() const;

    /// The player that shows on this renderer (GUI thread; set by AVPlayer).
    AVPlayer* player() const;
    /// Changes with every change of a setting; unique across renderers.
    quint64 settingsRevision() const;
    /// Called after every change of a setting (null: none).
    void setChangeListener(std::function<void()> listener);

    /// Sets the size of the output in pixels.
    virtual void resizeRenderer(int width, int height);
    /// The size set by resizeRenderer(), in pixels (invalid before).
    QSize rendererSize() const;

    /// The rectangle of the source picture to show, in original-picture units.
    virtual void setRegionOfInterest(double x, double y, double width, double height);
    /// The rectangle as set; a null rectangle (the whole picture) before.
    QRectF regionOfInterest() const;

    /// Patch warp: regions, patch count and control points, kept as given.
    virtual void setPatchRoi(QVector<QRectF> regions);
    /// Sets the number of patches of the warp (rows x columns), kept as given.
    virtual void setPatchCount(int count);
    /// Sets the warp grid (`rows` x `cols`) and its control-point data,
    /// kept as given.
    virtual void setPatchInfo(int rows, int cols, QVector<float> points);
    /// The patch regions as set (empty before).
    QVector<QRectF> patchRoi() const;
    /// The patch count as set (0 before).
    int patchCount() const;
    /// The warp grid and control points as set (empty before).
    PatchInfo patchInfo() const;

protected:
    VideoRenderer();
    VideoRenderer(const VideoRenderer&) = delete;
    VideoRenderer& operator=(const VideoRenderer&) = delete;

    /// Guards every setting of this renderer and of its subclasses.
    mutable QMutex m_settingsMutex;

    /// The settings kept by this base class.
    struct BaseSettings
    {
        quint64 revision = 0;      ///< settingsRevision()
        VideoFrame frame;          ///< currentFrame()
        quint64 receiveCount = 0;  ///< receiveCount()
        QRectF roi;                ///< regionOfInterest()
        QVector<QRectF> patchRoi;  ///< patchRoi()
        int patchCount = 0;        ///< patchCount()
        PatchInfo patch;           ///< patchInfo()
    };
    /// A copy of them; the caller holds m_settingsMutex.
    BaseSettings baseSettingsLocked() const;

    /// A setter's critical section: holds m_settingsMutex; when it ends the
    /// revision grows and, after the lock is let go, the listener runs.
    class SettingsWrite
    {
    public:
        /// Locks the renderer's m_settingsMutex.
        explicit SettingsWrite(VideoRenderer& renderer);
        /// Gives the renderer a new revision, unlocks, then calls its change
        /// listener.
        ~SettingsWrite();
        SettingsWrite(const SettingsWrite&) = delete;
        SettingsWrite& operator=(const SettingsWrite&) = delete;

    private:
        VideoRenderer& m_renderer;
    };

private:
    friend class AVPlayer;
    AVPlayer* m_player = nullptr; // GUI thread: the player showing on this renderer
    // Guarded by m_settingsMutex.
    quint64 m_revision = 0;
    quint64 m_receiveCount = 0;
    std::function<void()> m_listener;

    // All guarded by m_settingsMutex.
    VideoFrame m_frame;
    QSize m_rendererSize;
    QRectF m_roi;
    QVector<QRectF> m_patchRoi;
    int m_patchCount = 0;
    PatchInfo m_patchInfo;
};

} // namespace QtAV
