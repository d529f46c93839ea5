// The process's choice of media engine.
#include "MediaEngine.h"

#include <QDebug>
#include <mutex>

namespace QtAV {

PlayerEventSink::~PlayerEventSink() = default;
PlayerBackend::~PlayerBackend() = default;
MediaEngine::~MediaEngine() = default;

namespace {

struct EngineChoice
{
    std::mutex mutex;                    // guards both fields
    std::unique_ptr<MediaEngine> engine; // lives until process exit
    bool fixed = false;                  // set once a player has asked
};

EngineChoice& choice()
{
    static EngineChoice c;
    return c;
}

} // namespace

bool installMediaEngine(std::unique_ptr<MediaEngine> engine)
{
    EngineChoice& c = choice();
    std::lock_guard<std::mutex> lock(c.mutex);
    if (c.fixed) {
        qDebug() << "installMediaEngine refused: the engine is already chosen ("
                 << (c.engine ? c.engine->name() : QStringLiteral("none")) << ")";
        return false;
    }
    c.engine = std::move(engine);
    c.fixed = true;
    return true;
}

MediaEngine* mediaEngine()
{
    EngineChoice& c = choice();
    std::lock_guard<std::mutex> lock(c.mutex);
    c.fixed = true;
    return c.engine.get();
}

} // namespace QtAV
