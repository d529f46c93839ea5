// QtAV::AudioFormat: the format an audio output plays with.
//
// ChannelLayout numbers (the "soundTrack" numbers the host sends):
//   0 ChannelLayout_Left        left channel only, on both speakers
//   1 ChannelLayout_Right       right channel only, on both speakers
//   2 ChannelLayout_Mono        mono mix of all channels
//   3 ChannelLayout_Stereo      stereo, as recorded
//   4 ChannelLayout_StereoSwap  stereo with left and right exchanged
//   5 ChannelLayout_Surround51  5.1 surround
//   6 ChannelLayout_Surround71  7.1 surround
//   7 ChannelLayout_Unsupported any other number is kept as given and
//                               treated as stereo by the engine
#pragma once

#include "KelmorPlatformExport.h"

namespace QtAV {

/// The format an audio output plays with: its channel layout (the host's
/// sound track) and its sample rate. A value type; stereo at 48000 Hz when
/// default-constructed.
class KELMOR_PLATFORM_EXPORT AudioFormat
{
public:
    /// The channel layout numbers, as the host sends them ("soundTrack").
    enum ChannelLayout : int { // fixed type: any number the host sends is a valid value
        ChannelLayout_Left = 0,        ///< left channel only, on both speakers
        ChannelLayout_Right = 1,       ///< right channel only, on both speakers
        ChannelLayout_Mono = 2,        ///< mono mix of all channels
        ChannelLayout_Stereo = 3,      ///< stereo, as recorded (the default)
        ChannelLayout_StereoSwap = 4,  ///< stereo with left and right exchanged
        ChannelLayout_Surround51 = 5,  ///< 5.1 surround
        ChannelLayout_Surround71 = 6,  ///< 7.1 surround
        ChannelLayout_Unsupported = 7, ///< this and any other number is kept
                                       ///< as given and treated as
                                       ///< ChannelLayout_Stereo by the engine
    };

    /// The channel layout (ChannelLayout_Stereo until set).
    ChannelLayout channelLayout() const { return m_layout; }
    /// Sets the channel layout; any number is kept as given.
    void setChannelLayout(ChannelLayout layout) { m_layout = layout; }
    /// The sample rate in Hz (48000 until set).
    int sampleRate() const { return m_sampleRate; }
    /// Sets the sample rate in Hz, kept as given.
    void setSampleRate(int rate) { m_sampleRate = rate; }

    /// Equal when both the channel layout and the sample rate are.
    bool operator==(const AudioFormat& o) const
    { return m_layout == o.m_layout && m_sampleRate == o.m_sampleRate; }
    /// The negation of operator==.
    bool operator!=(const AudioFormat& o) const { return !(*this == o); }

private:
    ChannelLayout m_layout = ChannelLayout_Stereo;
    int m_sampleRate = 48000;
};

} // namespace QtAV
