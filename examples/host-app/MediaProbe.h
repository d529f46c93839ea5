// MediaProbe: a media file's length, read with libavformat, for the window's
// position slider. The module reports positions while a layer plays but not
// the length of its item; a host usually keeps lengths in its own media
// library, and this example reads them from the file.
#pragma once

#include <QString>

/// The length of the media file at `path` in ms; -1 when it cannot be read
/// (not media, a still, a live stream). Reads the file's header and a little
/// of its streams on the calling thread.
qint64 probeDurationMs(const QString& path);
