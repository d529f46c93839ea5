#include "RawClient.h"

#include <QDeadlineTimer>
#include <QHostAddress>
#include <QJsonDocument>

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace runner_test {

RawClient::~RawClient()
{
    close();
}

bool RawClient::connectTo(const QString& address, quint16 port)
{
    close();
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(port);
    if (::inet_pton(AF_INET, address.toLatin1().constData(), &peer.sin_addr) != 1)
        return false;
    m_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_fd < 0)
        return false;
    if (::connect(m_fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) != 0) {
        close();
        return false;
    }
    ::fcntl(m_fd, F_SETFL, ::fcntl(m_fd, F_GETFL) | O_NONBLOCK);
    m_in.clear();
    m_ended = false;
    return true;
}

qint64 RawClient::sendSome(const char* data, qint64 size)
{
    if (m_fd < 0)
        return -1;
    const ssize_t sent = ::send(m_fd, data, static_cast<size_t>(size), MSG_NOSIGNAL);
    if (sent >= 0)
        return sent;
    return (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) ? 0 : -1;
}

bool RawClient::sendAll(const QByteArray& bytes, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    qint64 done = 0;
    while (done < bytes.size()) {
        const qint64 sent = sendSome(bytes.constData() + done, bytes.size() - done);
        if (sent < 0)
            return false;
        done += sent;
        if (done < bytes.size()) {
            if (deadline.hasExpired())
                return false;
            pollfd p{m_fd, POLLOUT, 0};
            ::poll(&p, 1, int(qMin<qint64>(100, deadline.remainingTime())));
        }
    }
    return true;
}

void RawClient::shutdownWrite()
{
    if (m_fd >= 0)
        ::shutdown(m_fd, SHUT_WR);
}

void RawClient::close()
{
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

QByteArray RawClient::readLine(int timeoutMs, bool* ended, bool* timedOut)
{
    if (ended)
        *ended = false;
    if (timedOut)
        *timedOut = false;
    QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        const int newline = m_in.indexOf('\n');
        if (newline >= 0) {
            const QByteArray line = m_in.left(newline);
            m_in.remove(0, newline + 1);
            return line;
        }
        if (m_ended || m_fd < 0) {
            if (ended)
                *ended = true;
            return QByteArray();
        }
        if (deadline.hasExpired()) {
            if (timedOut)
                *timedOut = true;
            return QByteArray();
        }
        pollfd p{m_fd, POLLIN, 0};
        if (::poll(&p, 1, int(qMin<qint64>(200, deadline.remainingTime()))) <= 0)
            continue;
        char buffer[64 * 1024];
        const ssize_t got = ::recv(m_fd, buffer, sizeof buffer, 0);
        if (got > 0)
            m_in.append(buffer, int(got));
        else if (got == 0 || (errno != EAGAIN && errno != EINTR))
            m_ended = true;
    }
}

QJsonObject RawClient::next(const std::function<bool(const QJsonObject&)>& match, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        bool ended = false, timedOut = false;
        const QByteArray line = readLine(int(qMax<qint64>(0, deadline.remainingTime())), &ended, &timedOut);
        if (ended || timedOut)
            return QJsonObject();
        const QJsonDocument doc = QJsonDocument::fromJson(line);
        if (doc.isObject() && match(doc.object()))
            return doc.object();
    }
}

bool RawClient::waitForEnd(int timeoutMs, QList<QByteArray>* lines)
{
    QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        bool ended = false, timedOut = false;
        const QByteArray line = readLine(int(qMax<qint64>(0, deadline.remainingTime())), &ended, &timedOut);
        if (ended)
            return true;
        if (timedOut)
            return false;
        if (lines)
            lines->append(line);
    }
}

bool isReplyLine(const QJsonObject& o)
{
    return o.contains(QStringLiteral("ok")) || o.contains(QStringLiteral("error"));
}

} // namespace runner_test
