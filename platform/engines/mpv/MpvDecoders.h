// Decoder choice: the player's priority list (VideoDecoder ids) to libmpv's
// "hwdec", and libmpv's "hwdec-current" back to a decoder name.
//
// The first known id of the list decides: FFmpeg is software decoding
// ("hwdec=no"); CUDA is NVIDIA decoding copied back to system memory
// ("nvdec-copy"), which libmpv drops for software decoding by itself when the
// machine or the stream cannot do it. An empty list means software decoding.
#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

namespace QtAV {

struct MpvDecoders
{
    static QByteArray hwdecFor(const QVector<int>& priority);
    /// "FFmpeg" for software decoding ("no"), "CUDA" for an NVIDIA one.
    static QString nameFor(const QString& hwdecCurrent);
};

} // namespace QtAV
