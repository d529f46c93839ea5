#include "bare_mpv.h"

#include <clocale>
#include <mpv/client.h>

namespace bench {

BareMpv::BareMpv()
{
    std::setlocale(LC_NUMERIC, "C"); // libmpv refuses to start otherwise
    mpv_handle* mpv = mpv_create();
    if (!mpv) {
        qWarning("BareMpv: mpv_create failed");
        return;
    }
    const char* const options[][2] = {
        {"vo", "null"},          {"ao", "null"},          {"idle", "yes"},
        {"pause", "yes"},        {"keep-open", "yes"},    {"hr-seek", "yes"},
        {"hwdec", "no"},         {"ytdl", "no"},          {"audio-display", "no"},
        {"load-scripts", "no"},  {"osc", "no"},           {"input-default-bindings", "no"},
        {"load-stats-overlay", "no"}, {"load-osd-console", "no"}, {"load-auto-profiles", "no"},
    };
    for (const auto& o : options) {
        if (mpv_set_option_string(mpv, o[0], o[1]) < 0)
            qWarning("BareMpv: option not taken: %s=%s", o[0], o[1]);
    }
    if (mpv_initialize(mpv) < 0) {
        qWarning("BareMpv: mpv_initialize failed");
        mpv_destroy(mpv);
        return;
    }
    mpv_observe_property(mpv, 1, "time-pos", MPV_FORMAT_DOUBLE);
    m_mpv = mpv;
    m_thread = std::thread([this] { readEvents(); });
}

BareMpv::~BareMpv()
{
    if (!m_mpv)
        return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_quit = true;
    }
    mpv_wakeup(m_mpv);
    m_thread.join();
    mpv_terminate_destroy(m_mpv);
}

void BareMpv::readEvents()
{
    for (;;) {
        mpv_event* event = mpv_wait_event(m_mpv, 1.0);
        const Clock::time_point now = Clock::now();
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_quit)
            return;
        switch (event->event_id) {
        case MPV_EVENT_FILE_LOADED:
            ++m_counts.loaded;
            m_counts.loadedSeq = ++m_seq;
            break;
        case MPV_EVENT_PLAYBACK_RESTART:
            ++m_counts.restarts;
            m_counts.restartSeq = ++m_seq;
            m_lastRestart = now;
            break;
        case MPV_EVENT_PROPERTY_CHANGE: {
            auto* p = static_cast<mpv_event_property*>(event->data);
            if (p->format != MPV_FORMAT_DOUBLE)
                break;
            m_timePos = *static_cast<double*>(p->data);
            if (m_armed && m_timePos > m_armedAt + 1e-4) {
                m_armed = false;
                m_stamped = true;
                m_stamp = now;
            }
            break;
        }
        default:
            continue;
        }
        m_changed.notify_all();
    }
}

BareMpv::Counts BareMpv::counts() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_counts;
}

bool BareMpv::waitFor(const std::function<bool(const Counts&)>& pred, int timeoutMs)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                              [&] { return pred(m_counts); });
}

Clock::time_point BareMpv::lastRestart() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastRestart;
}

void BareMpv::load(const QString& file, const QString& options)
{
    if (!m_mpv)
        return;
    const QByteArray path = file.toUtf8();
    const QByteArray opts = options.toUtf8();
    const char* args[] = {"loadfile", path.constData(), "replace",
                          opts.isEmpty() ? nullptr : opts.constData(), nullptr};
    mpv_command_async(m_mpv, 0, args);
}

bool BareMpv::command(const QStringList& args)
{
    if (!m_mpv)
        return false;
    std::vector<QByteArray> bytes;
    for (const QString& a : args)
        bytes.push_back(a.toUtf8());
    std::vector<const char*> cargs;
    for (const QByteArray& b : bytes)
        cargs.push_back(b.constData());
    cargs.push_back(nullptr);
    return mpv_command(m_mpv, cargs.data()) >= 0;
}

bool BareMpv::setPause(bool paused)
{
    int flag = paused ? 1 : 0;
    return m_mpv && mpv_set_property(m_mpv, "pause", MPV_FORMAT_FLAG, &flag) >= 0;
}

void BareMpv::armNewFrame()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_armed = true;
    m_armedAt = m_timePos;
    m_stamped = false;
}

bool BareMpv::newFrameAt(Clock::time_point* at) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_stamped && at)
        *at = m_stamp;
    return m_stamped;
}

} // namespace bench
