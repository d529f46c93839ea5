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

class KELMOR_PLATFORM_EXPORT VideoFrame
{
public:
    VideoFrame() = default;
    /// A frame showing `image`, presented at `timestampMsec` of its stream.
    explicit VideoFrame(const QImage& image, qint64 timestampMsec = 0);
    /// A frame showing GL texture `textureId` of `size`; `bottomUp` when the
    /// texture's row 0 is the picture's bottom (a framebuffer's texture).
    static VideoFrame fromTexture(unsigned textureId, const QSize& size, bool bottomUp,
                                  qint64 timestampMsec = 0);

    bool isValid() const { return !m_image.isNull() || (m_texture != 0 && !m_textureSize.isEmpty()); }
    bool isTexture() const { return m_texture != 0; }
    int width() const { return isTexture() ? m_textureSize.width() : m_image.width(); }
    int height() const { return isTexture() ? m_textureSize.height() : m_image.height(); }
    QSize size() const { return QSize(width(), height()); }
    qint64 timestamp() const { return m_timestamp; }
    const QImage& image() const { return m_image; }
    unsigned textureId() const { return m_texture; }
    bool isBottomUp() const { return m_bottomUp; }

private:
    QImage m_image;
    unsigned m_texture = 0;
    QSize m_textureSize;
    bool m_bottomUp = false;
    qint64 m_timestamp = 0;
};

} // namespace QtAV
