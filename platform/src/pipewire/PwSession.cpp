#include "pipewire/PwSession.h"

#include <QDebug>

#include <pipewire/pipewire.h>
#include <spa/utils/result.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>

namespace kelmor::pipewire {

namespace {

constexpr int kFirstRetryMsec = 250;
constexpr int kLongestRetryMsec = 4000;
const char* const kLabel = "PipeWire:";

std::mutex& sessionMutex()
{
    static std::mutex mutex;
    return mutex;
}

/// Guarded by sessionMutex(): the running session, if any holder keeps it.
std::weak_ptr<PwSession>& runningSession()
{
    static std::weak_ptr<PwSession> session;
    return session;
}

} // namespace

struct PwSession::Hooks
{
    spa_hook core{};
    spa_hook registry{};
    pw_core_events coreEvents{};
    pw_registry_events registryEvents{};
};

std::shared_ptr<PwSession> PwSession::acquire()
{
    std::lock_guard<std::mutex> guard(sessionMutex());
    if (std::shared_ptr<PwSession> session = runningSession().lock())
        return session;
    static std::once_flag once;
    std::call_once(once, [] { pw_init(nullptr, nullptr); });
    std::shared_ptr<PwSession> session(new PwSession);
    if (!session->start())
        return nullptr;
    runningSession() = session;
    return session;
}

PwSession::PwSession()
    : m_hooks(new Hooks)
{
    m_hooks->coreEvents.version = PW_VERSION_CORE_EVENTS;
    m_hooks->coreEvents.error = &PwSession::onCoreError;
    m_hooks->registryEvents.version = PW_VERSION_REGISTRY_EVENTS;
    m_hooks->registryEvents.global = &PwSession::onGlobal;
    m_hooks->registryEvents.global_remove = &PwSession::onGlobalRemove;
}

PwSession::~PwSession()
{
    if (m_threadLoop) {
        pw_thread_loop_lock(m_threadLoop);
        m_stopping = true;
        m_clients.clear(); // every holder removed itself before letting go
        dropCore();
        if (m_retryTimer) {
            pw_loop_destroy_source(pw_thread_loop_get_loop(m_threadLoop), m_retryTimer);
            m_retryTimer = nullptr;
        }
        pw_thread_loop_unlock(m_threadLoop);
        pw_thread_loop_stop(m_threadLoop);
    }
    if (m_context)
        pw_context_destroy(m_context);
    if (m_threadLoop)
        pw_thread_loop_destroy(m_threadLoop);
    delete m_hooks;
}

bool PwSession::start()
{
    m_threadLoop = pw_thread_loop_new("kelmor-pipewire", nullptr);
    if (!m_threadLoop) {
        qDebug() << kLabel << "cannot make a thread loop:" << strerror(errno);
        return false;
    }
    m_context = pw_context_new(pw_thread_loop_get_loop(m_threadLoop), nullptr, 0);
    if (!m_context) {
        qDebug() << kLabel << "cannot make a context:" << strerror(errno);
        return false;
    }
    pw_thread_loop_lock(m_threadLoop);
    m_retryTimer = pw_loop_add_timer(pw_thread_loop_get_loop(m_threadLoop), &PwSession::onRetry, this);
    if (pw_thread_loop_start(m_threadLoop) < 0) {
        pw_thread_loop_unlock(m_threadLoop);
        qDebug() << kLabel << "cannot start its thread";
        return false;
    }
    connectCore(); // the first attempt at once, so clients added next see the graph
    pw_thread_loop_unlock(m_threadLoop);
    return true;
}

void PwSession::addClient(Client* client)
{
    if (!client)
        return;
    lock();
    m_clients.push_back(client);
    if (m_core) {
        client->connected();
        for (const auto& entry : m_nodes)
            client->nodeAdded(entry.second);
    }
    unlock();
}

void PwSession::removeClient(Client* client)
{
    lock();
    m_clients.erase(std::remove(m_clients.begin(), m_clients.end(), client), m_clients.end());
    unlock();
}

void PwSession::lock()
{
    if (m_threadLoop)
        pw_thread_loop_lock(m_threadLoop);
}

void PwSession::unlock()
{
    if (m_threadLoop)
        pw_thread_loop_unlock(m_threadLoop);
}

pw_loop* PwSession::loop() const
{
    return m_threadLoop ? pw_thread_loop_get_loop(m_threadLoop) : nullptr;
}

void PwSession::connectCore()
{
    if (m_core || m_stopping)
        return;
    m_core = pw_context_connect(m_context, nullptr, 0);
    if (!m_core) {
        if (!m_saidUnreachable) {
            qDebug() << kLabel << "no PipeWire daemon answers (" << strerror(errno)
                     << "); trying again in the background";
            m_saidUnreachable = true;
        }
        scheduleRetry(false);
        return;
    }
    if (m_saidUnreachable)
        qDebug() << kLabel << "connected to the PipeWire daemon";
    m_saidUnreachable = false;
    m_retryMsec = kFirstRetryMsec;
    pw_core_add_listener(m_core, &m_hooks->core, &m_hooks->coreEvents, this);
    m_registry = pw_core_get_registry(m_core, PW_VERSION_REGISTRY, 0);
    if (m_registry)
        pw_registry_add_listener(m_registry, &m_hooks->registry, &m_hooks->registryEvents, this);
    const std::vector<Client*> clients = m_clients;
    for (Client* c : clients)
        c->connected();
}

void PwSession::dropCore()
{
    if (!m_core)
        return;
    const std::vector<Client*> clients = m_clients;
    for (Client* c : clients)
        c->disconnected();
    m_nodes.clear();
    if (m_registry) {
        spa_hook_remove(&m_hooks->registry);
        pw_proxy_destroy(reinterpret_cast<pw_proxy*>(m_registry));
        m_registry = nullptr;
    }
    spa_hook_remove(&m_hooks->core);
    pw_core_disconnect(m_core);
    m_core = nullptr;
}

void PwSession::scheduleRetry(bool immediately)
{
    if (!m_retryTimer || m_stopping)
        return;
    const int msec = immediately ? 1 : m_retryMsec;
    if (!immediately)
        m_retryMsec = std::min(m_retryMsec * 2, kLongestRetryMsec);
    timespec when{msec / 1000, (msec % 1000) * 1000000L};
    pw_loop_update_timer(pw_thread_loop_get_loop(m_threadLoop), m_retryTimer, &when, nullptr, false);
}

void PwSession::onRetry(void* data, uint64_t)
{
    auto* self = static_cast<PwSession*>(data);
    if (self->m_lost) {
        self->m_lost = false;
        self->dropCore();
        self->scheduleRetry(false);
        return;
    }
    if (!self->m_core)
        self->connectCore();
}

void PwSession::onCoreError(void* data, unsigned id, int, int res, const char* message)
{
    auto* self = static_cast<PwSession*>(data);
    if (id != PW_ID_CORE)
        return; // errors of single objects reach their own listeners
    if (res != -EPIPE) {
        // A complaint about one request (an object that is already gone):
        // the connection itself is fine.
        qDebug() << kLabel << (message ? message : "") << spa_strerror(res);
        return;
    }
    qDebug() << kLabel << "connection lost (" << (message ? message : "") << spa_strerror(res)
             << "); reconnecting";
    // Freeing the core from inside its own callback is not allowed: the retry
    // timer drops it on the next loop iteration and then connects again.
    self->m_saidUnreachable = true;
    self->m_retryMsec = kFirstRetryMsec;
    self->m_lost = true;
    self->scheduleRetry(true);
}

void PwSession::onGlobal(void* data, unsigned id, unsigned, const char* type, unsigned,
                         const spa_dict* props)
{
    auto* self = static_cast<PwSession*>(data);
    if (!type || std::strcmp(type, PW_TYPE_INTERFACE_Node) != 0 || !props)
        return;
    PwNodeInfo node;
    node.id = id;
    node.name = spa_dict_lookup(props, PW_KEY_NODE_NAME);
    node.serial = spa_dict_lookup(props, PW_KEY_OBJECT_SERIAL);
    node.mediaClass = spa_dict_lookup(props, PW_KEY_MEDIA_CLASS);
    if (!node.mediaClass.contains("Video"))
        return;
    self->m_nodes[id] = node;
    const std::vector<Client*> clients = self->m_clients;
    for (Client* c : clients)
        c->nodeAdded(node);
}

void PwSession::onGlobalRemove(void* data, unsigned id)
{
    auto* self = static_cast<PwSession*>(data);
    if (self->m_nodes.erase(id) == 0)
        return;
    const std::vector<Client*> clients = self->m_clients;
    for (Client* c : clients)
        c->nodeRemoved(id);
}

} // namespace kelmor::pipewire
