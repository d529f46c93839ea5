// The console server's HTTP side: the checks every request passes, the
// page's files, and stills (ConsoleServer.h).
#include "console/ConsoleServer.h"

#include "console/ConsoleServerNotes.h"

#include <QBuffer>
#include <QByteArray>

#include <civetweb.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>

using namespace console_server;

namespace {

QString headerToken(const char* query, const char* cookieHeader, bool fromCookie)
{
    char buffer[512];
    int got = -1;
    if (fromCookie) {
        if (cookieHeader)
            got = mg_get_cookie(cookieHeader, ConsoleAccess::kCookieName, buffer, sizeof buffer);
    } else if (query) {
        got = mg_get_var(query, std::strlen(query), "token", buffer, sizeof buffer);
    }
    // -1: absent; -2 / -3: too long or malformed, which is no token either
    // (and refused, since a present-but-unreadable token counts as wrong).
    if (got < -1)
        return QStringLiteral("\x01unreadable");
    return got > 0 ? QString::fromLatin1(buffer, got) : QString();
}

bool isUpgrade(const mg_connection* connection)
{
    const char* upgrade = mg_get_header(connection, "Upgrade");
    return upgrade && QByteArray(upgrade).toLower().contains("websocket");
}

void addSecurityHeaders(mg_connection* connection)
{
    mg_response_header_add(connection, "Cache-Control", "no-store", -1);
    mg_response_header_add(connection, "X-Content-Type-Options", "nosniff", -1);
    mg_response_header_add(connection, "Cross-Origin-Resource-Policy", "same-origin", -1);
    mg_response_header_add(connection, "Referrer-Policy", "no-referrer", -1);
    mg_response_header_add(connection, "Content-Security-Policy",
                           "default-src 'self'; img-src 'self' blob: data:; connect-src 'self'; "
                           "frame-ancestors 'none'; base-uri 'none'; form-action 'none'",
                           -1);
}

/// The path as the browser sent it (decoded) goes outside the folder: "..".
bool leavesFolder(const mg_request_info* info)
{
    const char* raw = info->local_uri_raw ? info->local_uri_raw : info->local_uri;
    if (!raw)
        return true;
    const QByteArray path(raw);
    return path.contains("/../") || path.endsWith("/..") || path.contains('\\') || path == ".."
        || (info->local_uri && path != QByteArray(info->local_uri));
}

} // namespace

int ConsoleServer::onRequest(mg_connection* connection)
{
    auto* self = static_cast<ConsoleServer*>(mg_get_user_data(mg_get_context(connection)));
    return self ? self->serve(connection) : 500;
}

int ConsoleServer::refuse(mg_connection* connection, int status, const char* text)
{
    const QByteArray body = QByteArray(text) + '\n';
    if (mg_response_header_start(connection, status) == 0) {
        mg_response_header_add(connection, "Content-Type", "text/plain; charset=utf-8", -1);
        mg_response_header_add(connection, "Content-Length", QByteArray::number(body.size()).constData(), -1);
        mg_response_header_add(connection, "Connection", "close", -1);
        addSecurityHeaders(connection);
        mg_response_header_send(connection);
    } else {
        // A WebSocket upgrade request: civetweb's response builder does not
        // take those, so the refusal's head is written as it is.
        mg_printf(connection,
                  "HTTP/1.1 %d %s\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: %d\r\n"
                  "Connection: close\r\nCache-Control: no-store\r\n\r\n",
                  status, mg_get_response_code_text(connection, status), int(body.size()));
    }
    mg_write(connection, body.constData(), std::size_t(body.size()));
    return status;
}

int ConsoleServer::serve(mg_connection* connection)
{
    const mg_request_info* info = mg_get_request_info(connection);
    if (!info || !info->request_method)
        return refuse(connection, 400, "bad request");
    if (m_stopping.load() || !m_accessReady.load())
        return refuse(connection, 503, "the console is not serving now");
    const bool websocket = isUpgrade(connection);

    ConsoleAccess::Request request;
    request.host = mg_get_header(connection, "Host");
    request.origin = mg_get_header(connection, "Origin");
    request.queryToken = headerToken(info->query_string, nullptr, false);
    request.cookieToken = headerToken(nullptr, mg_get_header(connection, "Cookie"), true);
    request.websocket = websocket;
    const ConsoleAccess::Verdict verdict = m_access->check(request);
    if (verdict != ConsoleAccess::Verdict::Allowed) {
        if (shouldNote())
            noteFromAnyThread(QStringLiteral("refused %1 %2 from %3: %4")
                                  .arg(QString::fromLatin1(info->request_method),
                                       QString::fromLatin1(info->local_uri ? info->local_uri : "?"),
                                       QString::fromLatin1(info->remote_addr),
                                       QString::fromLatin1(ConsoleAccess::verdictText(verdict))));
        return refuse(connection, ConsoleAccess::verdictStatus(verdict), ConsoleAccess::verdictText(verdict));
    }
    if (leavesFolder(info))
        return refuse(connection, 400, "the path leaves the console's folder");

    QString file;
    int screen = -1;
    const ConsoleAccess::Target target = ConsoleAccess::route(info->local_uri, file, screen);
    const bool head = std::strcmp(info->request_method, "HEAD") == 0;
    if (std::strcmp(info->request_method, "GET") != 0 && !head)
        return refuse(connection, 405, "only GET and HEAD are served");
    if (info->content_length > 0 || mg_get_header(connection, "Transfer-Encoding"))
        return refuse(connection, 413, "requests carry no body here");
    if (websocket)
        return target == ConsoleAccess::Target::Socket ? 0 /* on to the WebSocket handler */
                                                       : refuse(connection, 404, "no WebSocket here");
    switch (target) {
    case ConsoleAccess::Target::Page:
    case ConsoleAccess::Target::File: {
        // The right token in the query: the page keeps it as a cookie.
        QByteArray cookie;
        if (m_access->tokenRequired() && !request.queryToken.isEmpty())
            cookie = QByteArray(ConsoleAccess::kCookieName) + '=' + request.queryToken.toLatin1()
                + "; Path=/; HttpOnly; SameSite=Strict";
        return serveFile(connection, file, head, cookie);
    }
    case ConsoleAccess::Target::Still:
        return serveStill(connection, screen, head);
    case ConsoleAccess::Target::Socket:
        return refuse(connection, 426, "this is the console's WebSocket");
    case ConsoleAccess::Target::Nothing:
        break;
    }
    return refuse(connection, 404, "not found");
}

int ConsoleServer::serveFile(mg_connection* connection, const QString& name, bool head, const QByteArray& cookie)
{
    QByteArray bytes;
    switch (m_files.read(name, bytes)) {
    case ConsoleFiles::Result::Ok:
        break;
    case ConsoleFiles::Result::NotFound:
        return refuse(connection, 404, "not found");
    case ConsoleFiles::Result::NotAFile:
        return refuse(connection, 403, "not a plain file of the console's folder");
    case ConsoleFiles::Result::TooLarge:
        return refuse(connection, 500, "file too large to serve");
    }
    mg_response_header_start(connection, 200);
    mg_response_header_add(connection, "Content-Type", ConsoleFiles::contentType(name), -1);
    mg_response_header_add(connection, "Content-Length", QByteArray::number(bytes.size()).constData(), -1);
    if (!cookie.isEmpty())
        mg_response_header_add(connection, "Set-Cookie", cookie.constData(), -1);
    addSecurityHeaders(connection);
    mg_response_header_send(connection);
    if (!head)
        mg_write(connection, bytes.constData(), std::size_t(bytes.size()));
    return 200;
}

int ConsoleServer::serveStill(mg_connection* connection, int screenId, bool head)
{
    struct Slot
    {
        std::atomic<int>& count;
        ~Slot() { --count; }
    };
    if (++m_stills > kMaxStills) {
        --m_stills;
        return refuse(connection, 503, "stills are being made; try again");
    }
    Slot slot{m_stills};
    auto still = std::make_shared<ConsoleStill>(screenId);
    {
        std::lock_guard<std::mutex> lock(m_stillMutex);
        if (m_stopping.load())
            return refuse(connection, 503, "the console is not serving now");
        m_pendingStills.erase(std::remove_if(m_pendingStills.begin(), m_pendingStills.end(),
                                             [](const std::weak_ptr<ConsoleStill>& w) { return w.expired(); }),
                              m_pendingStills.end());
        m_pendingStills.push_back(still);
    }
    m_hooks.stillWanted(still);
    QImage image;
    {
        std::unique_lock<std::mutex> lock(still->mutex);
        const bool finished = still->done.wait_for(lock, std::chrono::milliseconds(kStillWaitMs),
                                                   [&] { return still->finished || m_stopping.load(); });
        if (!finished || !still->finished)
            return refuse(connection, 503, "no still within 5 s");
        image = still->image;
    }
    if (image.isNull())
        return refuse(connection, 404, "no such screen is open");
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    if (!image.save(&buffer, "PNG"))
        return refuse(connection, 500, "the still could not be encoded");
    mg_response_header_start(connection, 200);
    mg_response_header_add(connection, "Content-Type", "image/png", -1);
    mg_response_header_add(connection, "Content-Length", QByteArray::number(png.size()).constData(), -1);
    addSecurityHeaders(connection);
    mg_response_header_send(connection);
    if (!head)
        mg_write(connection, png.constData(), std::size_t(png.size()));
    return 200;
}
