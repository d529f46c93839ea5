#include "RecordingEngine.h"

#include "AVPlayer.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>

// ---- EngineJournal ----

void EngineJournal::record(QtAV::AVPlayer* player, const QString& text)
{
    QMutexLocker lock(&m_mutex);
    m_calls.append(EngineCall{player, text});
}

void EngineJournal::clear()
{
    QMutexLocker lock(&m_mutex);
    m_calls.clear();
}

QList<EngineCall> EngineJournal::calls() const
{
    QMutexLocker lock(&m_mutex);
    return m_calls;
}

QStringList EngineJournal::names(QtAV::AVPlayer* player) const
{
    QMutexLocker lock(&m_mutex);
    QStringList out;
    for (const EngineCall& call : m_calls) {
        if (!player || call.player == player)
            out << call.text;
    }
    return out;
}

int EngineJournal::count(QtAV::AVPlayer* player, const QString& prefix) const
{
    QMutexLocker lock(&m_mutex);
    int n = 0;
    for (const EngineCall& call : m_calls) {
        if ((!player || call.player == player) && call.text.startsWith(prefix))
            ++n;
    }
    return n;
}

// ---- RecordingBackend ----

namespace {
QString b(bool v) { return v ? QStringLiteral("true") : QStringLiteral("false"); }
QString n(qint64 v) { return QString::number(v); }
} // namespace

RecordingBackend::RecordingBackend(QtAV::PlayerEventSink& sink, EngineJournal& journal)
    : m_sink(sink), m_journal(journal)
{
}

RecordingBackend::~RecordingBackend()
{
    RecordingEngine::instance().forget(this);
}

void RecordingBackend::log(const QString& text)
{
    m_journal.record(m_sink.player(), text);
}

void RecordingBackend::setDecoderPriority(const QVector<int>& ids)
{
    QStringList parts;
    for (int id : ids)
        parts << n(id);
    log(QStringLiteral("setDecoderPriority(%1)").arg(parts.join(QStringLiteral(", "))));
}

void RecordingBackend::setMediaType(const QString& type) { log("setMediaType(" + type + ")"); }
void RecordingBackend::open(const QString& file) { log("open(" + file + ")"); }
void RecordingBackend::setPaused(bool paused) { log("setPaused(" + b(paused) + ")"); }
void RecordingBackend::stop() { log("stop()"); }
void RecordingBackend::resetPlay(bool pause) { log("resetPlay(" + b(pause) + ")"); }

void RecordingBackend::playReady(const QString& file, qint64 msec, bool pause)
{
    log("playReady(" + file + ", " + n(msec) + ", " + b(pause) + ")");
}

void RecordingBackend::seek(qint64 msec) { log("seek(" + n(msec) + ")"); }
void RecordingBackend::setStartPosition(qint64 msec) { log("setStartPosition(" + n(msec) + ")"); }
void RecordingBackend::setStopPosition(qint64 msec) { log("setStopPosition(" + n(msec) + ")"); }
void RecordingBackend::setRepeat(int count) { log("setRepeat(" + n(count) + ")"); }
void RecordingBackend::fadeIn(int msec) { log("fadeIn(" + n(msec) + ")"); }
void RecordingBackend::fadeOut(int msec) { log("fadeOut(" + n(msec) + ")"); }

bool RecordingBackend::stopFadeIn()
{
    log("stopFadeIn()");
    const bool was = fadeInRunning;
    fadeInRunning = false;
    return was;
}

bool RecordingBackend::stopFadeOut()
{
    log("stopFadeOut()");
    const bool was = fadeOutRunning;
    fadeOutRunning = false;
    return was;
}

void RecordingBackend::setClockType(int type) { log("setClockType(" + n(type) + ")"); }
void RecordingBackend::updateExternalClock(qint64 msec) { log("updateExternalClock(" + n(msec) + ")"); }
void RecordingBackend::updateFrame() { log("updateFrame()"); }
void RecordingBackend::refreshUi() { log("refreshUi()"); }

void RecordingBackend::setTextureID(int textureId, int width, int height, const QString& source)
{
    log("setTextureID(" + n(textureId) + ", " + n(width) + ", " + n(height) + ", " + source + ")");
}

void RecordingBackend::outputsChanged(const QList<QtAV::VideoRenderer*>& outputs)
{
    log("outputsChanged(" + n(outputs.size()) + ")");
}

QtAV::PlayerStatistics RecordingBackend::statistics() const
{
    QtAV::PlayerStatistics stats;
    stats.video.frame_rate = frameRate;
    return stats;
}

void RecordingBackend::release()
{
    log("release()");
    if (!autoRelease)
        return;
    // As a real engine would: report from the event loop, after the call.
    QPointer<QtAV::AVPlayer> player(m_sink.player());
    QtAV::PlayerEventSink* sink = &m_sink;
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [player, sink] {
            if (player)
                sink->released();
        },
        Qt::QueuedConnection);
}

void RecordingBackend::setVolume(double volume) { log("setVolume(" + QString::number(volume) + ")"); }

bool RecordingBackend::closeAudio()
{
    log("closeAudio()");
    return closeAudioResult;
}

bool RecordingBackend::openAudio()
{
    log("openAudio()");
    return true;
}

void RecordingBackend::setChannelLayout(int layout) { log("setChannelLayout(" + n(layout) + ")"); }

// ---- RecordingEngine ----

RecordingEngine::RecordingEngine()
    : m_decoders{1, 2}
{
}

RecordingEngine& RecordingEngine::instance()
{
    static RecordingEngine* engine = new RecordingEngine; // owned by the platform once installed
    return *engine;
}

void RecordingEngine::install()
{
    QtAV::installMediaEngine(std::unique_ptr<QtAV::MediaEngine>(&instance()));
}

RecordingBackend* RecordingEngine::backend(QtAV::AVPlayer* player) const
{
    QMutexLocker lock(&m_backendsMutex);
    for (RecordingBackend* backend : m_backends) {
        if (backend->player() == player)
            return backend;
    }
    return nullptr;
}

bool RecordingEngine::hasDecoder(int decoderId) const
{
    return m_decoders.count(decoderId) > 0;
}

std::unique_ptr<QtAV::PlayerBackend> RecordingEngine::createBackend(QtAV::PlayerEventSink& sink)
{
    auto backend = std::make_unique<RecordingBackend>(sink, m_journal);
    QMutexLocker lock(&m_backendsMutex);
    m_backends.append(backend.get());
    return backend;
}

void RecordingEngine::forget(RecordingBackend* backend)
{
    QMutexLocker lock(&m_backendsMutex);
    m_backends.removeAll(backend);
}
