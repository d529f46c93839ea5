#include "MpvDecoders.h"

#include "VideoDecoder.h"

#include <QFile>

namespace QtAV {

bool MpvDecoders::nvidiaPresent()
{
    static const bool present = QFile::exists(QStringLiteral("/proc/driver/nvidia/version"));
    return present;
}

QByteArray MpvDecoders::hwdecFor(const QVector<int>& priority, bool drawnOnGl)
{
    for (int id : priority) {
        if (id == VideoDecoderId_CUDA)
            return drawnOnGl && nvidiaPresent() ? QByteArrayLiteral("nvdec")
                                                : QByteArrayLiteral("nvdec-copy");
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
