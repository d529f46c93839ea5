#include "console/ConsoleServer.h"

#include "console/ConsoleServerNotes.h"

#include <QStringList>

#include <civetweb.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace console_server;

namespace {

// Errors civetweb reports while mg_start runs (on the GUI thread).
thread_local QStringList* t_startErrors = nullptr;

std::once_flag g_libraryOnce;

/// Opens a TCP connection to address:port and closes it at once.
void knock(const QHostAddress& address, quint16 port)
{
    sockaddr_storage storage {};
    socklen_t length = 0;
    if (address.protocol() == QAbstractSocket::IPv6Protocol) {
        auto* in6 = reinterpret_cast<sockaddr_in6*>(&storage);
        in6->sin6_family = AF_INET6;
        in6->sin6_port = htons(port);
        const Q_IPV6ADDR bytes = address.toIPv6Address();
        std::memcpy(&in6->sin6_addr, &bytes, sizeof bytes);
        length = sizeof *in6;
    } else {
        auto* in4 = reinterpret_cast<sockaddr_in*>(&storage);
        in4->sin_family = AF_INET;
        in4->sin_port = htons(port);
        in4->sin_addr.s_addr = htonl(address.toIPv4Address());
        length = sizeof *in4;
    }
    const int fd = ::socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return;
    (void)::connect(fd, reinterpret_cast<sockaddr*>(&storage), length);
    ::close(fd);
}

} // namespace

ConsoleServer::ConsoleServer(Hooks& hooks) : m_hooks(hooks) {}

ConsoleServer::~ConsoleServer()
{
    stop();
}

bool ConsoleServer::start(const QHostAddress& address, int port, const AccessToken& token, const QString& folder,
                          QString& error)
{
    if (m_context) {
        error = QStringLiteral("ConsoleServer::start: already running");
        return false;
    }
    if (port < 0 || port > 65535 || address.isNull()) {
        error = QStringLiteral("ConsoleServer::start: bad address or port %1").arg(port);
        return false;
    }
    if (!m_files.folder().isEmpty()) {
        error = QStringLiteral("ConsoleServer::start: started before");
        return false;
    }
    if (!m_files.open(folder, error))
        return false;
    std::call_once(g_libraryOnce, [] { mg_init_library(0); });

    const bool v6 = address.protocol() == QAbstractSocket::IPv6Protocol;
    if (v6 && !mg_check_feature(8)) {
        error = QStringLiteral("--http-address %1: this civetweb has no IPv6").arg(address.toString());
        return false;
    }
    const QByteArray listening = (v6 ? "[" + address.toString().toLatin1() + "]" : address.toString().toLatin1())
        + ":" + QByteArray::number(port);
    const QByteArray threads = QByteArray::number(kMaxClients + 8);
    const char* options[] = {"listening_ports", listening.constData(),
                             "num_threads", threads.constData(),
                             "request_timeout_ms", "10000",
                             "websocket_timeout_ms", "2000",
                             "enable_websocket_ping_pong", "yes",
                             "max_request_size", "8192",
                             "enable_keep_alive", "yes",
                             "keep_alive_timeout_ms", "5000",
                             nullptr};
    mg_callbacks callbacks;
    std::memset(&callbacks, 0, sizeof callbacks);
    callbacks.begin_request = &ConsoleServer::onRequest;
    callbacks.log_message = &ConsoleServer::onLog;

    QStringList startErrors;
    t_startErrors = &startErrors;
    m_context = mg_start(&callbacks, this, options);
    t_startErrors = nullptr;
    if (!m_context) {
        error = QStringLiteral("cannot serve the console on %1: %2")
                    .arg(QString::fromLatin1(listening),
                         startErrors.isEmpty() ? QStringLiteral("civetweb did not start") : startErrors.join(QStringLiteral("; ")));
        return false;
    }
    mg_server_port ports[4];
    std::memset(ports, 0, sizeof ports);
    if (mg_get_server_ports(m_context, 4, ports) < 1 || ports[0].port <= 0) {
        stop();
        error = QStringLiteral("cannot serve the console: no listening port");
        return false;
    }
    m_port = quint16(ports[0].port);
    // Where stop() knocks: the bound address, or loopback for a wildcard.
    if (address == QHostAddress(QHostAddress::AnyIPv6))
        m_knockAddress = QHostAddress(QHostAddress::LocalHostIPv6);
    else if (address == QHostAddress(QHostAddress::AnyIPv4) || address == QHostAddress(QHostAddress::Any))
        m_knockAddress = QHostAddress(QHostAddress::LocalHost);
    else
        m_knockAddress = address;
    m_access = std::make_unique<ConsoleAccess>(address, m_port, token);
    m_accessReady.store(true);
    mg_set_websocket_handler(m_context, "/ws", &ConsoleServer::onWebSocketConnect, &ConsoleServer::onWebSocketReady,
                             &ConsoleServer::onWebSocketData, &ConsoleServer::onWebSocketClose, this);
    return true;
}

void ConsoleServer::stop()
{
    if (!m_context)
        return;
    m_stopping.store(true);
    {
        // Requests waiting for a still give up now: the GUI thread, which
        // makes stills, is the one stopping the server.
        std::lock_guard<std::mutex> lock(m_stillMutex);
        for (const std::weak_ptr<ConsoleStill>& weak : m_pendingStills) {
            if (const std::shared_ptr<ConsoleStill> still = weak.lock())
                still->done.notify_all();
        }
        m_pendingStills.clear();
    }
    // civetweb's listening thread looks at its stop flag only between polls
    // of about two seconds, or when a connection comes: one is made (and
    // dropped) every 20 ms until it has stopped, so the run ends at once.
    std::atomic<bool> stopped{false};
    std::thread waker([this, &stopped] {
        for (int i = 0; i < 100 && !stopped.load(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            knock(m_knockAddress, m_port);
        }
    });
    mg_stop(m_context); // joins every worker; open WebSockets end (close handlers run)
    stopped.store(true);
    waker.join();
    m_context = nullptr;
}

// ---- civetweb's threads ----

int ConsoleServer::onLog(const mg_connection*, const char* message)
{
    const QString text = QString::fromLocal8Bit(message).trimmed();
    if (t_startErrors)
        t_startErrors->append(text);
    else
        noteFromAnyThread(text);
    return 1; // handled: civetweb writes nothing itself
}
