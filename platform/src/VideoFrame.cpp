#include "VideoFrame.h"

namespace QtAV {

VideoFrame::VideoFrame(const QImage& image, qint64 timestampMsec)
    : m_image(image), m_timestamp(timestampMsec)
{
}

} // namespace QtAV
