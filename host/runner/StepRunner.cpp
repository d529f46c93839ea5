#include "StepRunner.h"

#include "Console.h"
#include "HostSteps.h"
#include "ModuleSteps.h"
#include "RunnerOptions.h"
#include "StepSource.h"

#include <QTimer>

StepRunner::StepRunner(const RunnerOptions& options, QMap<QString, QString> variables,
                       QObject* parent)
    : QObject(parent), m_options(options), m_variables(std::move(variables))
{
}

void StepRunner::addSource(StepSource* source)
{
    source->setParent(this);
    m_sources.append(source);
    m_hadPrimary = m_hadPrimary || source->isPrimary();
    connect(source, &StepSource::linesAvailable, this, &StepRunner::scheduleTurn);
    scheduleTurn();
}

QList<StepSource*> StepRunner::sources() const
{
    QList<StepSource*> live;
    for (const QPointer<StepSource>& source : m_sources) {
        if (source)
            live.append(source);
    }
    return live;
}

void StepRunner::scheduleTurn()
{
    if (m_turnScheduled || m_quitting)
        return;
    m_turnScheduled = true;
    // A zero timer runs after the events already waiting, so every turn lets
    // the rest of the application run first.
    QTimer::singleShot(0, this, &StepRunner::turn);
}

void StepRunner::turn()
{
    m_turnScheduled = false;
    int budget = m_options.stepsPerTurn;
    bool ranAny = true;
    while (budget > 0 && ranAny && !m_quitting) {
        ranAny = false;
        // One line per source per round, starting where the last turn stopped.
        const int count = m_sources.size();
        for (int k = 0; k < count && budget > 0 && !m_quitting; ++k) {
            const int index = (m_nextSource + k) % count;
            StepSource* source = m_sources.value(index);
            if (!source || source->suspended || !source->hasLine())
                continue;
            const RawLine raw = source->takeLine();
            runLine(*source, raw);
            --budget;
            ranAny = true;
        }
        if (count > 0)
            m_nextSource = (m_nextSource + 1) % count;
    }
    if (m_quitting)
        return;
    retireEndedSources();

    for (const QPointer<StepSource>& source : m_sources) {
        if (source && !source->suspended && source->hasLine()) {
            scheduleTurn();
            return;
        }
    }
}

void StepRunner::runLine(StepSource& source, const RawLine& raw)
{
    Step step;
    QString problem;
    const ParseOutcome parsed = parseStep(raw, m_variables, step, problem);
    if (parsed == ParseOutcome::Skip)
        return;
    ++source.stepsRun;
    if (parsed == ParseOutcome::Error) {
        replyError(source, step.line, step.op, problem);
        return;
    }

    StepOutcome outcome;
    const bool known = (m_hostSteps && m_hostSteps->run(source, step, outcome))
                       || runModuleStep(step, outcome);
    if (!known) {
        replyError(source, step.line, step.op, QStringLiteral("unknown op \"%1\"").arg(step.op));
        return;
    }
    switch (outcome.kind) {
    case StepOutcome::Kind::Ok:
        replyOk(source, step, outcome.extra);
        break;
    case StepOutcome::Kind::Error:
        replyError(source, step.line, step.op, outcome.problem);
        break;
    case StepOutcome::Kind::Pending:
        source.suspended = true; // the step answers and resumes later
        break;
    }
}

void StepRunner::replyOk(StepSource& source, const Step& step, const JsonLine& extra)
{
    JsonLine line;
    line.add(QStringLiteral("t"), static_cast<double>(console::msSinceStart()));
    line.add(QStringLiteral("ok"), step.op);
    line.add(QStringLiteral("line"), step.line);
    if (!source.replyTag.isEmpty())
        line.add(QStringLiteral("source"), source.replyTag);
    line.append(extra);
    source.reply(line.toLine());
}

void StepRunner::replyError(StepSource& source, int lineNumber, const QString& op,
                            const QString& problem)
{
    JsonLine line;
    line.add(QStringLiteral("t"), static_cast<double>(console::msSinceStart()));
    line.add(QStringLiteral("error"), problem);
    line.add(QStringLiteral("line"), lineNumber);
    if (!op.isEmpty())
        line.add(QStringLiteral("op"), op);
    if (!source.replyTag.isEmpty())
        line.add(QStringLiteral("source"), source.replyTag);
    source.reply(line.toLine());
    if (m_options.strict && source.isPrimary()) {
        console::note(QStringLiteral("%1 line %2: %3 (--strict: stopping)")
                          .arg(source.name())
                          .arg(lineNumber)
                          .arg(problem));
        requestQuit(2);
    }
}

void StepRunner::resume(StepSource& source)
{
    source.suspended = false;
    scheduleTurn();
    // A source whose last step was a wait ends only now.
    QTimer::singleShot(0, this, &StepRunner::retireEndedSources);
}

void StepRunner::retireEndedSources()
{
    if (m_quitting)
        return;
    for (int i = m_sources.size() - 1; i >= 0; --i) {
        StepSource* source = m_sources.at(i);
        if (source && (source->suspended || !source->atEnd()))
            continue;
        m_sources.removeAt(i);
        if (source)
            source->deleteLater();
    }
    if (m_nextSource >= m_sources.size())
        m_nextSource = 0;

    if (m_showEnded || !m_hadPrimary || m_options.keepRunning)
        return;
    for (const QPointer<StepSource>& source : m_sources) {
        if (source && source->isPrimary())
            return;
    }
    m_showEnded = true;
    emit showEnded();
}

void StepRunner::requestQuit(int code)
{
    if (m_quitting)
        return;
    m_quitting = true;
    emit quitRequested(code);
}

void StepRunner::closeSources()
{
    for (const QPointer<StepSource>& source : m_sources) {
        if (source)
            source->close();
    }
}
