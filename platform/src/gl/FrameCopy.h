// The cheapest way a picture reaches a screen: a layer that is the only one
// drawn on the screen, showing its whole picture 1:1 in a rectangle (the
// texture has exactly the rectangle's size), at full opacity, with neutral
// layer effects and an opaque picture, is copied into the screen's bound
// framebuffer (glBlitFramebuffer, rows flipped as the texture's orientation
// asks) instead of being drawn through the layer shader. The pixels are the
// ones the shader writes: at 1:1 the texture is sampled at texel centres, and
// an opaque picture over the cleared black is the picture itself.
//
// Threading: GUI thread with the compositor's context current. Ownership:
// the read framebuffer it attaches textures to is its own.
#pragma once

#include "VideoFrameSource.h"

#include <QRect>
#include <QSize>

namespace kelmor::gl {

class FrameCopy
{
public:
    FrameCopy() = default;
    ~FrameCopy();
    FrameCopy(const FrameCopy&) = delete;
    FrameCopy& operator=(const FrameCopy&) = delete;

    /// Whether `texture` shown at `rect` of a `target`-sized screen can be
    /// copied (the sizes match and the rectangle lies within the screen).
    static bool fits(const QtAV::FrameTexture& texture, const QRect& rect, const QSize& target);
    /// Copies the texture into `rect` of the bound framebuffer (`target`
    /// pixels, top-left origin); false (nothing done) when it cannot.
    bool copy(const QtAV::FrameTexture& texture, const QRect& rect, const QSize& target);

private:
    unsigned m_read = 0; // framebuffer name; compositor's context
};

} // namespace kelmor::gl
