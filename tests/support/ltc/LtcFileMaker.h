// LTC test audio of the project's own, encoded with libltc: a plan of
// segments (LTC at a rate from a start label, silence, noise), rendered as
// 8-bit mono samples and written as a WAV file through libavformat.
//
// Segment text, as the tool and the tests write it:
//   ltc:fps=25,start=01:00:00:00,frames=250[,reverse=1][,speed=1.1][,noise=0.3]
//       LTC frames counted up from start (down when reversed); fps is 24,
//       25, 29.97 (drop-frame) or 30; speed > 1 plays slower (longer
//       frames), < 1 faster; noise adds white noise of that amplitude
//       (1 = full scale).
//   silence:ms=1500
//   noise:ms=500[,level=0.5]
//
// Threading: any (no shared state but a fixed-seed noise generator per
// render).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ltcfile {

struct Segment
{
    enum class Kind { Ltc, Silence, Noise };
    Kind kind = Kind::Ltc;
    double fps = 25.0;     ///< 24, 25, 29.97 or 30
    int hours = 0, minutes = 0, seconds = 0, frames = 0; ///< the first label
    int count = 0;         ///< Ltc: frames to write
    bool reverse = false;  ///< Ltc: played backwards
    double speed = 1.0;    ///< Ltc: > 1 slower, < 1 faster
    double noise = 0.0;    ///< Ltc: noise amplitude mixed in; Noise: its level
    int ms = 0;            ///< Silence, Noise: length
};

struct Plan
{
    int sampleRate = 48000;
    double volumeDbfs = -3.0; ///< the LTC's level
    std::vector<Segment> segments;
};

/// Reads one segment's text; false and `error` when it is not one.
bool parseSegment(const std::string& text, Segment& segment, std::string& error);
/// The plan's samples (unsigned 8 bit, 128 = silence); `segmentStarts` gets
/// the first sample of each segment.
std::vector<std::uint8_t> render(const Plan& plan, std::vector<std::int64_t>* segmentStarts = nullptr);
/// Renders the plan into a mono 8-bit WAV file at `path`.
bool writeWav(const Plan& plan, const std::string& path, std::string& error,
              std::vector<std::int64_t>* segmentStarts = nullptr);

} // namespace ltcfile
