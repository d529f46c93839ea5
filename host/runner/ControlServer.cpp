#include "ControlServer.h"

#include "Console.h"
#include "EventHub.h"
#include "JsonLine.h"
#include "StepRunner.h"
#include "TcpConnection.h"
#include "TcpStepSource.h"

#include <QHostAddress>
#include <QTcpServer>
#include <functional>

namespace {

/// A listener that hands over accepted descriptors as they are, so that no
/// QTcpSocket (which cannot half-close) is ever made for them.
class DescriptorServer : public QTcpServer
{
public:
    DescriptorServer(std::function<void(qintptr)> accept, QObject* parent)
        : QTcpServer(parent), m_accept(std::move(accept))
    {
    }

protected:
    void incomingConnection(qintptr descriptor) override { m_accept(descriptor); }

private:
    std::function<void(qintptr)> m_accept;
};

} // namespace

ControlServer::ControlServer(StepRunner& runner, EventHub& hub, QObject* parent)
    : QObject(parent), m_runner(runner), m_hub(hub)
{
    m_server = new DescriptorServer([this](qintptr descriptor) { accept(descriptor); }, this);
    connect(&m_hub, &EventHub::printed, this, &ControlServer::broadcast);
}

bool ControlServer::listen(const QString& address, int port, const QString& token, QString& error)
{
    QHostAddress host;
    if (address == QLatin1String("localhost"))
        host = QHostAddress::LocalHost;
    else if (!host.setAddress(address)) {
        error = QStringLiteral("--listen-address: not an IP address: %1").arg(address);
        return false;
    }
    if (port < 0 || port > 65535) {
        error = QStringLiteral("ControlServer::listen: port %1 out of range").arg(port);
        return false;
    }
    if (!token.isEmpty() && !AccessToken::fromText(token, m_token, error))
        return false;
    if (!m_server->listen(host, static_cast<quint16>(port))) {
        error = QStringLiteral("cannot listen on %1 port %2: %3")
                    .arg(address)
                    .arg(port)
                    .arg(m_server->errorString());
        return false;
    }
    if (!m_token.isSet() && !host.isLoopback()) {
        // Shown once, on stderr only: never on stdout (which clients of a
        // pipe may read) nor to TCP clients.
        m_token = AccessToken::generate();
        console::note(QStringLiteral("live control listens beyond loopback, on %1: each connection must first "
                                     "send {\"op\": \"auth\", \"token\": TOKEN}; generated token: %2")
                          .arg(address, m_token.text()));
    } else if (m_token.isSet()) {
        console::note(QStringLiteral("live control on %1 requires the --token: each connection must first send "
                                     "{\"op\": \"auth\", \"token\": TOKEN}")
                          .arg(address));
    }
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

void ControlServer::accept(qintptr descriptor)
{
    auto* connection = new TcpConnection(static_cast<int>(descriptor), this);
    m_clients.removeAll(nullptr);
    if (m_clients.size() >= kMaxClients || m_runner.quitting()) {
        // Said once, then closed at once: a burst of connections must not
        // keep descriptors lingering.
        connection->write(console::refusalLine(m_runner.quitting() ? QStringLiteral("the runner is ending")
                                                          : QStringLiteral("too many live-control connections")));
        connection->abort();
        return;
    }
    const QString name = QStringLiteral("tcp#%1 %2").arg(++m_connectionCount).arg(connection->peerName());
    auto* source = new TcpStepSource(connection, name, m_runner, &m_token);
    source->eventCursor = m_hub.nextSeq(); // waitFor looks at events from now on
    connect(source, &TcpStepSource::inputRead, this, &ControlServer::checkInputTotal);
    m_clients.append(source);
    m_runner.addSource(source);
}

void ControlServer::broadcast(const QByteArray& line)
{
    for (const QPointer<TcpStepSource>& client : m_clients) {
        if (client)
            client->send(line);
    }
}

void ControlServer::checkInputTotal()
{
    for (;;) {
        qint64 total = 0;
        qint64 most = -1;
        TcpStepSource* biggest = nullptr;
        for (const QPointer<TcpStepSource>& client : m_clients) {
            if (!client)
                continue;
            const qint64 held = client->heldInputBytes();
            total += held;
            if (held > most) {
                most = held;
                biggest = client;
            }
        }
        if (total < kMaxTotalInput || !biggest || most == 0)
            return;
        biggest->refuseInput(QStringLiteral("input queue full (%1 bytes waiting here, %2 on all connections; "
                                            "at most %3 MiB together); disconnected")
                                 .arg(most)
                                 .arg(total)
                                 .arg(kMaxTotalInput >> 20));
    }
}
