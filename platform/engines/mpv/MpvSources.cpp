#include "MpvSources.h"

#include <algorithm>

namespace QtAV {

namespace {

// Options of every live source (see MpvSources.h for the reasons).
const char kLowLatency[] = "cache=no,cache-pause=no,demuxer-lavf-o-add=fflags=+nobuffer,"
                           "demuxer-lavf-analyzeduration=0.5,video-sync=audio";
// Further options of a network stream.
const char kNetwork[] = ",network-timeout=5,keep-open=no";
// Further option of an RTSP stream.
const char kRtsp[] = ",rtsp-transport=tcp";

bool isRtsp(const QString& url)
{
    return url.startsWith(QLatin1String("rtsp://"), Qt::CaseInsensitive)
        || url.startsWith(QLatin1String("rtsps://"), Qt::CaseInsensitive);
}

} // namespace

MpvSource MpvSources::sourceFor(const QString& mediaType, const QString& file)
{
    MpvSource source;
    if (file.isEmpty())
        return source;
    source.url = file.toUtf8();
    if (mediaType == QLatin1String("captureCard")) {
        // A device node goes through libavdevice's v4l2 input; a URL is the
        // caller's choice of input and is kept.
        if (file.startsWith(QLatin1String("/dev/")))
            source.url = QByteArrayLiteral("av://v4l2:") + source.url;
        source.options = kLowLatency;
        source.live = true;
    } else if (mediaType == QLatin1String("networkVideo")) {
        source.options = QByteArray(kLowLatency) + kNetwork;
        if (isRtsp(file))
            source.options += kRtsp;
        source.live = true;
        source.reopens = true;
    }
    return source;
}

int MpvRetry::next()
{
    ++m_attempt;
    const int delay = m_delay;
    m_delay = std::min(m_delay * 2, kMaxDelayMs);
    return delay;
}

void MpvRetry::reset()
{
    m_attempt = 0;
    m_delay = kFirstDelayMs;
}

} // namespace QtAV
