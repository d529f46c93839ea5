#include "pipewire/FrameConvert.h"

#include <spa/param/video/raw.h>

extern "C" {
#include <libavutil/pixfmt.h>
#include <libswscale/swscale.h>
}

#include <cstring>

namespace kelmor::pipewire {

namespace {

int roundUp(int value, int multiple)
{
    return (value + multiple - 1) / multiple * multiple;
}

/// Whether rows [offset, offset + stride * (rows - 1) + rowBytes) lie in
/// the plane's memory.
bool fits(const PlaneView& plane, size_t offset, int stride, int rows, int rowBytes)
{
    if (!plane.data || stride < rowBytes || rows <= 0 || rowBytes <= 0)
        return false;
    const unsigned long long end = static_cast<unsigned long long>(offset)
        + static_cast<unsigned long long>(stride) * static_cast<unsigned long long>(rows - 1)
        + static_cast<unsigned long long>(rowBytes);
    return end <= plane.size;
}

} // namespace

PixelLayout layoutFromSpa(unsigned spaFormat)
{
    switch (spaFormat) {
    case SPA_VIDEO_FORMAT_BGRA: return PixelLayout::BGRA;
    case SPA_VIDEO_FORMAT_RGBA: return PixelLayout::RGBA;
    case SPA_VIDEO_FORMAT_BGRx: return PixelLayout::BGRx;
    case SPA_VIDEO_FORMAT_RGBx: return PixelLayout::RGBx;
    case SPA_VIDEO_FORMAT_NV12: return PixelLayout::NV12;
    case SPA_VIDEO_FORMAT_I420: return PixelLayout::I420;
    default: return PixelLayout::Unknown;
    }
}

const char* layoutName(PixelLayout layout)
{
    switch (layout) {
    case PixelLayout::BGRA: return "BGRA";
    case PixelLayout::RGBA: return "RGBA";
    case PixelLayout::BGRx: return "BGRx";
    case PixelLayout::RGBx: return "RGBx";
    case PixelLayout::NV12: return "NV12";
    case PixelLayout::I420: return "I420";
    case PixelLayout::Unknown: break;
    }
    return "unknown";
}

FrameConvert::FrameConvert() = default;

FrameConvert::~FrameConvert()
{
    sws_freeContext(m_sws);
}

bool FrameConvert::convert(PixelLayout layout, int width, int height, const PlaneView* planes,
                           int planeCount, PackedPicture& out, QString& problem)
{
    if (width <= 0 || height <= 0 || planeCount <= 0 || !planes) {
        problem = QStringLiteral("no picture in the buffer");
        return false;
    }
    if (layout == PixelLayout::NV12 || layout == PixelLayout::I420)
        return convertYuv(layout, width, height, planes, planeCount, out, problem);
    if (layout == PixelLayout::Unknown) {
        problem = QStringLiteral("unsupported pixel format");
        return false;
    }
    const PlaneView& p = planes[0];
    const int rowBytes = width * 4;
    const int stride = p.stride > 0 ? p.stride : rowBytes;
    if (!fits(p, p.offset, stride, height, rowBytes)) {
        problem = QStringLiteral("buffer too small for %1x%2 (stride %3, %4 bytes)")
                      .arg(width).arg(height).arg(stride).arg(p.size);
        return false;
    }
    out.width = width;
    out.height = height;
    out.bgra = layout == PixelLayout::BGRA || layout == PixelLayout::BGRx;
    out.pixels.resize(static_cast<size_t>(rowBytes) * height);
    const uint8_t* src = p.data + p.offset;
    uint8_t* dst = out.pixels.data();
    for (int y = 0; y < height; ++y)
        std::memcpy(dst + static_cast<size_t>(y) * rowBytes, src + static_cast<size_t>(y) * stride, rowBytes);
    if (layout == PixelLayout::BGRx || layout == PixelLayout::RGBx) {
        // The padding byte is the fourth in both orders: make it opaque.
        const size_t count = static_cast<size_t>(width) * height;
        for (size_t i = 0; i < count; ++i)
            dst[i * 4 + 3] = 0xff;
    }
    return true;
}

bool FrameConvert::convertYuv(PixelLayout layout, int width, int height, const PlaneView* planes,
                              int planeCount, PackedPicture& out, QString& problem)
{
    const bool nv12 = layout == PixelLayout::NV12;
    const int chromaW = (width + 1) / 2, chromaH = (height + 1) / 2;
    const int planesNeeded = nv12 ? 2 : 3;
    const int rowBytes[3] = {width, nv12 ? chromaW * 2 : chromaW, chromaW};
    const int rows[3] = {height, chromaH, chromaH};
    const uint8_t* src[4] = {nullptr, nullptr, nullptr, nullptr};
    int strides[4] = {0, 0, 0, 0};
    for (int i = 0; i < planesNeeded; ++i) {
        const PlaneView* memory;
        size_t offset;
        int stride;
        if (planeCount >= planesNeeded) {
            memory = &planes[i];
            offset = memory->offset;
            stride = memory->stride > 0 ? memory->stride : rowBytes[i];
        } else {
            // All planes in one block, laid out the way GStreamer lays them:
            // rows padded to 4 bytes, each plane after the previous one.
            memory = &planes[0];
            const int lumaStride = planes[0].stride > 0 ? planes[0].stride : roundUp(width, 4);
            const int chromaStride = nv12 ? lumaStride : roundUp(chromaW, 4);
            const size_t lumaBytes = static_cast<size_t>(lumaStride) * roundUp(height, 2);
            const size_t chromaBytes = static_cast<size_t>(chromaStride) * (roundUp(height, 2) / 2);
            stride = i == 0 ? lumaStride : chromaStride;
            offset = memory->offset + (i == 0 ? 0 : lumaBytes + (i == 2 ? chromaBytes : 0));
        }
        if (!fits(*memory, offset, stride, rows[i], rowBytes[i])) {
            problem = QStringLiteral("%1 plane %2 does not fit its buffer").arg(layoutName(layout)).arg(i);
            return false;
        }
        src[i] = memory->data + offset;
        strides[i] = stride;
        // libswscale reads whole SIMD blocks, a little past the end of the
        // last row: a plane that ends too near the end of its memory is
        // copied into a padded buffer first.
        const size_t end = offset + size_t(stride) * size_t(rows[i] - 1) + size_t(rowBytes[i]);
        if (end + kReadPadding > memory->size) {
            const int padded = roundUp(rowBytes[i], 64);
            std::vector<uint8_t>& copy = m_staging[i];
            copy.assign(size_t(padded) * size_t(rows[i]) + kReadPadding, 0);
            for (int y = 0; y < rows[i]; ++y)
                std::memcpy(copy.data() + size_t(y) * padded, src[i] + size_t(y) * stride,
                            size_t(rowBytes[i]));
            src[i] = copy.data();
            strides[i] = padded;
        }
    }
    const AVPixelFormat from = nv12 ? AV_PIX_FMT_NV12 : AV_PIX_FMT_YUV420P;
    if (!m_sws || m_swsWidth != width || m_swsHeight != height || m_swsLayout != layout) {
        sws_freeContext(m_sws);
        m_sws = sws_getContext(width, height, from, width, height, AV_PIX_FMT_RGBA, SWS_BILINEAR,
                               nullptr, nullptr, nullptr);
        m_swsWidth = width;
        m_swsHeight = height;
        m_swsLayout = layout;
    }
    if (!m_sws) {
        problem = QStringLiteral("no converter for %1 at %2x%3").arg(layoutName(layout)).arg(width).arg(height);
        return false;
    }
    out.width = width;
    out.height = height;
    out.bgra = false;
    // Room past the picture for libswscale's block writes (not uploaded).
    out.pixels.resize(static_cast<size_t>(width) * height * 4 + kReadPadding);
    uint8_t* dst[4] = {out.pixels.data(), nullptr, nullptr, nullptr};
    int dstStride[4] = {width * 4, 0, 0, 0};
    sws_scale(m_sws, src, strides, 0, height, dst, dstStride);
    return true;
}

} // namespace kelmor::pipewire
