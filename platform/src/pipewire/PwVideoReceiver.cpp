#include "pipewire/PwVideoReceiver.h"

#include "pipewire/PwStreamClient.h"

#include <QDebug>

#include <pipewire/pipewire.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>
#include <spa/utils/result.h>

#include <cstring>
#include <ctime>

namespace kelmor::pipewire {

namespace {

qint64 monotonicMsec()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return qint64(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

} // namespace

PwVideoReceiver::PwVideoReceiver(const QString& source, std::function<void()> frameReady)
    : m_source(source), m_label(QStringLiteral("spout %1").arg(source)),
      m_frameReady(std::move(frameReady)), m_hooks(new StreamHooks)
{
    m_hooks->events.version = PW_VERSION_STREAM_EVENTS;
    m_hooks->events.state_changed = [](void* data, pw_stream_state, pw_stream_state state,
                                       const char* error) {
        static_cast<PwVideoReceiver*>(data)->onStateChanged(state, error);
    };
    m_hooks->events.param_changed = [](void* data, uint32_t id, const spa_pod* param) {
        static_cast<PwVideoReceiver*>(data)->onParamChanged(id, param);
    };
    m_hooks->events.process = [](void* data) { static_cast<PwVideoReceiver*>(data)->onProcess(); };

}

PwVideoReceiver::~PwVideoReceiver()
{
    leaveSession(m_session, this, [this] {
        m_closing = true; // no more streams, blanks or frames for the owner
        if (m_watchdog)
            pw_loop_destroy_source(m_session->loop(), m_watchdog);
        if (m_linkTimer)
            pw_loop_destroy_source(m_session->loop(), m_linkTimer);
        m_watchdog = m_linkTimer = nullptr;
        destroyStream();
    });
    delete m_hooks;
}

bool PwVideoReceiver::start()
{
    m_session = PwSession::acquire();
    if (!m_session)
        return false;
    qDebug() << m_label << ": waiting for a PipeWire video source named" << m_source;
    m_session->lock();
    m_watchdog = pw_loop_add_timer(m_session->loop(), [](void* data, uint64_t) {
        static_cast<PwVideoReceiver*>(data)->onWatchdog();
    }, this);
    m_linkTimer = pw_loop_add_timer(m_session->loop(), [](void* data, uint64_t) {
        auto* self = static_cast<PwVideoReceiver*>(data);
        if (!self->m_closing && self->m_targetId != ~0u && !self->m_stream
            && self->m_session->isConnected())
            self->connectStream(self->m_targetSerial);
    }, this);
    timespec every{1, 0};
    if (m_watchdog)
        pw_loop_update_timer(m_session->loop(), m_watchdog, &every, &every, false);
    m_session->unlock();
    m_session->addClient(this);
    return true;
}

bool PwVideoReceiver::takeNewest(PackedPicture& picture)
{
    std::lock_guard<std::mutex> lock(m_slotMutex);
    if (!m_hasNew)
        return false;
    std::swap(picture, m_latest);
    m_hasNew = false;
    return true;
}

void PwVideoReceiver::connected()
{
    m_targetId = ~0u; // the nodes are announced again
}

void PwVideoReceiver::disconnected()
{
    destroyStream();
    m_targetId = ~0u;
    blank("the PipeWire connection is gone");
}

void PwVideoReceiver::nodeAdded(const PwNodeInfo& node)
{
    if (m_closing || m_targetId != ~0u)
        return;
    if (node.mediaClass != "Video/Source" && node.mediaClass != "Stream/Output/Video")
        return; // only nodes that give video out
    const QByteArray wanted = m_source.toUtf8();
    if (wanted != node.name && wanted != node.serial)
        return;
    bool ok = false;
    const unsigned serialNumber = node.serial.toUInt(&ok);
    m_targetId = node.id;
    m_targetSerial = ok ? serialNumber : node.id;
    qDebug() << m_label << ": source found (node" << node.id << ", serial" << node.serial << ")";
    // Linked a moment later: a node that has just appeared may still be
    // setting up its port.
    timespec soon{0, kLinkDelayMsec * 1000000L};
    if (m_linkTimer)
        pw_loop_update_timer(m_session->loop(), m_linkTimer, &soon, nullptr, false);
}

void PwVideoReceiver::nodeRemoved(unsigned id)
{
    if (id != m_targetId)
        return;
    m_targetId = ~0u;
    destroyStream();
    blank("the source went away; waiting for it to return");
}

void PwVideoReceiver::connectStream(unsigned serial)
{
    destroyStream();
    pw_properties* props = pw_properties_new(
        PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY, "Capture", PW_KEY_MEDIA_ROLE, "Production",
        PW_KEY_NODE_NAME, "kelmor-spout", PW_KEY_NODE_DONT_RECONNECT, "true", nullptr);
    pw_properties_setf(props, PW_KEY_TARGET_OBJECT, "%u", serial);
    m_stream = pw_stream_new(m_session->core(), "kelmor spout layer", props);
    if (!m_stream) {
        qDebug() << m_label << ": cannot make a stream:" << strerror(errno);
        return;
    }
    pw_stream_add_listener(m_stream, &m_hooks->stream, &m_hooks->events, this);

    uint8_t buffer[1024];
    spa_pod_builder b = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
    spa_rectangle defSize = SPA_RECTANGLE(1920, 1080), minSize = SPA_RECTANGLE(1, 1),
                  maxSize = SPA_RECTANGLE(32768, 32768);
    spa_fraction defRate = SPA_FRACTION(30, 1), minRate = SPA_FRACTION(0, 1),
                 maxRate = SPA_FRACTION(1000, 1);
    const spa_pod* params[1];
    // Every size is offered so that a too-large source is seen and refused
    // with a message rather than failing to link in silence.
    params[0] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &b, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat,
        SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video),
        SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw),
        SPA_FORMAT_VIDEO_format,
        SPA_POD_CHOICE_ENUM_Id(7, SPA_VIDEO_FORMAT_BGRA, SPA_VIDEO_FORMAT_BGRA, SPA_VIDEO_FORMAT_RGBA,
                               SPA_VIDEO_FORMAT_BGRx, SPA_VIDEO_FORMAT_RGBx, SPA_VIDEO_FORMAT_NV12,
                               SPA_VIDEO_FORMAT_I420),
        SPA_FORMAT_VIDEO_size, SPA_POD_CHOICE_RANGE_Rectangle(&defSize, &minSize, &maxSize),
        SPA_FORMAT_VIDEO_framerate, SPA_POD_CHOICE_RANGE_Fraction(&defRate, &minRate, &maxRate)));
    const int res = pw_stream_connect(
        m_stream, PW_DIRECTION_INPUT, PW_ID_ANY,
        static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS), params, 1);
    if (res < 0) {
        qDebug() << m_label << ": cannot connect the stream:" << spa_strerror(res);
        destroyStream();
    }
}

void PwVideoReceiver::destroyStream()
{
    if (!destroyListenedStream(m_stream, *m_hooks))
        return;
    m_layout = PixelLayout::Unknown;
    m_width = m_height = 0;
    m_refused = false;
}

void PwVideoReceiver::blank(const char* why)
{
    if (!m_showing || m_closing)
        return;
    m_showing = false;
    qDebug() << m_label << ":" << why << "; the layer is blank";
    m_work.width = m_work.height = 0;
    publish();
}

void PwVideoReceiver::publish()
{
    {
        std::lock_guard<std::mutex> lock(m_slotMutex);
        std::swap(m_work, m_latest);
        m_hasNew = true;
    }
    if (m_frameReady)
        m_frameReady();
}

void PwVideoReceiver::onStateChanged(int state, const char* error)
{
    if (state == PW_STREAM_STATE_ERROR)
        qDebug() << m_label << ": stream error:" << (error ? error : "?");
    else if (state == PW_STREAM_STATE_UNCONNECTED && m_targetId != ~0u)
        blank("the stream was unlinked");
}

void PwVideoReceiver::onParamChanged(unsigned id, const spa_pod* param)
{
    if (id != SPA_PARAM_Format || !param)
        return;
    uint32_t mediaType = 0, mediaSubtype = 0;
    spa_video_info_raw info{};
    if (spa_format_parse(param, &mediaType, &mediaSubtype) < 0 || mediaType != SPA_MEDIA_TYPE_video
        || mediaSubtype != SPA_MEDIA_SUBTYPE_raw || spa_format_video_raw_parse(param, &info) < 0) {
        qDebug() << m_label << ": the source offers no raw video; nothing shown";
        m_refused = true;
        blank("no usable format");
        return;
    }
    m_layout = layoutFromSpa(info.format);
    m_width = int(info.size.width);
    m_height = int(info.size.height);
    m_refused = m_layout == PixelLayout::Unknown || m_width <= 0 || m_height <= 0
        || m_width > kMaxSide || m_height > kMaxSide;
    if (m_refused) {
        qDebug() << m_label << ": refused" << layoutName(m_layout) << m_width << "x"
                 << m_height << "- at most" << kMaxSide << "pixels a side";
        blank("the source's format is refused");
    } else {
        qDebug() << m_label << ": format" << layoutName(m_layout) << m_width << "x"
                 << m_height << info.framerate.num << "/" << info.framerate.denom;
    }
    uint8_t buffer[512];
    spa_pod_builder b = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
    const spa_pod* params[2];
    params[0] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &b, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers,
        SPA_PARAM_BUFFERS_buffers, SPA_POD_CHOICE_RANGE_Int(16, 1, 64),
        SPA_PARAM_BUFFERS_blocks, SPA_POD_CHOICE_RANGE_Int(0, 1, INT32_MAX),
        SPA_PARAM_BUFFERS_size, SPA_POD_CHOICE_RANGE_Int(0, 0, INT32_MAX),
        SPA_PARAM_BUFFERS_stride, SPA_POD_CHOICE_RANGE_Int(0, 0, INT32_MAX),
        SPA_PARAM_BUFFERS_dataType,
        SPA_POD_CHOICE_FLAGS_Int((1 << SPA_DATA_MemPtr) | (1 << SPA_DATA_MemFd))));
    params[1] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &b, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Header),
        SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_header))));
    pw_stream_update_params(m_stream, params, 2);
}

void PwVideoReceiver::onProcess()
{
    // Only the newest waiting buffer is shown; older ones go straight back.
    pw_buffer* newest = nullptr;
    while (pw_buffer* b = pw_stream_dequeue_buffer(m_stream)) {
        if (newest)
            pw_stream_queue_buffer(m_stream, newest);
        newest = b;
    }
    if (!newest)
        return;
    spa_buffer* buf = newest->buffer;
    bool ok = false;
    QString problem;
    if (m_refused) {
        problem.clear(); // said when the format came
    } else if (buf && buf->n_datas > 0) {
        PlaneView planes[3];
        const int count = int(std::min<uint32_t>(buf->n_datas, 3));
        for (int i = 0; i < count; ++i) {
            const spa_data& d = buf->datas[i];
            planes[i].data = static_cast<const uint8_t*>(d.data);
            planes[i].size = d.maxsize;
            planes[i].offset = d.chunk ? d.chunk->offset : 0;
            planes[i].stride = d.chunk ? d.chunk->stride : 0;
            if (d.chunk && (d.chunk->flags & SPA_CHUNK_FLAG_CORRUPTED))
                planes[i].data = nullptr;
        }
        if (!planes[0].data)
            problem = QStringLiteral("a buffer that is not mapped or is marked corrupted");
        else
            ok = m_convert.convert(m_layout, m_width, m_height, planes, count, m_work, problem);
        if (ok) {
            auto* header = static_cast<spa_meta_header*>(
                spa_buffer_find_meta_data(buf, SPA_META_Header, sizeof(spa_meta_header)));
            m_work.pts = header && header->pts >= 0 ? uint64_t(header->pts) : 0;
        }
    }
    pw_stream_queue_buffer(m_stream, newest);
    if (!ok) {
        if (!problem.isEmpty() && problem != m_lastProblem) {
            qDebug() << m_label << ": frame dropped:" << problem;
            m_lastProblem = problem;
        }
        return;
    }
    m_lastProblem.clear();
    m_lastFrameMsec = monotonicMsec();
    if (!m_showing)
        qDebug() << m_label << ": frames arrive; the layer shows them";
    m_showing = true;
    ++m_frames;
    publish();
}

void PwVideoReceiver::onWatchdog()
{
    // Nothing for a while from a source that still exists: it stalled. The
    // link stays (its frames show again as soon as they come).
    if (m_showing && monotonicMsec() - m_lastFrameMsec > kStallMsec)
        blank("no frame for 4 s (the source stalled)");
}

} // namespace kelmor::pipewire
