#include "OscSocket.h"

#include "Console.h"
#include "OscEncoder.h"
#include "osc/OscAllowList.h"

#include <QSocketNotifier>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// `address`:`port` as a socket address of `family` (IPv4 addresses
/// mapped for an IPv6 socket); false when it cannot be.
bool toSockaddr(const QHostAddress& address, quint16 port, int family, sockaddr_storage& out, socklen_t& length)
{
    std::memset(&out, 0, sizeof out);
    bool isV4 = false;
    const quint32 v4 = address.toIPv4Address(&isV4);
    if (family == AF_INET) {
        if (!isV4)
            return false;
        auto* in = reinterpret_cast<sockaddr_in*>(&out);
        in->sin_family = AF_INET;
        in->sin_port = htons(port);
        in->sin_addr.s_addr = htonl(v4);
        length = sizeof(sockaddr_in);
        return true;
    }
    auto* in6 = reinterpret_cast<sockaddr_in6*>(&out);
    in6->sin6_family = AF_INET6;
    in6->sin6_port = htons(port);
    const Q_IPV6ADDR bytes = isV4 ? QHostAddress(QStringLiteral("::ffff:") + address.toString()).toIPv6Address()
                                  : address.toIPv6Address();
    std::memcpy(&in6->sin6_addr, &bytes, sizeof bytes);
    in6->sin6_scope_id = address.scopeId().toUInt();
    length = sizeof(sockaddr_in6);
    return true;
}

} // namespace

QString OscPeer::text() const
{
    if (address.protocol() == QAbstractSocket::IPv6Protocol)
        return QStringLiteral("[%1]:%2").arg(address.toString()).arg(port);
    return QStringLiteral("%1:%2").arg(address.toString()).arg(port);
}

uint qHash(const OscPeer& peer, uint seed)
{
    return qHash(peer.address, seed) ^ (uint(peer.port) * 2654435761u);
}

OscSocket::OscSocket(QObject* parent) : QObject(parent)
{
}

OscSocket::~OscSocket()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

bool OscSocket::bind(const QHostAddress& address, quint16 port, QString& error)
{
    if (m_fd >= 0) {
        error = QStringLiteral("OscSocket::bind: bound already");
        return false;
    }
    const int family = address.protocol() == QAbstractSocket::IPv6Protocol ? AF_INET6 : AF_INET;
    sockaddr_storage where;
    socklen_t length = 0;
    if (!toSockaddr(address, port, family, where, length)) {
        error = QStringLiteral("OscSocket::bind: not an address: %1").arg(address.toString());
        return false;
    }
    const int fd = ::socket(family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        error = QStringLiteral("cannot make the OSC socket: %1").arg(QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    if (family == AF_INET6) {
        const int v6only = 0; // "::" takes IPv4 senders too
        ::setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &v6only, sizeof v6only);
    }
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&where), length) != 0) {
        error = QStringLiteral("cannot bind OSC to %1 port %2: %3")
                    .arg(address.toString())
                    .arg(port)
                    .arg(QString::fromLocal8Bit(std::strerror(errno)));
        ::close(fd);
        return false;
    }
    m_fd = fd;
    m_family = family;
    m_buffer.resize(kReadBytes);
    m_notifier = new QSocketNotifier(fd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &OscSocket::readable);
    return true;
}

QHostAddress OscSocket::address() const
{
    sockaddr_storage where;
    socklen_t length = sizeof where;
    if (m_fd < 0 || ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&where), &length) != 0)
        return QHostAddress();
    return QHostAddress(reinterpret_cast<const sockaddr*>(&where));
}

quint16 OscSocket::port() const
{
    sockaddr_storage where;
    socklen_t length = sizeof where;
    if (m_fd < 0 || ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&where), &length) != 0)
        return 0;
    if (where.ss_family == AF_INET)
        return ntohs(reinterpret_cast<const sockaddr_in*>(&where)->sin_port);
    return ntohs(reinterpret_cast<const sockaddr_in6*>(&where)->sin6_port);
}

bool OscSocket::read(QByteArray& packet, OscPeer& from)
{
    if (m_fd < 0)
        return false;
    sockaddr_storage sender;
    socklen_t length = sizeof sender;
    const ssize_t got = ::recvfrom(m_fd, m_buffer.data(), std::size_t(m_buffer.size()), MSG_DONTWAIT,
                                   reinterpret_cast<sockaddr*>(&sender), &length);
    if (got < 0)
        return false; // EAGAIN: nothing waiting (or an error the next read sees again)
    packet = QByteArray(m_buffer.constData(), int(got));
    from.address = plainAddress(QHostAddress(reinterpret_cast<const sockaddr*>(&sender)));
    from.port = sender.ss_family == AF_INET ? ntohs(reinterpret_cast<const sockaddr_in*>(&sender)->sin_port)
                                            : ntohs(reinterpret_cast<const sockaddr_in6*>(&sender)->sin6_port);
    return true;
}

bool OscSocket::send(const OscPeer& to, const QByteArray& packet)
{
    sockaddr_storage where;
    socklen_t length = 0;
    const char* why = nullptr;
    if (m_fd < 0)
        why = "not bound";
    else if (packet.isEmpty() || packet.size() > kMaxDatagram)
        why = "too large for a datagram";
    else if (!toSockaddr(to.address, to.port, m_family, where, length))
        why = "the address does not suit the socket";
    else if (::sendto(m_fd, packet.constData(), std::size_t(packet.size()), MSG_DONTWAIT | MSG_NOSIGNAL,
                      reinterpret_cast<const sockaddr*>(&where), length)
             == ssize_t(packet.size()))
        return true;
    else
        why = std::strerror(errno);
    ++m_dropped;
    if (!m_droppedNoted) {
        m_droppedNoted = true;
        console::note(QStringLiteral("OSC: a datagram of %1 bytes to %2 was dropped (%3); further drops are only counted")
                          .arg(packet.size())
                          .arg(to.text(), QString::fromLocal8Bit(why)));
    }
    return false;
}

void OscSocket::sendLine(const OscPeer& to, const QByteArray& path, const QByteArray& line)
{
    const QByteArray text = line.trimmed();
    const QByteArray packet = oscenc::encodeString(path, text);
    if (packet.size() <= kMaxDatagram) {
        send(to, packet);
        return;
    }
    const QByteArray refusal = console::refusalLine(
        QStringLiteral("the answer (%1 bytes) does not fit in one datagram").arg(text.size()));
    send(to, oscenc::encodeString(QByteArrayLiteral("/kelmor/error"), refusal.trimmed()));
}
