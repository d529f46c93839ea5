// ControlServer: live control over TCP. Each connection sends show steps,
// one JSON line each, and gets each step's ok/error line back on the same
// connection, in order. Every event line (and host line) is sent to every
// connected client as well, so a controller can follow the show; a client
// tells replies ("ok"/"error") from events ("event"/"host") by their key.
// A client may shut down its sending side once its steps are sent: it still
// gets every reply (and the events meanwhile), then the connection closes.
//
// Access: listens on 127.0.0.1 unless another address is named
// (--listen-address). Beyond loopback a token is always required: the one
// given with --token, or else one generated at start and printed once on
// stderr. With --token a loopback listener requires it too. A client
// presents it as its first step, {"op": "auth", "token": TOKEN}
// (TcpStepSource).
//
// Limits, so that no client can starve the show or exhaust memory: lines
// over 1 MiB are answered with an error and dropped; a connection holds at
// most 4 MiB of whole lines waiting plus the line being read (1 MiB), and is
// not read while its queue is full (the rest waits in the kernel and at the
// client); all connections together hold at most 32 MiB: past that the
// connection holding the most gets "input queue full; disconnected"; a client
// that does not read its output gets disconnected once 16 MiB are pending;
// at most 32 clients at once.
//
// Threading: GUI thread. Ownership: the connections' sources belong to the
// runner; the server owns its listener and the connections.
#pragma once

#include "AccessToken.h"

#include <QObject>
#include <QPointer>

class EventHub;
class QTcpServer;
class StepRunner;
class TcpStepSource;

class ControlServer : public QObject
{
    Q_OBJECT
public:
    static constexpr int kMaxClients = 32;
    static constexpr qint64 kMaxTotalInput = 32 * (1 << 20);

    ControlServer(StepRunner& runner, EventHub& hub, QObject* parent = nullptr);

    /// false (and `error`) when the address, port or token cannot be used.
    /// `token`: the operator's (--token); empty: none, or a generated one
    /// when the address is not loopback.
    bool listen(const QString& address, int port, const QString& token, QString& error);
    quint16 port() const;
    /// The token in force after listen() (unset: none), so that the other
    /// control surfaces ask for the same one.
    const AccessToken& token() const { return m_token; }
    void close();

private:
    void accept(qintptr descriptor);
    void broadcast(const QByteArray& line);
    void checkInputTotal();

    // All fields: GUI thread.
    StepRunner& m_runner;
    EventHub& m_hub;
    QTcpServer* m_server = nullptr; // child
    AccessToken m_token;            // unset: no token in force
    QList<QPointer<TcpStepSource>> m_clients;
    int m_connectionCount = 0;
};
