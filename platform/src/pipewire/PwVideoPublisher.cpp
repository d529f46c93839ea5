#include "pipewire/PwVideoPublisher.h"

#include "pipewire/PwStreamClient.h"

#include <QDebug>

#include <pipewire/pipewire.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>
#include <spa/utils/result.h>

#include <cstring>
#include <ctime>

namespace kelmor::pipewire {

PwVideoPublisher::PwVideoPublisher(const QString& nodeName, QSize size, int rate,
                                   std::function<void(bool)> consumerChanged)
    : m_name(nodeName), m_label(QStringLiteral("publish %1").arg(nodeName)), m_size(size), m_rate(rate > 0 ? rate : 60),
      m_consumerChanged(std::move(consumerChanged)), m_hooks(new StreamHooks)
{
    m_hooks->events.version = PW_VERSION_STREAM_EVENTS;
    m_hooks->events.state_changed = [](void* data, pw_stream_state, pw_stream_state state,
                                       const char* error) {
        static_cast<PwVideoPublisher*>(data)->onStateChanged(state, error);
    };
    m_hooks->events.param_changed = [](void* data, uint32_t id, const spa_pod* param) {
        static_cast<PwVideoPublisher*>(data)->onParamChanged(id, param);
    };
}

PwVideoPublisher::~PwVideoPublisher()
{
    leaveSession(m_session, this, [this] {
        m_closing = true;
        destroyStream();
    });
    delete m_hooks;
}

bool PwVideoPublisher::start()
{
    m_session = PwSession::acquire();
    if (!m_session)
        return false;
    m_session->addClient(this); // makes the node now when connected
    return true;
}

void PwVideoPublisher::connected()
{
    destroyStream();
    if (m_closing)
        return;
    const QByteArray name = m_name.toUtf8();
    pw_properties* props = pw_properties_new(
        PW_KEY_MEDIA_CLASS, "Video/Source", PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY, "Source",
        PW_KEY_MEDIA_ROLE, "Screen", PW_KEY_NODE_NAME, name.constData(), PW_KEY_NODE_DESCRIPTION,
        name.constData(), nullptr);
    m_stream = pw_stream_new(m_session->core(), name.constData(), props);
    if (!m_stream) {
        qDebug() << m_label << ": cannot make the stream:" << strerror(errno);
        return;
    }
    pw_stream_add_listener(m_stream, &m_hooks->stream, &m_hooks->events, this);
    uint8_t buffer[512];
    spa_pod_builder b = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
    spa_rectangle size = SPA_RECTANGLE(uint32_t(m_size.width()), uint32_t(m_size.height()));
    spa_fraction rate = SPA_FRACTION(uint32_t(m_rate), 1);
    const spa_pod* params[1];
    params[0] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &b, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat,
        SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video),
        SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw),
        SPA_FORMAT_VIDEO_format, SPA_POD_Id(SPA_VIDEO_FORMAT_BGRx),
        SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&size),
        SPA_FORMAT_VIDEO_framerate, SPA_POD_Fraction(&rate)));
    const int res = pw_stream_connect(
        m_stream, PW_DIRECTION_OUTPUT, PW_ID_ANY,
        static_cast<pw_stream_flags>(PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_MAP_BUFFERS), params, 1);
    if (res < 0) {
        qDebug() << m_label << ": cannot connect the stream:" << spa_strerror(res);
        destroyStream();
        return;
    }
    qDebug() << m_label << ": published as a PipeWire video source" << m_size << "at"
             << m_rate << "Hz";
}

void PwVideoPublisher::disconnected()
{
    destroyStream();
}

void PwVideoPublisher::destroyStream()
{
    if (!destroyListenedStream(m_stream, *m_hooks))
        return;
    m_formatSet = false;
    if (m_streaming.exchange(false) && m_consumerChanged && !m_closing)
        m_consumerChanged(false);
}

void PwVideoPublisher::onStateChanged(int state, const char* error)
{
    if (state == PW_STREAM_STATE_ERROR)
        qDebug() << m_label << ": stream error:" << (error ? error : "?");
    const bool streaming = state == PW_STREAM_STATE_STREAMING && m_formatSet;
    if (m_streaming.exchange(streaming) != streaming) {
        qDebug() << m_label << (streaming ? ": a consumer streams" : ": no consumer now");
        if (m_consumerChanged && !m_closing)
            m_consumerChanged(streaming);
    }
}

void PwVideoPublisher::onParamChanged(unsigned id, const spa_pod* param)
{
    if (id != SPA_PARAM_Format)
        return;
    m_formatSet = param != nullptr;
    if (!param)
        return;
    const int stride = m_size.width() * 4;
    uint8_t buffer[512];
    spa_pod_builder b = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
    const spa_pod* params[2];
    params[0] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &b, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers,
        SPA_PARAM_BUFFERS_buffers, SPA_POD_CHOICE_RANGE_Int(4, 2, 8),
        SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1),
        SPA_PARAM_BUFFERS_size, SPA_POD_Int(stride * m_size.height()),
        SPA_PARAM_BUFFERS_stride, SPA_POD_Int(stride),
        SPA_PARAM_BUFFERS_dataType,
        SPA_POD_CHOICE_FLAGS_Int((1 << SPA_DATA_MemPtr) | (1 << SPA_DATA_MemFd))));
    params[1] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &b, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Header),
        SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_header))));
    pw_stream_update_params(m_stream, params, 2);
}

bool PwVideoPublisher::send(const uint8_t* rows, int stride, bool bottomUp)
{
    if (!rows || !m_streaming.load())
        return false;
    const int rowBytes = m_size.width() * 4;
    if (stride < rowBytes)
        return false;
    m_session->lock();
    pw_buffer* b = m_stream ? pw_stream_dequeue_buffer(m_stream) : nullptr;
    if (!b) {
        m_session->unlock();
        ++m_dropped; // the consumer still holds every buffer: drop, never wait
        return false;
    }
    spa_buffer* buf = b->buffer;
    spa_data& d = buf->datas[0];
    const size_t need = size_t(rowBytes) * size_t(m_size.height());
    bool ok = d.data && d.maxsize >= need;
    if (ok) {
        auto* dst = static_cast<uint8_t*>(d.data);
        const int h = m_size.height();
        for (int y = 0; y < h; ++y) {
            const uint8_t* src = rows + size_t(bottomUp ? h - 1 - y : y) * size_t(stride);
            std::memcpy(dst + size_t(y) * rowBytes, src, size_t(rowBytes));
        }
        d.chunk->offset = 0;
        d.chunk->size = uint32_t(need);
        d.chunk->stride = rowBytes;
        d.chunk->flags = 0;
        if (auto* header = static_cast<spa_meta_header*>(
                spa_buffer_find_meta_data(buf, SPA_META_Header, sizeof(spa_meta_header)))) {
            timespec ts{};
            clock_gettime(CLOCK_MONOTONIC, &ts);
            header->pts = int64_t(ts.tv_sec) * 1000000000 + ts.tv_nsec;
            header->flags = 0;
            header->seq = uint64_t(m_sent.load());
            header->dts_offset = 0;
        }
    } else {
        d.chunk->size = 0;
    }
    pw_stream_queue_buffer(m_stream, b);
    if (ok)
        pw_stream_trigger_process(m_stream);
    m_session->unlock();
    if (ok)
        ++m_sent;
    else
        ++m_dropped;
    return ok;
}

} // namespace kelmor::pipewire
