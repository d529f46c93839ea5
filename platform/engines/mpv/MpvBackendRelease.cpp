// The libmpv backend's release: letting go of the render context without
// holding the player's (GUI) thread, then of the core.
//
// Freeing a render context while libmpv's video output still uses it makes
// mpv_render_context_free wait until the output is torn down; an output that
// has handed over a frame waits in its turn, up to 200 ms, for that frame to
// be rendered, which cannot happen while the GUI thread sits in the free.
// So the release only asks the core to stop and watches "current-vo": once
// it is unavailable the video output is gone, and the context is freed from
// a later turn at no wait. Until then the source stays registered with the
// compositor, which takes (skips) every frame libmpv hands over, so the
// output never waits for one. A core that does not report within
// kRetireTimeoutMs is let go all the same.
#include "MpvBackend.h"

#include "MpvAsync.h"
#include "MpvReaper.h"
#include "MpvRelay.h"

#include <QDebug>
#include <QTimer>
#include <mpv/client.h>

namespace QtAV {

using namespace mpvasync;

namespace {

// Reply id of the "current-vo" observation made at release; well apart from
// the ids of the backend's own observations (MpvBackendEvents.cpp).
constexpr std::uint64_t kVideoOutputWatch = 0x7fff0001;
// How long a released core may take to report its video output gone.
constexpr int kRetireTimeoutMs = 3000;

} // namespace

void MpvBackend::release()
{
    if (m_released)
        return;
    m_released = true;
    m_fader->cancel(m_fader->running());
    m_ready = Ready();
    m_audio.detach();
    // Every other entry point sees no core from here on.
    mpv_handle* mpv = m_mpv;
    m_mpv = nullptr;
    if (!mpv || !m_frames) {
        m_relay->stopWakeups();
        m_frames.reset();
        handToReaper(mpv);
        return;
    }
    m_retiring = mpv;
    command(mpv, tag(Tag::Command), {"stop"});
    if (mpv_observe_property(mpv, kVideoOutputWatch, "current-vo", MPV_FORMAT_STRING) < 0) {
        qDebug() << "release: cannot watch the video output; freeing its render context now";
        finishRelease();
        return;
    }
    // The pump is the backend's: a backend destroyed first takes the timer along.
    QTimer::singleShot(kRetireTimeoutMs, m_pump.get(), [this] {
        if (!m_retiring)
            return;
        qDebug() << "release: the video output did not end within" << kRetireTimeoutMs
                 << "ms; freeing its render context now";
        finishRelease();
    });
}

void MpvBackend::drainRetiring()
{
    while (m_retiring) {
        mpv_event* event = mpv_wait_event(m_retiring, 0);
        if (!event || event->event_id == MPV_EVENT_NONE)
            return;
        if (event->event_id != MPV_EVENT_PROPERTY_CHANGE
            || event->reply_userdata != kVideoOutputWatch)
            continue; // the released source's own events are not reported
        const auto* p = static_cast<const mpv_event_property*>(event->data);
        if (p->format == MPV_FORMAT_NONE) {
            // The free runs in a turn of its own, after this drain.
            m_relay->post([this] { finishRelease(); });
            return;
        }
    }
}

void MpvBackend::finishRelease()
{
    if (!m_retiring)
        return;
    mpv_handle* mpv = m_retiring;
    m_retiring = nullptr;
    m_relay->stopWakeups();
    m_frames.reset(); // before the core: libmpv needs its render context gone first
    handToReaper(mpv);
}

void MpvBackend::handToReaper(mpv_handle* mpv)
{
    PlayerEventSink* sink = &m_sink;
    std::shared_ptr<MpvRelay> relay = m_relay;
    auto announce = [relay, sink] { relay->post([sink] { sink->released(); }); };
    if (mpv)
        MpvReaper::instance().destroy(mpv, announce);
    else
        announce();
}

} // namespace QtAV
