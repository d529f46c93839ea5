#include "TimerRecorder.h"

#include <QRegularExpression>
#include <QStringList>

using Timer = UI_Proc_KELMOR_PlayerTimer_Desktop;

void TimerRecorder::attach(Timer* t)
{
    timer = t;
    const auto direct = Qt::DirectConnection;
    QObject::connect(t, &Timer::started, t, [this](int l, int b) {
        record(TimerEvent::Started, l, b, timer->getCurrProgress());
    }, direct);
    QObject::connect(t, &Timer::stopped, t, [this](int l, int b) {
        record(TimerEvent::Stopped, l, b, 0);
    }, direct);
    QObject::connect(t, &Timer::paused, t, [this](int l, int b, bool isPause) {
        record(TimerEvent::Paused, l, b, isPause ? 1 : 0);
    }, direct);
    QObject::connect(t, &Timer::setProgressTimered, t, [this](int l, int b, qint64 ms) {
        record(TimerEvent::Progress, l, b, ms);
    }, direct);
    QObject::connect(t, &Timer::setRepeated, t, [this](int l, int b, int count) {
        record(TimerEvent::Repeated, l, b, count);
    }, direct);
    QObject::connect(t, &Timer::setSynchClocked, t, [this](int l, int b, float ms) {
        record(TimerEvent::SynchClocked, l, b, static_cast<qint64>(ms));
    }, direct);
    QObject::connect(t, &Timer::playReadyed, t, [this](int l, int b, qint64 ms, bool) {
        record(TimerEvent::PlayReadyed, l, b, ms);
    }, direct);
    QObject::connect(t, &Timer::resetPlayed, t, [this](int l, int b, bool isPause) {
        record(TimerEvent::ResetPlayed, l, b, isPause ? 1 : 0);
    }, direct);
}

void TimerRecorder::record(TimerEvent::Kind kind, int layerId, int bankId, qint64 value)
{
    {
        std::lock_guard<std::mutex> lock(mutex);
        log.push_back({kind, layerId, bankId, value, std::chrono::steady_clock::now(),
                       std::this_thread::get_id()});
    }
    changed.notify_all();
}

TimerEvents TimerRecorder::events() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return log;
}

size_t TimerRecorder::size() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return log.size();
}

bool TimerRecorder::waitUntil(const std::function<bool(const TimerEvents&)>& pred,
                              std::chrono::milliseconds timeout) const
{
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, timeout, [&] { return pred(log); });
}

bool TimerRecorder::waitForCount(TimerEvent::Kind kind, int n) const
{
    return waitUntil([=](const TimerEvents& e) { return countOf(e, kind) >= n; });
}

bool TimerRecorder::waitForReports(size_t from, int n) const
{
    return waitUntil([=](const TimerEvents& e) {
        return static_cast<int>(reports(since(e, from)).size()) >= n;
    });
}

RecordedTimer::RecordedTimer(int layerId, int bankId, qint64 duration)
    : timer(std::make_unique<Timer>(layerId, bankId, duration))
{
    rec.attach(timer.get());
}

RecordedTimer::~RecordedTimer()
{
    if (timer)
        timer->stopTimer();
    timer.reset();
}

void RecordedTimer::destroy()
{
    timer.reset();
}

TimerEvents since(const TimerEvents& events, size_t from)
{
    if (from >= events.size())
        return {};
    return TimerEvents(events.begin() + static_cast<std::ptrdiff_t>(from), events.end());
}

int countOf(const TimerEvents& events, TimerEvent::Kind kind)
{
    int n = 0;
    for (const TimerEvent& e : events)
        n += e.kind == kind ? 1 : 0;
    return n;
}

std::vector<qint64> reports(const TimerEvents& events)
{
    std::vector<qint64> values;
    for (const TimerEvent& e : events)
        if (e.kind == TimerEvent::Progress && e.value != 0)
            values.push_back(e.value);
    return values;
}

int indexOf(const TimerEvents& events, TimerEvent::Kind kind, size_t from)
{
    for (size_t i = from; i < events.size(); ++i)
        if (events[i].kind == kind)
            return static_cast<int>(i);
    return -1;
}

bool allFrom(const TimerEvents& events, int layerId, int bankId)
{
    for (const TimerEvent& e : events)
        if (e.layerId != layerId || e.bankId != bankId)
            return false;
    return true;
}

static QString tokenOf(const TimerEvent& e)
{
    switch (e.kind) {
    case TimerEvent::Started: return QStringLiteral("started");
    case TimerEvent::Stopped: return QStringLiteral("stopped");
    case TimerEvent::Paused: return e.value ? QStringLiteral("paused(true)") : QStringLiteral("paused(false)");
    case TimerEvent::Progress: return e.value ? QStringLiteral("p") : QStringLiteral("0");
    case TimerEvent::Repeated: return QStringLiteral("setRepeated");
    case TimerEvent::SynchClocked: return QStringLiteral("setSynchClocked");
    case TimerEvent::PlayReadyed: return QStringLiteral("playReadyed");
    case TimerEvent::ResetPlayed: return QStringLiteral("resetPlayed");
    }
    return QStringLiteral("?");
}

QString shapeOf(const TimerEvents& events)
{
    QStringList tokens;
    for (const TimerEvent& e : events)
        tokens << tokenOf(e);
    return tokens.join(QLatin1Char(' '));
}

QString stateSignalsOf(const TimerEvents& events)
{
    QStringList tokens;
    for (const TimerEvent& e : events)
        if (e.kind != TimerEvent::Progress)
            tokens << tokenOf(e);
    return tokens.join(QLatin1Char(' '));
}

bool shapeMatches(const TimerEvents& events, const QString& pattern)
{
    const QRegularExpression re(QRegularExpression::anchoredPattern(pattern));
    return re.match(shapeOf(events)).hasMatch();
}

double msBetween(const TimerEvent& a, const TimerEvent& b)
{
    return std::chrono::duration<double, std::milli>(b.at - a.at).count();
}
