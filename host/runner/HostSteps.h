// The host steps — what a host application does around the module: screens
// (ScreenSteps), waits, waiting for an event, audio output, log lines, quit.
//
// "wait" and "waitFor" suspend their source (never the event loop) and
// answer when they end. waitFor looks at the events since the source's
// previous waitFor matched (or since the source began), so an event that
// came a moment before the waitFor step ran is still found; a matched event
// (and every event before it) is used up, a timed-out waitFor uses nothing.
//
// Threading: GUI thread.
#pragma once

#include "StepOutcome.h"
#include "StepParser.h"

#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QPointer>
#include <functional>
#include <memory>

class EventHub;
class ScreenSteps;
class StepRunner;
class StepSource;
class QTimer;
struct ShowEvent;

class HostSteps : public QObject
{
    Q_OBJECT
public:
    HostSteps(StepRunner& runner, EventHub& hub, ScreenSteps& screens, QObject* parent = nullptr);
    ~HostSteps() override;

    using Handler = std::function<StepOutcome(StepSource&, const Step&)>;

    /// false when the step is not a host step.
    bool run(StepSource& source, const Step& step, StepOutcome& outcome);

    /// Adds a host step of a protocol room (chase, publishScreen, ...), so
    /// that every surface reaches it through the same step machinery. Set up
    /// before the event loop; false (and nothing changes) when the name is
    /// taken.
    bool addStep(const QString& name, Handler handler);

    /// The built-in host steps' names.
    static QStringList names();

    /// Ends every wait without answering (shutdown).
    void cancelWaits();

    /// A wait or waitFor in progress, for displays of the show's progress.
    struct WaitView
    {
        QString source;  ///< the waiting source's name
        QString op;      ///< "wait" or "waitFor"
        int line = 0;    ///< the step's line in its source
        QString signal;  ///< waitFor: the signal waited for
        QJsonObject match; ///< waitFor: the arguments to match
        qint64 sinceMs = 0; ///< how long it has waited
    };
    QList<WaitView> waitsInProgress() const;

private:
    struct Wait
    {
        QPointer<StepSource> source;
        Step step;
        QString signal;      // waitFor: the signal; empty for a plain wait
        QJsonObject match;   // waitFor: named arguments to match
        qint64 startedAt = 0;
        QTimer* timer = nullptr; // child of this object
    };
    StepOutcome wait(StepSource& source, const Step& step);
    StepOutcome waitFor(StepSource& source, const Step& step);
    StepOutcome log(const Step& step);
    StepOutcome quit(StepSource& source, const Step& step);
    StepOutcome audio(const Step& step);

    void onEvent(const ShowEvent& event);
    void endWait(Wait* wait, const ShowEvent* matched, bool timedOut);

    // All fields: GUI thread.
    StepRunner& m_runner;
    EventHub& m_hub;
    ScreenSteps& m_screens;
    QHash<QString, Handler> m_handlers;
    QList<Wait*> m_waits; // owned; at most one per source
};
