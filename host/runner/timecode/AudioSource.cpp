#include "timecode/AudioSource.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavdevice/avdevice.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <QRegularExpression>
#include <mutex>

namespace {

constexpr int kMaxChannels = 64;

QString avError(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {0};
    av_strerror(code, text, sizeof text);
    return QString::fromUtf8(text);
}

int interrupted(void* opaque)
{
    return static_cast<const std::atomic<bool>*>(opaque)->load() ? 1 : 0;
}

/// libavdevice's input device named by the text before the first ':', if
/// that names one ("alsa:hw:1,0").
const AVInputFormat* deviceOf(const QString& input, QString& name)
{
    static std::once_flag registered;
    std::call_once(registered, [] { avdevice_register_all(); });
    static const QRegularExpression kDevice(QStringLiteral("^([a-z0-9_]{1,32}):(.+)$"),
                                            QRegularExpression::DotMatchesEverythingOption);
    const QRegularExpressionMatch m = kDevice.match(input);
    if (!m.hasMatch())
        return nullptr;
    const AVInputFormat* format = av_find_input_format(m.captured(1).toUtf8().constData());
    if (!format || !format->priv_class)
        return nullptr;
    const AVClassCategory category = format->priv_class->category;
    if (category != AV_CLASS_CATEGORY_DEVICE_AUDIO_INPUT && category != AV_CLASS_CATEGORY_DEVICE_INPUT)
        return nullptr;
    name = m.captured(2);
    return format;
}

} // namespace

AudioSource::AudioSource(const std::atomic<bool>& stop) : m_stop(stop) {}

bool AudioSource::isLocalFile(const QString& input)
{
    QString url;
    if (deviceOf(input, url))
        return false;
    const char* protocol = avio_find_protocol_name(input.toUtf8().constData());
    return protocol && qstrcmp(protocol, "file") == 0;
}

AudioSource::~AudioSource()
{
    close();
}

void AudioSource::close()
{
    swr_free(&m_swr);
    avcodec_free_context(&m_codec);
    avformat_close_input(&m_format);
    av_packet_free(&m_packet);
    av_frame_free(&m_frame);
    m_stream = -1;
    m_rate = 0;
    m_draining = false;
    m_swrFormat = -1;
    m_swrRate = 0;
    m_swrChannels = 0;
}

bool AudioSource::open(const QString& input, int channel, QString& error)
{
    close();
    if (input.isEmpty() || input.size() > 4096) {
        error = QStringLiteral("no usable input name");
        return false;
    }
    if (channel < 1 || channel > kMaxChannels) {
        error = QStringLiteral("channel %1 is outside 1..%2").arg(channel).arg(kMaxChannels);
        return false;
    }
    m_channel = channel;
    QString url = input;
    const AVInputFormat* device = deviceOf(input, url);
    const QByteArray urlBytes = url.toUtf8();

    m_format = avformat_alloc_context();
    m_packet = av_packet_alloc();
    m_frame = av_frame_alloc();
    if (!m_format || !m_packet || !m_frame) {
        error = QStringLiteral("out of memory");
        close();
        return false;
    }
    m_format->interrupt_callback.callback = &interrupted;
    m_format->interrupt_callback.opaque = const_cast<std::atomic<bool>*>(&m_stop);
    int rc = avformat_open_input(&m_format, urlBytes.constData(), device, nullptr);
    if (rc < 0) {
        m_format = nullptr; // freed by avformat_open_input
        error = QStringLiteral("cannot open %1: %2").arg(input, avError(rc));
        close();
        return false;
    }
    rc = avformat_find_stream_info(m_format, nullptr);
    if (rc < 0) {
        error = QStringLiteral("cannot read %1: %2").arg(input, avError(rc));
        close();
        return false;
    }
    if (!openDecoder(error)) {
        error = QStringLiteral("%1: %2").arg(input, error);
        close();
        return false;
    }
    m_paced = !device && isLocalFile(input);
    m_description = QStringLiteral("%1 (%2), %3 Hz, channel %4 of %5")
                        .arg(input, device ? QStringLiteral("device")
                                          : (m_paced ? QStringLiteral("file, read at real-time pace")
                                                     : QStringLiteral("stream")))
                        .arg(m_rate)
                        .arg(m_channel)
                        .arg(m_codec->ch_layout.nb_channels);
    return true;
}

bool AudioSource::openDecoder(QString& error)
{
    const AVCodec* codec = nullptr;
    m_stream = av_find_best_stream(m_format, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (m_stream < 0 || !codec) {
        error = QStringLiteral("no audio stream");
        return false;
    }
    m_codec = avcodec_alloc_context3(codec);
    if (!m_codec) {
        error = QStringLiteral("out of memory");
        return false;
    }
    int rc = avcodec_parameters_to_context(m_codec, m_format->streams[m_stream]->codecpar);
    if (rc >= 0)
        rc = avcodec_open2(m_codec, codec, nullptr);
    if (rc < 0) {
        error = QStringLiteral("cannot decode the audio: %1").arg(avError(rc));
        return false;
    }
    m_rate = m_codec->sample_rate;
    if (m_rate < kMinRate || m_rate > kMaxRate) {
        error = QStringLiteral("sample rate %1 Hz is outside %2..%3").arg(m_rate).arg(kMinRate).arg(kMaxRate);
        return false;
    }
    const int channels = m_codec->ch_layout.nb_channels;
    if (channels < 1 || channels > kMaxChannels) {
        error = QStringLiteral("%1 channels").arg(channels);
        return false;
    }
    if (m_channel > channels) {
        error = QStringLiteral("channel %1 asked for, the input has %2").arg(m_channel).arg(channels);
        return false;
    }
    return true;
}

bool AudioSource::setUpResampler(const AVFrame* frame, QString& error)
{
    const int channels = frame->ch_layout.nb_channels;
    if (frame->format == m_swrFormat && frame->sample_rate == m_swrRate && channels == m_swrChannels && m_swr)
        return true;
    swr_free(&m_swr);
    m_swrFormat = -1;
    if (channels < 1 || channels > kMaxChannels || m_channel > channels) {
        error = QStringLiteral("the input now has %1 channels; channel %2 is asked for").arg(channels).arg(m_channel);
        return false;
    }
    if (frame->sample_rate < kMinRate || frame->sample_rate > kMaxRate) {
        error = QStringLiteral("the input's sample rate changed to %1 Hz").arg(frame->sample_rate);
        return false;
    }
    AVChannelLayout inLayout;
    av_channel_layout_default(&inLayout, channels);
    AVChannelLayout outLayout = AV_CHANNEL_LAYOUT_MONO;
    int rc = swr_alloc_set_opts2(&m_swr, &outLayout, AV_SAMPLE_FMT_FLT, m_rate, &inLayout,
                                 static_cast<AVSampleFormat>(frame->format), frame->sample_rate, 0,
                                 nullptr);
    // One row: the chosen channel, as it is.
    std::vector<double> matrix(static_cast<size_t>(channels), 0.0);
    matrix[static_cast<size_t>(m_channel - 1)] = 1.0;
    if (rc >= 0)
        rc = swr_set_matrix(m_swr, matrix.data(), channels);
    if (rc >= 0)
        rc = swr_init(m_swr);
    av_channel_layout_uninit(&inLayout);
    if (rc < 0) {
        swr_free(&m_swr);
        error = QStringLiteral("cannot convert the audio: %1").arg(avError(rc));
        return false;
    }
    m_swrFormat = frame->format;
    m_swrRate = frame->sample_rate;
    m_swrChannels = channels;
    return true;
}

AudioSource::Read AudioSource::convert(AVFrame* frame, std::vector<float>& out, QString& error)
{
    if (!setUpResampler(frame, error))
        return Read::Error;
    const int room = swr_get_out_samples(m_swr, frame->nb_samples);
    if (room < 0) {
        error = QStringLiteral("cannot convert the audio: %1").arg(avError(room));
        return Read::Error;
    }
    const size_t before = out.size();
    out.resize(before + static_cast<size_t>(room));
    auto* target = reinterpret_cast<uint8_t*>(out.data() + before);
    const int n = swr_convert(m_swr, &target, room, const_cast<const uint8_t**>(frame->extended_data),
                              frame->nb_samples);
    if (n < 0) {
        out.resize(before);
        error = QStringLiteral("cannot convert the audio: %1").arg(avError(n));
        return Read::Error;
    }
    out.resize(before + static_cast<size_t>(n));
    return Read::Samples;
}

AudioSource::Read AudioSource::read(std::vector<float>& out, QString& error)
{
    out.clear();
    if (!m_format || !m_codec) {
        error = QStringLiteral("not open");
        return Read::Error;
    }
    for (;;) {
        // Frames the decoder already has.
        int rc = avcodec_receive_frame(m_codec, m_frame);
        if (rc >= 0) {
            const Read r = convert(m_frame, out, error);
            av_frame_unref(m_frame);
            if (r != Read::Samples)
                return r;
            continue;
        }
        if (rc == AVERROR_EOF)
            return out.empty() ? Read::End : Read::Samples;
        if (rc != AVERROR(EAGAIN)) {
            error = QStringLiteral("cannot decode the audio: %1").arg(avError(rc));
            return Read::Error;
        }
        if (!out.empty())
            return Read::Samples;
        if (m_draining)
            return Read::End;
        if (m_stop.load()) {
            error = QStringLiteral("stopped");
            return Read::Error;
        }
        rc = av_read_frame(m_format, m_packet);
        if (rc == AVERROR_EOF) {
            m_draining = true;
            avcodec_send_packet(m_codec, nullptr);
            continue;
        }
        if (rc < 0) {
            error = QStringLiteral("cannot read: %1").arg(avError(rc));
            return Read::Error;
        }
        if (m_packet->stream_index == m_stream) {
            // A damaged packet is skipped; the LTC after it decodes again.
            avcodec_send_packet(m_codec, m_packet);
        }
        av_packet_unref(m_packet);
    }
}
