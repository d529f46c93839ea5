// The process's choice of media engine: installed by the host, the
// state-only mode, or the default engine loaded on first use
// (DefaultEngine.h).
#include "MediaEngine.h"

#include "DefaultEngine.h"

#include <QCoreApplication>
#include <QDebug>
#include <mutex>

namespace QtAV {

PlayerEventSink::~PlayerEventSink() = default;
PlayerBackend::~PlayerBackend() = default;
MediaEngine::~MediaEngine() = default;

namespace {

struct EngineChoice
{
    std::mutex mutex;                    // guards every field
    std::unique_ptr<MediaEngine> engine; // lives until process exit
    bool fixed = false;                  // set once chosen or first used
    bool noAppNoted = false;             // the "before the application" line was written
};

EngineChoice& choice()
{
    static EngineChoice c;
    return c;
}

QString nameOf(const MediaEngine* engine)
{
    return engine ? engine->name() : QStringLiteral("none");
}

// Called with c.mutex held; fixes the choice.
void fix(EngineChoice& c, std::unique_ptr<MediaEngine> engine, const char* how)
{
    c.engine = std::move(engine);
    c.fixed = true;
    if (c.engine)
        qDebug().noquote() << "media engine:" << c.engine->name() << how;
    else
        qDebug().noquote() << "media engine: none, players keep their state only" << how;
}

} // namespace

bool installMediaEngine(std::unique_ptr<MediaEngine> engine)
{
    EngineChoice& c = choice();
    std::lock_guard<std::mutex> lock(c.mutex);
    if (c.fixed) {
        qDebug().noquote() << QStringLiteral("installMediaEngine refused: the engine is already chosen (%1);"
                                             " install it before the first player is made")
                                  .arg(nameOf(c.engine.get()));
        return false;
    }
    fix(c, std::move(engine), "(installed by the host)");
    return true;
}

bool installStateOnlyEngine()
{
    return installMediaEngine(nullptr);
}

MediaEngine* mediaEngine()
{
    EngineChoice& c = choice();
    std::lock_guard<std::mutex> lock(c.mutex);
    if (c.fixed)
        return c.engine.get();
    // The default engine needs the application object (libmpv's locale, the
    // GUI thread its reports go to); until it exists the choice stays open.
    if (!QCoreApplication::instance()) {
        if (!c.noAppNoted) {
            c.noAppNoted = true;
            qDebug().noquote() << "mediaEngine: a player was made before the Qt application object;"
                                  " it keeps its state only (make the QGuiApplication first)";
        }
        return nullptr;
    }
    QString problem;
    std::unique_ptr<MediaEngine> engine = loadDefaultEngine(problem);
    if (!engine) {
        qDebug().noquote() << "mediaEngine: the default engine (libmpv) could not be loaded:" << problem;
        fix(c, nullptr, "(the default engine is unavailable)");
        return nullptr;
    }
    fix(c, std::move(engine), "(the default engine)");
    return c.engine.get();
}

QString mediaEngineName()
{
    EngineChoice& c = choice();
    std::lock_guard<std::mutex> lock(c.mutex);
    return c.fixed ? nameOf(c.engine.get()) : QString();
}

} // namespace QtAV
