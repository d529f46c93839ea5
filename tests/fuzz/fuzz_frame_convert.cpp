// libFuzzer target: the conversion of received PipeWire video buffers
// (pipewire/FrameConvert) with hostile sizes, strides, offsets and plane
// counts. Every plane must be checked against its memory before it is
// read: AddressSanitizer fails the run on any read outside the input.
//
// Input: byte 0 the pixel layout, bytes 1-2 the width and 3-4 the height
// (1..600), byte 5 the plane count (1..3), then per plane 2 bytes of offset
// and 2 of stride; the rest is the buffer memory, cut into as many pieces
// as there are planes.
#include "pipewire/FrameConvert.h"

#include <cstddef>
#include <cstdint>
#include <vector>

using namespace kelmor::pipewire;

namespace {

int word(const uint8_t* p)
{
    return int(p[0]) | (int(p[1]) << 8);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 6)
        return 0;
    static const PixelLayout layouts[] = {PixelLayout::BGRA, PixelLayout::RGBA, PixelLayout::BGRx,
                                          PixelLayout::RGBx, PixelLayout::NV12, PixelLayout::I420,
                                          PixelLayout::Unknown};
    const PixelLayout layout = layouts[data[0] % 7];
    const int width = 1 + word(data + 1) % 600;
    const int height = 1 + word(data + 3) % 600;
    const int planeCount = 1 + data[5] % 3;
    size_t at = 6;
    if (size < at + size_t(planeCount) * 4)
        return 0;
    PlaneView planes[3];
    for (int i = 0; i < planeCount; ++i, at += 4) {
        planes[i].offset = size_t(word(data + at));
        planes[i].stride = word(data + at + 2);
    }
    // The rest, copied so that the memory ends exactly where the input does.
    std::vector<uint8_t> memory(data + at, data + size);
    const size_t piece = memory.size() / size_t(planeCount);
    for (int i = 0; i < planeCount; ++i) {
        planes[i].data = memory.empty() ? nullptr : memory.data() + piece * size_t(i);
        planes[i].size = i == planeCount - 1 ? memory.size() - piece * size_t(i) : piece;
    }
    static FrameConvert convert; // reused across inputs, as a stream reuses it
    PackedPicture out;
    QString problem;
    convert.convert(layout, width, height, planes, planeCount, out, problem);
    return 0;
}
