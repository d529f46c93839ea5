// The console server's WebSocket side: admitting pages, their messages, and
// their end (ConsoleServer.h).
#include "console/ConsoleServer.h"

#include "Console.h"
#include "console/ConsoleClient.h"
#include "console/ConsoleServerNotes.h"

#include <civetweb.h>

#include <cstring>

using namespace console_server;

int ConsoleServer::onWebSocketConnect(const mg_connection* constConnection, void* data)
{
    auto* self = static_cast<ConsoleServer*>(data);
    // The handshake has not been sent: a plain HTTP answer still works.
    auto* connection = const_cast<mg_connection*>(constConnection);
    const char* key = mg_get_header(connection, "Sec-WebSocket-Key");
    if (!key || std::strlen(key) != 24) {
        self->refuse(connection, 400, "bad Sec-WebSocket-Key");
        return 1;
    }
    if (self->m_stopping.load()) {
        self->refuse(connection, 503, "the console is not serving now");
        return 1;
    }
    if (self->m_clients.fetch_add(1) >= kMaxClients) {
        self->m_clients.fetch_sub(1);
        if (shouldNote())
            noteFromAnyThread(QStringLiteral("refused a page: %1 are connected already").arg(kMaxClients));
        self->refuse(connection, 503, "too many console pages are open");
        return 1;
    }
    return 0; // the slot is given back by the close handler
}

void ConsoleServer::onWebSocketReady(mg_connection* connection, void* data)
{
    auto* self = static_cast<ConsoleServer*>(data);
    const mg_request_info* info = mg_get_request_info(connection);
    const QString peer = QStringLiteral("%1:%2").arg(QString::fromLatin1(info->remote_addr)).arg(info->remote_port);
    const int id = ++self->m_nextClientId;
    char thumbnails[8] = {0};
    const bool noThumbnails = info->query_string
        && mg_get_var(info->query_string, std::strlen(info->query_string), "thumbnails", thumbnails, sizeof thumbnails) > 0
        && std::strcmp(thumbnails, "0") == 0;
    auto client = std::make_shared<ConsoleClient>(id, peer, !noThumbnails,
                                                  [self](int clientId) { self->m_hooks.clientInput(clientId); });
    mg_set_user_connection_data(connection, new std::shared_ptr<ConsoleClient>(client));
    client->attach(connection);
    self->m_hooks.clientJoined(client);
}

int ConsoleServer::onWebSocketData(mg_connection* connection, int bits, char* data, std::size_t size, void*)
{
    auto* holder = static_cast<std::shared_ptr<ConsoleClient>*>(mg_get_user_connection_data(connection));
    if (!holder)
        return 0;
    ConsoleClient& client = **holder;
    const int opcode = bits & 0x0f;
    const bool final = (bits & 0x80) != 0;
    const auto tooLarge = [&client](std::size_t size) {
        client.close(console::refusalLine(QStringLiteral("console: message of %1 bytes or more refused (at most %2)")
                                              .arg(qulonglong(size))
                                              .arg(qulonglong(kMaxMessageBytes))),
                     QStringLiteral("message too large"));
        return 0;
    };
    switch (opcode) {
    case MG_WEBSOCKET_OPCODE_TEXT:
    case MG_WEBSOCKET_OPCODE_CONTINUATION:
        // A message may come in pieces (RFC 6455 fragmentation): put
        // together here, up to the same bound as a whole one.
        if ((opcode == MG_WEBSOCKET_OPCODE_TEXT) == client.assembling()) {
            client.close(console::refusalLine(QStringLiteral("console: a message's pieces came out of order")),
                         QStringLiteral("bad fragments"));
            return 0;
        }
        if (!final || opcode == MG_WEBSOCKET_OPCODE_CONTINUATION) {
            if (!client.addFragment(data, size, kMaxMessageBytes))
                return tooLarge(size);
            if (!final)
                return 1;
            const QByteArray message = client.takeFragments();
            return client.pushInbound(message.constData(), std::size_t(message.size())) ? 1 : 0;
        }
        if (size > kMaxMessageBytes)
            return tooLarge(size);
        return client.pushInbound(data, size) ? 1 : 0;
    case MG_WEBSOCKET_OPCODE_CONNECTION_CLOSE:
        return 0; // the page is leaving: what it sent still runs
    case MG_WEBSOCKET_OPCODE_PING:
    case MG_WEBSOCKET_OPCODE_PONG:
        return client.closing() ? 0 : 1;
    default:
        client.close(console::refusalLine(QStringLiteral("console: only text messages are read")),
                     QStringLiteral("binary message"));
        return 0;
    }
}

void ConsoleServer::onWebSocketClose(const mg_connection* connection, void* data)
{
    auto* self = static_cast<ConsoleServer*>(data);
    auto* holder = static_cast<std::shared_ptr<ConsoleClient>*>(mg_get_user_connection_data(connection));
    if (holder) {
        (*holder)->finish(); // the writer stops before the connection goes
        mg_set_user_connection_data(connection, nullptr);
        delete holder;
    }
    self->m_clients.fetch_sub(1);
}
