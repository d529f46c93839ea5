// Media of the output-screen tests, made with ffmpeg on first use in the
// build tree and shared by the test processes.
#pragma once

#include <QString>

namespace ScreenMedia {

/// 2 s, 320x180, 25 fps H.264 of four quadrants (red top-left, green
/// top-right, blue bottom-left, white bottom-right), converted and tagged
/// BT.709 so that the colours come back exact; with a 440 Hz tone.
QString quadrantClip();
/// 20 s, 320x180, 25 fps H.264 of ffmpeg's moving test picture, with a tone.
QString movingClip();
/// 4 s, 320x180, 25 fps H.264, red for 2.5 s then green, one keyframe (at
/// the start), no sound.
QString redThenGreenClip();
/// A 320x180 PNG of the same four quadrants.
QString quadrantPicture();

} // namespace ScreenMedia
