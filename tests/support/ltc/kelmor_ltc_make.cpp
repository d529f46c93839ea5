// kelmor-ltc-make: writes LTC test audio (a mono 8-bit WAV) from segments,
// for the timecode tests, the benchmark and rehearsals without a desk.
//
//   kelmor-ltc-make OUT.wav [--rate HZ] [--volume DBFS] SEGMENT...
//   kelmor-ltc-make show.wav ltc:fps=25,start=01:00:00:00,frames=250 silence:ms=1000
//                   ltc:fps=25,start=01:00:20:00,frames=250
//
// Segments: see LtcFileMaker.h. Prints the first sample of each segment, one
// number a line, so that a caller knows where the jumps and stops are.
#include "LtcFileMaker.h"

#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s OUT.wav [--rate HZ] [--volume DBFS] SEGMENT...\n", argv[0]);
        return 1;
    }
    ltcfile::Plan plan;
    const std::string out = argv[1];
    for (int i = 2; i < argc; ++i) {
        const std::string arg = argv[i];
        if ((arg == "--rate" || arg == "--volume") && i + 1 < argc) {
            const double v = std::atof(argv[++i]);
            if (arg == "--rate" && v >= 8000 && v <= 192000)
                plan.sampleRate = static_cast<int>(v);
            else if (arg == "--volume" && v <= 0 && v >= -60)
                plan.volumeDbfs = v;
            else {
                std::fprintf(stderr, "kelmor-ltc-make: %s %s is out of range\n", arg.c_str(), argv[i]);
                return 1;
            }
            continue;
        }
        ltcfile::Segment s;
        std::string error;
        if (!ltcfile::parseSegment(arg, s, error)) {
            std::fprintf(stderr, "kelmor-ltc-make: %s\n", error.c_str());
            return 1;
        }
        plan.segments.push_back(s);
    }
    std::vector<std::int64_t> starts;
    std::string error;
    if (!ltcfile::writeWav(plan, out, error, &starts)) {
        std::fprintf(stderr, "kelmor-ltc-make: %s\n", error.c_str());
        return 1;
    }
    for (std::int64_t s : starts)
        std::printf("%lld\n", static_cast<long long>(s));
    return 0;
}
