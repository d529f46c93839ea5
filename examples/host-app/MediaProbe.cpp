#include "MediaProbe.h"

#include <QDebug>
#include <QFile>

extern "C" {
#include <libavformat/avformat.h>
}

#include <memory>

namespace {

struct FormatCloser
{
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};

// Enough to find a length without reading far into a large or odd file.
constexpr const char* kProbeSize = "2000000";
constexpr const char* kAnalyzeDuration = "2000000"; // microseconds

} // namespace

qint64 probeDurationMs(const QString& path)
{
    if (path.isEmpty())
        return -1;
    AVDictionary* settings = nullptr;
    av_dict_set(&settings, "probesize", kProbeSize, 0);
    av_dict_set(&settings, "analyzeduration", kAnalyzeDuration, 0);
    AVFormatContext* opened = nullptr;
    const QByteArray name = QFile::encodeName(path);
    const int rc = avformat_open_input(&opened, name.constData(), nullptr, &settings);
    av_dict_free(&settings);
    if (rc < 0) {
        qDebug() << "probeDurationMs: cannot open" << path;
        return -1;
    }
    std::unique_ptr<AVFormatContext, FormatCloser> context(opened);
    if (avformat_find_stream_info(context.get(), nullptr) < 0) {
        qDebug() << "probeDurationMs: no stream information in" << path;
        return -1;
    }
    const int64_t duration = context->duration;
    if (duration == AV_NOPTS_VALUE || duration <= 0)
        return -1;
    return static_cast<qint64>(duration / (AV_TIME_BASE / 1000));
}
