// QtAV::VideoFrame: one picture as it is handed to renderers and players.
//
// A frame holds either an image in memory (QImage) or a GL texture of the
// compositor's context group (another screen's picture, a shared texture).
//
// Threading: a value type; copies share the pixel data (QImage is implicitly
// shared), so a frame may be passed between threads freely. A texture frame
// only names the texture; whoever made it keeps the texture alive until the
// next frame replaces it.
// A default-constructed frame is empty (isValid() false): a renderer that
// receives it shows nothing until the next valid frame.
#pragma once

#include "KelmorPlatformExport.h"

#include <QImage>
#include <QSize>
#include <QtGlobal>

namespace QtAV {

/// One picture: an image in memory or a GL texture of the compositor's
/// context group. A value type; a default-constructed frame is empty.
class KELMOR_PLATFORM_EXPORT VideoFrame
{
public:
    /// An empty frame (isValid() false): a renderer given it shows nothing.
    VideoFrame() = default;
    /// A frame showing `image`, presented at `timestampMsec` of its stream.
    explicit VideoFrame(const QImage& image, qint64 timestampMsec = 0);
    /// A frame showing GL texture `textureId` of `size`; `bottomUp` when the
    /// texture's row 0 is the picture's bottom (a framebuffer's texture).
    static VideoFrame fromTexture(unsigned textureId, const QSize& size, bool bottomUp,
                                  qint64 timestampMsec = 0);

    /// Whether the frame shows something: a non-null image, or a texture
    /// with a non-empty size.
    bool isValid() const { return !m_image.isNull() || (m_texture != 0 && !m_textureSize.isEmpty()); }
    /// Whether the frame names a GL texture (rather than holding an image).
    bool isTexture() const { return m_texture != 0; }
    /// Width in pixels (of the texture, or of the image).
    int width() const { return isTexture() ? m_textureSize.width() : m_image.width(); }
    /// Height in pixels (of the texture, or of the image).
    int height() const { return isTexture() ? m_textureSize.height() : m_image.height(); }
    /// Width and height in pixels.
    QSize size() const { return QSize(width(), height()); }
    /// When the frame is presented in its stream, in ms.
    qint64 timestamp() const { return m_timestamp; }
    /// The image (null for a texture frame or an empty one).
    const QImage& image() const { return m_image; }
    /// The GL texture name; 0 for an image frame or an empty one.
    unsigned textureId() const { return m_texture; }
    /// Whether the texture's row 0 is the picture's bottom (texture frames).
    bool isBottomUp() const { return m_bottomUp; }

private:
    QImage m_image;
    unsigned m_texture = 0;
    QSize m_textureSize;
    bool m_bottomUp = false;
    qint64 m_timestamp = 0;
};

} // namespace QtAV
