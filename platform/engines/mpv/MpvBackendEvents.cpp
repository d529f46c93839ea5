// The libmpv backend's core: making it, and reading its events on the
// player's thread.
#include "MpvBackend.h"

#include "MpvAsync.h"
#include "MpvAudioChoice.h"
#include "MpvDecoders.h"
#include "MpvRelay.h"

#include <QDebug>
#include <cmath>
#include <cstring>
#include <mpv/client.h>

namespace QtAV {

using namespace mpvasync;

namespace {

// Observed properties, by the id each change event carries.
enum Observed : std::uint64_t {
    ObsTimePos = 1,
    ObsEofReached,
    ObsContainerFps,
    ObsEstimatedFps,
    ObsWidth,
    ObsHeight,
    ObsHwdecCurrent,
    ObsSampleRate,
    ObsChannels,
    ObsCurrentAo,
    ObsFrameDrops,
};

struct Observation
{
    Observed id;
    const char* name;
    mpv_format format;
};

const Observation kObserved[] = {
    {ObsTimePos, "time-pos", MPV_FORMAT_DOUBLE},
    {ObsEofReached, "eof-reached", MPV_FORMAT_FLAG},
    {ObsContainerFps, "container-fps", MPV_FORMAT_DOUBLE},
    {ObsEstimatedFps, "estimated-vf-fps", MPV_FORMAT_DOUBLE},
    {ObsWidth, "width", MPV_FORMAT_INT64},
    {ObsHeight, "height", MPV_FORMAT_INT64},
    {ObsHwdecCurrent, "hwdec-current", MPV_FORMAT_STRING},
    {ObsSampleRate, "audio-params/samplerate", MPV_FORMAT_INT64},
    {ObsChannels, "audio-params/channel-count", MPV_FORMAT_INT64},
    {ObsCurrentAo, "current-ao", MPV_FORMAT_STRING},
    {ObsFrameDrops, "frame-drop-count", MPV_FORMAT_INT64},
};

double doubleOf(const mpv_event_property& p)
{
    return p.format == MPV_FORMAT_DOUBLE ? *static_cast<double*>(p.data) : 0.0;
}

qint64 intOf(const mpv_event_property& p)
{
    return p.format == MPV_FORMAT_INT64 ? *static_cast<std::int64_t*>(p.data) : 0;
}

QString stringOf(const mpv_event_property& p)
{
    return p.format == MPV_FORMAT_STRING ? QString::fromUtf8(*static_cast<char**>(p.data))
                                         : QString();
}

// The playlist entry id in a loadfile reply, or -1.
std::int64_t entryIdOf(const mpv_node& result)
{
    if (result.format != MPV_FORMAT_NODE_MAP || !result.u.list)
        return -1;
    const mpv_node_list* map = result.u.list;
    for (int i = 0; i < map->num; ++i) {
        if (std::strcmp(map->keys[i], "playlist_entry_id") == 0
            && map->values[i].format == MPV_FORMAT_INT64)
            return map->values[i].u.int64;
    }
    return -1;
}

} // namespace

void MpvBackend::startCore()
{
    mpv_handle* mpv = mpv_create();
    if (!mpv) {
        qDebug() << "mpv: cannot create a core; the player keeps its state only";
        return;
    }
    const MpvEngineOptions engineOptions = m_engine.options();
    // The host's output, or the engine's own list (MpvAudioChoice.h): never
    // libmpv's default order, which ends in outputs unsafe with several cores.
    const QByteArray ao = MpvAudioChoice::outputsFor(engineOptions.audioOutput);
    const QByteArray device = engineOptions.audioDevice.toUtf8();
    struct Option
    {
        const char* name;
        const char* value;
    };
    // Pictures go to the output screens when they have a GL context.
    const bool drawn = compositorContext() != nullptr;
    const Option options[] = {
        {"vo", drawn ? "libmpv" : "null"},
        {"keepaspect", "no"},
        {"gpu-hwdec-interop", drawn && MpvDecoders::nvidiaPresent() ? nullptr : "no"},
        {"ao", ao.constData()},
        {"audio-device", device.isEmpty() ? nullptr : device.constData()},
        {"audio-fallback-to-null", "yes"},
        {"idle", "yes"},
        {"pause", "yes"},
        {"keep-open", "yes"},
        {"hr-seek", "yes"},
        {"image-display-duration", "inf"},
        {"hwdec", "no"},
        {"ytdl", "no"},
        {"network-timeout", "5"},
        {"audio-display", "no"},
        {"input-default-bindings", "no"},
        {"input-vo-keyboard", "no"},
        {"osc", "no"},
        {"load-scripts", "no"},
        {"load-stats-overlay", "no"},
        {"load-osd-console", "no"},
        {"load-auto-profiles", "no"},
    };
    for (const Option& o : options) {
        if (o.value && mpv_set_option_string(mpv, o.name, o.value) < 0)
            qDebug() << "mpv: option not taken:" << o.name << "=" << o.value;
    }
    if (mpv_initialize(mpv) < 0) {
        qDebug() << "mpv: the core did not start; the player keeps its state only";
        mpv_destroy(mpv); // never initialised: no threads to wait for
        return;
    }
    for (const Observation& o : kObserved)
        mpv_observe_property(mpv, o.id, o.name, o.format);
    mpv_set_wakeup_callback(mpv, &MpvRelay::onWakeup, m_relay.get());
    if (drawn) {
        m_frames = MpvFrameSource::create(mpv);
        if (!m_frames) {
            qDebug() << "mpv: pictures of this player are not drawn";
            mpv_set_property_string(mpv, "vo", "null");
        }
    }
    m_mpv = mpv;
    m_audio.attach(mpv);
}

void MpvBackend::drainEvents()
{
    m_relay->drainStarted();
    if (m_retiring) {
        drainRetiring(); // released: only the end of its video output matters
        return;
    }
    // A handler may release the core (a directly connected receiver of the
    // player's signals): the loop ends then.
    while (m_mpv) {
        mpv_event* event = mpv_wait_event(m_mpv, 0);
        if (!event || event->event_id == MPV_EVENT_NONE) {
            promptWhileReadying(); // the events may have ended a play-ready
            return;
        }
        handleEvent(*event);
    }
}

void MpvBackend::handleEvent(const mpv_event& event)
{
    switch (event.event_id) {
    case MPV_EVENT_COMMAND_REPLY:
        onCommandReply(event);
        break;
    case MPV_EVENT_SET_PROPERTY_REPLY:
        if (event.error < 0) {
            qDebug() << "mpv: setting"
                     << propName(static_cast<Prop>(serialOf(event.reply_userdata)))
                     << "refused:" << mpv_error_string(event.error);
        }
        break;
    case MPV_EVENT_GET_PROPERTY_REPLY:
        if (tagOf(event.reply_userdata) == Tag::Probe || tagOf(event.reply_userdata) == Tag::ProbeLast)
            onProbeReply(event);
        else
            onStatReply(event);
        break;
    case MPV_EVENT_PROPERTY_CHANGE:
        onPropertyChange(event);
        break;
    case MPV_EVENT_START_FILE:
        m_startedEntry = static_cast<mpv_event_start_file*>(event.data)->playlist_entry_id;
        break;
    case MPV_EVENT_FILE_LOADED:
        onFileLoaded();
        break;
    case MPV_EVENT_END_FILE:
        onEndFile(event);
        break;
    case MPV_EVENT_PLAYBACK_RESTART:
        onPlaybackRestart();
        break;
    default:
        break;
    }
}

void MpvBackend::onCommandReply(const mpv_event& event)
{
    const std::uint64_t serial = serialOf(event.reply_userdata);
    switch (tagOf(event.reply_userdata)) {
    case Tag::Load:
        if (serial != m_loadSerial)
            return; // a source replaced since
        if (event.error < 0) {
            failSource(QStringLiteral("cannot load: %1")
                           .arg(QString::fromUtf8(mpv_error_string(event.error))));
            return;
        }
        m_wantedEntry = entryIdOf(static_cast<mpv_event_command*>(event.data)->result);
        break;
    case Tag::ReadySeek:
        if (!m_ready.active || serial != m_ready.serial)
            return;
        if (event.error < 0) {
            qDebug() << "mpv: play-ready seek to" << m_ready.msec << "ms refused:"
                     << mpv_error_string(event.error);
            m_ready = Ready();
            return;
        }
        m_ready.armed = true;
        break;
    default:
        if (event.error < 0)
            qDebug() << "mpv: command refused:" << mpv_error_string(event.error);
        break;
    }
}

void MpvBackend::onFileLoaded()
{
    if (m_wantedEntry < 0 || m_startedEntry != m_wantedEntry || m_loaded)
        return;
    m_loaded = true;
    // The figures the player reports with loaded() are read first; loaded()
    // follows the last of them (replies come in request order).
    mpv_get_property_async(m_mpv, tag(Tag::Stat, m_loadSerial), "container-fps", MPV_FORMAT_DOUBLE);
    mpv_get_property_async(m_mpv, tag(Tag::Stat, m_loadSerial), "width", MPV_FORMAT_INT64);
    mpv_get_property_async(m_mpv, tag(Tag::StatLast, m_loadSerial), "height", MPV_FORMAT_INT64);
    if (m_loadIsReady) {
        // Opened at the play-ready's position: the next restart is its frame.
        m_loadIsReady = false;
        setString(m_mpv, Prop::Start, startOption());
        if (m_ready.active && m_ready.inLoad)
            m_ready.armed = true;
    }
    if (m_ready.active && !m_ready.seekSent)
        sendReadySeek();
}

void MpvBackend::onStatReply(const mpv_event& event)
{
    const Tag t = tagOf(event.reply_userdata);
    if ((t != Tag::Stat && t != Tag::StatLast) || serialOf(event.reply_userdata) != m_loadSerial)
        return;
    const auto* p = static_cast<mpv_event_property*>(event.data);
    if (event.error >= 0 && p) {
        if (std::strcmp(p->name, "container-fps") == 0)
            m_containerFps = doubleOf(*p);
        else if (std::strcmp(p->name, "width") == 0)
            m_stats.video.width = static_cast<int>(intOf(*p));
        else if (std::strcmp(p->name, "height") == 0)
            m_stats.video.height = static_cast<int>(intOf(*p));
    }
    syncPictureSize();
    if (t == Tag::StatLast) {
        m_figuresRead = true;
        reportLoadedWhenDue(); // once the source is also judged playable
    }
}

void MpvBackend::syncPictureSize()
{
    if (m_frames)
        m_frames->setPictureSize(QSize(m_stats.video.width, m_stats.video.height));
}

void MpvBackend::onPropertyChange(const mpv_event& event)
{
    const auto& p = *static_cast<mpv_event_property*>(event.data);
    switch (event.reply_userdata) {
    case ObsTimePos:
        if (p.format != MPV_FORMAT_DOUBLE || m_clockSeeking)
            return; // while a clock seek lands, the position may be from before it
        m_position = std::llround(doubleOf(p) * 1000.0);
        m_positionAge.start();
        clockPositionCame();
        if (m_loaded && m_playable && !m_paused && !m_ready.active && !m_ended && !m_clockHolding
            && (!m_positionReport.isValid() || m_positionReport.elapsed() >= 95)) {
            m_positionReport.start();
            m_sink.positionChanged(m_position);
        }
        break;
    case ObsEofReached:
        if (p.format == MPV_FORMAT_FLAG && *static_cast<int*>(p.data) && m_loaded && !m_ended
            && !m_ready.active) {
            if (m_playable) {
                onEndReached();
            } else {
                m_endHeld = true; // ended before it was judged: judged first
                judgeSource();
            }
        }
        break;
    case ObsContainerFps:
        m_containerFps = doubleOf(p);
        break;
    case ObsEstimatedFps:
        m_estimatedFps = doubleOf(p);
        break;
    case ObsWidth:
        m_stats.video.width = p.format == MPV_FORMAT_INT64 ? static_cast<int>(intOf(p)) : 0;
        syncPictureSize();
        break;
    case ObsHeight:
        m_stats.video.height = p.format == MPV_FORMAT_INT64 ? static_cast<int>(intOf(p)) : 0;
        syncPictureSize();
        break;
    case ObsHwdecCurrent:
        m_hwdecSeen = stringOf(p);
        if (m_loaded && m_playable)
            reportDecoder(m_hwdecSeen);
        break;
    case ObsSampleRate:
        m_stats.audio.sample_rate = static_cast<int>(intOf(p));
        break;
    case ObsChannels:
        m_stats.audio.channels = static_cast<int>(intOf(p));
        break;
    case ObsCurrentAo:
        m_engine.noteAudioOutput(stringOf(p)); // once per process: which output opened
        break;
    case ObsFrameDrops: {
        // Frames the video output dropped because they came too late to be
        // drawn. libmpv starts the count again at every seek (a loop too).
        const qint64 count = p.format == MPV_FORMAT_INT64 ? intOf(p) : 0;
        const qint64 added = count >= m_voDrops ? count - m_voDrops : count;
        m_voDrops = count;
        if (added > 0 && m_frames)
            m_frames->noteEngineDrops(static_cast<quint64>(added));
        break;
    }
    default:
        break;
    }
}

void MpvBackend::onEndFile(const mpv_event& event)
{
    const auto* end = static_cast<mpv_event_end_file*>(event.data);
    if (end->playlist_entry_id != m_wantedEntry)
        return; // the end of a source replaced since
    if (m_source.reopens && onLiveEnd(event))
        return; // a live stream dropped (MpvBackendLive.cpp)
    if (end->reason == MPV_END_FILE_REASON_ERROR) {
        m_loaded = false;
        failSource(QString::fromUtf8(mpv_error_string(end->error)));
        return;
    }
    if (end->reason == MPV_END_FILE_REASON_REDIRECT) {
        // A playlist (or a directory) is expanded into entries of its own;
        // a layer plays one media file.
        m_loaded = false;
        failSource(QStringLiteral("a playlist, not a media file"));
        return;
    }
    const bool wasLoaded = m_loaded;
    m_loaded = false;
    if (end->reason != MPV_END_FILE_REASON_EOF || m_ended)
        return;
    if (wasLoaded && !m_playable) {
        failSource(QString::fromLatin1("ended before anything could be decoded"));
        return;
    }
    onEndReached(); // the core could not hold the end
}

void MpvBackend::onPlaybackRestart()
{
    clockSeekLanded();
    if (m_loaded && !m_playable) {
        // The first frame (or the end) is there: the source is judged before
        // anything is reported for it (MpvBackendChecks.cpp).
        if (m_ready.active && m_ready.armed)
            m_ready.restarted = true;
        judgeSource();
        return;
    }
    if (!m_ready.active || !m_ready.armed)
        return;
    completeReady();
}

void MpvBackend::completeReady()
{
    const Ready done = m_ready;
    m_ready = Ready();
    m_position = done.msec;
    m_positionAge.start();
    m_paused = done.pause;
    if (!done.pause) {
        m_positionReport.invalidate();
        requestPause(false);
    }
    m_sink.playReadySucess();
}

void MpvBackend::promptWhileReadying()
{
    // libmpv's video output holds a picture until the screens take it, and
    // the restart that completes a play-ready comes after that: taking the
    // frame at the display's pace would add up to a refresh interval per
    // picture to the ready. Paced again once the ready is done.
    if (m_frames)
        m_frames->setPrompt(m_ready.active);
}

void MpvBackend::onEndReached()
{
    m_ended = true;
    m_paused = true; // keep-open holds the last frame, paused
    m_sink.stopped();
}

void MpvBackend::reportDecoder(const QString& hwdecCurrent)
{
    if (hwdecCurrent.isEmpty() || hwdecCurrent == m_reportedDecoder)
        return;
    m_reportedDecoder = hwdecCurrent;
    m_stats.video.decoder = MpvDecoders::nameFor(hwdecCurrent);
    qDebug() << "mpv decoder:" << m_file << "is decoded by" << m_stats.video.decoder
             << "(hwdec" << hwdecCurrent << ")";
}

} // namespace QtAV
