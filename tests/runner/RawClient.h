// RawClient: a live-control client on a plain POSIX socket, for what
// QTcpSocket cannot do: shutting down only the sending side, sending without
// buffering in the test process (so a flood waits in the kernel, as a real
// client's would), and telling an orderly end of the stream from a timeout.
//
// Threading: the thread that made it.
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <functional>

namespace runner_test {

class RawClient
{
public:
    RawClient() = default;
    ~RawClient();
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    /// Connects (blocking) to `address`:`port`.
    bool connectTo(const QString& address, quint16 port);
    bool isOpen() const { return m_fd >= 0; }

    /// Sends everything, waiting up to `timeoutMs` in all; false when the
    /// connection failed or the time ran out.
    bool sendAll(const QByteArray& bytes, int timeoutMs = 10000);
    /// Sends what the kernel takes now without waiting; the number of bytes
    /// taken, -1 when the connection failed.
    qint64 sendSome(const char* data, qint64 size);
    /// shutdown(SHUT_WR): the runner reads the end of input; replies still come.
    void shutdownWrite();
    /// Closes the socket (both directions).
    void close();

    /// The next line, without its "\n"; empty with `ended` set when the
    /// runner closed the connection, empty with `timedOut` set on timeout.
    QByteArray readLine(int timeoutMs, bool* ended = nullptr, bool* timedOut = nullptr);
    /// The next line that is a JSON object for which `match` holds (others
    /// are passed over); empty on timeout or end.
    QJsonObject next(const std::function<bool(const QJsonObject&)>& match, int timeoutMs = 20000);
    /// Reads until the runner closes the connection; false on timeout.
    /// Lines read meanwhile are appended to `lines` when given.
    bool waitForEnd(int timeoutMs, QList<QByteArray>* lines = nullptr);

private:
    int m_fd = -1;
    QByteArray m_in; // received, not yet returned
    bool m_ended = false;
};

/// Whether a JSON line is a step's reply ("ok" or "error").
bool isReplyLine(const QJsonObject& o);

} // namespace runner_test
