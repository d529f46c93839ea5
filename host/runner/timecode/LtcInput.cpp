#include "timecode/LtcInput.h"

#include "timecode/AudioSource.h"
#include "timecode/LtcDecoderStage.h"
#include "timecode/SampleClock.h"

#include <algorithm>
#include <chrono>

namespace {

constexpr qint64 kSliceMs = 10;          // a paced file is handed on in slices this long
constexpr qint64 kFirstRetryMs = 1000;   // a failed live input is opened again after this
constexpr qint64 kLastRetryMs = 5000;    // ... doubling up to this

} // namespace

qint64 steadyNowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

LtcInput::LtcInput(QString input, int channel, std::function<void()> wake)
    : m_inputName(std::move(input)), m_channel(channel), m_wake(std::move(wake))
{
}

LtcInput::~LtcInput()
{
    stop();
}

void LtcInput::start()
{
    if (m_thread.joinable())
        return;
    m_stop = false;
    m_thread = std::thread([this] { run(); });
}

void LtcInput::stop()
{
    {
        std::lock_guard<std::mutex> lock(m_sleepMutex);
        m_stop = true;
    }
    m_sleepWake.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

bool LtcInput::sleepUntil(qint64 deadlineNs)
{
    std::unique_lock<std::mutex> lock(m_sleepMutex);
    const auto deadline = std::chrono::steady_clock::time_point(std::chrono::nanoseconds(deadlineNs));
    m_sleepWake.wait_until(lock, deadline, [this] { return m_stop.load(); });
    return !m_stop.load();
}

void LtcInput::publish(std::vector<LtcReading>& readings)
{
    bool wasEmpty = false;
    for (LtcReading& r : readings)
        wasEmpty = m_queue.push(std::move(r)) || wasEmpty;
    readings.clear();
    if (wasEmpty && m_wake)
        m_wake();
}

void LtcInput::note(LtcReading::Kind kind, const QString& text)
{
    std::vector<LtcReading> one(1);
    one[0].kind = kind;
    one[0].text = text;
    one[0].startNs = steadyNowNs();
    publish(one);
}

void LtcInput::run()
{
    qint64 retryMs = kFirstRetryMs;
    while (!m_stop.load()) {
        AudioSource source(m_stop);
        QString error;
        bool live = true;
        if (source.open(m_inputName, m_channel, error)) {
            live = !source.paced();
            note(LtcReading::Kind::Opened, source.description());
            retryMs = kFirstRetryMs;
            if (readAll(source))
                return; // a file's end: nothing more comes
        } else if (!m_stop.load()) {
            note(LtcReading::Kind::Failed, error);
            // A file that cannot be opened will not open later either.
            if (AudioSource::isLocalFile(m_inputName))
                return;
        }
        if (m_stop.load() || !live)
            return;
        if (!sleepUntil(steadyNowNs() + retryMs * 1000000))
            return;
        retryMs = std::min(retryMs * 2, kLastRetryMs);
    }
}

bool LtcInput::readAll(AudioSource& source)
{
    LtcDecoderStage stage(source.sampleRate());
    SampleClock clock;
    if (source.paced())
        clock.startPaced(steadyNowNs(), source.sampleRate());
    else
        clock.startLive(source.sampleRate());
    std::vector<float> samples;
    std::vector<LtcReading> readings;
    while (!m_stop.load()) {
        QString error;
        const AudioSource::Read r = source.read(samples, error);
        if (r == AudioSource::Read::End) {
            note(LtcReading::Kind::Ended, QStringLiteral("end of input"));
            return source.paced();
        }
        if (r == AudioSource::Read::Error) {
            if (!m_stop.load())
                note(LtcReading::Kind::Failed, error);
            return source.paced();
        }
        if (samples.empty())
            continue;
        if (source.paced()) {
            feedPaced(samples, stage, clock, readings);
        } else {
            clock.observe(stage.samplesFed() + static_cast<qint64>(samples.size()), steadyNowNs());
            stage.feed(samples.data(), samples.size(), clock, readings);
            publish(readings);
        }
    }
    return true;
}

void LtcInput::feedPaced(const std::vector<float>& samples, LtcDecoderStage& stage,
                         SampleClock& clock, std::vector<LtcReading>& out)
{
    const size_t slice = std::max<size_t>(1, static_cast<size_t>(clock.sampleRate() * kSliceMs / 1000));
    for (size_t at = 0; at < samples.size() && !m_stop.load(); at += slice) {
        const size_t n = std::min(slice, samples.size() - at);
        // The slice is handed on once its last sample "has been heard".
        const qint64 due = clock.timeOf(static_cast<double>(stage.samplesFed() + static_cast<qint64>(n)));
        if (!sleepUntil(due))
            return;
        stage.feed(samples.data() + at, n, clock, out);
        publish(out);
    }
}
