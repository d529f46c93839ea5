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
// Threading: GUI thread (pictureChanged is emitted there).
// Ownership: the host owns it; the player only refers to it. It tells the
// screen service as it comes and goes.
#pragma once

#include "VideoRenderer.h"

#include <QImage>
#include <QObject>

namespace QtAV {

class KELMOR_PLATFORM_EXPORT PreviewRenderer : public QObject, public VideoRenderer
{
    Q_OBJECT
public:
    explicit PreviewRenderer(QObject* parent = nullptr);
    ~PreviewRenderer() override;

    VideoRendererId id() const override;
    int videoRenderType() const override { return VideoRenderType_Custom; }

    /// The most pictures a second the preview takes (default 15; 0 < fps <= 120).
    void setMaxRate(double fps);
    double maxRate() const;

    /// The newest picture (null before the first).
    QImage picture() const;
    /// Called by the compositor with a new picture.
    void setPicture(const QImage& picture);

signals:
    void pictureChanged();

private:
    // GUI thread.
    double m_maxRate = 15.0;
    QImage m_picture;
};

} // namespace QtAV
