// EventHub: turns every signal of the layer service into a JSON line on
// stdout, keeps a short history for "waitFor" steps, and hands the printed
// lines on (to live-control clients).
//
// An event line: {"t": ms since start, "event": "<signal>", <arguments by the
// names the signal declares>}; sendPlayerIndex declares its layer as "index",
// printed as "layerId" like the other signals'. sPositionChanged may be
// thinned per layer (positionIntervalMs): thinning affects the printed lines
// only; waitFor sees every event.
//
// Threading: GUI thread. The service emits on the GUI thread and the
// connections are direct, so an event is recorded the moment it is emitted;
// nothing here calls back into the module.
#pragma once

#include "JsonLine.h"

#include <QHash>
#include <QMap>
#include <QObject>
#include <QPair>
#include <QStringList>
#include <QVariantList>
#include <deque>
#include <functional>

class UI_Proc_KELMOR_Player_Desktop;

struct ShowEvent
{
    qint64 seq = 0;  ///< 0, 1, 2, ... in emission order
    qint64 t = 0;    ///< ms since start
    QString name;    ///< the signal's name
    JsonLine args;   ///< named arguments in declaration order
    JsonLine line() const; ///< the printed form
};

class EventHub : public QObject
{
    Q_OBJECT
public:
    explicit EventHub(int positionIntervalMs, QObject* parent = nullptr);

    /// Connects to every signal of the service (a signal it does not know is
    /// named on stderr).
    void attach(UI_Proc_KELMOR_Player_Desktop& service);

    QStringList signalNames() const { return m_argNames.keys(); }
    bool knowsSignal(const QString& name) const { return m_argNames.contains(name); }
    QStringList argNames(const QString& signal) const { return m_argNames.value(signal); }

    /// The sequence number the next event will get.
    qint64 nextSeq() const { return m_nextSeq; }
    /// The first kept event with seq >= fromSeq that matches, or null.
    const ShowEvent* find(qint64 fromSeq, const std::function<bool(const ShowEvent&)>& match) const;

    /// Prints a host line ({"t", "host": what, ...}) on stdout and to the
    /// clients, as events are.
    void printHostLine(const QString& what, const JsonLine& fields);

signals:
    /// Every event, printed or thinned.
    void occurred(const ShowEvent& event);
    /// Every line printed on stdout by the hub (events and host lines).
    void printed(const QByteArray& line);

private:
    template <class... A>
    void watch(UI_Proc_KELMOR_Player_Desktop& service, void (UI_Proc_KELMOR_Player_Desktop::*signal)(A...));
    void record(const QString& name, const QStringList& argNames, const QVariantList& values);
    bool thinnedOut(const ShowEvent& event);

    // All fields: GUI thread.
    const int m_positionIntervalMs;
    QMap<QString, QStringList> m_argNames;       // signal -> printed argument names
    std::deque<ShowEvent> m_history;             // the last kHistory events
    qint64 m_nextSeq = 0;
    QHash<QPair<int, int>, qint64> m_lastPosition; // (bankId, layerId) -> t of the last printed position
};
