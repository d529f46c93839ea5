#include "DefaultEngine.h"

#include <QByteArray>
#include <dlfcn.h>

#ifndef KELMOR_DEFAULT_ENGINE_FILE
#error "KELMOR_DEFAULT_ENGINE_FILE must name the engine library's file (its SONAME)"
#endif

namespace QtAV {

namespace {

// The folder of the library this function lives in (libKelmorPlatform).
QByteArray platformFolder()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&loadDefaultEngine), &info) == 0 || !info.dli_fname)
        return QByteArray();
    QByteArray path(info.dli_fname);
    const int slash = path.lastIndexOf('/');
    return slash >= 0 ? path.left(slash + 1) : QByteArray();
}

} // namespace

std::unique_ptr<MediaEngine> loadDefaultEngine(QString& problem)
{
    const QByteArray file(KELMOR_DEFAULT_ENGINE_FILE);
    // Next to the platform library first (an installed prefix, wherever it
    // is); then the usual search (the build tree's run paths, the system).
    void* handle = nullptr;
    QByteArray firstError;
    const QByteArray folder = platformFolder();
    if (!folder.isEmpty()) {
        handle = dlopen((folder + file).constData(), RTLD_NOW | RTLD_LOCAL);
        if (!handle)
            firstError = dlerror();
    }
    if (!handle) {
        handle = dlopen(file.constData(), RTLD_NOW | RTLD_LOCAL);
        if (!handle) {
            const QByteArray error = dlerror();
            problem = QString::fromLocal8Bit(firstError.isEmpty() ? error : firstError + "; " + error);
            return nullptr;
        }
    }
    // The library stays loaded for the life of the process: its engine does.
    auto create = reinterpret_cast<CreateMediaEngineFn>(dlsym(handle, kCreateMediaEngineSymbol));
    if (!create) {
        problem = QStringLiteral("%1 has no %2").arg(QString::fromLatin1(file),
                                                      QString::fromLatin1(kCreateMediaEngineSymbol));
        return nullptr;
    }
    std::unique_ptr<MediaEngine> engine(create());
    if (!engine)
        problem = QStringLiteral("%1 could not make its engine").arg(QString::fromLatin1(file));
    return engine;
}

} // namespace QtAV
