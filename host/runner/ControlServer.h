// ControlServer: live control over TCP. Each connection sends show steps,
// one JSON line each, and gets each step's ok/error line back on the same
// connection, in order. Every event line (and host line) is sent to every
// connected client as well, so a controller can follow the show; a client
// tells replies ("ok"/"error") from events ("event"/"host") by their key.
//
// Limits, so that no client can starve the show or exhaust memory: lines
// over 1 MiB are answered with an error and dropped; a connection's input is
// read only while few of its lines wait (the rest waits in the socket); a
// client that does not read its output gets disconnected once 16 MiB are
// pending; at most 32 clients at once.
//
// Listens on 127.0.0.1 unless another address is named (--listen-address).
//
// Threading: GUI thread. Ownership: the connections' sources belong to the
// runner; the server owns its QTcpServer.
#pragma once

#include "StepSource.h"

#include <QHostAddress>
#include <QObject>
#include <QPointer>

class EventHub;
class QTcpServer;
class QTcpSocket;
class StepRunner;

/// One client connection as a step source.
class TcpStepSource : public StepSource
{
    Q_OBJECT
public:
    TcpStepSource(QTcpSocket* socket, QString name, QObject* parent = nullptr);

    bool hasLine() override;
    RawLine takeLine() override;
    bool atEnd() const override;
    void reply(const QByteArray& line) override;
    void close() override;

    /// Event and host lines for this client.
    void send(const QByteArray& line);

private:
    void readAvailable();

    QTcpSocket* m_socket; // child
    LineAssembler m_lines{kMaxLineBytes};
};

class ControlServer : public QObject
{
    Q_OBJECT
public:
    ControlServer(StepRunner& runner, EventHub& hub, QObject* parent = nullptr);

    /// false (and `error`) when the address or port cannot be used.
    bool listen(const QString& address, int port, QString& error);
    quint16 port() const;
    void close();

private:
    void acceptConnections();
    void broadcast(const QByteArray& line);

    // All fields: GUI thread.
    StepRunner& m_runner;
    EventHub& m_hub;
    QTcpServer* m_server = nullptr; // child
    QList<QPointer<TcpStepSource>> m_clients;
    int m_connectionCount = 0;
};
