// ConsoleServer: the operator console's HTTP and WebSocket server, civetweb.
//
// Every request first passes ConsoleAccess (Host, Origin, token), then:
//   GET /                 the page (index.html of the console's folder)
//   GET /NAME             a file of that folder (ConsoleFiles)
//   GET /still/N.png      a full-size PNG of screen N, grabbed for this
//                         request and never written to disk
//   GET /ws (upgrade)     the WebSocket: show steps in, events out
//                         (?thumbnails=0: no screen thumbnails for it)
// Anything else is 404, a method other than GET or HEAD 405, a request with
// a body 413. A page opened with ?token=TOKEN gets the token back as an
// HttpOnly, SameSite=Strict cookie, so its other requests carry it.
//
// Limits: request line and headers at most 8 KiB (civetweb's
// max_request_size); at most kMaxClients WebSockets (503 past that); a
// WebSocket message at most kMaxMessageBytes (in one frame or put together
// from several), text only (else the client gets an error line and is
// closed); at most kMaxStills stills being
// made at once (503); a request is read within request_timeout_ms.
// civetweb reads a WebSocket frame whole before handing it over, so a
// connected page can make it hold one frame of any size it sends; pages
// are only connected once the checks above let them in.
//
// Threading: start() and stop() on the GUI thread. Everything else runs on
// civetweb's worker threads and never touches the runner or the module: it
// reads the immutable access rules and files, and reaches the GUI thread
// only through Hooks, whose implementation posts (queued) and returns.
#pragma once

#include "console/ConsoleAccess.h"
#include "console/ConsoleFiles.h"

#include <QHostAddress>
#include <QImage>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

struct mg_connection;
struct mg_context;
class ConsoleClient;

/// A full-size still asked for by a request, made on the GUI thread.
struct ConsoleStill
{
    explicit ConsoleStill(int screen) : screenId(screen) {}
    const int screenId;          // immutable
    std::mutex mutex;
    std::condition_variable done;
    bool finished = false;       // guarded by mutex
    QImage image;                // guarded by mutex; null: no such screen (or none could be drawn)
};

class ConsoleServer
{
public:
    static constexpr int kMaxClients = 8;
    static constexpr std::size_t kMaxMessageBytes = (1 << 20) + 1024;
    static constexpr int kMaxStills = 2;
    static constexpr int kStillWaitMs = 5000;

    /// Called on civetweb's threads; implementations only post to the GUI
    /// thread and return.
    class Hooks
    {
    public:
        virtual ~Hooks() = default;
        virtual void clientJoined(std::shared_ptr<ConsoleClient> client) = 0;
        virtual void clientInput(int clientId) = 0;
        virtual void stillWanted(std::shared_ptr<ConsoleStill> still) = 0;
    };

    explicit ConsoleServer(Hooks& hooks);
    ~ConsoleServer();
    ConsoleServer(const ConsoleServer&) = delete;
    ConsoleServer& operator=(const ConsoleServer&) = delete;

    /// Serves `folder` on `address`:`port` (0: any free port); false (and
    /// `error`) when the folder or the address cannot be used.
    bool start(const QHostAddress& address, int port, const AccessToken& token, const QString& folder,
               QString& error);
    /// Stops serving: every connection ends and every civetweb thread has
    /// returned when this returns. Stills still being made are abandoned.
    void stop();
    bool running() const { return m_context != nullptr; }
    quint16 port() const { return m_port; }
    /// The number of WebSockets connected now (any thread).
    int clientCount() const { return m_clients.load(); }

private:
    static int onRequest(mg_connection* connection);
    static int onWebSocketConnect(const mg_connection* connection, void* self);
    static void onWebSocketReady(mg_connection* connection, void* self);
    static int onWebSocketData(mg_connection* connection, int bits, char* data, std::size_t size, void* self);
    static void onWebSocketClose(const mg_connection* connection, void* self);
    static int onLog(const mg_connection* connection, const char* message);

    int serve(mg_connection* connection);
    int serveFile(mg_connection* connection, const QString& name, bool head, const QByteArray& cookie);
    int serveStill(mg_connection* connection, int screenId, bool head);
    int refuse(mg_connection* connection, int status, const char* text);

    Hooks& m_hooks;                 // outlives the server
    mg_context* m_context = nullptr; // GUI thread (start/stop); civetweb's own while running
    std::unique_ptr<ConsoleAccess> m_access; // set in start(), then immutable; read once m_accessReady
    std::atomic<bool> m_accessReady{false};
    ConsoleFiles m_files;           // opened before start, read-only while running
    quint16 m_port = 0;             // set by start
    QHostAddress m_knockAddress;    // set by start: where stop() wakes the listener
    std::atomic<int> m_clients{0};  // WebSockets connected (slots taken in the connect handler)
    std::atomic<int> m_nextClientId{0};
    std::atomic<int> m_stills{0};   // stills being made now
    std::atomic<bool> m_stopping{false};
    std::mutex m_stillMutex;        // guards m_pendingStills
    std::vector<std::weak_ptr<ConsoleStill>> m_pendingStills; // abandoned by stop()
};
