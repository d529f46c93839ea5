// The frame source of pictures pushed into a player from outside its engine
// (NDI receivers, other output screens, shared textures, tests).
//
// Threading: push() and serial() from any thread (m_mutex guards the newest
// frame); updateTexture() where output frames are drawn, with the
// compositor's context current (the GUI thread, or the render thread while a
// frame is lent to it); made and destroyed on the GUI thread, which waits for
// a frame under way before it destroys one.
// A pushed image is uploaded once, when updateTexture() first sees it; a
// pushed texture frame is handed through as it is (its maker keeps it alive).
// Frames replaced by a newer push before updateTexture() took them are
// reported as dropped (reportDroppedFrames).
#pragma once

#include "VideoFrame.h"
#include "VideoFrameSource.h"

#include <mutex>
#include <atomic>

namespace QtAV {

class PushedFrameSource : public VideoFrameSource
{
public:
    PushedFrameSource();
    ~PushedFrameSource() override;

    void push(const VideoFrame& frame);

    FrameTexture updateTexture(const QSize& wanted) override;
    quint64 serial() const override { return m_serial.load(); }
    bool hasPendingFrame() const override { return m_pending.load(); }
    QSize pictureSize() const override;

private:
    void uploadImage(const QImage& image);
    void releaseTexture();

    mutable std::mutex m_mutex;   // guards m_frame and m_pushes (a race detector sees it)
    VideoFrame m_frame;           // the newest pushed frame
    quint64 m_pushes = 0;         // frames pushed so far
    std::atomic<bool> m_pending{false};
    std::atomic<quint64> m_serial{0}; // grows where frames are drawn; read anywhere

    // With the compositor's context (where output frames are drawn).
    quint64 m_taken = 0;          // m_pushes when updateTexture() last took a frame
    FrameTexture m_current;       // what updateTexture() last handed out
    unsigned m_uploadTexture = 0; // owned texture for pushed images
    QSize m_uploadSize;
};

} // namespace QtAV
