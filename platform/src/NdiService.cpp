// NDI sources and senders, process-wide. Instances are short-lived handles on
// one shared state, so a temporary built for a single call acts on the same
// senders and receivers as every other.
//
// The NDI runtime is not linked: as its documentation prescribes for
// applications that do not ship it, it is loaded at run time, once per
// process, from the folder named by the runtime's environment variable or
// else by its library name, and its load entry point is looked up. When no
// runtime is installed one debug line says that NDI is unavailable; the
// state below is kept either way. No network code of our own is here.
#include "NdiService.h"

#include <QByteArray>
#include <QDebug>
#include <QMap>
#include <QPair>
#include <QSet>
#include <dlfcn.h>
#include <mutex>

namespace {

/// One major version of the NDI runtime as its documentation names it: the
/// environment variable holding the runtime's folder, the library's soname
/// and the load entry point that returns the runtime's function table.
struct NdiRuntimeVersion
{
    const char* folderVariable;
    const char* libraryName;
    const char* loadSymbol;
};

// Newest first. A version-6 runtime also answers the version-5 entry point,
// which is tried when its own is missing.
const NdiRuntimeVersion kNdiRuntimes[] = {
    {"NDI_RUNTIME_DIR_V6", "libndi.so.6", "NDIlib_v6_load"},
    {"NDI_RUNTIME_DIR_V5", "libndi.so.5", "NDIlib_v5_load"},
};

/// The loaded runtime: the library handle (kept for the process's life, as
/// the runtime requires) and its function table, or both null.
struct NdiRuntime
{
    void* library = nullptr;
    const void* functions = nullptr;
};

void* openNdiLibrary(const NdiRuntimeVersion& version)
{
    const QByteArray folder = qgetenv(version.folderVariable);
    if (!folder.isEmpty()) {
        const QByteArray path = folder + '/' + version.libraryName;
        if (void* library = dlopen(path.constData(), RTLD_LOCAL | RTLD_LAZY))
            return library;
    }
    return dlopen(version.libraryName, RTLD_LOCAL | RTLD_LAZY);
}

const void* loadNdiFunctions(void* library, const NdiRuntimeVersion& version)
{
    using LoadEntry = const void* (*)();
    for (const char* symbol : {version.loadSymbol, "NDIlib_v5_load"}) {
        if (void* entry = dlsym(library, symbol))
            if (const void* functions = reinterpret_cast<LoadEntry>(entry)())
                return functions;
    }
    return nullptr;
}

NdiRuntime loadNdiRuntime()
{
    for (const NdiRuntimeVersion& version : kNdiRuntimes) {
        void* library = openNdiLibrary(version);
        if (!library)
            continue;
        if (const void* functions = loadNdiFunctions(library, version)) {
            qDebug() << "NdiService: NDI runtime loaded:" << version.libraryName;
            return NdiRuntime{library, functions};
        }
        dlclose(library);
    }
    qDebug() << "NdiService: NDI runtime not installed; NDI is unavailable"
                " (stream state is still kept)";
    return NdiRuntime{};
}

/// Loads the runtime on first use (thread-safe) and keeps it.
const NdiRuntime& ndiRuntime()
{
    static const NdiRuntime runtime = loadNdiRuntime();
    return runtime;
}

using Key = QPair<QString, QtAV::AVPlayer*>;

struct NdiState
{
    std::mutex mutex;                          // guards everything below
    QMap<QtAV::AVPlayer*, QString> receivers;  // player -> "source#stream"
    QSet<Key> senders;                         // (source name, player)
};

NdiState& state()
{
    static NdiState s;
    return s;
}

} // namespace

NdiService::NdiService(QObject* parent)
    : QObject(parent)
{
    ndiRuntime();
}

NdiService::~NdiService() = default;

void NdiService::setPlayer(QString sourceName, QtAV::AVPlayer* player)
{
    if (!player) {
        qDebug() << "NdiService::setPlayer ignored: null player";
        return;
    }
    std::lock_guard<std::mutex> lock(state().mutex);
    state().receivers.insert(player, sourceName);
}

void NdiService::playNDI(QString sourceName, QtAV::AVPlayer* player)
{
    if (!player) {
        qDebug() << "NdiService::playNDI ignored: null player";
        return;
    }
    std::lock_guard<std::mutex> lock(state().mutex);
    state().senders.insert(Key(sourceName, player));
}

void NdiService::stopNDI(QString sourceName, QtAV::AVPlayer* player)
{
    std::lock_guard<std::mutex> lock(state().mutex);
    state().senders.remove(Key(sourceName, player));
}

bool NdiService::isReceiving(const QString& sourceName, QtAV::AVPlayer* player)
{
    std::lock_guard<std::mutex> lock(state().mutex);
    const auto it = state().receivers.constFind(player);
    return it != state().receivers.constEnd() && *it == sourceName;
}

bool NdiService::isSending(const QString& sourceName, QtAV::AVPlayer* player)
{
    std::lock_guard<std::mutex> lock(state().mutex);
    return state().senders.contains(Key(sourceName, player));
}

QString NdiService::receiverSource(QtAV::AVPlayer* player)
{
    std::lock_guard<std::mutex> lock(state().mutex);
    return state().receivers.value(player);
}

int NdiService::senderCount()
{
    std::lock_guard<std::mutex> lock(state().mutex);
    return state().senders.size();
}

bool NdiService::runtimeAvailable()
{
    return ndiRuntime().functions != nullptr;
}

void NdiService::forgetPlayer(QtAV::AVPlayer* player)
{
    std::lock_guard<std::mutex> lock(state().mutex);
    state().receivers.remove(player);
    for (auto it = state().senders.begin(); it != state().senders.end();) {
        if (it->second == player)
            it = state().senders.erase(it);
        else
            ++it;
    }
}
