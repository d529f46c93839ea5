// A media engine for tests: every backend call is written, in order, to one
// journal shared by all players, and a test raises a player's events itself.
//
//   auto& eng = RecordingEngine::instance();
//   eng.journal().clear();
//   ... drive the service ...
//   EXPECT_EQ(eng.journal().names(player), QStringList({"setPaused(false)", ...}));
//   eng.backend(player)->raiseStopped();
//
// The engine is installed once per test process by the test main.
#pragma once

#include "MediaEngine.h"

#include <QList>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <set>

namespace QtAV { class AVPlayer; }

/// One recorded backend call: the player, and the call written as
/// "name(arg, arg)" (strings unquoted, bools as true/false).
struct EngineCall
{
    QtAV::AVPlayer* player = nullptr;
    QString text;
};

class EngineJournal
{
public:
    void record(QtAV::AVPlayer* player, const QString& text);
    void clear();
    QList<EngineCall> calls() const;
    /// The calls of one player (all players when null), as text, in order.
    QStringList names(QtAV::AVPlayer* player = nullptr) const;
    /// How many calls of the player start with `prefix`.
    int count(QtAV::AVPlayer* player, const QString& prefix) const;

private:
    mutable QMutex m_mutex; // guards m_calls (audio calls come from worker threads)
    QList<EngineCall> m_calls;
};

class RecordingBackend : public QtAV::PlayerBackend
{
public:
    RecordingBackend(QtAV::PlayerEventSink& sink, EngineJournal& journal);
    ~RecordingBackend() override;

    QtAV::PlayerEventSink& sink() { return m_sink; }
    QtAV::AVPlayer* player() const { return m_sink.player(); }

    // Raising the player's events (call on the player's thread).
    void raiseLoaded() { m_sink.loaded(); }
    void raiseStopped() { m_sink.stopped(); }
    void raisePositionChanged(qint64 ms) { m_sink.positionChanged(ms); }
    void raiseFadeInFinished() { m_sink.fadeInFinished(); }
    void raiseFadeOutFinished() { m_sink.fadeOutFinished(); }
    void raisePlayReadySucess() { m_sink.playReadySucess(); }
    void raiseReleased() { m_sink.released(); }

    // Behaviour the test chooses.
    double frameRate = 25.0;
    qint64 currentPosition = 0;
    bool fadeInRunning = false;   // what stopFadeIn answers (then false)
    bool fadeOutRunning = false;  // what stopFadeOut answers (then false)
    bool closeAudioResult = true;
    bool autoRelease = true;      // release() raises released() from the event loop

    // PlayerBackend
    void setDecoderPriority(const QVector<int>& ids) override;
    void setMediaType(const QString& type) override;
    void open(const QString& file) override;
    void setPaused(bool paused) override;
    void stop() override;
    void resetPlay(bool pause) override;
    void playReady(const QString& file, qint64 msec, bool pause) override;
    void seek(qint64 msec) override;
    qint64 position() const override { return currentPosition; }
    void setStartPosition(qint64 msec) override;
    void setStopPosition(qint64 msec) override;
    void setRepeat(int count) override;
    void fadeIn(int msec) override;
    void fadeOut(int msec) override;
    bool stopFadeIn() override;
    bool stopFadeOut() override;
    void setClockType(int type) override;
    void updateExternalClock(qint64 msec) override;
    void updateFrame() override;
    void refreshUi() override;
    void setTextureID(int textureId, int width, int height, const QString& source) override;
    void outputsChanged(const QList<QtAV::VideoRenderer*>& outputs) override;
    QtAV::PlayerStatistics statistics() const override;
    void release() override;
    void setVolume(double volume) override;
    bool closeAudio() override;
    bool openAudio() override;
    void setChannelLayout(int layout) override;

private:
    void log(const QString& text);

    QtAV::PlayerEventSink& m_sink;
    EngineJournal& m_journal;
};

class RecordingEngine : public QtAV::MediaEngine
{
public:
    /// The engine installed in this test process.
    static RecordingEngine& instance();
    /// Installs a RecordingEngine as the process's engine (test main only).
    static void install();

    EngineJournal& journal() { return m_journal; }
    /// The backend of a player, or null.
    RecordingBackend* backend(QtAV::AVPlayer* player) const;
    /// Which decoders the engine offers (default: FFmpeg and CUDA).
    void setDecoders(std::set<int> ids) { m_decoders = std::move(ids); }

    QString name() const override { return QStringLiteral("recording"); }
    bool hasDecoder(int decoderId) const override;
    std::unique_ptr<QtAV::PlayerBackend> createBackend(QtAV::PlayerEventSink& sink) override;

    void forget(RecordingBackend* backend);

private:
    RecordingEngine();
    EngineJournal m_journal;
    std::set<int> m_decoders;
    mutable QMutex m_backendsMutex; // guards m_backends
    QList<RecordingBackend*> m_backends;
};
