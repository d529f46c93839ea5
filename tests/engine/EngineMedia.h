// Media the engine tests play, made with ffmpeg at test time and kept in the
// build tree (made once, shared by the test processes).
#pragma once

#include <QString>

namespace EngineMedia {

/// 2 s, 160x90, 25 fps H.264 with a 440 Hz stereo AAC tone.
QString clip();
/// A 160x90 PNG picture.
QString picture();
/// The first part of clip(): its index and most of its frames are missing.
QString truncatedClip();
/// clip() with its middle overwritten by noise.
QString corruptedClip();
/// A text file named .mp4.
QString textAsMp4();
/// A copy of clip() that nobody may read.
QString unreadableClip();
/// A path where no file is.
QString missingFile();
/// A URL whose port refuses connections.
QString unreachableUrl();

/// Whether ffmpeg made the media (false: the tests that need it fail).
bool ready();

} // namespace EngineMedia
