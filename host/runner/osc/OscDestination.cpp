#include "osc/OscDestination.h"

#include <QHostInfo>

bool parseOscDestination(const QString& text, OscPeer& out, QString& problem)
{
    const int colon = text.lastIndexOf(QLatin1Char(':'));
    QString host = text.left(colon);
    const QString portText = text.mid(colon + 1);
    bool ok = false;
    const int port = portText.toInt(&ok);
    if (colon <= 0 || !ok || port < 1 || port > 65535) {
        problem = QStringLiteral("--osc-send: expected HOST:PORT (port 1 to 65535), got %1").arg(text);
        return false;
    }
    if (host.startsWith(QLatin1Char('[')) && host.endsWith(QLatin1Char(']')))
        host = host.mid(1, host.size() - 2);
    QHostAddress address;
    if (!address.setAddress(host)) {
        const QHostInfo info = QHostInfo::fromName(host);
        if (info.error() != QHostInfo::NoError || info.addresses().isEmpty()) {
            problem = QStringLiteral("--osc-send: cannot find the address of %1: %2").arg(host, info.errorString());
            return false;
        }
        address = info.addresses().constFirst();
        for (const QHostAddress& candidate : info.addresses()) {
            if (candidate.protocol() == QAbstractSocket::IPv4Protocol) {
                address = candidate; // the socket is usually IPv4
                break;
            }
        }
    }
    out.address = address;
    out.port = quint16(port);
    return true;
}
