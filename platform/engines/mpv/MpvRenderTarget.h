// The framebuffer libmpv renders a source's pictures into: one texture of
// 8-bit colour and a framebuffer object around it.
//
// The texture's storage is asked for in the byte order of a window's buffer
// (blue, green, red, alpha): when a presentation thread copies a picture of
// the same size into a window (WindowPresenter.h), a software GL driver then
// copies memory rather than drawing the copy as a textured quad (on Mesa's
// llvmpipe, about 0.15 ms instead of 2 to 5 ms for 1280x720). What is
// sampled and read back is the same as from an RGBA texture: the GL driver
// keeps the channels where they belong, only the bytes' order in memory
// differs. Under OpenGL ES the texture is plain RGBA.
//
// Threading: made, used and destroyed with the compositor's context current
// (the GUI thread).
#pragma once

#include <QSize>

namespace QtAV {

class MpvRenderTarget
{
public:
    /// Null texture and framebuffer (isValid false, with a debug line) when
    /// GL refuses them.
    explicit MpvRenderTarget(const QSize& size);
    ~MpvRenderTarget();
    MpvRenderTarget(const MpvRenderTarget&) = delete;
    MpvRenderTarget& operator=(const MpvRenderTarget&) = delete;

    bool isValid() const { return m_framebuffer != 0; }
    unsigned texture() const { return m_texture; }
    unsigned framebuffer() const { return m_framebuffer; }
    QSize size() const { return m_size; }

private:
    unsigned m_texture = 0;
    unsigned m_framebuffer = 0;
    QSize m_size;
};

} // namespace QtAV
