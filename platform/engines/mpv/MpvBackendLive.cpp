// Loading a source as its media type asks (MpvSources.h), and reopening a
// live stream that dropped, on the player's thread.
#include "MpvBackend.h"

#include "MpvAsync.h"
#include "MpvRelay.h"

#include <QDebug>
#include <QTimer>
#include <mpv/client.h>

namespace QtAV {

using namespace mpvasync;

QByteArray MpvBackend::startOption() const
{
    return m_startPosition > 0 ? seconds(m_startPosition) : QByteArrayLiteral("none");
}

void MpvBackend::sendLoad()
{
    // libmpv opens a source at "start": a play-ready's position when the load
    // is for one (a video or audio file: nothing decoded before it, no seek
    // after it), the start position otherwise. Set before every load, in
    // request order, and back to the start position once the source is open.
    const bool video = m_mediaType == QLatin1String("video") || m_mediaType == QLatin1String("audio");
    m_loadIsReady = m_loadAt > 0 && video && m_source.options.isEmpty() && !m_source.live;
    setString(m_mpv, Prop::Start, m_loadIsReady ? seconds(m_loadAt) : startOption());
    m_loadAt = -1;
    if (m_source.options.isEmpty()) {
        command(m_mpv, tag(Tag::Load, m_loadSerial),
                {"loadfile", m_source.url.constData(), "replace"});
    } else {
        // libmpv 0.35: loadfile <url> <flags> <per-file options>.
        command(m_mpv, tag(Tag::Load, m_loadSerial),
                {"loadfile", m_source.url.constData(), "replace", m_source.options.constData()});
    }
}

bool MpvBackend::onLiveEnd(const mpv_event& event)
{
    const auto* end = static_cast<mpv_event_end_file*>(event.data);
    // Only an end of the stream's own making; a stop or a replacement is ours.
    if (end->reason != MPV_END_FILE_REASON_EOF && end->reason != MPV_END_FILE_REASON_ERROR)
        return false;
    const bool opened = m_loaded;
    const QString reason = end->reason == MPV_END_FILE_REASON_ERROR
        ? QString::fromUtf8(mpv_error_string(end->error))
        : QStringLiteral("end of stream");
    const QString url = QString::fromUtf8(m_source.url);
    m_loaded = false;
    m_failed = true; // not open: a play-ready of the same URL opens it anew
    m_ended = false;
    m_ready = Ready(); // a play-ready cut by the drop is given up
    m_streamDown = true;
    if (opened)
        m_retry.reset(); // it had opened: the back-off starts over

    if (m_paused || m_released || !m_mpv) {
        // Not reopened while the layer does not play; pauseLive(false) does it.
        if (opened) {
            qDebug().noquote() << QStringLiteral("mpv: stream %1 dropped (%2) while paused")
                                      .arg(url, reason);
        } else if (!m_errorSent && !m_released) {
            // Never opened: reported like any bad source, once per source.
            m_errorSent = true;
            qDebug() << "mpv: cannot play" << m_file << ":" << reason.toUtf8().constData();
            m_sink.mediaError(m_file, reason);
        }
        return true;
    }
    const int delay = m_retry.next();
    qDebug().noquote() << QStringLiteral("mpv: stream %1 dropped (%2), retry %3 in %4 ms")
                              .arg(url, reason)
                              .arg(m_retry.attempt())
                              .arg(delay);
    const std::uint64_t serial = ++m_reopenSerial;
    // The pump lives on the player's thread and dies with the backend, so the
    // timer never runs on a backend that is gone.
    QTimer::singleShot(delay, m_pump.get(), [this, serial] {
        if (serial == m_reopenSerial)
            reopenLive();
    });
    if (!opened && !m_errorSent) {
        // A stream that could not be opened at all is reported once; its
        // reopening goes on (it may come up later).
        m_errorSent = true;
        m_sink.mediaError(m_file, reason);
    }
    return true;
}

void MpvBackend::pauseLive(bool paused)
{
    if (paused)
        ++m_reopenSerial; // the scheduled reopen, if any, does not run
    else if (m_streamDown)
        reopenLive();
}

void MpvBackend::reopenLive()
{
    ++m_reopenSerial;
    if (!m_streamDown || m_paused || m_released || !m_mpv || m_source.url.isEmpty())
        return;
    m_streamDown = false;
    ++m_loadSerial; // replies and figures of the dropped entry are dropped
    m_wantedEntry = -1;
    m_loaded = false;
    m_failed = false;
    m_ended = false;
    m_playable = false; // judged again, and loaded() reported again once it is
    m_judging = false;
    m_probeHits = 0;
    m_figuresRead = false;
    m_loadReported = false;
    m_endHeld = false;
    m_positionReport.invalidate(); // the first position is reported at once
    requestPause(false); // the layer plays: so does the reopened stream
    rearmRepeat();
    sendLoad();
}

} // namespace QtAV
