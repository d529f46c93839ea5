// QtAV::VideoDecoder: decoder ids by name.
//
// Known decoders: "FFmpeg" (software decoding) and "CUDA" (NVIDIA hardware
// decoding). id(name) gives the decoder's id when the name is known and the
// process's media engine offers that decoder, and 0 otherwise.
#pragma once

#include "KelmorPlatformExport.h"

#include <QStringList>

namespace QtAV {

/// A decoder's id; 0 for none.
using VideoDecoderId = int;

/// Id of the software decoder, named "FFmpeg".
extern KELMOR_PLATFORM_EXPORT const VideoDecoderId VideoDecoderId_FFmpeg;
/// Id of the NVIDIA hardware decoder, named "CUDA".
extern KELMOR_PLATFORM_EXPORT const VideoDecoderId VideoDecoderId_CUDA;

/// Decoder ids by name, for AVPlayer::setPriority().
class KELMOR_PLATFORM_EXPORT VideoDecoder
{
public:
    /// The id of "FFmpeg" or "CUDA" (exact names) when the process's engine
    /// offers that decoder, or when there is no engine; 0 for any other name,
    /// a decoder the engine lacks, or null.
    static VideoDecoderId id(const char* name);
    /// The name of a known decoder id, or null.
    static const char* name(VideoDecoderId id);
    /// Names of the decoders the media engine offers.
    static QStringList supportedCodecs();
};

} // namespace QtAV
