// LTC words out of mono audio: libltc's decoder, fed with float samples,
// and the readings made of what it decodes (LtcReading), each stamped with
// the time its first sample was heard (SampleClock).
//
// It also tells when the LTC falls silent while audio goes on: once no
// frame was decoded for 2.5 frames' worth of samples (the last frame's
// length; 1/24 s before any), one Silence reading, then none until a frame
// comes again.
//
// libltc's decoder follows the signal's speed from the distance between
// its edges, and ignores edges more than four bit-periods apart as a pause;
// after noise (edges a few samples apart) it would therefore never take to
// LTC again. So while no frame comes the decoder is made anew: at the
// silence, then every 10 frames' worth of samples.
//
// Threading: the reader thread (the fuzz target drives it directly).
#pragma once

#include "timecode/LtcReading.h"
#include "timecode/SampleClock.h"

#include <vector>

struct LTCDecoder;

class LtcDecoderStage
{
public:
    explicit LtcDecoderStage(int sampleRate);
    ~LtcDecoderStage();
    LtcDecoderStage(const LtcDecoderStage&) = delete;
    LtcDecoderStage& operator=(const LtcDecoderStage&) = delete;

    /// Decodes `count` samples (the next ones of the stream) and appends
    /// the readings they complete to `out`; times come from `clock`.
    void feed(const float* samples, size_t count, const SampleClock& clock,
              std::vector<LtcReading>& out);
    /// Samples fed so far.
    qint64 samplesFed() const { return m_fed; }

    /// Samples per feed at most (larger blocks are fed in pieces).
    static constexpr size_t kMaxBlock = 4096;

private:
    void silenceCheck(const SampleClock& clock, std::vector<LtcReading>& out);
    void renewDecoder();

    LTCDecoder* m_decoder = nullptr; // null when libltc could not make one
    int m_rate;
    qint64 m_fed = 0;              // samples fed
    double m_lastFrameEnd = 0.0;   // sample after the last decoded frame
    double m_lastFrameSamples;     // that frame's length in samples
    bool m_silenceSent = false;
    double m_renewedAt = 0.0;      // sample at which the decoder was last made anew
};
