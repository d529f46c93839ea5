#include "VideoFrame.h"

namespace QtAV {

VideoFrame::VideoFrame(const QImage& image, qint64 timestampMsec)
    : m_image(image), m_timestamp(timestampMsec)
{
}

VideoFrame VideoFrame::fromTexture(unsigned textureId, const QSize& size, bool bottomUp,
                                   qint64 timestampMsec)
{
    VideoFrame frame;
    frame.m_texture = textureId;
    frame.m_textureSize = size;
    frame.m_bottomUp = bottomUp;
    frame.m_timestamp = timestampMsec;
    return frame;
}

} // namespace QtAV
