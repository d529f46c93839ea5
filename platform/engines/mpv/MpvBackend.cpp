// The transport, fades, clock and audio entry points of the libmpv backend;
// the core's events are handled in MpvBackendEvents.cpp.
#include "MpvBackend.h"

#include "MpvAsync.h"
#include "MpvAudioChoice.h"
#include "MpvClock.h"
#include "MpvDecoders.h"
#include "MpvReaper.h"
#include "MpvRelay.h"

#include <QDebug>
#include <mpv/client.h>

namespace QtAV {

using namespace mpvasync;

MpvBackend::MpvBackend(PlayerEventSink& sink, MpvEngine& engine)
    : m_sink(sink), m_engine(engine)
{
    m_pump = std::make_unique<MpvEventPump>([this] { drainEvents(); });
    m_relay = std::make_shared<MpvRelay>(m_pump.get());
    m_fader = std::make_unique<MpvFader>(
        [this](double factor) {
            m_opacity.store(factor);
            m_audio.setFadeFactor(factor);
        },
        [this](MpvFader::Direction done) {
            if (done == MpvFader::In)
                m_sink.fadeInFinished();
            else
                m_sink.fadeOutFinished();
        });
    startCore();
}

MpvBackend::~MpvBackend()
{
    m_engine.forget(this);
    m_relay->detach(); // nothing reaches the pump from here on
    // Destroyed without release(), or before the release finished: free the
    // render context here (libmpv may wait for its video output to go) and
    // the core off this thread, all the same.
    mpv_handle* mpv = m_mpv ? m_mpv : m_retiring;
    m_mpv = nullptr;
    m_retiring = nullptr;
    if (mpv) {
        m_audio.detach();
        m_relay->stopWakeups();
        m_frames.reset();
        std::shared_ptr<MpvRelay> relay = m_relay;
        MpvReaper::instance().destroy(mpv, [relay] {});
    }
}

void MpvBackend::setDecoderPriority(const QVector<int>& decoderIds)
{
    m_priority = decoderIds;
    setString(m_mpv, Prop::Hwdec, MpvDecoders::hwdecFor(decoderIds, m_frames != nullptr));
}

void MpvBackend::setMediaType(const QString& type)
{
    // Taken by the next open(): capture cards and network streams are opened
    // for low latency (MpvSources.h); pictures hold on their frame through
    // "image-display-duration=inf"; everything else plays as a file.
    m_mediaType = type;
}

void MpvBackend::open(const QString& file)
{
    m_file = file;
    ++m_loadSerial;
    m_wantedEntry = -1;
    m_loaded = false;
    m_failed = false;
    m_ended = false;
    m_playable = false;
    m_judging = false;
    m_probeHits = 0;
    m_figuresRead = false;
    m_loadReported = false;
    m_endHeld = false;
    m_errorSent = false;
    m_paused = true;
    m_ready = Ready();
    m_position = 0;
    m_positionAge.invalidate();
    m_clockSeeking = false; // a new source: no clock seek is landing, no frame held
    dropClockHold();
    m_stats = PlayerStatistics();
    m_containerFps = m_estimatedFps = 0.0;
    m_reportedDecoder.clear();
    m_source = MpvSources::sourceFor(m_mediaType, file);
    m_retry.reset();
    ++m_reopenSerial; // a new source ends the retries of the last one
    m_streamDown = false;
    if (!m_mpv) {
        qDebug() << "mpv: no core, source ignored:" << file;
        return;
    }
    requestPause(true);
    rearmRepeat();
    if (file.isEmpty()) {
        command(m_mpv, tag(Tag::Command), {"stop"});
        return;
    }
    if (refuseLocalPath(file)) {
        command(m_mpv, tag(Tag::Command), {"stop"}); // the last source goes all the same
        return;
    }
    sendLoad();
}

void MpvBackend::setPaused(bool paused)
{
    m_paused = paused;
    dropClockHold(); // the player's own word ends a clock hold
    pauseLive(paused);
    if (m_ready.active) {
        // The play-ready decides once its frame is there.
        m_ready.pause = paused;
        return;
    }
    if (!paused && m_ended) {
        // Played to its end: start over from the start position.
        m_ended = false;
        rearmRepeat();
        seekTo(m_startPosition);
    }
    if (!paused) {
        m_positionReport.invalidate(); // report the position at once
        m_positionAge.start();         // the held position is where playing starts
        if (m_frames)
            m_frames->joinStartGate(m_engine.startGate());
        if (startOnHostClock())
            return; // the host's time says when the frame plays
    }
    requestPause(paused);
}

void MpvBackend::stop()
{
    m_paused = true;
    pauseLive(true);
    m_ready = Ready();
    m_ended = false;
    if (m_mpv && !m_file.isEmpty()) {
        requestPause(true);
        rearmRepeat();
        seekTo(m_startPosition);
    }
    m_sink.stopped();
}

void MpvBackend::resetPlay(bool pause)
{
    m_ready = Ready();
    m_paused = pause;
    seek(m_startPosition);
    requestPause(pause);
}

void MpvBackend::playReady(const QString& file, qint64 msec, bool pause)
{
    // The current source is kept when it is the one asked for and did not fail.
    const bool load = file != m_file || m_failed || file.isEmpty();
    m_loadIsReady = false;
    if (load) {
        m_loadAt = msec;
        open(file);
        m_loadAt = -1;
    }
    m_ready = Ready();
    m_ready.inLoad = load && m_loadIsReady;
    m_ready.seekSent = m_ready.inLoad;
    m_ready.active = true;
    m_ready.pause = pause;
    m_ready.msec = msec;
    m_ready.serial = ++m_readySerial;
    m_paused = pause;
    requestPause(true); // held while the frame is prepared
    promptWhileReadying();
    if (m_loaded)
        sendReadySeek(); // otherwise once the source is open
}

void MpvBackend::seek(qint64 msec)
{
    m_ended = false;
    rearmRepeat();
    seekTo(msec);
    m_position = msec;
    m_positionAge.start();
    m_sink.positionChanged(msec);
    m_positionReport.start();
}

qint64 MpvBackend::position() const
{
    return m_position;
}

void MpvBackend::setStartPosition(qint64 msec)
{
    m_startPosition = msec > 0 ? msec : 0;
    setString(m_mpv, Prop::Start, startOption());
}

void MpvBackend::setStopPosition(qint64 msec)
{
    m_stopPosition = msec;
    setString(m_mpv, Prop::End, seconds(msec)); // negative: "none"
}

void MpvBackend::setRepeat(int count)
{
    m_repeat = count;
    rearmRepeat();
}

void MpvBackend::fadeIn(int msec)
{
    m_fader->start(MpvFader::In, msec);
}

void MpvBackend::fadeOut(int msec)
{
    m_fader->start(MpvFader::Out, msec);
}

bool MpvBackend::stopFadeIn()
{
    return m_fader->cancel(MpvFader::In);
}

bool MpvBackend::stopFadeOut()
{
    return m_fader->cancel(MpvFader::Out);
}

void MpvBackend::updateFrame()
{
    if (m_frames)
        m_frames->redraw();
}

void MpvBackend::refreshUi()
{
    if (m_frames)
        m_frames->redraw();
}

void MpvBackend::setTextureID(int, int, int, const QString&)
{
    // Shared textures are not played by libmpv.
}

void MpvBackend::outputsChanged(const QList<VideoRenderer*>&)
{
    // The screens find the player's pictures through its render objects.
    if (m_frames)
        m_frames->redraw();
}

VideoFrameSource* MpvBackend::frameSource()
{
    return m_frames.get();
}

PlayerStatistics MpvBackend::statistics() const
{
    PlayerStatistics stats = m_stats;
    stats.video.frame_rate = m_containerFps > 0.0 ? m_containerFps : m_estimatedFps;
    return stats;
}

void MpvBackend::setVolume(double volume)
{
    m_audio.setVolume(volume);
}

bool MpvBackend::closeAudio()
{
    return m_audio.close();
}

bool MpvBackend::openAudio()
{
    return m_audio.open();
}

void MpvBackend::setChannelLayout(int layout)
{
    m_audio.setChannelLayout(layout);
}

void MpvBackend::applyAudioOutput(const QString& ao, const QString& device)
{
    m_audio.setOutput(MpvAudioChoice::outputsFor(ao), device.toUtf8());
}

QString MpvBackend::propertyForDiagnostics(const char* name) const
{
    if (!m_mpv || !name)
        return QString();
    char* value = mpv_get_property_string(m_mpv, name);
    const QString text = value ? QString::fromUtf8(value) : QString();
    mpv_free(value);
    return text;
}

void MpvBackend::requestPause(bool paused)
{
    setFlag(m_mpv, Prop::Pause, paused);
}

void MpvBackend::seekTo(qint64 msec)
{
    if (m_loaded)
        seekExact(m_mpv, tag(Tag::Command), msec);
}

void MpvBackend::sendReadySeek()
{
    m_ended = false;
    rearmRepeat();
    m_ready.seekSent = true;
    seekExact(m_mpv, tag(Tag::ReadySeek, m_ready.serial), m_ready.msec);
}

void MpvBackend::rearmRepeat()
{
    // libmpv counts "loop-file" down as it repeats, so every new pass from
    // the start sets it again.
    QByteArray value = m_repeat < 0 ? QByteArrayLiteral("inf")
        : m_repeat == 0             ? QByteArrayLiteral("no")
                                    : QByteArray::number(m_repeat);
    setString(m_mpv, Prop::LoopFile, value);
}

} // namespace QtAV
