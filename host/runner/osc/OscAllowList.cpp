#include "OscAllowList.h"

QHostAddress plainAddress(const QHostAddress& address)
{
    bool isV4 = false;
    const quint32 v4 = address.toIPv4Address(&isV4);
    if (isV4 && address.protocol() == QAbstractSocket::IPv6Protocol)
        return QHostAddress(v4);
    return address;
}

bool OscAllowList::parse(const QStringList& entries, QString& problem)
{
    m_networks.clear();
    if (entries.size() > kMaxEntries) {
        problem = QStringLiteral("--osc-allow: more than %1 networks").arg(kMaxEntries);
        return false;
    }
    for (const QString& entry : entries) {
        const QString text = entry.trimmed();
        QPair<QHostAddress, int> network(QHostAddress(), -1);
        if (text.contains(QLatin1Char('/'))) {
            // Qt checks the prefix length against the protocol (0..32, 0..128).
            network = QHostAddress::parseSubnet(text);
        } else {
            QHostAddress single;
            if (single.setAddress(text))
                network = qMakePair(single, single.protocol() == QAbstractSocket::IPv4Protocol ? 32 : 128);
        }
        if (network.first.isNull() || network.second < 0) {
            problem = QStringLiteral("--osc-allow: not ADDRESS/PREFIX (e.g. 192.168.1.0/24): %1").arg(entry);
            return false;
        }
        const QHostAddress plain = plainAddress(network.first);
        if (plain.protocol() != network.first.protocol()) {
            // ::ffff:a.b.c.d/120 is a.b.c.d/24.
            if (network.second < 96) {
                problem = QStringLiteral("--osc-allow: an IPv4-mapped network needs a prefix of 96 or more: %1")
                              .arg(entry);
                return false;
            }
            network.second -= 96;
        }
        network.first = plain;
        m_networks.append(network);
    }
    return true;
}

bool OscAllowList::allows(const QHostAddress& sender) const
{
    const QHostAddress address = plainAddress(sender);
    if (address.isNull())
        return false;
    if (address.isLoopback())
        return true;
    for (const auto& network : m_networks) {
        if (address.isInSubnet(network.first, network.second))
            return true;
    }
    return false;
}

QStringList OscAllowList::describe() const
{
    QStringList out;
    for (const auto& network : m_networks)
        out << QStringLiteral("%1/%2").arg(network.first.toString()).arg(network.second);
    return out;
}
