// QtAV::NoxOpenGLRender: one layer's render object on one output screen
// (type name "NoxGL").
//
// It is attached to the layer's player as a video output and pushed into the
// screen's NoxOpenGLWidgetRenderer, which draws it. Everything the layer
// service sets is kept here and reported back by the getters; drawing reads
// only this state.
//
// Coordinates: geometry and corners are in the screen widget's pixels with a
// top-left origin; the region of interest is in original-picture units.
//
// Threading: as VideoRenderer (settings guarded by the renderer's mutex).
// Ownership: created by the layer service, destroyed by its removal commands;
// neither the widget nor the player owns it.
#pragma once

#include "VideoRenderer.h"

#include <QPointF>
#include <QRect>
#include <QSizeF>

namespace QtAV {

/// Everything the compositor reads to draw a render object, taken under one
/// lock so that a frame never mixes two generations of settings.
struct RenderDrawState
{
    quint64 revision = 0;       ///< settingsRevision() when the copy was taken
    QSizeF originalSize;        ///< size of the layer's original picture
    QRect geometry;             ///< placement on the screen widget, in pixels
    QVector<QPointF> corners;   ///< setRect order; empty: none
    QRectF roi;                 ///< original-picture units; null: whole picture
    QVector<QRectF> patchRoi;   ///< patch regions of a warp; empty: none
    int patchCount = 0;         ///< number of patches of a warp
    PatchInfo patch;            ///< warp grid and control points
    double z = 0.0;             ///< depth; higher draws on top
    bool visible = true;        ///< false: not drawn
    int screenId = 0;           ///< screen number it belongs to
    int layerId = 0;            ///< layer number it belongs to
    VideoFrame received;        ///< the last frame given to receive()
    quint64 receiveCount = 0;   ///< how many frames receive() has taken
};

/// One layer's render object on one output screen (type name "NoxGL"):
/// keeps where and how the layer's picture is drawn there. Settings from any
/// thread (the renderer's mutex); made and destroyed by the layer service.
class KELMOR_PLATFORM_EXPORT NoxOpenGLRender : public VideoRenderer
{
public:
    /// A visible render object at depth 0 with no placement, corners,
    /// region or warp yet.
    NoxOpenGLRender();
    ~NoxOpenGLRender() override;

    /// VideoRendererId_NoxGL, whose name is "NoxGL".
    VideoRendererId id() const override;

    /// Size of the layer's original picture.
    void setOriginalWH(double width, double height);
    /// The original size as set (empty before).
    QSizeF originalSize() const;

    /// Where the picture sits on the screen widget. Positions and sizes are
    /// kept within +-kPlacementLimit pixels: a value beyond is saturated
    /// there, with a debug line.
    void setGeometry(int x, int y, int width, int height);
    /// The placement as kept, in the screen widget's pixels.
    QRect geometry() const;

    /// How far a placement reaches from the origin, in pixels: far beyond any
    /// screen, and small enough that every edge of the rectangle (x + width,
    /// x - 1, a sum of two placements) is an int.
    static constexpr int kPlacementLimit = (1 << 30) - 1;
    /// The rectangle setGeometry keeps for (x, y, width, height): each value
    /// clamped to +-kPlacementLimit. `saturated`, when given, tells whether
    /// any value was clamped.
    static QRect boundedGeometry(int x, int y, int width, int height, bool* saturated = nullptr);

    /// Screen number and layer number this render object belongs to.
    void setPlayerLayerID(int screenId, int layerId);
    /// The screen number as set (0 before).
    int screenId() const;
    /// The layer number as set (0 before).
    int layerId() const;

    /// The frame rate of the layer's stream, frames a second, as the layer
    /// service sets it (from the player's statistics; 60 for Spout). Kept
    /// for the host; drawing does not depend on it.
    void setFrameRate(double fps);
    /// The frame rate as set (0 before).
    double frameRate() const;

    /// The four corners of the quadrilateral the picture is drawn into, in the
    /// order left-top, left-bottom, right-bottom, right-top, kept as given.
    void setRect(QPointF leftTop, QPointF leftBottom, QPointF rightBottom, QPointF rightTop);
    /// Whether setRect() was called.
    bool hasCorners() const;
    /// The corners in setRect's order; empty before the first setRect.
    QVector<QPointF> corners() const;

    /// Depth among the render objects of a screen (higher draws on top).
    void setZ(double z);
    /// The depth as set (0 before).
    double z() const;

    /// Shows (true) or hides the render object; a hidden one is not drawn.
    void setVisible(bool visible);
    /// Whether the render object is drawn (true until hidden).
    bool isVisible() const;

    /// A consistent copy of every setting (any thread).
    RenderDrawState drawState() const;

private:
    // All guarded by VideoRenderer::m_settingsMutex.
    QSizeF m_originalSize;
    QRect m_geometry;
    int m_screenId = 0;
    int m_layerId = 0;
    double m_frameRate = 0.0;
    QVector<QPointF> m_corners;
    double m_z = 0.0;
    bool m_visible = true;
};

} // namespace QtAV
