#include "TcpConnection.h"

#include "Console.h"

#include <QHostAddress>
#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

QString peerOf(int fd)
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (::getpeername(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        return QStringLiteral("?");
    QHostAddress host(reinterpret_cast<const sockaddr*>(&address));
    quint16 port = 0;
    if (address.ss_family == AF_INET)
        port = ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port);
    else if (address.ss_family == AF_INET6)
        port = ntohs(reinterpret_cast<const sockaddr_in6*>(&address)->sin6_port);
    return QStringLiteral("%1:%2").arg(host.toString()).arg(port);
}

bool wouldBlock(int error)
{
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

} // namespace

TcpConnection::TcpConnection(int descriptor, QObject* parent) : QObject(parent), m_fd(descriptor)
{
    if (m_fd < 0) {
        console::note(QStringLiteral("TcpConnection: no descriptor"));
        m_inputEnded = m_failed = true;
        return;
    }
    ::fcntl(m_fd, F_SETFL, ::fcntl(m_fd, F_GETFL) | O_NONBLOCK);
    ::fcntl(m_fd, F_SETFD, ::fcntl(m_fd, F_GETFD) | FD_CLOEXEC);
    m_peerName = peerOf(m_fd);
    m_readNotifier = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
    connect(m_readNotifier, &QSocketNotifier::activated, this, &TcpConnection::onReadable);
    m_writeNotifier = new QSocketNotifier(m_fd, QSocketNotifier::Write, this);
    m_writeNotifier->setEnabled(false);
    connect(m_writeNotifier, &QSocketNotifier::activated, this, &TcpConnection::onWritable);
}

TcpConnection::~TcpConnection()
{
    if (m_fd < 0)
        return;
    // The end of the program: what the kernel takes now still goes out.
    if (!m_failed)
        sendPending();
    ::close(m_fd);
}

TcpConnection::Read TcpConnection::read(char* buffer, qint64 size, qint64& got)
{
    got = 0;
    if (m_fd < 0 || m_inputEnded || m_closing || size <= 0)
        return m_inputEnded || m_fd < 0 ? Read::End : Read::Nothing;
    const ssize_t n = ::recv(m_fd, buffer, static_cast<size_t>(size), 0);
    if (n > 0) {
        got = n;
        return Read::Data;
    }
    if (n < 0 && wouldBlock(errno))
        return Read::Nothing;
    // 0: the peer shut down its sending side; an error: the connection is
    // gone. Either way no more input comes; output may still go out.
    m_inputEnded = true;
    m_readNotifier->setEnabled(false);
    return Read::End;
}

void TcpConnection::setReading(bool on)
{
    m_wantReading = on;
    if (m_fd >= 0 && !m_closing)
        m_readNotifier->setEnabled(on && !m_inputEnded);
}

void TcpConnection::onReadable()
{
    if (m_closing)
        drainInput();
    else
        emit readable();
}

bool TcpConnection::write(const QByteArray& bytes)
{
    if (m_fd < 0 || m_failed || m_closing)
        return false;
    if (bytes.isEmpty())
        return true;
    m_out.push_back(bytes);
    m_pendingBytes += bytes.size();
    if (m_out.size() == 1)
        sendPending();
    return !m_failed;
}

void TcpConnection::onWritable()
{
    sendPending();
    if (m_fd >= 0 && m_closing && m_pendingBytes == 0 && !m_finSent)
        finishSending();
}

void TcpConnection::sendPending()
{
    while (!m_out.empty() && !m_failed) {
        const QByteArray& front = m_out.front();
        const ssize_t n = ::send(m_fd, front.constData() + m_outOffset,
                                 static_cast<size_t>(front.size() - m_outOffset), MSG_NOSIGNAL);
        if (n < 0) {
            if (wouldBlock(errno))
                break;
            // The peer is gone (reset, or closed for reading): nothing more
            // can be delivered.
            m_failed = true;
            m_out.clear();
            m_outOffset = 0;
            m_pendingBytes = 0;
            break;
        }
        m_outOffset += static_cast<int>(n);
        m_pendingBytes -= n;
        if (m_outOffset == front.size()) {
            m_out.pop_front();
            m_outOffset = 0;
        }
    }
    if (m_writeNotifier)
        m_writeNotifier->setEnabled(!m_out.empty() && !m_failed);
    if (m_failed && m_closing)
        destroy();
}

void TcpConnection::closeWhenSent()
{
    if (m_closing || m_fd < 0)
        return;
    m_closing = true;
    m_linger = new QTimer(this);
    m_linger->setSingleShot(true);
    connect(m_linger, &QTimer::timeout, this, &TcpConnection::destroy);
    m_linger->start(kLingerMs);
    // Input from now on is read only to be dropped (and to see its end).
    m_readNotifier->setEnabled(!m_inputEnded);
    if (m_failed)
        destroy();
    else if (m_pendingBytes == 0)
        finishSending();
}

void TcpConnection::finishSending()
{
    m_finSent = true;
    ::shutdown(m_fd, SHUT_WR);
    if (m_inputEnded)
        destroy();
}

void TcpConnection::drainInput()
{
    char buffer[64 * 1024];
    const ssize_t n = ::recv(m_fd, buffer, sizeof buffer, 0);
    if (n > 0) {
        m_drained += n;
        if (m_drained > kMaxDrainBytes)
            destroy();
        return;
    }
    if (n < 0 && wouldBlock(errno))
        return;
    m_inputEnded = true;
    m_readNotifier->setEnabled(false);
    if (m_finSent || n < 0)
        destroy();
}

void TcpConnection::destroy()
{
    if (m_fd < 0)
        return;
    m_readNotifier->setEnabled(false);
    m_writeNotifier->setEnabled(false);
    if (m_linger)
        m_linger->stop();
    ::close(m_fd);
    m_fd = -1;
    m_out.clear();
    m_pendingBytes = 0;
    deleteLater();
}
