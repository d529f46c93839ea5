#include "timecode/LtcDecoderStage.h"

#include <QDebug>
#include <algorithm>
#include <ltc.h>

namespace {

constexpr int kDecoderQueue = 32;       // frames libltc holds between our reads
constexpr double kSilenceFrames = 2.5;  // frames' time without LTC before Silence
constexpr double kRenewFrames = 10.0;   // while silent, the decoder is made anew this often

} // namespace

LtcDecoderStage::LtcDecoderStage(int sampleRate)
    : m_rate(std::max(1, sampleRate)), m_lastFrameSamples(m_rate / 24.0)
{
    renewDecoder();
}

void LtcDecoderStage::renewDecoder()
{
    if (m_decoder)
        ltc_decoder_free(m_decoder);
    // The decoder starts out expecting 25 fps worth of samples per frame and
    // then follows the speed it hears.
    m_decoder = ltc_decoder_create(std::max(1, m_rate / 25), kDecoderQueue);
    if (!m_decoder)
        qDebug() << "timecode: libltc could not make a decoder";
    m_renewedAt = static_cast<double>(m_fed);
}

LtcDecoderStage::~LtcDecoderStage()
{
    if (m_decoder)
        ltc_decoder_free(m_decoder);
}

void LtcDecoderStage::feed(const float* samples, size_t count, const SampleClock& clock,
                           std::vector<LtcReading>& out)
{
    if (!m_decoder || !samples)
        return;
    while (count > 0 && m_decoder) {
        const size_t n = std::min(count, kMaxBlock);
        // libltc reads the block without keeping or changing it.
        ltc_decoder_write_float(m_decoder, const_cast<float*>(samples), n, m_fed);
        m_fed += static_cast<qint64>(n);
        samples += n;
        count -= n;

        LTCFrameExt frame;
        while (ltc_decoder_read(m_decoder, &frame) > 0) {
            SMPTETimecode stime;
            ltc_frame_to_time(&stime, &frame.ltc, 0);
            LtcReading r;
            r.kind = LtcReading::Kind::Frame;
            r.hours = stime.hours;
            r.minutes = stime.mins;
            r.seconds = stime.secs;
            r.frames = stime.frame;
            r.dropFlag = frame.ltc.dfbit != 0;
            r.reverse = frame.reverse != 0;
            r.volumeDb = static_cast<float>(frame.volume);
            const double start = static_cast<double>(std::min(frame.off_start, frame.off_end));
            const double end = static_cast<double>(std::max(frame.off_start, frame.off_end)) + 1.0;
            r.startNs = clock.timeOf(start);
            r.lengthNs = static_cast<qint64>(clock.durationNs(end - start));
            out.push_back(r);
            if (end - start >= 1.0) {
                m_lastFrameEnd = std::max(m_lastFrameEnd, end);
                m_lastFrameSamples = end - start;
            }
            m_silenceSent = false;
        }
        silenceCheck(clock, out);
    }
}

void LtcDecoderStage::silenceCheck(const SampleClock& clock, std::vector<LtcReading>& out)
{
    // Before any frame, silence counts from the start of the stream.
    const double silent = static_cast<double>(m_fed) - m_lastFrameEnd;
    if (silent < kSilenceFrames * m_lastFrameSamples)
        return;
    if (!m_silenceSent || static_cast<double>(m_fed) - m_renewedAt >= kRenewFrames * m_lastFrameSamples)
        renewDecoder();
    if (m_silenceSent)
        return;
    LtcReading r;
    r.kind = LtcReading::Kind::Silence;
    r.startNs = clock.timeOf(m_lastFrameEnd);
    out.push_back(r);
    m_silenceSent = true;
}
