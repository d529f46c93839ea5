#include "console/ConsoleClient.h"

#include "Console.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <civetweb.h>

#include <chrono>
#include <cstdio>

namespace {

qint64 steadyMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

/// A close message: status code (big-endian) and a short reason.
QByteArray closePayload(quint16 code, const QString& reason)
{
    QByteArray payload;
    payload.append(char(code >> 8)).append(char(code & 0xff));
    payload.append(reason.toUtf8().left(120)); // a control frame carries at most 125 bytes
    return payload;
}

} // namespace

ConsoleClient::ConsoleClient(int id, QString peer, bool thumbnails, std::function<void(int)> wake)
    : m_id(id), m_peer(std::move(peer)), m_thumbnailsWanted(thumbnails), m_wake(std::move(wake))
{
}

ConsoleClient::~ConsoleClient()
{
    // finish() joins the writer; a client dropped before its handshake
    // completed never started one.
    if (m_writer.joinable()) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_dead = true;
        }
        m_outboundReady.notify_all();
        m_writer.join();
    }
}

void ConsoleClient::wake()
{
    if (!m_wakePending.exchange(true) && m_wake)
        m_wake(m_id);
}

// ---- civetweb's thread ----

void ConsoleClient::attach(mg_connection* connection)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_writer.joinable() || !connection)
        return;
    m_connection = connection;
    m_writer = std::thread([this] { writerLoop(); });
}

bool ConsoleClient::pushInbound(const char* data, std::size_t size)
{
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_inboundRoom.wait(lock, [this] {
            return m_closing || m_dead
                || (int(m_inbound.size()) < kMaxInboundMessages && m_inboundBytes < kMaxInboundBytes);
        });
        if (m_closing || m_dead)
            return false;
        m_inbound.emplace_back(data, int(size));
        m_inboundBytes += qint64(size);
    }
    wake();
    return true;
}

bool ConsoleClient::addFragment(const char* data, std::size_t size, std::size_t limit)
{
    if (std::size_t(m_fragments.size()) + size > limit) {
        m_fragments.clear();
        m_fragments.squeeze();
        m_assembling = false;
        return false;
    }
    m_fragments.append(data, int(size));
    m_assembling = true;
    return true;
}

QByteArray ConsoleClient::takeFragments()
{
    QByteArray message;
    message.swap(m_fragments);
    m_assembling = false;
    return message;
}

void ConsoleClient::finish()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_inputEnded = true;
    }
    m_outboundReady.notify_all();
    m_inboundRoom.notify_all();
    if (m_writer.joinable())
        m_writer.join();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_connection = nullptr;
        m_dead = true; // nothing more is sent on a connection that is going away
        m_lines.clear();
        m_thumbnails.clear();
        m_lineBytes = m_thumbnailBytes = 0;
    }
    wake(); // the source ends once its input is taken
}

// ---- GUI thread ----

bool ConsoleClient::takeInbound(QByteArray& message)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_inbound.empty())
            return false;
        message = std::move(m_inbound.front());
        m_inbound.pop_front();
        m_inboundBytes -= message.size();
    }
    m_inboundRoom.notify_one();
    return true;
}

bool ConsoleClient::inputEnded() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return (m_inputEnded || m_closing) && m_inbound.empty();
}

void ConsoleClient::sendReply(const QByteArray& line)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_closing || m_dead)
        return;
    if (m_lineBytes + m_thumbnailBytes + line.size() > kReplyLimit) {
        std::fprintf(stderr, "kelmor-show: console: page %d does not read its replies; closed\n", m_id);
        std::fflush(stderr);
        closeLocked(console::refusalLine(QStringLiteral("the console page does not read its replies; closed")),
                    QStringLiteral("not reading"));
        return;
    }
    m_lines.push_back(line);
    m_lineBytes += line.size();
    m_outboundReady.notify_one();
}

void ConsoleClient::noteDropLocked()
{
    const qint64 now = steadyMs();
    if (m_dropStreakSince < 0)
        m_dropStreakSince = now;
    else if (now - m_dropStreakSince > kStallMs) {
        std::fprintf(stderr, "kelmor-show: console: page %d does not read (%lld event lines dropped in %lld ms); closed\n",
                     m_id, static_cast<long long>(m_droppedSinceNotice), static_cast<long long>(now - m_dropStreakSince));
        std::fflush(stderr);
        closeLocked(QByteArray(), QStringLiteral("not reading"));
    }
}

void ConsoleClient::sendEvent(const QByteArray& line)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_closing || m_dead)
        return;
    if (m_lineBytes + m_thumbnailBytes + line.size() > kEventLimit) {
        ++m_stats.droppedEvents;
        ++m_droppedSinceNotice;
        noteDropLocked();
        return;
    }
    m_lines.push_back(line);
    m_lineBytes += line.size();
    m_outboundReady.notify_one();
}

void ConsoleClient::sendThumbnail(int screenId, const QByteArray& message)
{
    if (!m_thumbnailsWanted)
        return;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_closing || m_dead)
        return;
    const auto waiting = m_thumbnails.constFind(screenId);
    const qint64 replaced = waiting == m_thumbnails.constEnd() ? 0 : waiting->size();
    if (m_lineBytes + m_thumbnailBytes - replaced + message.size() > kThumbnailLimit) {
        ++m_stats.droppedThumbnails;
        ++m_thumbnailsDroppedSinceNotice;
        return;
    }
    m_thumbnailBytes += message.size() - replaced;
    m_thumbnails.insert(screenId, message);
    m_outboundReady.notify_one();
}

// ---- any thread ----

void ConsoleClient::close(const QByteArray& notice, const QString& reason, bool flush)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        closeLocked(notice, reason, flush);
    }
    wake();
}

void ConsoleClient::closeLocked(const QByteArray& notice, const QString& reason, bool flush)
{
    if (m_closing)
        return;
    m_closing = true;
    m_inbound.clear();
    m_inboundBytes = 0;
    if (!flush) {
        m_lines.clear();
        m_lineBytes = 0;
    }
    m_thumbnails.clear();
    m_thumbnailBytes = 0;
    if (!notice.isEmpty()) {
        m_lines.push_back(notice);
        m_lineBytes += notice.size();
    }
    // 1008: policy violation (refused input, not reading); 1001: going away.
    const bool goingAway = reason == QLatin1String("the runner is ending");
    m_closePayload = closePayload(goingAway ? 1001 : 1008, reason);
    m_closeWanted = true;
    m_inboundRoom.notify_all();
    m_outboundReady.notify_all();
}

bool ConsoleClient::closing() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_closing || m_dead;
}

ConsoleClient::Stats ConsoleClient::stats() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    Stats s = m_stats;
    s.queuedBytes = m_lineBytes + m_thumbnailBytes;
    return s;
}

// ---- the writer thread ----

bool ConsoleClient::nextMessage(int& opcode, QByteArray& payload)
{
    if (m_dead)
        return false;
    if (!m_lines.empty()) {
        // Lines waiting go out together, one per line of the message.
        payload.clear();
        while (!m_lines.empty() && (payload.isEmpty() || payload.size() + m_lines.front().size() <= kBatchBytes)) {
            QByteArray line = std::move(m_lines.front());
            m_lines.pop_front();
            m_lineBytes -= line.size();
            if (line.endsWith('\n'))
                line.chop(1);
            if (!payload.isEmpty())
                payload.append('\n');
            payload.append(line);
        }
        opcode = MG_WEBSOCKET_OPCODE_TEXT;
        ++m_stats.textMessages;
    } else if (!m_thumbnails.isEmpty()) {
        payload = m_thumbnails.first();
        m_thumbnails.erase(m_thumbnails.begin());
        m_thumbnailBytes -= payload.size();
        opcode = MG_WEBSOCKET_OPCODE_BINARY;
        ++m_stats.thumbnailsSent;
    } else if (m_closeWanted) {
        m_closeWanted = false;
        payload = m_closePayload;
        opcode = MG_WEBSOCKET_OPCODE_CONNECTION_CLOSE;
    } else {
        return false;
    }
    // Caught up after dropping: the browser hears how much it missed.
    if (!m_closing && m_lineBytes + m_thumbnailBytes < kThumbnailLimit
        && (m_droppedSinceNotice > 0 || m_thumbnailsDroppedSinceNotice > 0)) {
        QJsonObject notice{{QStringLiteral("t"), double(console::msSinceStart())},
                           {QStringLiteral("console"), QStringLiteral("dropped")},
                           {QStringLiteral("events"), double(m_droppedSinceNotice)},
                           {QStringLiteral("thumbnails"), double(m_thumbnailsDroppedSinceNotice)}};
        const QByteArray line = QJsonDocument(notice).toJson(QJsonDocument::Compact) + '\n';
        m_lines.push_back(line);
        m_lineBytes += line.size();
        m_droppedSinceNotice = 0;
        m_thumbnailsDroppedSinceNotice = 0;
        m_dropStreakSince = -1;
    }
    return true;
}

void ConsoleClient::writerLoop()
{
    for (;;) {
        int opcode = 0;
        QByteArray payload;
        mg_connection* connection = nullptr;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_outboundReady.wait(lock, [this] {
                return m_dead || m_inputEnded || !m_lines.empty() || !m_thumbnails.isEmpty() || m_closeWanted;
            });
            if (!nextMessage(opcode, payload))
                return; // dead, or the input ended and everything went out
            connection = m_connection;
        }
        // Blocks at most the library's write timeout; the GUI thread only
        // ever takes the mutex, which is not held here.
        const int written = mg_websocket_write(connection, opcode, payload.constData(), std::size_t(payload.size()));
        std::lock_guard<std::mutex> lock(m_mutex);
        if (written <= 0 || written < payload.size() || opcode == MG_WEBSOCKET_OPCODE_CONNECTION_CLOSE) {
            m_dead = true; // a failed write leaves the stream unusable; a close ends it
            m_lines.clear();
            m_thumbnails.clear();
            m_lineBytes = m_thumbnailBytes = 0;
            m_inboundRoom.notify_all();
            return;
        }
    }
}
