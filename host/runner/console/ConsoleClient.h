// ConsoleClient: one browser connected to the operator console over a
// WebSocket, as seen from both sides of the thread boundary.
//
// In: civetweb's thread for the connection hands each message to
// pushInbound(); the GUI thread takes them (takeInbound) as the client's
// step source has room. The queue holds at most kMaxInboundMessages or
// kMaxInboundBytes; past that pushInbound waits (civetweb then reads no
// more, and the rest waits in the kernel and at the browser), so a flood
// costs bounded memory and no step is lost.
//
// Out: the GUI thread queues replies, event lines and thumbnails and never
// waits; a writer thread of the client's own sends them (several lines in
// one text message, a thumbnail as one binary message). A browser that
// stops reading has its queue grow; then, in this order:
//   - thumbnails are not queued past kThumbnailLimit bytes waiting (and
//     only the newest per screen ever waits);
//   - event lines are not queued past kEventLimit (counted; the browser is
//     told how many it missed once it catches up, and reloads the state);
//   - a client whose events have been dropped for kStallMs, or whose
//     replies pile up past kReplyLimit, is closed.
// So a slow or vanished browser never stalls the show and holds at most a
// few MiB.
//
// Threading: every field below is guarded by m_mutex, except those marked
// otherwise. Lifetime: shared (std::shared_ptr) by civetweb's connection
// data, the client's step source and the console; the writer thread is
// joined in finish(), which civetweb's close handler calls before the
// connection goes away, so the connection is never used after it.
#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

struct mg_connection;

class ConsoleClient
{
public:
    static constexpr int kMaxInboundMessages = 64;
    static constexpr qint64 kMaxInboundBytes = 4 * 1024 * 1024;
    static constexpr qint64 kThumbnailLimit = 256 * 1024;
    static constexpr qint64 kEventLimit = 1024 * 1024;
    static constexpr qint64 kReplyLimit = 4 * 1024 * 1024;
    static constexpr int kStallMs = 3000;
    /// Most bytes of lines sent in one text message.
    static constexpr qint64 kBatchBytes = 256 * 1024;

    /// `wake` is called (from any thread, without a lock held) when input
    /// arrived or the connection ended; it must only post to the GUI thread.
    /// `thumbnails`: whether the page wants screen thumbnails (a page on a
    /// slow link may do without: ?thumbnails=0).
    ConsoleClient(int id, QString peer, bool thumbnails, std::function<void(int)> wake);
    ~ConsoleClient();
    ConsoleClient(const ConsoleClient&) = delete;
    ConsoleClient& operator=(const ConsoleClient&) = delete;

    int id() const { return m_id; }
    const QString& peer() const { return m_peer; }
    bool wantsThumbnails() const { return m_thumbnailsWanted; }

    // ---- civetweb's thread for this connection ----
    /// The handshake is done: the writer starts sending on `connection`.
    void attach(mg_connection* connection);
    /// Queues one message, waiting while the queue is full; false when the
    /// client is closing (the message is dropped).
    bool pushInbound(const char* data, std::size_t size);
    /// A message that comes in several frames is put together here first:
    /// appends a frame's payload; false (and nothing kept) past `limit`.
    bool addFragment(const char* data, std::size_t size, std::size_t limit);
    /// The message put together so far (taken: the buffer is empty after).
    QByteArray takeFragments();
    bool assembling() const { return m_assembling; }
    /// The connection's read loop ended: the writer sends what is queued
    /// (bounded by the library's write timeout) and stops; returns when it
    /// has. The connection is not used afterwards.
    void finish();

    // ---- GUI thread ----
    /// The next message; false when none is waiting.
    bool takeInbound(QByteArray& message);
    /// The read loop ended and every message was taken.
    bool inputEnded() const;
    /// Clears the wake-up flag: the next message calls `wake` again.
    void rearmWake() { m_wakePending.store(false); }

    void sendReply(const QByteArray& line);
    void sendEvent(const QByteArray& line);
    /// The newest picture of a screen replaces one still waiting.
    void sendThumbnail(int screenId, const QByteArray& message);

    // ---- any thread ----
    /// Sends `notice` (when not empty) and a close message with `reason`,
    /// and lets the connection end. Input not yet taken is dropped; output
    /// waiting is dropped too, unless `flush` (the runner ends: the last
    /// replies and events still go out, thumbnails do not).
    void close(const QByteArray& notice, const QString& reason, bool flush = false);
    bool closing() const;

    struct Stats
    {
        qint64 queuedBytes = 0;
        qint64 droppedEvents = 0;
        qint64 droppedThumbnails = 0;
        qint64 textMessages = 0;
        qint64 thumbnailsSent = 0;
    };
    Stats stats() const;

private:
    void writerLoop();
    /// Under m_mutex: what to send next; false when the writer should stop.
    bool nextMessage(int& opcode, QByteArray& payload);
    void closeLocked(const QByteArray& notice, const QString& reason, bool flush = false);
    void noteDropLocked();
    void wake();

    const int m_id;         // immutable
    const QString m_peer;   // immutable
    const bool m_thumbnailsWanted; // immutable
    const std::function<void(int)> m_wake; // immutable
    std::atomic<bool> m_wakePending{false}; // a wake-up is posted and not yet handled

    mutable std::mutex m_mutex;
    std::condition_variable m_inboundRoom;   // pushInbound waits on it
    std::condition_variable m_outboundReady; // the writer waits on it
    std::deque<QByteArray> m_inbound;
    qint64 m_inboundBytes = 0;
    bool m_inputEnded = false;          // finish() was called
    std::deque<QByteArray> m_lines;     // replies, events and notices, oldest first
    qint64 m_lineBytes = 0;
    QMap<int, QByteArray> m_thumbnails; // screen id -> newest message
    qint64 m_thumbnailBytes = 0;
    bool m_closing = false;             // close() was called
    QByteArray m_closePayload;          // the close message still to send
    bool m_closeWanted = false;
    bool m_dead = false;                // a write failed, or the close message went out
    qint64 m_dropStreakSince = -1;      // ms (steady clock) of the first drop of a streak
    qint64 m_droppedSinceNotice = 0;
    qint64 m_thumbnailsDroppedSinceNotice = 0;
    Stats m_stats;
    QByteArray m_fragments;                // civetweb's thread only: a message in pieces
    bool m_assembling = false;             // civetweb's thread only: a first piece came
    mg_connection* m_connection = nullptr; // set by attach(); used by the writer thread only
    std::thread m_writer;                  // started by attach(), joined by finish()
};
