// Decoder choice: the player's priority list (VideoDecoder ids) to libmpv's
// "hwdec", and libmpv's "hwdec-current" back to a decoder name.
//
// The first known id of the list decides: FFmpeg is software decoding
// ("hwdec=no"); CUDA is NVIDIA decoding. Where the pictures are drawn on
// OpenGL and an NVIDIA driver is loaded, the frames stay on the GPU ("nvdec":
// libmpv hands them to GL through CUDA interop); otherwise they are copied
// back to system memory ("nvdec-copy"). libmpv falls back to software decoding
// by itself when the machine or the stream cannot do it. An empty list means
// software decoding.
//
// GPU interop is only probed where an NVIDIA driver is loaded
// ("gpu-hwdec-interop=no" elsewhere), so machines without one start their
// cores without trying to load CUDA.
#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

namespace QtAV {

struct MpvDecoders
{
    static QByteArray hwdecFor(const QVector<int>& priority, bool drawnOnGl);
    /// Whether an NVIDIA kernel driver is loaded (checked once).
    static bool nvidiaPresent();
    /// "FFmpeg" for software decoding ("no"), "CUDA" for an NVIDIA one.
    static QString nameFor(const QString& hwdecCurrent);
};

} // namespace QtAV
