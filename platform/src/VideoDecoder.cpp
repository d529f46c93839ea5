#include "VideoDecoder.h"

#include "MediaEngine.h"

#include <cstring>

namespace QtAV {

const VideoDecoderId VideoDecoderId_FFmpeg = 1;
const VideoDecoderId VideoDecoderId_CUDA = 2;

namespace {

struct KnownDecoder
{
    const char* name;
    VideoDecoderId id;
};

const KnownDecoder kKnown[] = {
    {"FFmpeg", VideoDecoderId_FFmpeg},
    {"CUDA", VideoDecoderId_CUDA},
};

// Without an engine the players decode nothing, and every known decoder
// counts as offered so that a priority list is kept as the host gave it.
bool offered(VideoDecoderId id)
{
    MediaEngine* engine = mediaEngine();
    return !engine || engine->hasDecoder(id);
}

} // namespace

VideoDecoderId VideoDecoder::id(const char* name)
{
    if (!name)
        return 0;
    for (const KnownDecoder& d : kKnown) {
        if (std::strcmp(d.name, name) == 0)
            return offered(d.id) ? d.id : 0;
    }
    return 0;
}

const char* VideoDecoder::name(VideoDecoderId id)
{
    for (const KnownDecoder& d : kKnown) {
        if (d.id == id)
            return d.name;
    }
    return nullptr;
}

QStringList VideoDecoder::supportedCodecs()
{
    QStringList names;
    for (const KnownDecoder& d : kKnown) {
        if (offered(d.id))
            names << QString::fromLatin1(d.name);
    }
    return names;
}

} // namespace QtAV
