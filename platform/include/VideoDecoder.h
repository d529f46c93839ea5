// QtAV::VideoDecoder: decoder ids by name.
//
// Known decoders: "FFmpeg" (software decoding) and "CUDA" (NVIDIA hardware
// decoding). id(name) gives the decoder's id when the name is known and the
// process's media engine offers that decoder, and 0 otherwise.
#pragma once

#include "KelmorPlatformExport.h"

#include <QStringList>

namespace QtAV {

using VideoDecoderId = int;

extern KELMOR_PLATFORM_EXPORT const VideoDecoderId VideoDecoderId_FFmpeg;
extern KELMOR_PLATFORM_EXPORT const VideoDecoderId VideoDecoderId_CUDA;

class KELMOR_PLATFORM_EXPORT VideoDecoder
{
public:
    static VideoDecoderId id(const char* name);
    /// The name of a known decoder id, or null.
    static const char* name(VideoDecoderId id);
    /// Names of the decoders the media engine offers.
    static QStringList supportedCodecs();
};

} // namespace QtAV
