// A layer's audio on its libmpv core: volume times the fade factor, closing
// and reopening the output, and the channel routing.
//
// Threading: every call may come from any thread (the layer service changes
// volume and sound track on its worker threads). Only asynchronous libmpv
// requests are made, which libmpv allows from any thread; the state is
// guarded by the object's own mutex, held only around those non-blocking
// requests. After detach() the core is gone and calls only keep state.
//
// Decisions:
// - volume v (0..1, clamped) times the fade factor becomes libmpv's "volume"
//   v * factor * 100.
// - closeAudio sets "aid" to "no": libmpv then tears its audio output down;
//   openAudio sets "aid" back to "auto", which opens it again. Both answer true
//   at once (the request is queued); a refusal comes back as a debug line.
// - setChannelLayout sets the audio filter chain ("af") to an FFmpeg pan or
//   aformat filter per AudioFormat::ChannelLayout number, see filterFor().
//   The routing expects a stereo (or wider) source for left, right and swap.
#pragma once

#include <QByteArray>
#include <mutex>

struct mpv_handle;

namespace QtAV {

class MpvAudio
{
public:
    /// The core to talk to (set once it is up).
    void attach(mpv_handle* mpv);

    void setVolume(double volume);
    void setFadeFactor(double factor);
    bool close();
    bool open();
    void setChannelLayout(int layout);
    /// Switches the output ("ao", empty: libmpv's choice) and its device
    /// (empty: the output's default); the output is reopened.
    void setOutput(const QByteArray& ao, const QByteArray& device);
    /// The core is being destroyed: make no more requests.
    void detach();

    double volume() const;
    double fadeFactor() const;
    int channelLayout() const;

    /// The "af" value for a ChannelLayout number (empty: no filter).
    static QByteArray filterFor(int layout);
    /// The "audio-channels" value for a layout (what the output is opened with).
    static QByteArray outputChannelsFor(int layout);

private:
    void applyVolumeLocked();

    mutable std::mutex m_mutex; // guards every field below
    mpv_handle* m_mpv = nullptr;
    double m_volume = 1.0;
    double m_factor = 1.0;
    int m_layout = 3;           // ChannelLayout_Stereo: no filter
};

} // namespace QtAV
