// Turns one received video buffer (PipeWire's planes, in the negotiated
// format) into a tightly packed 4-byte picture that GL uploads as it is:
// BGRA/RGBA rows are copied, BGRx/RGBx get an opaque alpha, NV12 and I420 are
// converted with FFmpeg's libswscale (BT.601, limited range, as GStreamer's
// videotestsrc and most capture sources produce them).
//
// Every plane is checked against the memory it lives in before it is read:
// a short buffer, a stride below the width or an offset past the end
// refuses the frame (false, with the reason), never reads outside.
//
// Threading: one converter per stream, used on that stream's loop thread.
#pragma once

#include <QString>

#include <cstddef>
#include <cstdint>
#include <vector>

struct SwsContext;

namespace kelmor::pipewire {

/// The formats a "spout" layer accepts (values of spa_video_format).
enum class PixelLayout { Unknown, BGRA, RGBA, BGRx, RGBx, NV12, I420 };

PixelLayout layoutFromSpa(unsigned spaFormat);
const char* layoutName(PixelLayout layout);

/// One plane as the buffer gives it: bytes from `data` (the whole mapped
/// memory of `size` bytes), the plane at `offset`, rows `stride` apart
/// (0: not given).
struct PlaneView
{
    const uint8_t* data = nullptr;
    size_t size = 0;
    size_t offset = 0;
    int stride = 0;
};

/// A picture ready for upload: width*height pixels, 4 bytes each, rows top
/// first, in BGRA order when `bgra`, else RGBA (the vector may hold a few
/// bytes more, past the picture).
struct PackedPicture
{
    int width = 0;
    int height = 0;
    bool bgra = false;
    std::vector<uint8_t> pixels;
    uint64_t pts = 0; ///< the producer's timestamp (ns) when it sent one
};

class FrameConvert
{
public:
    FrameConvert();
    ~FrameConvert();
    FrameConvert(const FrameConvert&) = delete;
    FrameConvert& operator=(const FrameConvert&) = delete;

    /// Converts `planes` (1 entry: every plane in one memory block at the
    /// usual offsets; 2 or 3: one memory block per plane) into `out`.
    bool convert(PixelLayout layout, int width, int height, const PlaneView* planes, int planeCount,
                 PackedPicture& out, QString& problem);

private:
    bool convertYuv(PixelLayout layout, int width, int height, const PlaneView* planes,
                    int planeCount, PackedPicture& out, QString& problem);

    /// Bytes libswscale may read or write past a plane's last row.
    static constexpr size_t kReadPadding = 64;

    SwsContext* m_sws = nullptr; // reused while the size and format stay
    std::vector<uint8_t> m_staging[3]; // padded copies of planes that end too near their memory
    int m_swsWidth = 0;
    int m_swsHeight = 0;
    PixelLayout m_swsLayout = PixelLayout::Unknown;
};

} // namespace kelmor::pipewire
