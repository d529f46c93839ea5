#include "timecode/TimecodeRoom.h"

#include "ArgConvert.h"
#include "EventHub.h"
#include "HostSteps.h"
#include "StepFields.h"
#include "StepRunner.h"
#include "timecode/LtcInput.h"

#include <QDebug>
#include <QTimer>
#include <cmath>

namespace {

constexpr int kTickMs = 40;                       // chase updates and loss checks
constexpr qint64 kLineIntervalNs = 1'000'000'000; // periodic host lines at most this often
constexpr qint64 kRefusedNoteNs = 1'000'000'000;  // refused-frame debug lines at most this often

} // namespace

TimecodeRoom::TimecodeRoom(TimecodeOptions options, StepRunner& runner, HostSteps& host, EventHub& hub,
                           QObject* parent)
    : QObject(parent), m_options(std::move(options)), m_hub(hub)
{
    host.addStep(QStringLiteral("chase"), [this](StepSource&, const Step& s) { return chaseStep(s); });
    host.addStep(QStringLiteral("unchase"), [this](StepSource&, const Step& s) { return unchaseStep(s); });
    // Before the layers are torn down at the end of the run.
    connect(&runner, &StepRunner::quitRequested, this, &TimecodeRoom::stop);
    m_tick = new QTimer(this);
    m_tick->setTimerType(Qt::PreciseTimer);
    m_tick->setInterval(kTickMs);
    connect(m_tick, &QTimer::timeout, this, &TimecodeRoom::tick);
}

TimecodeRoom::~TimecodeRoom()
{
    stop();
}

void TimecodeRoom::start()
{
    if (m_options.input.isEmpty() || m_input || m_stopped)
        return;
    m_input = std::make_unique<LtcInput>(m_options.input, m_options.channel, [this] {
        // Reader thread: only a post to this object's (the GUI) thread.
        QMetaObject::invokeMethod(this, [this] { drain(); }, Qt::QueuedConnection);
    });
    m_input->start();
    m_tick->start();
}

void TimecodeRoom::stop()
{
    m_stopped = true;
    m_chases.clear();
    m_tick->stop();
    if (m_input) {
        m_input->stop();
        m_input.reset();
    }
}

StepOutcome TimecodeRoom::chaseStep(const Step& step)
{
    StepFields f(step, {QStringLiteral("layer"), QStringLiteral("at")});
    const QString atText = f.string("at", QString(), true);
    if (!f.ok())
        return StepOutcome::error(f.problem());
    int bankId = 0;
    int layerId = 0;
    QString why;
    if (!argconv::toLayerRef(step.body.value(QLatin1String("layer")), bankId, layerId, why))
        return StepOutcome::error(QStringLiteral("\"layer\": ") + why);
    timecode::Label at;
    if (!timecode::parse(atText, at, why))
        return StepOutcome::error(QStringLiteral("\"at\": ") + why);
    if (m_options.input.isEmpty() || m_stopped)
        return StepOutcome::error(QStringLiteral("no timecode input (start kelmor-show with --ltc-input SOURCE)"));
    if (!m_chases.add(bankId, layerId, at, clockAt(steadyNowNs()), why))
        return StepOutcome::error(why);
    return StepOutcome::ok();
}

StepOutcome TimecodeRoom::unchaseStep(const Step& step)
{
    StepFields f(step, {QStringLiteral("layer")});
    if (!f.ok())
        return StepOutcome::error(f.problem());
    int bankId = 0;
    int layerId = 0;
    QString why;
    if (!argconv::toLayerRef(step.body.value(QLatin1String("layer")), bankId, layerId, why))
        return StepOutcome::error(QStringLiteral("\"layer\": ") + why);
    if (!m_chases.remove(bankId, layerId))
        return StepOutcome::error(QStringLiteral("layer %1 in bank %2 does not chase").arg(layerId).arg(bankId));
    return StepOutcome::ok();
}

ChaseSet::Clock TimecodeRoom::clockAt(qint64 nowNs) const
{
    ChaseSet::Clock clock;
    clock.known = m_tracker.everLocked();
    clock.run = m_tracker.running() || (m_freewheeling && nowNs < m_freewheelUntilNs);
    clock.rate = m_tracker.rate();
    clock.tcNs = m_tracker.nowNs(nowNs);
    return clock;
}

void TimecodeRoom::drain()
{
    if (!m_input)
        return;
    std::vector<LtcReading> readings;
    quint64 dropped = 0;
    m_input->queue().takeAll(readings, dropped);
    if (dropped > 0) {
        m_dropped += dropped;
        qDebug().noquote() << "timecode:" << dropped << "LTC readings dropped (the show fell behind;"
                           << m_dropped << "in all)";
    }
    const qint64 now = steadyNowNs();
    for (const LtcReading& r : readings) {
        if (r.kind == LtcReading::Kind::Opened || r.kind == LtcReading::Kind::Ended
            || r.kind == LtcReading::Kind::Failed)
            noteInput(r);
        const TimecodeTracker::Change change = m_tracker.feed(r);
        if (change.refused)
            noteRefused(change.why, now);
        apply(change, now);
    }
}

void TimecodeRoom::tick()
{
    const qint64 now = steadyNowNs();
    apply(m_tracker.tick(now), now);
    if (m_freewheeling && now >= m_freewheelUntilNs) {
        m_freewheeling = false;
        if (m_chases.size() > 0)
            qDebug().noquote() << "timecode: freewheel over; chased layers pause";
    }
    m_chases.update(clockAt(now));
    if (m_tracker.running() && now - m_lastLineNs >= kLineIntervalNs)
        printLine(nullptr, now);
    if (m_refusedSinceNote > 0 && now - m_lastRefusedNoteNs >= kRefusedNoteNs)
        noteRefused(nullptr, now);
}

void TimecodeRoom::apply(const TimecodeTracker::Change& change, qint64 nowNs)
{
    if (change.stopped) {
        const double frame = timecode::frameNs(m_tracker.rate());
        m_freewheelUntilNs = m_tracker.anchorStartNs()
            + static_cast<qint64>((1 + m_options.freewheelFrames) * frame);
        m_freewheeling = nowNs < m_freewheelUntilNs;
        qDebug().noquote() << QStringLiteral("timecode: LTC lost after %1; chased layers freewheel %2 frames")
                                  .arg(timecode::format(timecode::fromCount(m_tracker.anchorCount(), m_tracker.rate()),
                                                        m_tracker.rate()))
                                  .arg(m_options.freewheelFrames);
        printLine("stop", nowNs);
    }
    if (change.started || change.jumped) {
        m_freewheeling = false;
        printLine(change.started ? "start" : "jump", nowNs);
    }
    if (change.started || change.jumped || change.stopped)
        m_chases.update(clockAt(nowNs));
}

void TimecodeRoom::noteInput(const LtcReading& r)
{
    const char* state = r.kind == LtcReading::Kind::Opened ? "opened"
        : r.kind == LtcReading::Kind::Ended               ? "ended"
                                                          : "failed";
    qDebug().noquote() << "timecode: input" << state << "-" << r.text;
    JsonLine fields;
    fields.add(QStringLiteral("state"), QLatin1String(state));
    fields.add(QStringLiteral("text"), r.text.left(1000));
    m_hub.printHostLine(QStringLiteral("timecodeInput"), fields);
}

void TimecodeRoom::noteRefused(const char* why, qint64 nowNs)
{
    if (why) {
        ++m_refusedSinceNote;
        m_lastRefusedWhy = why;
        if (nowNs - m_lastRefusedNoteNs < kRefusedNoteNs)
            return;
    }
    qDebug().noquote() << QStringLiteral("timecode: %1 LTC frame(s) refused (the last: %2)")
                              .arg(m_refusedSinceNote)
                              .arg(QLatin1String(m_lastRefusedWhy ? m_lastRefusedWhy : "?"));
    m_refusedSinceNote = 0;
    m_lastRefusedNoteNs = nowNs;
}

void TimecodeRoom::printLine(const char* change, qint64 nowNs)
{
    const timecode::Rate rate = m_tracker.rate();
    // A stop names the last frame heard; otherwise the frame running now.
    const bool stop = change && qstrcmp(change, "stop") == 0;
    const timecode::Label label = stop ? timecode::fromCount(m_tracker.anchorCount(), rate)
                                       : m_tracker.labelAt(nowNs);
    const double tcNs = stop ? timecode::countToNs(m_tracker.anchorCount(), rate) : m_tracker.nowNs(nowNs);
    JsonLine fields;
    fields.add(QStringLiteral("tc"), timecode::format(label, rate));
    fields.add(QStringLiteral("fps"), timecode::printedFps(rate));
    fields.add(QStringLiteral("running"), m_tracker.running());
    fields.add(QStringLiteral("tcMs"), std::floor(tcNs / 1e6));
    if (change)
        fields.add(QStringLiteral("change"), QLatin1String(change));
    m_hub.printHostLine(QStringLiteral("timecode"), fields);
    m_lastLineNs = nowNs;
}
