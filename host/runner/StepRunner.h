// StepRunner: runs the steps of every source in order, a bounded number per
// event-loop turn, and writes each step's ok/error line.
//
// Each source is a queue of its own: its steps run one after another; a step
// that waits ("wait", "waitFor") suspends only its source, and nothing ever
// blocks the event loop. Sources take turns, one step each, at most
// stepsPerTurn steps a turn; then the loop gets to run (screens draw, sockets
// read, the module's queued events arrive) before the next turn.
//
// The run ends (showEnded) when every primary source (show file, stdin) has
// ended, unless keepRunning is set or there was no primary source (live
// control only). Under --strict the first error of a primary source asks for
// exit code 2.
//
// Threading: GUI thread. Ownership: owns its sources (Qt parent).
#pragma once

#include "StepOutcome.h"
#include "StepParser.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QPointer>

class HostSteps;
class StepSource;
struct RunnerOptions;

class StepRunner : public QObject
{
    Q_OBJECT
public:
    StepRunner(const RunnerOptions& options, QMap<QString, QString> variables,
               QObject* parent = nullptr);

    void setHostSteps(HostSteps* hostSteps) { m_hostSteps = hostSteps; }
    /// Adopts the source and runs its steps as they come.
    void addSource(StepSource* source);
    QList<StepSource*> sources() const;

    /// Answers a step of `source` (now, or later for a pending step).
    void replyOk(StepSource& source, const Step& step, const JsonLine& extra = JsonLine());
    void replyError(StepSource& source, int line, const QString& op, const QString& problem);

    /// A waiting step ends: its source runs on.
    void resume(StepSource& source);

    /// Asks for the end of the run with this exit code (the first ask wins);
    /// no step runs after it.
    void requestQuit(int code);
    bool quitting() const { return m_quitting; }
    /// Every source stops reading (shutdown).
    void closeSources();

signals:
    void quitRequested(int code);
    /// Every primary source ended (see above).
    void showEnded();

private:
    void scheduleTurn();
    void turn();
    void runLine(StepSource& source, const RawLine& raw);
    void retireEndedSources();

    // All fields: GUI thread.
    const RunnerOptions& m_options;
    const QMap<QString, QString> m_variables;
    HostSteps* m_hostSteps = nullptr;
    QList<QPointer<StepSource>> m_sources; // round-robin order
    int m_nextSource = 0;                  // where the next turn starts
    bool m_turnScheduled = false;
    bool m_quitting = false;
    bool m_hadPrimary = false;
    bool m_showEnded = false;
};
