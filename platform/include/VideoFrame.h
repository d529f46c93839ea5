// QtAV::VideoFrame: one decoded picture as the engine hands it to renderers.
//
// Threading: a value type; copies share the pixel data (QImage is implicitly
// shared), so a frame may be passed between threads freely.
// A default-constructed frame is empty (isValid() false): a renderer that
// receives it shows nothing until the next valid frame.
#pragma once

#include "KelmorPlatformExport.h"

#include <QImage>
#include <QtGlobal>

namespace QtAV {

class KELMOR_PLATFORM_EXPORT VideoFrame
{
public:
    VideoFrame() = default;
    /// A frame showing `image`, presented at `timestampMsec` of its stream.
    explicit VideoFrame(const QImage& image, qint64 timestampMsec = 0);

    bool isValid() const { return !m_image.isNull(); }
    int width() const { return m_image.width(); }
    int height() const { return m_image.height(); }
    qint64 timestamp() const { return m_timestamp; }
    const QImage& image() const { return m_image; }

private:
    QImage m_image;
    qint64 m_timestamp = 0;
};

} // namespace QtAV
