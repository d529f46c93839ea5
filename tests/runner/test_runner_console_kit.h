// Clients of the operator console for the runner tests: HTTP requests sent
// exactly as written through civetweb's client API (paths are not cleaned
// on the way, so "/../" reaches the console as such), and WebSocket pages
// (Qt WebSockets) that can stop reading.
//
// Threading: the test's thread.
#pragma once

#include "RunnerHarness.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QPair>
#include <QString>

#include <deque>
#include <functional>
#include <memory>

class QWebSocket;

namespace console_test {

struct HttpReply
{
    int status = 0;           ///< 0: no answer
    QByteArray body;
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray header(const QByteArray& name) const;
};

using Headers = QList<QPair<QByteArray, QByteArray>>;

/// Sends `method path` to 127.0.0.1:`port` with these headers (a Host
/// header naming 127.0.0.1:port is added unless one is given).
HttpReply request(quint16 port, const QByteArray& method, const QByteArray& path, const Headers& headers = {});
inline HttpReply get(quint16 port, const QByteArray& path, const Headers& headers = {})
{
    return request(port, "GET", path, headers);
}
/// A WebSocket upgrade request's answer (101 when accepted).
HttpReply upgrade(quint16 port, const QByteArray& path, const Headers& headers);
/// The console's own origin.
QByteArray originOf(quint16 port);

/// One console page: a WebSocket client of the console (Qt WebSockets,
/// which sends Host and Origin as a browser does). It reads only while the
/// test waits in one of its calls, so a test that does not call it for a
/// while has a page that stopped reading.
class ConsolePage
{
public:
    ConsolePage();
    ~ConsolePage();
    ConsolePage(const ConsolePage&) = delete;
    ConsolePage& operator=(const ConsolePage&) = delete;

    /// Connects with the console's own Origin; false when refused.
    bool open(quint16 port, const QByteArray& path = "/ws");
    bool send(const QByteArray& text);
    bool sendBinary(const QByteArray& bytes);
    /// The next line (JSON object) for which `match` holds; empty on
    /// timeout or when the connection ended first.
    QJsonObject next(const std::function<bool(const QJsonObject&)>& match, int timeoutMs = 20000);
    /// Reads until the console closed the connection.
    bool waitClosed(int timeoutMs = 20000);
    bool closed() const { return m_closed; }
    int binaryMessages() const { return m_binary; }
    const QByteArray& lastBinary() const { return m_lastBinary; }
    void close();

private:
    std::unique_ptr<QWebSocket> m_socket;
    std::deque<QJsonObject> m_lines;
    bool m_closed = false;
    int m_binary = 0;
    QByteArray m_lastBinary;
};

/// Starts `runner` with the console on a free port (--http 0 plus `more`,
/// steps from stdin); returns the port (0: it did not start) and the
/// "console" host line.
quint16 startConsole(runner_test::LiveRunner& runner, const QString& dir, const QStringList& more = {},
                     QJsonObject* hostLine = nullptr);

bool isReply(const QJsonObject& o);
std::function<bool(const QJsonObject&)> replyTo(int line);
std::function<bool(const QJsonObject&)> event(const char* name);

} // namespace console_test
