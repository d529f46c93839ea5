#include "LtcFileMaker.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
}

#include <ltc.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <sstream>

namespace ltcfile {

namespace {

bool readLabel(const std::string& text, Segment& s)
{
    char sep = 0;
    return std::sscanf(text.c_str(), "%2d:%2d:%2d%c%2d", &s.hours, &s.minutes, &s.seconds, &sep, &s.frames) == 5
        && (sep == ':' || sep == ';' || sep == '.');
}

bool readNumber(const std::string& text, double& out)
{
    char* end = nullptr;
    out = std::strtod(text.c_str(), &end);
    return end && *end == '\0' && !text.empty() && std::isfinite(out);
}

LTC_TV_STANDARD standardOf(double fps)
{
    if (fps == 24.0)
        return LTC_TV_FILM_24;
    if (fps == 25.0)
        return LTC_TV_625_50;
    return LTC_TV_525_60;
}

std::uint8_t mix(std::uint8_t sample, double noise, std::mt19937& random)
{
    if (noise <= 0.0)
        return sample;
    std::uniform_real_distribution<double> spread(-1.0, 1.0);
    const double v = static_cast<double>(sample) + noise * 127.0 * spread(random);
    return static_cast<std::uint8_t>(std::clamp(std::lround(v), 0L, 255L));
}

void renderLtc(const Plan& plan, const Segment& s, std::mt19937& random, std::vector<std::uint8_t>& out)
{
    LTCEncoder* e = ltc_encoder_create(plan.sampleRate, s.fps, standardOf(s.fps), 0);
    if (!e)
        return;
    // Room for one frame at the slowest speed used.
    ltc_encoder_set_buffersize(e, plan.sampleRate, s.fps / std::max(1.0, s.speed));
    ltc_encoder_set_volume(e, plan.volumeDbfs);
    SMPTETimecode t;
    std::memset(&t, 0, sizeof t);
    std::strcpy(t.timezone, "+0000");
    t.years = 0;
    t.months = 1;
    t.days = 1;
    t.hours = static_cast<unsigned char>(s.hours);
    t.mins = static_cast<unsigned char>(s.minutes);
    t.secs = static_cast<unsigned char>(s.seconds);
    t.frame = static_cast<unsigned char>(s.frames);
    ltc_encoder_set_timecode(e, &t);
    for (int i = 0; i < s.count; ++i) {
        // Each byte is taken out of the encoder's buffer as it is made, so
        // that a slow frame never overflows it.
        for (int b = 0; b < 10; ++b) {
            const int byte = s.reverse ? 9 - b : b;
            ltc_encoder_encode_byte(e, byte, s.reverse ? -s.speed : s.speed);
            ltcsnd_sample_t* buf = nullptr;
            const int n = ltc_encoder_get_bufferptr(e, &buf, 1);
            for (int k = 0; k < n; ++k)
                out.push_back(mix(buf[k], s.noise, random));
        }
        if (s.reverse)
            ltc_encoder_dec_timecode(e);
        else
            ltc_encoder_inc_timecode(e);
    }
    ltc_encoder_free(e);
}

} // namespace

bool parseSegment(const std::string& text, Segment& s, std::string& error)
{
    s = Segment();
    const size_t colon = text.find(':');
    const std::string kind = text.substr(0, colon);
    if (kind == "ltc")
        s.kind = Segment::Kind::Ltc;
    else if (kind == "silence")
        s.kind = Segment::Kind::Silence;
    else if (kind == "noise") {
        s.kind = Segment::Kind::Noise;
        s.noise = 0.5;
    } else {
        error = "unknown segment \"" + kind + "\" (ltc, silence or noise)";
        return false;
    }
    std::stringstream fields(colon == std::string::npos ? std::string() : text.substr(colon + 1));
    std::string field;
    bool haveStart = false;
    while (std::getline(fields, field, ',')) {
        const size_t eq = field.find('=');
        const std::string key = field.substr(0, eq);
        const std::string value = eq == std::string::npos ? std::string() : field.substr(eq + 1);
        double number = 0.0;
        if (key == "start") {
            haveStart = readLabel(value, s);
            if (!haveStart) {
                error = "start: expected HH:MM:SS:FF, got " + value;
                return false;
            }
            continue;
        }
        if (!readNumber(value, number)) {
            error = key + ": expected a number, got \"" + value + "\"";
            return false;
        }
        if (key == "fps" && (number == 24 || number == 25 || number == 29.97 || number == 30))
            s.fps = number == 29.97 ? 30000.0 / 1001.0 : number;
        else if (key == "frames" && number >= 0 && number <= 1e6)
            s.count = static_cast<int>(number);
        else if (key == "reverse")
            s.reverse = number != 0;
        else if (key == "speed" && number >= 0.2 && number <= 5)
            s.speed = number;
        else if ((key == "noise" || key == "level") && number >= 0 && number <= 1)
            s.noise = number;
        else if (key == "ms" && number >= 0 && number <= 3.6e6)
            s.ms = static_cast<int>(number);
        else {
            error = "unknown or out-of-range field " + field;
            return false;
        }
    }
    if (s.kind == Segment::Kind::Ltc && !haveStart) {
        error = "an ltc segment needs start=HH:MM:SS:FF";
        return false;
    }
    return true;
}

std::vector<std::uint8_t> render(const Plan& plan, std::vector<std::int64_t>* segmentStarts)
{
    std::vector<std::uint8_t> out;
    std::mt19937 random(20240601u); // the same file every time
    std::uniform_real_distribution<double> spread(-1.0, 1.0);
    for (const Segment& s : plan.segments) {
        if (segmentStarts)
            segmentStarts->push_back(static_cast<std::int64_t>(out.size()));
        const size_t samples = static_cast<size_t>(static_cast<std::int64_t>(s.ms) * plan.sampleRate / 1000);
        switch (s.kind) {
        case Segment::Kind::Ltc:
            renderLtc(plan, s, random, out);
            break;
        case Segment::Kind::Silence:
            out.insert(out.end(), samples, 128);
            break;
        case Segment::Kind::Noise:
            for (size_t i = 0; i < samples; ++i)
                out.push_back(mix(128, s.noise, random));
            break;
        }
    }
    return out;
}

bool writeWav(const Plan& plan, const std::string& path, std::string& error,
              std::vector<std::int64_t>* segmentStarts)
{
    const std::vector<std::uint8_t> samples = render(plan, segmentStarts);
    AVFormatContext* oc = nullptr;
    if (avformat_alloc_output_context2(&oc, nullptr, "wav", path.c_str()) < 0 || !oc) {
        error = "cannot make a WAV writer";
        return false;
    }
    bool ok = false;
    AVStream* st = avformat_new_stream(oc, nullptr);
    AVPacket* pkt = av_packet_alloc();
    if (st && pkt) {
        st->codecpar->codec_type = AVMEDIA_TYPE_AUDIO;
        st->codecpar->codec_id = AV_CODEC_ID_PCM_U8;
        st->codecpar->sample_rate = plan.sampleRate;
        st->codecpar->format = AV_SAMPLE_FMT_U8;
        st->codecpar->bits_per_coded_sample = 8;
        st->codecpar->block_align = 1;
        st->codecpar->bit_rate = static_cast<int64_t>(plan.sampleRate) * 8;
        av_channel_layout_default(&st->codecpar->ch_layout, 1);
        st->time_base = AVRational{1, plan.sampleRate};
        ok = avio_open(&oc->pb, path.c_str(), AVIO_FLAG_WRITE) >= 0;
        ok = ok && avformat_write_header(oc, nullptr) >= 0;
        const size_t block = 4096;
        for (size_t at = 0; ok && at < samples.size(); at += block) {
            const int n = static_cast<int>(std::min(block, samples.size() - at));
            ok = av_new_packet(pkt, n) >= 0;
            if (!ok)
                break;
            std::memcpy(pkt->data, samples.data() + at, static_cast<size_t>(n));
            pkt->pts = pkt->dts = av_rescale_q(static_cast<int64_t>(at), AVRational{1, plan.sampleRate}, st->time_base);
            pkt->duration = n;
            pkt->stream_index = st->index;
            ok = av_interleaved_write_frame(oc, pkt) >= 0;
        }
        ok = ok && av_write_trailer(oc) >= 0;
    }
    if (!ok)
        error = "cannot write " + path;
    av_packet_free(&pkt);
    if (oc->pb)
        avio_closep(&oc->pb);
    avformat_free_context(oc);
    return ok;
}

} // namespace ltcfile
