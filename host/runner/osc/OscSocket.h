// OscSocket: the runner's UDP socket for OSC, in and out. Bound to one
// address, exclusively (no SO_REUSEADDR: a second program cannot share the
// port); an IPv6 "any" address takes IPv4 too. Datagrams are read on the
// GUI thread when a QSocketNotifier sees the socket readable (level
// triggered: what a turn leaves is read on the next), and sent without ever
// waiting: a datagram the kernel cannot take at once is dropped and counted.
//
// (A plain socket rather than QUdpSocket: Qt's socket stops announcing
// datagrams after a readyRead in which nothing was left to read.)
//
// Threading: GUI thread. Ownership: the OSC room owns it (Qt parent);
// sender sources hold it through a QPointer.
#pragma once

#include <QHostAddress>
#include <QObject>

class QSocketNotifier;

/// One OSC peer: an address and a UDP port.
struct OscPeer
{
    QHostAddress address;
    quint16 port = 0;

    bool operator==(const OscPeer& other) const { return port == other.port && address == other.address; }
    /// "address:port" ("[v6]:port" for IPv6).
    QString text() const;
};
uint qHash(const OscPeer& peer, uint seed = 0);

class OscSocket : public QObject
{
    Q_OBJECT
public:
    /// The largest UDP payload over IPv4.
    static constexpr int kMaxDatagram = 65507;
    /// Read buffer: more than any datagram an OSC packet may fill (64 KiB).
    static constexpr int kReadBytes = 65536 + 1;

    explicit OscSocket(QObject* parent = nullptr);
    ~OscSocket() override;

    /// false (and `error`) when the address and port cannot be bound.
    bool bind(const QHostAddress& address, quint16 port, QString& error);
    bool isBound() const { return m_fd >= 0; }
    QHostAddress address() const;
    quint16 port() const;

    /// Reads the next datagram; false when none is waiting. A datagram
    /// larger than kReadBytes comes out cut to kReadBytes bytes.
    bool read(QByteArray& packet, OscPeer& from);

    /// Sends one packet; false when it was dropped (too large, or the
    /// kernel did not take it at once).
    bool send(const OscPeer& to, const QByteArray& packet);
    /// A /kelmor/reply or /kelmor/error with one JSON line; a line too long
    /// for a datagram becomes an /kelmor/error saying so.
    void sendLine(const OscPeer& to, const QByteArray& path, const QByteArray& line);

    qint64 droppedCount() const { return m_dropped; }

signals:
    /// Datagrams are waiting.
    void readable();

private:
    // All fields: GUI thread.
    int m_fd = -1;
    int m_family = 0;                    // AF_INET or AF_INET6
    QSocketNotifier* m_notifier = nullptr; // child
    QByteArray m_buffer;                 // kReadBytes, reused by read()
    qint64 m_dropped = 0;
    bool m_droppedNoted = false;         // the first drop is noted on stderr
};
