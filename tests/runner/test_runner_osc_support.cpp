#include "test_runner_osc_support.h"

#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QNetworkDatagram>
#include <cstdlib>

namespace osc_test {

quint16 freeUdpPort()
{
    QUdpSocket probe;
    if (!probe.bind(QHostAddress(QHostAddress::LocalHost), 0))
        return 0;
    return probe.localPort();
}

namespace {

/// oscdump's arguments: space separated, strings in double quotes (not
/// escaped; the tests' strings hold no quotes).
QStringList splitArgs(const QString& text)
{
    QStringList out;
    QString current;
    bool quoted = false;
    for (const QChar c : text) {
        if (c == QLatin1Char('"')) {
            quoted = !quoted;
        } else if (c == QLatin1Char(' ') && !quoted) {
            if (!current.isEmpty())
                out << current;
            current.clear();
        } else {
            current += c;
        }
    }
    if (!current.isEmpty())
        out << current;
    return out;
}

} // namespace

OscDump::~OscDump()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

bool OscDump::start()
{
    for (int attempt = 0; attempt < 5; ++attempt) {
        m_port = freeUdpPort();
        m_process.start(QStringLiteral("oscdump"), {QStringLiteral("-L"), QString::number(m_port)});
        if (!m_process.waitForStarted(5000))
            return false;
        // oscdump ends at once when it cannot bind (the port was taken meanwhile).
        if (!m_process.waitForFinished(200))
            return true;
    }
    return false;
}

void OscDump::take()
{
    m_buffer += m_process.readAllStandardOutput();
    int newline;
    while ((newline = m_buffer.indexOf('\n')) >= 0) {
        const QString raw = QString::fromUtf8(m_buffer.left(newline));
        m_buffer.remove(0, newline + 1);
        const QStringList parts = splitArgs(raw);
        if (parts.size() < 2)
            continue;
        DumpLine line;
        line.path = parts.at(1);
        line.types = parts.value(2);
        line.args = parts.mid(3);
        if (line.types.isEmpty() || line.types.startsWith(QLatin1Char('#')))
            line.types.clear();
        m_lines << line;
    }
}

bool OscDump::next(const std::function<bool(const DumpLine&)>& match, DumpLine* out, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        take();
        while (m_next < m_lines.size()) {
            const DumpLine& line = m_lines.at(m_next++);
            if (match(line)) {
                if (out)
                    *out = line;
                return true;
            }
        }
        if (deadline.hasExpired())
            return false;
        m_process.waitForReadyRead(int(qBound<qint64>(1, deadline.remainingTime(), 100)));
    }
}

bool oscSend(quint16 port, const QString& path, const QString& types, const QStringList& values)
{
    QStringList args{QStringLiteral("127.0.0.1"), QString::number(port), path};
    if (!types.isEmpty())
        args << types << values;
    QProcess process;
    process.start(QStringLiteral("oscsend"), args);
    return process.waitForFinished(10000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

QByteArray encode(const char* path, const std::function<void(lo_message)>& add)
{
    lo_message m = lo_message_new();
    if (add)
        add(m);
    std::size_t size = 0;
    void* data = lo_message_serialise(m, path, nullptr, &size);
    const QByteArray packet(static_cast<const char*>(data), int(size));
    std::free(data);
    lo_message_free(m);
    return packet;
}

QByteArray encodeBundle(int count, const char* path, const std::function<void(lo_message, int)>& add)
{
    lo_bundle bundle = lo_bundle_new(LO_TT_IMMEDIATE);
    for (int i = 0; i < count; ++i) {
        lo_message m = lo_message_new();
        if (add)
            add(m, i);
        lo_bundle_add_message(bundle, path, m);
    }
    std::size_t size = 0;
    void* data = lo_bundle_serialise(bundle, nullptr, &size);
    const QByteArray packet(static_cast<const char*>(data), int(size));
    std::free(data);
    lo_bundle_free_recursive(bundle);
    return packet;
}

QByteArray nestInBundles(const QByteArray& packet, int levels)
{
    lo_bundle empty = lo_bundle_new(LO_TT_IMMEDIATE);
    std::size_t size = 0;
    void* data = lo_bundle_serialise(empty, nullptr, &size);
    const QByteArray head(static_cast<const char*>(data), int(size));
    std::free(data);
    lo_bundle_free(empty);

    QByteArray out = packet;
    for (int level = 0; level < levels; ++level) {
        const quint32 length = quint32(out.size());
        const char sizeBytes[4] = {char(length >> 24), char(length >> 16), char(length >> 8), char(length)};
        out = head + QByteArray(sizeBytes, 4) + out;
    }
    return out;
}

bool OscClient::open(const QString& address)
{
    return m_socket.bind(QHostAddress(address), 0);
}

bool OscClient::send(quint16 to, const QByteArray& packet, const QString& address)
{
    return m_socket.writeDatagram(packet, QHostAddress(address), to) == packet.size();
}

bool OscClient::receive(QString& path, QString& text, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!m_socket.hasPendingDatagrams()) {
        if (deadline.hasExpired() || !m_socket.waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime()))))
            return false;
    }
    QByteArray data = m_socket.receiveDatagram().data();
    const char* raw = lo_get_path(data.data(), data.size());
    path = QString::fromUtf8(raw ? raw : "");
    int result = 0;
    lo_message m = lo_message_deserialise(data.data(), std::size_t(data.size()), &result);
    if (!m)
        return false;
    text.clear();
    if (lo_message_get_argc(m) > 0 && lo_message_get_types(m)[0] == 's')
        text = QString::fromUtf8(reinterpret_cast<const char*>(lo_message_get_argv(m)[0]));
    lo_message_free(m);
    return true;
}

QJsonObject OscClient::nextAnswer(int timeoutMs, QString* pathOut)
{
    QDeadlineTimer deadline(timeoutMs);
    QString path;
    QString text;
    while (receive(path, text, int(qMax<qint64>(1, deadline.remainingTime())))) {
        if (path == QLatin1String("/kelmor/reply") || path == QLatin1String("/kelmor/error")) {
            if (pathOut)
                *pathOut = path;
            return QJsonDocument::fromJson(text.toUtf8()).object();
        }
    }
    return QJsonObject();
}

} // namespace osc_test
