// Telling a source that cannot be played from one that can, on the player's
// thread, and reporting it (see "Bad sources" in MpvBackend.h).
//
// Why a judgement after opening: libmpv opens some things that hold no media
// at all. A path ending in an image extension goes to its image demuxer by
// name alone, so a text file, random bytes or an empty file called ".png"
// "loads", plays for ever as a picture of nothing and even restarts after a
// seek; a damaged header may open with streams that never decode. What tells
// them apart is whether a frame or a sound came out of the decoders, which
// libmpv has settled by the first PLAYBACK_RESTART of the source (the first
// frame is ready, or the source ended trying).
#include "MpvBackend.h"

#include "MpvAsync.h"
#include "MpvRelay.h"

#include <QDebug>
#include <QFileInfo>
#include <QTimer>
#include <mpv/client.h>

namespace QtAV {

using namespace mpvasync;

namespace {

// A URL ("scheme://...") or a libavdevice source is left to libmpv.
bool isLocalPath(const QString& file)
{
    return !file.contains(QLatin1String("://")) && !file.startsWith(QLatin1String("av:"));
}

// Why a local path cannot be media, or empty when it may be.
QString localPathProblem(const QString& file)
{
    const QFileInfo info(file);
    if (!info.exists())
        return QStringLiteral("no such file");
    if (info.isDir())
        return QStringLiteral("a directory, not a media file");
    if (!info.isReadable())
        return QStringLiteral("the file cannot be read (permission denied)");
    if (info.isFile() && info.size() == 0)
        return QStringLiteral("an empty file");
    return QString();
}

const char kNothingDecoded[] = "neither a picture nor sound could be decoded from it";

} // namespace

bool MpvBackend::refuseLocalPath(const QString& file)
{
    if (m_source.live || !isLocalPath(file))
        return false;
    const QString problem = localPathProblem(file);
    if (problem.isEmpty())
        return false;
    m_failed = true;
    // Reported from the event loop: the caller is still inside setFile() or
    // playReady(), and its host may connect to the player only after it.
    const std::uint64_t serial = m_loadSerial;
    QTimer::singleShot(0, m_pump.get(), [this, serial, problem] {
        if (serial == m_loadSerial && !m_released)
            failSource(problem);
    });
    return true;
}

void MpvBackend::judgeSource()
{
    if (m_playable || m_judging || !m_mpv)
        return;
    m_judging = true;
    m_probeHits = 0;
    // Either parameter set exists only once its decoder has put out a frame.
    mpv_get_property_async(m_mpv, tag(Tag::Probe, m_loadSerial), "video-params/w",
                           MPV_FORMAT_INT64);
    mpv_get_property_async(m_mpv, tag(Tag::ProbeLast, m_loadSerial), "audio-params/samplerate",
                           MPV_FORMAT_INT64);
}

void MpvBackend::onProbeReply(const mpv_event& event)
{
    if (serialOf(event.reply_userdata) != m_loadSerial || !m_judging)
        return; // a source replaced since
    const auto* p = static_cast<mpv_event_property*>(event.data);
    if (event.error >= 0 && p && p->format == MPV_FORMAT_INT64 && p->data
        && *static_cast<std::int64_t*>(p->data) > 0)
        ++m_probeHits;
    if (tagOf(event.reply_userdata) != Tag::ProbeLast)
        return;
    m_judging = false;
    if (m_probeHits == 0) {
        failSource(QString::fromLatin1(kNothingDecoded));
        return;
    }
    m_playable = true;
    reportDecoder(m_hwdecSeen); // the decoder line, now that something decoded
    const bool endHeld = m_endHeld;
    m_endHeld = false;
    reportLoadedWhenDue(); // loaded() first, as before any other report
    if (m_released)
        return; // a receiver let go of the player
    if (m_ready.active && m_ready.restarted)
        completeReady(); // the play-ready's frame came before the judgement
    else if (endHeld && !m_ended && !m_ready.active)
        onEndReached(); // so did the end of a short item
}

void MpvBackend::reportLoadedWhenDue()
{
    if (!m_figuresRead || !m_playable || m_loadReported || m_failed)
        return;
    m_loadReported = true;
    m_sink.loaded();
}

void MpvBackend::failSource(const QString& reason)
{
    qDebug().noquote() << QStringLiteral("mpv: cannot play \"%1\": %2").arg(m_file, reason);
    if (m_loaded)
        command(m_mpv, tag(Tag::Command), {"stop"}); // let go of what does not decode
    m_failed = true;
    m_loaded = false;
    m_judging = false;
    m_endHeld = false;
    m_ready = Ready();
    if (m_errorSent)
        return;
    m_errorSent = true;
    m_sink.mediaError(m_file, reason); // last: a receiver may release the player
}

} // namespace QtAV
