#include "test_runner_console_kit.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QStringList>
#include <QWebSocket>

#include <civetweb.h>

#include <cstring>

namespace console_test {

namespace {

void initOnce()
{
    static const bool done = [] {
        mg_init_library(0);
        return true;
    }();
    (void)done;
}

HttpReply send(quint16 port, const QByteArray& text)
{
    initOnce();
    HttpReply reply;
    char error[256] = {0};
    mg_connection* connection = mg_connect_client("127.0.0.1", port, 0, error, sizeof error);
    if (!connection)
        return reply;
    if (mg_write(connection, text.constData(), size_t(text.size())) != text.size()) {
        mg_close_connection(connection);
        return reply;
    }
    int problem = 0;
    if (mg_get_response(connection, error, sizeof error, 10000) >= 0) {
        const mg_response_info* info = mg_get_response_info(connection);
        reply.status = info->status_code;
        for (int i = 0; i < info->num_headers; ++i)
            reply.headers.append({QByteArray(info->http_headers[i].name), QByteArray(info->http_headers[i].value)});
        if (reply.status != 101) {
            char buffer[8192];
            for (;;) {
                const int got = mg_read(connection, buffer, sizeof buffer);
                if (got <= 0)
                    break;
                reply.body.append(buffer, got);
            }
        }
    }
    (void)problem;
    mg_close_connection(connection);
    return reply;
}

QByteArray requestText(quint16 port, const QByteArray& method, const QByteArray& path, const Headers& headers)
{
    QByteArray text = method + ' ' + path + " HTTP/1.1\r\n";
    bool hasHost = false;
    for (const auto& h : headers) {
        hasHost = hasHost || h.first.toLower() == "host";
        text += h.first + ": " + h.second + "\r\n";
    }
    if (!hasHost)
        text += "Host: 127.0.0.1:" + QByteArray::number(port) + "\r\n";
    text += "Connection: close\r\n\r\n";
    return text;
}

} // namespace

QByteArray HttpReply::header(const QByteArray& name) const
{
    for (const auto& h : headers) {
        if (h.first.toLower() == name.toLower())
            return h.second;
    }
    return QByteArray();
}

HttpReply request(quint16 port, const QByteArray& method, const QByteArray& path, const Headers& headers)
{
    return send(port, requestText(port, method, path, headers));
}

HttpReply upgrade(quint16 port, const QByteArray& path, const Headers& headers)
{
    Headers all = headers;
    all.append(qMakePair(QByteArray("Upgrade"), QByteArray("websocket")));
    all.append(qMakePair(QByteArray("Sec-WebSocket-Version"), QByteArray("13")));
    all.append(qMakePair(QByteArray("Sec-WebSocket-Key"), QByteArray("dGhlIHNhbXBsZSBub25jZQ==")));
    QByteArray text = requestText(port, "GET", path, all);
    text.replace("Connection: close\r\n", "Connection: Upgrade\r\n");
    return send(port, text);
}

QByteArray originOf(quint16 port)
{
    return "http://127.0.0.1:" + QByteArray::number(port);
}

// ---- ConsolePage ----

ConsolePage::ConsolePage() = default;

ConsolePage::~ConsolePage()
{
    close();
}

bool ConsolePage::open(quint16 port, const QByteArray& path)
{
    m_socket = std::make_unique<QWebSocket>(QString::fromLatin1(originOf(port)));
    QObject::connect(m_socket.get(), &QWebSocket::textMessageReceived, [this](const QString& text) {
        for (const QString& line : text.split(QLatin1Char('\n'))) {
            const QJsonDocument doc = QJsonDocument::fromJson(line.toUtf8());
            if (doc.isObject())
                m_lines.push_back(doc.object());
        }
    });
    QObject::connect(m_socket.get(), &QWebSocket::binaryMessageReceived, [this](const QByteArray& message) {
        ++m_binary;
        m_lastBinary = message;
    });
    QObject::connect(m_socket.get(), &QWebSocket::disconnected, [this] { m_closed = true; });
    m_socket->open(QUrl(QStringLiteral("ws://127.0.0.1:%1%2").arg(port).arg(QString::fromLatin1(path))));
    QElapsedTimer clock;
    clock.start();
    while (m_socket->state() != QAbstractSocket::ConnectedState && !m_closed && clock.elapsed() < 10000)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    return m_socket->state() == QAbstractSocket::ConnectedState;
}

bool ConsolePage::send(const QByteArray& text)
{
    if (!m_socket || m_closed)
        return false;
    const bool sent = m_socket->sendTextMessage(QString::fromUtf8(text)) == text.size();
    m_socket->flush();
    return sent;
}

bool ConsolePage::sendBinary(const QByteArray& bytes)
{
    if (!m_socket || m_closed)
        return false;
    const bool sent = m_socket->sendBinaryMessage(bytes) == bytes.size();
    m_socket->flush();
    return sent;
}

QJsonObject ConsolePage::next(const std::function<bool(const QJsonObject&)>& match, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    for (;;) {
        while (!m_lines.empty()) {
            QJsonObject line = m_lines.front();
            m_lines.pop_front();
            if (match(line))
                return line;
        }
        if (m_closed || clock.elapsed() >= timeoutMs)
            return QJsonObject();
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 20);
    }
}

bool ConsolePage::waitClosed(int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    while (!m_closed && clock.elapsed() < timeoutMs)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 20);
    return m_closed;
}

void ConsolePage::close()
{
    if (m_socket && !m_closed) {
        m_socket->close();
        waitClosed(2000);
    }
    m_socket.reset();
}

// ---- the runner ----

quint16 startConsole(runner_test::LiveRunner& runner, const QString& dir, const QStringList& more,
                     QJsonObject* hostLine)
{
    const QStringList args{QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--no-progress"),
                           QStringLiteral("--http"), QStringLiteral("0"), QStringLiteral("-")};
    if (!runner.start(args + more, dir))
        return 0;
    const QJsonObject line = runner.nextLine([](const QJsonObject& o) {
        return o.value(QStringLiteral("host")).toString() == QLatin1String("console");
    });
    if (hostLine)
        *hostLine = line;
    return quint16(line.value(QStringLiteral("port")).toInt());
}

bool isReply(const QJsonObject& o)
{
    return o.contains(QStringLiteral("ok")) || o.contains(QStringLiteral("error"));
}

std::function<bool(const QJsonObject&)> replyTo(int line)
{
    return [line](const QJsonObject& o) { return isReply(o) && o.value(QStringLiteral("line")).toInt() == line; };
}

std::function<bool(const QJsonObject&)> event(const char* name)
{
    const QString wanted = QString::fromLatin1(name);
    return [wanted](const QJsonObject& o) { return o.value(QStringLiteral("event")).toString() == wanted; };
}

} // namespace console_test
