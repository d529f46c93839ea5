#include "MpvDecoders.h"

#include "VideoDecoder.h"

namespace QtAV {

QByteArray MpvDecoders::hwdecFor(const QVector<int>& priority)
{
    for (int id : priority) {
        if (id == VideoDecoderId_CUDA)
            return QByteArrayLiteral("nvdec-copy");
        if (id == VideoDecoderId_FFmpeg)
            return QByteArrayLiteral("no");
    }
    return QByteArrayLiteral("no");
}

QString MpvDecoders::nameFor(const QString& hwdecCurrent)
{
    if (hwdecCurrent.isEmpty() || hwdecCurrent == QLatin1String("no"))
        return QStringLiteral("FFmpeg");
    return QStringLiteral("CUDA");
}

} // namespace QtAV
