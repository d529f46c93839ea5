// Support of the OSC tests: the liblo tools as separate processes (oscdump
// receiving events, oscsend sending controller messages), and a client in
// the test process that sends packets built with liblo (or raw bytes) from
// a port of its own and reads the runner's answers.
//
// Threading: the test's main thread.
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QUdpSocket>
#include <functional>
#include <lo/lo.h>

namespace osc_test {

/// A UDP port on 127.0.0.1 that was free a moment ago.
quint16 freeUdpPort();

/// One line of oscdump: "<timetag> <path> <types> <args...>".
struct DumpLine
{
    QString path;
    QString types;
    QStringList args; ///< strings without their quotes
};

/// oscdump -L PORT, its lines parsed as they come.
class OscDump
{
public:
    ~OscDump();
    /// Starts oscdump on a free port; false when it does not run.
    bool start();
    quint16 port() const { return m_port; }
    /// The next line (after those returned) for which `match` holds; false
    /// on timeout.
    bool next(const std::function<bool(const DumpLine&)>& match, DumpLine* out = nullptr, int timeoutMs = 30000);
    /// Every line read so far.
    const QList<DumpLine>& lines() const { return m_lines; }

private:
    void take();

    QProcess m_process;
    quint16 m_port = 0;
    QByteArray m_buffer;
    QList<DumpLine> m_lines;
    int m_next = 0;
};

/// oscsend 127.0.0.1 PORT PATH [TYPES VALUES...]; true when it exited 0.
bool oscSend(quint16 port, const QString& path, const QString& types = QString(),
             const QStringList& values = QStringList());

/// A packet built with liblo: `add` puts the arguments into the message.
QByteArray encode(const char* path, const std::function<void(lo_message)>& add = {});
/// A bundle of `count` messages to `path` built with liblo; `add` puts the
/// arguments of message i into it.
QByteArray encodeBundle(int count, const char* path, const std::function<void(lo_message, int)>& add = {});
/// `packet` wrapped in `levels` more bundles: each level is liblo's encoding
/// of an empty bundle followed by the element's size and the element (what
/// lo_bundle_add_bundle makes, checked in the tests, without its cost that
/// grows with the square of the depth).
QByteArray nestInBundles(const QByteArray& packet, int levels);

/// A client in the test process on 127.0.0.1 (or another local address).
class OscClient
{
public:
    bool open(const QString& address = QStringLiteral("127.0.0.1"));
    quint16 port() const { return m_socket.localPort(); }
    bool send(quint16 to, const QByteArray& packet, const QString& address = QStringLiteral("127.0.0.1"));
    /// The next message received: its path and first string argument.
    bool receive(QString& path, QString& text, int timeoutMs);
    /// The next /kelmor/reply or /kelmor/error, its JSON line parsed;
    /// `path` says which. Empty on timeout.
    QJsonObject nextAnswer(int timeoutMs = 10000, QString* path = nullptr);

private:
    QUdpSocket m_socket;
};

} // namespace osc_test
