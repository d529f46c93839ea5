#include "MpvAsync.h"

#include <vector>

namespace QtAV {
namespace mpvasync {

const char* propName(Prop prop)
{
    switch (prop) {
    case Prop::Pause: return "pause";
    case Prop::Volume: return "volume";
    case Prop::Af: return "af";
    case Prop::Aid: return "aid";
    case Prop::Start: return "start";
    case Prop::End: return "end";
    case Prop::LoopFile: return "loop-file";
    case Prop::Hwdec: return "hwdec";
    case Prop::Speed: return "speed";
    case Prop::AudioChannels: return "audio-channels";
    case Prop::Ao: return "ao";
    case Prop::AudioDevice: return "audio-device";
    }
    return "?";
}

void command(mpv_handle* mpv, std::uint64_t userdata, std::initializer_list<const char*> args)
{
    if (!mpv)
        return;
    std::vector<const char*> argv(args);
    argv.push_back(nullptr);
    mpv_command_async(mpv, userdata, argv.data());
}

void setString(mpv_handle* mpv, Prop prop, const QByteArray& value)
{
    if (!mpv)
        return;
    const char* data = value.constData();
    mpv_set_property_async(mpv, tag(Tag::Set, static_cast<std::uint64_t>(prop)), propName(prop),
                           MPV_FORMAT_STRING, &data);
}

void setFlag(mpv_handle* mpv, Prop prop, bool value)
{
    if (!mpv)
        return;
    int flag = value ? 1 : 0;
    mpv_set_property_async(mpv, tag(Tag::Set, static_cast<std::uint64_t>(prop)), propName(prop),
                           MPV_FORMAT_FLAG, &flag);
}

void setDouble(mpv_handle* mpv, Prop prop, double value)
{
    if (!mpv)
        return;
    mpv_set_property_async(mpv, tag(Tag::Set, static_cast<std::uint64_t>(prop)), propName(prop),
                           MPV_FORMAT_DOUBLE, &value);
}

void seekExact(mpv_handle* mpv, std::uint64_t userdata, qint64 msec)
{
    const QByteArray target = seconds(msec < 0 ? 0 : msec);
    command(mpv, userdata, {"seek", target.constData(), "absolute+exact"});
}

QByteArray seconds(qint64 msec)
{
    if (msec < 0)
        return QByteArrayLiteral("none");
    return QByteArray::number(static_cast<double>(msec) / 1000.0, 'f', 3);
}

} // namespace mpvasync
} // namespace QtAV
