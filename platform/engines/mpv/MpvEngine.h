// The libmpv media engine: one libmpv core per player, behind the engine seam
// (MediaEngine.h).
//
//   QCoreApplication app(argc, argv);
//   QtAV::installMediaEngine(QtAV::createMpvEngine());
//
// Create the engine after the Qt application object: libmpv refuses to start
// unless LC_NUMERIC is "C", and the application object sets the locale from
// the environment, so the engine puts LC_NUMERIC back to "C" when it is made
// (and again before each core is made).
//
// Pictures reach the output screens through MpvFrameSource.h where the
// screens have an OpenGL context (libmpv's "null" video output otherwise).
// See MpvBackend.h for what each transport call means with this engine, and
// MpvAudioChoice.h for the audio outputs tried when the host names none.
#pragma once

#include "MediaEngine.h"

#include <QString>
#include <QVector>
#include <atomic>
#include <memory>
#include <mutex>

#define KELMOR_ENGINE_MPV_EXPORT __attribute__((visibility("default")))

namespace QtAV {

class AVPlayer;
class MpvBackend;

/// How the libmpv engine sets up the players' cores.
struct MpvEngineOptions
{
    /// libmpv's audio output ("ao", one name or a comma-separated list tried
    /// in order): empty for the engine's own list (MpvAudioChoice.h), which
    /// leaves out the outputs that are unsafe with several cores and ends
    /// with "null"; "null" for machines without sound (tests).
    QString audioOutput;
    /// libmpv's "audio-device" (for example "alsa/default"): empty for the
    /// output's default device.
    QString audioDevice;
};

/// The libmpv media engine: one libmpv core per player. Install it with
/// installMediaEngine(createMpvEngine()) after the Qt application object.
class KELMOR_ENGINE_MPV_EXPORT MpvEngine : public MediaEngine
{
public:
    /// An engine with these options; puts LC_NUMERIC back to "C", as libmpv
    /// requires.
    explicit MpvEngine(const MpvEngineOptions& options);
    ~MpvEngine() override;

    /// "mpv".
    QString name() const override;
    /// Both FFmpeg (software) and CUDA: a source that CUDA cannot decode
    /// falls back to software decoding, so asking for CUDA is always safe.
    bool hasDecoder(int decoderId) const override;
    /// A backend on a new libmpv core for the player of `sink` (its
    /// thread), reporting through `sink`; LC_NUMERIC is put back to "C"
    /// first.
    std::unique_ptr<PlayerBackend> createBackend(PlayerEventSink& sink) override;

    /// The options as they stand now (a copy: setAudioOutput may change them).
    MpvEngineOptions options() const;
    /// Chooses the audio output and device for the players made from now on
    /// (`ao` as MpvEngineOptions::audioOutput); live players switch to the
    /// device at once, and to a new output when their next source loads.
    void setAudioOutput(const QString& ao, const QString& device);
    /// The backend of a live player, or null (diagnostics and tests).
    MpvBackend* backend(const AVPlayer* player) const;

    // Called by the backends as they come and go (their player's thread).
    /// Drops a backend that is going away from the engine's list of live
    /// backends.
    void forget(MpvBackend* backend);
    /// A core opened its audio output (libmpv's "current-ao"): the first
    /// call in the engine's life (one engine per process) writes which one,
    /// or that no sound device could be opened. Any thread.
    void noteAudioOutput(const QString& currentAo);
    /// The start gate of the layers started in this GUI-thread turn
    /// (MpvStartGate.h); GUI thread.
    std::shared_ptr<class MpvStartGate> startGate();

private:
    mutable std::mutex m_optionsMutex;       // guards m_options
    MpvEngineOptions m_options;
    std::shared_ptr<class MpvStartGate> m_forming; // GUI thread: the gate of this turn
    mutable std::mutex m_backendsMutex;      // guards m_backends
    QVector<MpvBackend*> m_backends;
    std::atomic<bool> m_audioNoted{false};   // the audio output line was written
};

/// Makes the libmpv engine (see above: after the Qt application object).
KELMOR_ENGINE_MPV_EXPORT std::unique_ptr<MediaEngine>
createMpvEngine(const MpvEngineOptions& options = MpvEngineOptions());

} // namespace QtAV
