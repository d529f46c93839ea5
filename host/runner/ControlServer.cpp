#include "ControlServer.h"

#include "Console.h"
#include "EventHub.h"
#include "JsonLine.h"
#include "StepRunner.h"

#include <QTcpServer>
#include <QTcpSocket>

namespace {

constexpr int kMaxClients = 32;
constexpr qint64 kSocketReadBuffer = 256 * 1024;
constexpr qint64 kMaxPendingOutput = 16 * 1024 * 1024;

} // namespace

// ---- One connection ----

TcpStepSource::TcpStepSource(QTcpSocket* socket, QString name, QObject* parent)
    : StepSource(std::move(name), false, parent), m_socket(socket)
{
    m_socket->setParent(this);
    // Qt stops reading from the network while this much is unread, so a
    // flood waits in the kernel's buffers and then at the client.
    m_socket->setReadBufferSize(kSocketReadBuffer);
    connect(m_socket, &QTcpSocket::readyRead, this, [this] { readAvailable(); });
    connect(m_socket, &QTcpSocket::disconnected, this, [this] {
        readAvailable(); // what came before the end still runs
        m_lines.finish();
        emit linesAvailable();
    });
}

void TcpStepSource::readAvailable()
{
    if (m_lines.finished())
        return;
    while (m_lines.queuedLines() < kHighWater && m_socket->bytesAvailable() > 0)
        m_lines.feed(m_socket->read(64 * 1024));
    emit linesAvailable();
}

bool TcpStepSource::hasLine()
{
    if (!m_lines.hasLine())
        readAvailable();
    return m_lines.hasLine();
}

RawLine TcpStepSource::takeLine()
{
    return m_lines.takeLine();
}

bool TcpStepSource::atEnd() const
{
    return m_lines.finished() && !m_lines.hasLine();
}

void TcpStepSource::send(const QByteArray& line)
{
    if (m_socket->state() != QAbstractSocket::ConnectedState)
        return;
    if (m_socket->bytesToWrite() > kMaxPendingOutput) {
        console::note(QStringLiteral("%1: client reads too slowly (%2 bytes pending); disconnected")
                          .arg(name())
                          .arg(m_socket->bytesToWrite()));
        m_socket->abort();
        m_lines.clearQueued();
        m_lines.finish();
        emit linesAvailable();
        return;
    }
    m_socket->write(line);
}

void TcpStepSource::reply(const QByteArray& line)
{
    send(line);
}

void TcpStepSource::close()
{
    m_lines.clearQueued();
    m_lines.finish();
    if (m_socket->state() == QAbstractSocket::ConnectedState)
        m_socket->flush();
    m_socket->disconnectFromHost();
}

// ---- Server ----

ControlServer::ControlServer(StepRunner& runner, EventHub& hub, QObject* parent)
    : QObject(parent), m_runner(runner), m_hub(hub)
{
    m_server = new QTcpServer(this);
    m_server->setMaxPendingConnections(kMaxClients);
    connect(m_server, &QTcpServer::newConnection, this, &ControlServer::acceptConnections);
    connect(&m_hub, &EventHub::printed, this, &ControlServer::broadcast);
}

bool ControlServer::listen(const QString& address, int port, QString& error)
{
    QHostAddress host;
    if (address == QLatin1String("localhost"))
        host = QHostAddress::LocalHost;
    else if (!host.setAddress(address)) {
        error = QStringLiteral("--listen-address: not an IP address: %1").arg(address);
        return false;
    }
    if (!m_server->listen(host, static_cast<quint16>(port))) {
        error = QStringLiteral("cannot listen on %1 port %2: %3")
                    .arg(address)
                    .arg(port)
                    .arg(m_server->errorString());
        return false;
    }
    if (!host.isLoopback())
        console::note(QStringLiteral("live control listens beyond loopback, on %1: anyone who can reach it can run steps")
                          .arg(address));
    JsonLine fields;
    fields.add(QStringLiteral("address"), m_server->serverAddress().toString());
    fields.add(QStringLiteral("port"), m_server->serverPort());
    m_hub.printHostLine(QStringLiteral("listening"), fields);
    return true;
}

quint16 ControlServer::port() const
{
    return m_server->serverPort();
}

void ControlServer::close()
{
    m_server->close();
}

void ControlServer::acceptConnections()
{
    while (QTcpSocket* socket = m_server->nextPendingConnection()) {
        m_clients.removeAll(nullptr);
        if (m_clients.size() >= kMaxClients || m_runner.quitting()) {
            JsonLine refusal;
            refusal.add(QStringLiteral("t"), static_cast<double>(console::msSinceStart()));
            refusal.add(QStringLiteral("error"), QStringLiteral("too many live-control connections"));
            socket->write(refusal.toLine());
            socket->disconnectFromHost();
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            continue;
        }
        const QString name = QStringLiteral("tcp#%1 %2:%3")
                                 .arg(++m_connectionCount)
                                 .arg(socket->peerAddress().toString())
                                 .arg(socket->peerPort());
        auto* source = new TcpStepSource(socket, name);
        source->eventCursor = m_hub.nextSeq(); // waitFor looks at events from now on
        m_clients.append(source);
        m_runner.addSource(source);
    }
}

void ControlServer::broadcast(const QByteArray& line)
{
    for (const QPointer<TcpStepSource>& client : m_clients) {
        if (client)
            client->send(line);
    }
}
