// TcpConnection: one accepted TCP connection, read and written with
// recv()/send() on its own descriptor through socket notifiers.
//
// QTcpSocket closes the whole connection once the peer has shut down its
// sending side, so a client that sends its steps and then half-closes would
// never get the replies. Here the end of input is only reported: the owner
// keeps writing (replies, events) for as long as it likes, and
// closeWhenSent() delivers what is pending before the connection ends.
//
// Limits: output waiting for a slow peer is the owner's to bound (it reads
// pendingOutput()); input is read only while the owner asks for it
// (setReading), so a flood waits in the kernel's buffers and then at the
// client. A closing connection sends what is pending, then its FIN, then
// reads and drops the peer's input until the peer's end (so the kernel does
// not answer unread input with a reset that could destroy the last reply in
// flight), and gives up after kLingerMs or kMaxDrainBytes.
//
// Threading: GUI thread. Ownership: its parent (the control server); a
// closing connection deletes itself when done.
#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>
#include <deque>

class QSocketNotifier;
class QTimer;

class TcpConnection : public QObject
{
    Q_OBJECT
public:
    static constexpr int kLingerMs = 5000;                  ///< most a closing connection waits
    static constexpr qint64 kMaxDrainBytes = 4 * 1024 * 1024; ///< most input dropped while closing

    /// Takes `descriptor`, a connected TCP socket (made non-blocking here);
    /// it is closed with this object.
    explicit TcpConnection(int descriptor, QObject* parent = nullptr);
    ~TcpConnection() override;

    /// "address:port" of the peer.
    const QString& peerName() const { return m_peerName; }

    enum class Read {
        Data,    ///< `got` bytes were read
        Nothing, ///< nothing waiting now
        End      ///< the peer ended its input, or the connection failed
    };
    /// Reads up to `size` bytes into `buffer`.
    Read read(char* buffer, qint64 size, qint64& got);
    /// Whether readable() is wanted (off: input waits in the kernel).
    void setReading(bool on);

    /// Queues `bytes` for the peer (sent at once when the socket takes them);
    /// false when nothing more can be sent (failed or closing).
    bool write(const QByteArray& bytes);
    /// Bytes queued and not yet taken by the kernel.
    qint64 pendingOutput() const { return m_pendingBytes; }

    /// Accepts no more writes, delivers what is pending, ends the connection
    /// and deletes itself.
    void closeWhenSent();
    /// Ends at once, dropping what is pending, and deletes itself.
    void abort() { destroy(); }

signals:
    /// Input (or its end) is waiting: call read().
    void readable();

private:
    void onReadable();
    void onWritable();
    void sendPending();
    void finishSending();
    void drainInput();
    void destroy();

    // All fields: GUI thread.
    int m_fd = -1;                          // -1 once closed
    QString m_peerName;
    QSocketNotifier* m_readNotifier = nullptr;  // child
    QSocketNotifier* m_writeNotifier = nullptr; // child; on while output is pending
    QTimer* m_linger = nullptr;                 // child; runs while closing
    std::deque<QByteArray> m_out;           // output not yet sent, oldest first
    int m_outOffset = 0;                    // bytes of m_out.front() already sent
    qint64 m_pendingBytes = 0;
    bool m_wantReading = true;              // the owner's wish (setReading)
    bool m_inputEnded = false;              // recv() returned 0 (or failed)
    bool m_failed = false;                  // send() failed: the peer is gone
    bool m_closing = false;                 // closeWhenSent() was called
    bool m_finSent = false;                 // our sending side is shut down
    qint64 m_drained = 0;                   // input dropped while closing
};
