// libFuzzer target: the runner's LTC chain on hostile input.
//
// Byte 0 picks the mode:
// - even: audio. Byte 1 picks the sample rate, byte 2 the slice length; the
//   rest are unsigned 8-bit samples, fed through the decoder stage (libltc)
//   at that rate and judged by the timecode tracker, as the reader thread
//   and the GUI thread do;
// - odd: readings. Every 12 bytes are one decoded frame as the decoder stage
//   could hand it over (any label, flags, start time and length), fed to
//   the tracker directly, with a tick between frames; the tracker's clock
//   and labels are read after each.
// In both, the bytes are also read as an "at" label.
#include "timecode/LtcDecoderStage.h"
#include "timecode/SampleClock.h"
#include "timecode/Timecode.h"
#include "timecode/TimecodeTracker.h"

#include <QString>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

constexpr int kRates[] = {8000, 11025, 22050, 44100, 48000, 96000, 192000};

void readTracker(const TimecodeTracker& tracker, qint64 now)
{
    volatile double tc = tracker.nowNs(now);
    (void)tc;
    const timecode::Label label = tracker.labelAt(now);
    (void)timecode::format(label, tracker.rate());
    (void)timecode::toCount(label, tracker.rate());
}

void audio(const uint8_t* data, size_t size)
{
    if (size < 3)
        return;
    const int rate = kRates[data[1] % (sizeof kRates / sizeof kRates[0])];
    const size_t slice = 1 + static_cast<size_t>(data[2]) * 37;
    data += 3;
    size -= 3;
    std::vector<float> samples(size);
    for (size_t i = 0; i < size; ++i)
        samples[i] = (static_cast<float>(data[i]) - 128.0f) / 128.0f;
    SampleClock clock;
    clock.startPaced(1'000'000'000, rate);
    LtcDecoderStage stage(rate);
    TimecodeTracker tracker;
    std::vector<LtcReading> readings;
    for (size_t at = 0; at < samples.size(); at += slice) {
        const size_t n = std::min(slice, samples.size() - at);
        stage.feed(samples.data() + at, n, clock, readings);
        for (const LtcReading& r : readings)
            tracker.feed(r);
        readings.clear();
        const qint64 now = clock.timeOf(static_cast<double>(stage.samplesFed()));
        tracker.tick(now);
        readTracker(tracker, now);
    }
}

void frames(const uint8_t* data, size_t size)
{
    TimecodeTracker tracker;
    qint64 now = 0;
    for (size_t at = 1; at + 12 <= size; at += 12) {
        const uint8_t* b = data + at;
        LtcReading r;
        r.kind = static_cast<LtcReading::Kind>(b[0] % 5);
        r.hours = b[1] % 64;
        r.minutes = b[2] % 128;
        r.seconds = b[3] % 128;
        r.frames = b[4] % 64;
        r.dropFlag = b[5] & 1;
        r.reverse = (b[5] & 2) != 0;
        qint32 step = 0;
        std::memcpy(&step, b + 6, sizeof step);
        now += step; // may go backwards, as a confused clock would
        r.startNs = now;
        quint16 length = 0;
        std::memcpy(&length, b + 10, sizeof length);
        r.lengthNs = static_cast<qint64>(length) * 1000;
        tracker.feed(r);
        tracker.tick(now + 10'000'000);
        readTracker(tracker, now);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    if (data[0] % 2 == 0)
        audio(data, size);
    else
        frames(data, size);
    timecode::Label label;
    QString problem;
    timecode::parse(QString::fromLatin1(reinterpret_cast<const char*>(data), static_cast<int>(std::min<size_t>(size, 64))),
                    label, problem);
    return 0;
}
