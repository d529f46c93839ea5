#include "MpvEngine.h"

#include "MpvAudioChoice.h"
#include "MpvBackend.h"
#include "MpvStartGate.h"

#include <QTimer>
#include "VideoDecoder.h"

#include <QDebug>
#include <clocale>
#include <cstring>

namespace QtAV {

namespace {

// libmpv refuses to start under a locale whose decimal point is not '.'.
void ensureNumericLocale()
{
    const char* current = std::setlocale(LC_NUMERIC, nullptr);
    if (!current || std::strcmp(current, "C") != 0)
        std::setlocale(LC_NUMERIC, "C");
}

} // namespace

MpvEngine::MpvEngine(const MpvEngineOptions& options)
    : m_options(options)
{
    ensureNumericLocale();
}

MpvEngine::~MpvEngine() = default;

QString MpvEngine::name() const
{
    return QStringLiteral("mpv");
}

bool MpvEngine::hasDecoder(int decoderId) const
{
    return decoderId == VideoDecoderId_FFmpeg || decoderId == VideoDecoderId_CUDA;
}

std::unique_ptr<PlayerBackend> MpvEngine::createBackend(PlayerEventSink& sink)
{
    ensureNumericLocale();
    auto backend = std::make_unique<MpvBackend>(sink, *this);
    std::lock_guard<std::mutex> lock(m_backendsMutex);
    m_backends.append(backend.get());
    return backend;
}

std::shared_ptr<MpvStartGate> MpvEngine::startGate()
{
    if (!m_forming) {
        m_forming = std::make_shared<MpvStartGate>();
        // The group closes when the event loop comes back: every start made
        // in the same turn is in it.
        QTimer::singleShot(0, [this] { m_forming.reset(); });
    }
    return m_forming;
}

MpvEngineOptions MpvEngine::options() const
{
    std::lock_guard<std::mutex> lock(m_optionsMutex);
    return m_options;
}

void MpvEngine::setAudioOutput(const QString& ao, const QString& device)
{
    {
        std::lock_guard<std::mutex> lock(m_optionsMutex);
        m_options.audioOutput = ao;
        m_options.audioDevice = device;
    }
    qDebug() << "mpv: audio output" << QString::fromUtf8(MpvAudioChoice::outputsFor(ao))
             << "device" << (device.isEmpty() ? QStringLiteral("(default)") : device);
    std::lock_guard<std::mutex> lock(m_backendsMutex);
    for (MpvBackend* b : qAsConst(m_backends))
        b->applyAudioOutput(ao, device);
}

MpvBackend* MpvEngine::backend(const AVPlayer* player) const
{
    std::lock_guard<std::mutex> lock(m_backendsMutex);
    for (MpvBackend* b : m_backends) {
        if (b->player() == player)
            return b;
    }
    return nullptr;
}

void MpvEngine::noteAudioOutput(const QString& currentAo)
{
    if (currentAo.isEmpty() || m_audioNoted.exchange(true))
        return;
    qDebug().noquote() << MpvAudioChoice::describe(currentAo, options().audioOutput);
}

void MpvEngine::forget(MpvBackend* backend)
{
    std::lock_guard<std::mutex> lock(m_backendsMutex);
    m_backends.removeAll(backend);
}

std::unique_ptr<MediaEngine> createMpvEngine(const MpvEngineOptions& options)
{
    return std::make_unique<MpvEngine>(options);
}

} // namespace QtAV

// The default engine's entry point, found with dlsym by the platform when a
// host installs no engine of its own (platform/src/DefaultEngine.h).
extern "C" KELMOR_ENGINE_MPV_EXPORT QtAV::MediaEngine* kelmor_create_media_engine()
{
    return new QtAV::MpvEngine(QtAV::MpvEngineOptions());
}
