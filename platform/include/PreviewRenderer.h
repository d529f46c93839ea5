// QtAV::PreviewRenderer: a small live picture of a layer for the host's own
// window (an operator's preview), as opposed to the render objects of the
// output screens.
//
// Identity: type name "Preview" (VideoRenderer::name of id()), render type
// VideoRenderType_Custom, so the layer service sizes it with
// resizeUIRenderer and removes it with delCustomRenderer.
//
// The host attaches it with AVPlayer::addVideoRenderer and reads picture()
// whenever pictureChanged() is emitted. The compositor fills it from the same
// texture the output screens draw (no second decode), scaled to the size set
// with resizeRenderer (160x90 until then), at most maxRate() times a second.
//
// A preview may show a whole output screen instead (setScreenId): then the
// compositor scales that screen's finished picture (monitor effects
// included, as the audience sees it) into the preview after each redraw of
// the screen, at most maxRate() times a second; an idle screen costs nothing.
//
// Threading: GUI thread (pictureChanged is emitted there).
// Ownership: the host owns it; the player only refers to it. It tells the
// screen service as it comes and goes.
#pragma once

#include "VideoRenderer.h"

#include <QImage>
#include <QObject>

namespace QtAV {

/// A small live picture of a layer, or of a whole output screen, for the
/// host's own window (an operator's preview), filled by the compositor from
/// the pictures the output screens draw. GUI thread; owned by the host.
class KELMOR_PLATFORM_EXPORT PreviewRenderer : public QObject, public VideoRenderer
{
    Q_OBJECT
public:
    /// An empty preview, registered with the screen service (which fills it
    /// once a player shows on it).
    explicit PreviewRenderer(QObject* parent = nullptr);
    /// Unregisters the preview from the screen service.
    ~PreviewRenderer() override;

    /// The id registered for the type name "Preview".
    VideoRendererId id() const override;
    /// VideoRenderType_Custom: the layer service resizes previews with
    /// resizeUIRenderer and removes them with delCustomRenderer.
    int videoRenderType() const override { return VideoRenderType_Custom; }

    /// The most pictures a second the preview takes (default 15; 0 < fps <= 120).
    /// A rate outside that range is ignored with a debug line.
    void setMaxRate(double fps);
    /// The most pictures a second, as set (15 until then).
    double maxRate() const;

    /// Shows the output screen with this id instead of a player's picture
    /// (-1, the default: the player it is attached to). A screen that is not
    /// open gives no picture until it opens.
    void setScreenId(int screenId);
    /// The output screen shown, as set (-1: the attached player's picture).
    int screenId() const { return m_screenId; }

    /// The newest picture (null before the first).
    QImage picture() const;
    /// Called by the compositor with a new picture.
    void setPicture(const QImage& picture);

signals:
    /// A new picture is available from picture().
    void pictureChanged();

private:
    // GUI thread.
    double m_maxRate = 15.0;
    QImage m_picture;
    int m_screenId = -1;
};

} // namespace QtAV
