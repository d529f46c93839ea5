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
    quint64 revision = 0;
    QSizeF originalSize;
    QRect geometry;
    QVector<QPointF> corners;   ///< setRect order; empty: none
    QRectF roi;                 ///< original-picture units; null: whole picture
    QVector<QRectF> patchRoi;
    int patchCount = 0;
    PatchInfo patch;
    double z = 0.0;
    bool visible = true;
    int screenId = 0;
    int layerId = 0;
    VideoFrame received;        ///< the last frame given to receive()
    quint64 receiveCount = 0;
};

class KELMOR_PLATFORM_EXPORT NoxOpenGLRender : public VideoRenderer
{
public:
    NoxOpenGLRender();
    ~NoxOpenGLRender() override;

    VideoRendererId id() const override;

    /// Size of the layer's original picture.
    void setOriginalWH(double width, double height);
    QSizeF originalSize() const;

    /// Where the picture sits on the screen widget. Positions and sizes are
    /// kept within +-kPlacementLimit pixels: a value beyond is saturated
    /// there, with a debug line.
    void setGeometry(int x, int y, int width, int height);
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
    int screenId() const;
    int layerId() const;

    void setFrameRate(double fps);
    double frameRate() const;

    /// The four corners of the quadrilateral the picture is drawn into, in the
    /// order left-top, left-bottom, right-bottom, right-top, kept as given.
    void setRect(QPointF leftTop, QPointF leftBottom, QPointF rightBottom, QPointF rightTop);
    bool hasCorners() const;
    /// The corners in setRect's order; empty before the first setRect.
    QVector<QPointF> corners() const;

    /// Depth among the render objects of a screen (higher draws on top).
    void setZ(double z);
    double z() const;

    void setVisible(bool visible);
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
