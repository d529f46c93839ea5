// Damaged media for the runner's bad-media test: good media made with ffmpeg
// into a work directory, then 40 damaged files made from them, each with the
// layer type that plays it and what the runner must make of it.
//
// What must fail and what may play, by kind of damage:
// - nothing that can be media (an empty file, a directory named like media,
//   random bytes, text, a missing file), an MP4 or M4A cut before its index
//   (ffmpeg writes the index at the end), one cut inside the index or with
//   its header zeroed, a picture whose signature is gone: must give a
//   mediaError and never load.
// - the front of a file whose index comes first, a WAV or MP3 cut short,
//   noise in the middle, zeroed or noisy leading bytes where the format can
//   resynchronise, a good file under a wrong extension: the decoders may
//   get something out of them or not; each must either load or give a
//   mediaError, never both and never neither.
//
// Threading: the test's main thread.
#pragma once

#include <QList>
#include <QString>

namespace runner_test {

struct DamagedFile
{
    QString path;       ///< absolute path (may be a directory, or missing)
    QString layerType;  ///< "video", "audio" or "picture"
    bool mustFail = true; ///< false: may load or fail, but exactly one of them
};

/// Makes the good media (ffmpeg) and the damaged set in `dir`; an empty list
/// (and a test failure) when ffmpeg fails.
QList<DamagedFile> makeDamagedMedia(const QString& dir);

/// A 40 s, 96x54, 10 fps H.264 clip made in `dir` with ffmpeg (the layer that
/// keeps playing while the damaged ones are tried); empty when ffmpeg fails.
QString makeSentinelClip(const QString& dir);

} // namespace runner_test
