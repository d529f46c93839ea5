// OscControl: the runner's OSC room. Takes OSC messages on a UDP port
// (--osc-port; 127.0.0.1 unless --osc-address names another) and turns them
// into show steps, and sends every event and host line to subscribers as
// OSC messages. It only translates: the steps run through the runner like
// any other, so their replies and errors are those of stdin or TCP.
//
// Input: each datagram is checked against the allow-list before anything
// else (a sender outside it is dropped with a debug line and no answer),
// decoded by liblo (OscDecoder) and routed (OscAddressMap). Each sender
// (address and port) is a step source of its own (OscStepSource); at most
// kMaxSenders are kept, the least recently heard one is dropped for a new
// one. A packet is taken whole or refused whole: malformed data, bundles
// nested too deep, oversized strings, an unknown address, wrong argument
// types or count, a full queue (the sender's, or kMaxTotalQueued over all
// senders) are answered with /kelmor/error {"t", "error", "address"} and a
// debug line (at most kDebugLinesPerSecond), and nothing else happens. At
// most kPacketsPerTurn datagrams are read per event-loop turn.
//
// Output: OscEventFormat and OscSubscribers; sending never waits.
//
// Threading: GUI thread. Ownership: the room owns its socket; the runner
// owns the sender sources.
#pragma once

#include "osc/OscAllowList.h"
#include "osc/OscDecoder.h"
#include "osc/OscEventFormat.h"
#include "osc/OscSubscribers.h"

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QPointer>

class EventHub;
class HostSteps;
class OscSocket;
class OscStepSource;
class StepRunner;
struct OscRoute;
struct RunnerOptions;
struct ShowEvent;

class OscControl : public QObject
{
    Q_OBJECT
public:
    static constexpr int kMaxSenders = 32;
    static constexpr qint64 kMaxTotalQueued = 16 * (1 << 20);
    static constexpr int kPacketsPerTurn = 64;
    static constexpr int kDebugLinesPerSecond = 20;

    /// Adds the bank steps (BankSteps.h) to `host`, whether or not OSC is used.
    OscControl(StepRunner& runner, EventHub& hub, HostSteps& host, QObject* parent = nullptr);

    /// Binds the port and sets up the subscribers from the options; false
    /// (and `error`) when it cannot, or when a non-loopback address has no
    /// --osc-allow. Prints an "oscListening" host line.
    bool start(const RunnerOptions& options, QString& error);
    quint16 port() const;
    /// Takes no more input (the run is ending); events still go out.
    void stopInput();

private:
    void readPending();
    void takePacket(const QByteArray& packet, const OscPeer& from);
    bool applyRoutes(const QVector<OscMessage>& messages, const QVector<OscRoute>& routes, const OscPeer& from);
    OscStepSource* sourceFor(const OscPeer& from);
    qint64 totalQueued() const;
    void subscribe(const OscRoute& route, const OscPeer& from);
    void unsubscribe(const OscRoute& route, const OscPeer& from);
    void refuse(const OscPeer& to, const QString& problem, const QByteArray& path = QByteArray());
    void debugLine(const QString& text);
    void onEvent(const ShowEvent& event);
    void onPrinted(const QByteArray& line);

    // All fields: GUI thread.
    StepRunner& m_runner;
    EventHub& m_hub;
    OscSocket* m_socket = nullptr;         // child
    OscDecoder m_decoder;
    OscAllowList m_allow;
    OscEventFormat m_format;
    OscSubscribers m_subscribers;
    int m_defaultIntervalMs = 0;           // --position-interval
    QHash<OscPeer, QPointer<OscStepSource>> m_senders;
    quint64 m_useCounter = 0;              // stamps OscStepSource::lastUsed
    bool m_started = false;
    bool m_inputStopped = false;
    QElapsedTimer m_debugWindow;           // the current second of debug lines
    int m_debugLines = 0;                  // debug lines in that second
    int m_debugSuppressed = 0;             // lines left out in that second
};
