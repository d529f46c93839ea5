#include "MpvAudio.h"

#include "AudioFormat.h"
#include "MpvAsync.h"

#include <QDebug>
#include <algorithm>

namespace QtAV {

using namespace mpvasync;

void MpvAudio::setVolume(double volume)
{
    const double clamped = std::clamp(volume, 0.0, 1.0);
    if (clamped != volume)
        qDebug() << "mpv audio: volume" << volume << "out of 0..1, using" << clamped;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_volume = clamped;
    applyVolumeLocked();
}

void MpvAudio::setFadeFactor(double factor)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_factor = std::clamp(factor, 0.0, 1.0);
    applyVolumeLocked();
}

void MpvAudio::applyVolumeLocked()
{
    setDouble(m_mpv, Prop::Volume, m_volume * m_factor * 100.0);
}

bool MpvAudio::close()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    setString(m_mpv, Prop::Aid, QByteArrayLiteral("no"));
    return true;
}

bool MpvAudio::open()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    setString(m_mpv, Prop::Aid, QByteArrayLiteral("auto"));
    return true;
}

void MpvAudio::setChannelLayout(int layout)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_layout = layout;
    // The output's channel count first, so that the filter's result is what
    // the output gets.
    setString(m_mpv, Prop::AudioChannels, outputChannelsFor(layout));
    setString(m_mpv, Prop::Af, filterFor(layout));
}

void MpvAudio::setOutput(const QByteArray& ao, const QByteArray& device)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    setString(m_mpv, Prop::AudioDevice, device.isEmpty() ? QByteArrayLiteral("auto") : device);
    if (!ao.isEmpty())
        setString(m_mpv, Prop::Ao, ao);
    command(m_mpv, tag(Tag::Command), {"ao-reload"});
}

void MpvAudio::attach(mpv_handle* mpv)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_mpv = mpv;
    applyVolumeLocked();
}

void MpvAudio::detach()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_mpv = nullptr;
}

double MpvAudio::volume() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_volume;
}

double MpvAudio::fadeFactor() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_factor;
}

int MpvAudio::channelLayout() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_layout;
}

QByteArray MpvAudio::filterFor(int layout)
{
    switch (layout) {
    case AudioFormat::ChannelLayout_Left:
        return QByteArrayLiteral("lavfi=[pan=stereo|c0=c0|c1=c0]");
    case AudioFormat::ChannelLayout_Right:
        return QByteArrayLiteral("lavfi=[pan=stereo|c0=c1|c1=c1]");
    case AudioFormat::ChannelLayout_Mono:
        // Every channel mixed down, then the same mix on both speakers.
        return QByteArrayLiteral("lavfi=[aformat=channel_layouts=mono,pan=stereo|c0=c0|c1=c0]");
    case AudioFormat::ChannelLayout_StereoSwap:
        return QByteArrayLiteral("lavfi=[pan=stereo|c0=c1|c1=c0]");
    case AudioFormat::ChannelLayout_Surround51:
        return QByteArrayLiteral("lavfi=[aformat=channel_layouts=5.1]");
    case AudioFormat::ChannelLayout_Surround71:
        return QByteArrayLiteral("lavfi=[aformat=channel_layouts=7.1]");
    default:
        // Stereo as recorded, and any unknown number: no routing filter.
        return QByteArray();
    }
}

QByteArray MpvAudio::outputChannelsFor(int layout)
{
    switch (layout) {
    case AudioFormat::ChannelLayout_Surround51:
        return QByteArrayLiteral("5.1");
    case AudioFormat::ChannelLayout_Surround71:
        return QByteArrayLiteral("7.1");
    case AudioFormat::ChannelLayout_Left:
    case AudioFormat::ChannelLayout_Right:
    case AudioFormat::ChannelLayout_Mono:
    case AudioFormat::ChannelLayout_StereoSwap:
        return QByteArrayLiteral("stereo");
    default:
        return QByteArrayLiteral("auto-safe");
    }
}

} // namespace QtAV
