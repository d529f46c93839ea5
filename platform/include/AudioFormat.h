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

class KELMOR_PLATFORM_EXPORT AudioFormat
{
public:
    enum ChannelLayout : int { // fixed type: any number the host sends is a valid value
        ChannelLayout_Left = 0,
        ChannelLayout_Right = 1,
        ChannelLayout_Mono = 2,
        ChannelLayout_Stereo = 3,
        ChannelLayout_StereoSwap = 4,
        ChannelLayout_Surround51 = 5,
        ChannelLayout_Surround71 = 6,
        ChannelLayout_Unsupported = 7,
    };

    ChannelLayout channelLayout() const { return m_layout; }
    void setChannelLayout(ChannelLayout layout) { m_layout = layout; }
    int sampleRate() const { return m_sampleRate; }
    void setSampleRate(int rate) { m_sampleRate = rate; }

    bool operator==(const AudioFormat& o) const
    { return m_layout == o.m_layout && m_sampleRate == o.m_sampleRate; }
    bool operator!=(const AudioFormat& o) const { return !(*this == o); }

private:
    ChannelLayout m_layout = ChannelLayout_Stereo;
    int m_sampleRate = 48000;
};

} // namespace QtAV
