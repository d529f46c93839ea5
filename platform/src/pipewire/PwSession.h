// The process's connection to the PipeWire daemon: one thread loop, one
// context and one core shared by every "spout" receiver and published
// screen (as GStreamer's PipeWire elements share theirs), kept connected:
// when no daemon answers, or the daemon goes away, it tries again with a
// growing pause (0.25 s doubling up to 4 s) and tells its clients each time
// the core comes and goes.
//
// The session caches the video nodes the daemon announces (id, name,
// serial, media class), so that a client added later learns of the nodes
// that already exist.
//
// Lifetime: acquire() starts the session on first use; it stops (joining
// its thread) when the last holder lets go.
//
// Threading: acquire(), addClient(), removeClient(), lock()/unlock() and the
// destructor on the owners' threads (the GUI thread), never on the loop
// thread. Client callbacks run with the loop lock held: on the loop thread,
// or on the caller's thread inside addClient(). They must never touch Qt
// objects of another thread (post to them instead). Everything reachable
// through core() and loop() may only be used with the lock held.
#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

struct pw_thread_loop;
struct pw_context;
struct pw_core;
struct pw_registry;
struct pw_loop;
struct spa_dict;
struct spa_source;

namespace kelmor::pipewire {

/// A node of the daemon's graph, as its announcement named it.
struct PwNodeInfo
{
    unsigned id = 0;
    QByteArray name;       ///< node.name
    QByteArray serial;     ///< object.serial
    QByteArray mediaClass; ///< media.class
};

class PwSession
{
public:
    class Client
    {
    public:
        virtual ~Client() = default;
        /// The core is connected (again); streams may be made on core().
        virtual void connected() = 0;
        /// The core is gone: destroy every stream now, before it is freed.
        virtual void disconnected() = 0;
        /// A node appeared (or existed when the client was added).
        virtual void nodeAdded(const PwNodeInfo&) {}
        virtual void nodeRemoved(unsigned) {}
    };

    /// The process's session, started on first use; null (with a debug
    /// line) when the PipeWire library cannot be set up.
    static std::shared_ptr<PwSession> acquire();
    ~PwSession();
    PwSession(const PwSession&) = delete;
    PwSession& operator=(const PwSession&) = delete;

    /// Adds a client: when the core is connected, it hears connected() and
    /// every known node at once (on the caller's thread, lock held).
    void addClient(Client* client);
    /// Removes a client (takes the lock); it hears nothing afterwards.
    void removeClient(Client* client);

    void lock();
    void unlock();

    // Lock held.
    pw_core* core() const { return m_core; }
    pw_loop* loop() const;
    bool isConnected() const { return m_core != nullptr; }

private:
    PwSession();
    bool start();
    static void onCoreError(void* data, unsigned id, int seq, int res, const char* message);
    static void onGlobal(void* data, unsigned id, unsigned permissions, const char* type,
                         unsigned version, const spa_dict* props);
    static void onGlobalRemove(void* data, unsigned id);
    static void onRetry(void* data, uint64_t expirations);

    void connectCore();
    void dropCore();
    void scheduleRetry(bool immediately);

    // Made in start(), freed in the destructor (owners' thread).
    pw_thread_loop* m_threadLoop = nullptr;
    pw_context* m_context = nullptr;

    // Loop thread, or the loop lock held.
    pw_core* m_core = nullptr;
    pw_registry* m_registry = nullptr;
    spa_source* m_retryTimer = nullptr;
    struct Hooks;
    Hooks* m_hooks = nullptr;             // listeners of the core and registry
    std::vector<Client*> m_clients;       // not owned
    std::map<unsigned, PwNodeInfo> m_nodes; // video nodes now in the graph
    int m_retryMsec = 250;                // the next pause before a new attempt
    bool m_saidUnreachable = false;       // "no daemon" said once per outage
    bool m_lost = false;                  // the core failed; drop it at the next retry
    bool m_stopping = false;
};

} // namespace kelmor::pipewire
