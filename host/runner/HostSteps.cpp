#include "HostSteps.h"

#include "Console.h"
#include "EventHub.h"
#include "MpvEngine.h"
#include "ScreenSteps.h"
#include "StepFields.h"
#include "StepRunner.h"
#include "StepSource.h"

#include <QJsonDocument>
#include <QTimer>

namespace {

constexpr int kMaxWaitMs = 24 * 3600 * 1000;
constexpr int kDefaultWaitForMs = 10000;

bool sameValue(const QJsonValue& have, const QJsonValue& want)
{
    if (have.isDouble() && want.isDouble())
        return have.toDouble() == want.toDouble();
    return have == want;
}

bool matches(const ShowEvent& event, const QString& signal, const QJsonObject& want)
{
    if (event.name != signal)
        return false;
    for (auto it = want.begin(); it != want.end(); ++it) {
        if (!sameValue(event.args.value(it.key()), it.value()))
            return false;
    }
    return true;
}

QJsonObject matchedEvent(const ShowEvent& event)
{
    QJsonObject object{{QStringLiteral("t"), static_cast<double>(event.t)}};
    for (const auto& field : event.args.fields())
        object.insert(field.first, field.second);
    return object;
}

} // namespace

HostSteps::HostSteps(StepRunner& runner, EventHub& hub, ScreenSteps& screens, QObject* parent)
    : QObject(parent), m_runner(runner), m_hub(hub), m_screens(screens)
{
    m_handlers = {
        {QStringLiteral("openScreen"), [this](StepSource&, const Step& s) { return m_screens.openScreen(s); }},
        {QStringLiteral("closeScreen"), [this](StepSource&, const Step& s) { return m_screens.closeScreen(s); }},
        {QStringLiteral("snapshot"), [this](StepSource&, const Step& s) { return m_screens.snapshot(s); }},
        {QStringLiteral("record"), [this](StepSource&, const Step& s) { return m_screens.record(s); }},
        {QStringLiteral("wait"), [this](StepSource& src, const Step& s) { return wait(src, s); }},
        {QStringLiteral("waitFor"), [this](StepSource& src, const Step& s) { return waitFor(src, s); }},
        {QStringLiteral("audio"), [this](StepSource&, const Step& s) { return audio(s); }},
        {QStringLiteral("log"), [this](StepSource&, const Step& s) { return log(s); }},
        {QStringLiteral("quit"), [this](StepSource& src, const Step& s) { return quit(src, s); }},
    };
    connect(&m_hub, &EventHub::occurred, this, &HostSteps::onEvent);
}

HostSteps::~HostSteps()
{
    qDeleteAll(m_waits);
}

QStringList HostSteps::names()
{
    return {QStringLiteral("openScreen"), QStringLiteral("closeScreen"), QStringLiteral("snapshot"),
            QStringLiteral("record"),     QStringLiteral("wait"),        QStringLiteral("waitFor"),
            QStringLiteral("audio"),      QStringLiteral("log"),         QStringLiteral("quit")};
}

bool HostSteps::addStep(const QString& name, Handler handler)
{
    if (name.isEmpty() || !handler || m_handlers.contains(name))
        return false;
    m_handlers.insert(name, std::move(handler));
    return true;
}

bool HostSteps::run(StepSource& source, const Step& step, StepOutcome& outcome)
{
    const auto handler = m_handlers.constFind(step.op);
    if (handler == m_handlers.constEnd())
        return false;
    outcome = handler.value()(source, step);
    return true;
}

StepOutcome HostSteps::wait(StepSource& source, const Step& step)
{
    StepFields f(step, {QStringLiteral("ms")});
    const int ms = f.integer("ms", 0, 0, kMaxWaitMs, true);
    if (!f.ok())
        return StepOutcome::error(f.problem());

    auto* w = new Wait;
    w->source = &source;
    w->step = step;
    w->startedAt = console::msSinceStart();
    w->timer = new QTimer(this);
    w->timer->setSingleShot(true);
    w->timer->setTimerType(Qt::PreciseTimer);
    connect(w->timer, &QTimer::timeout, this, [this, w] { endWait(w, nullptr, false); });
    w->timer->start(ms);
    m_waits.append(w);
    return StepOutcome::pending();
}

StepOutcome HostSteps::waitFor(StepSource& source, const Step& step)
{
    StepFields f(step, {QStringLiteral("signal"), QStringLiteral("args"), QStringLiteral("timeoutMs")});
    const QString signal = f.string("signal", QString(), true);
    const QJsonObject match = f.object("args");
    const int timeoutMs = f.integer("timeoutMs", kDefaultWaitForMs, 0, kMaxWaitMs);
    if (!f.ok())
        return StepOutcome::error(f.problem());
    if (!m_hub.knowsSignal(signal))
        return StepOutcome::error(QStringLiteral("unknown signal \"%1\" (one of: %2)")
                                      .arg(signal, m_hub.signalNames().join(QStringLiteral(", "))));
    const QStringList argNames = m_hub.argNames(signal);
    for (auto it = match.begin(); it != match.end(); ++it) {
        if (!argNames.contains(it.key()))
            return StepOutcome::error(QStringLiteral("%1 has no argument \"%2\" (it has: %3)")
                                          .arg(signal, it.key(), argNames.join(QStringLiteral(", "))));
        if (it.value().isArray() || it.value().isObject() || it.value().isNull())
            return StepOutcome::error(QStringLiteral("\"args\": \"%1\" must be a number, string or boolean").arg(it.key()));
    }

    // Already there?
    const ShowEvent* earlier = m_hub.find(source.eventCursor, [&](const ShowEvent& event) {
        return matches(event, signal, match);
    });
    if (earlier) {
        source.eventCursor = earlier->seq + 1;
        JsonLine extra;
        extra.add(QStringLiteral("waitedMs"), 0);
        extra.add(QStringLiteral("matched"), matchedEvent(*earlier));
        return StepOutcome::ok(extra);
    }

    auto* w = new Wait;
    w->source = &source;
    w->step = step;
    w->signal = signal;
    w->match = match;
    w->startedAt = console::msSinceStart();
    w->timer = new QTimer(this);
    w->timer->setSingleShot(true);
    connect(w->timer, &QTimer::timeout, this, [this, w] { endWait(w, nullptr, true); });
    w->timer->start(timeoutMs);
    m_waits.append(w);
    return StepOutcome::pending();
}

void HostSteps::onEvent(const ShowEvent& event)
{
    // One event ends at most one wait per source; several sources may wait
    // for the same event.
    const QList<Wait*> waits = m_waits;
    for (Wait* w : waits) {
        if (!w->signal.isEmpty() && matches(event, w->signal, w->match))
            endWait(w, &event, false);
    }
}

void HostSteps::endWait(Wait* w, const ShowEvent* matched, bool timedOut)
{
    if (!m_waits.removeOne(w))
        return;
    w->timer->stop();
    w->timer->deleteLater();
    std::unique_ptr<Wait> owned(w);
    StepSource* source = w->source;
    if (!source)
        return; // its connection is gone

    const qint64 waited = console::msSinceStart() - w->startedAt;
    if (timedOut) {
        // The cursor stays: a timeout uses nothing up, so the next waitFor
        // still sees every event since the last match.
        const QString wanted = w->match.isEmpty()
            ? QString()
            : QStringLiteral(" ") + QString::fromUtf8(QJsonDocument(w->match).toJson(QJsonDocument::Compact));
        m_runner.replyError(*source, w->step.line, w->step.op,
                            QStringLiteral("waitFor %1%2: timed out after %3 ms")
                                .arg(w->signal, wanted)
                                .arg(waited));
    } else {
        JsonLine extra;
        extra.add(QStringLiteral("waitedMs"), static_cast<double>(waited));
        if (matched) {
            source->eventCursor = matched->seq + 1;
            extra.add(QStringLiteral("matched"), matchedEvent(*matched));
        }
        m_runner.replyOk(*source, w->step, extra);
    }
    m_runner.resume(*source);
}

QList<HostSteps::WaitView> HostSteps::waitsInProgress() const
{
    QList<WaitView> views;
    const qint64 now = console::msSinceStart();
    for (const Wait* w : m_waits) {
        if (!w->source)
            continue;
        views.append(WaitView{w->source->name(), w->step.op, w->step.line, w->signal, w->match,
                              now - w->startedAt});
    }
    return views;
}

void HostSteps::cancelWaits()
{
    for (Wait* w : m_waits)
        w->timer->stop();
    qDeleteAll(m_waits);
    m_waits.clear();
}

StepOutcome HostSteps::log(const Step& step)
{
    StepFields f(step, {QStringLiteral("text")});
    const QString text = f.string("text", QString(), true);
    if (!f.ok())
        return StepOutcome::error(f.problem());
    console::note(text);
    return StepOutcome::ok();
}

StepOutcome HostSteps::quit(StepSource& source, const Step& step)
{
    StepFields f(step, {QStringLiteral("code")});
    const int code = f.integer("code", 0, 0, 255);
    if (!f.ok())
        return StepOutcome::error(f.problem());
    // Answered here, before the run ends; the source runs nothing after it.
    m_runner.replyOk(source, step);
    m_runner.requestQuit(code);
    return StepOutcome::pending();
}

StepOutcome HostSteps::audio(const Step& step)
{
    StepFields f(step, {QStringLiteral("ao"), QStringLiteral("device")});
    const QString ao = f.string("ao");
    const QString device = f.string("device");
    if (!f.ok())
        return StepOutcome::error(f.problem());
    auto* engine = dynamic_cast<QtAV::MpvEngine*>(QtAV::mediaEngine());
    if (!engine)
        return StepOutcome::error(QStringLiteral("the libmpv engine is not installed"));
    engine->setAudioOutput(ao, device);
    return StepOutcome::ok();
}
