// Screen recorder: a bounded picture queue filled by the GUI thread and an
// encoder thread that turns it into a constant-frame-rate video with FFmpeg.
#include "gl/ScreenRecorder.h"

#include "gl/DescriptorOutput.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>

#include <system_error>
#include <unistd.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

namespace kelmor::gl {

namespace {

constexpr int kMaxFps = 240;
constexpr int kMaxSide = 16384;

QString avError(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return QString::fromUtf8(text);
}

// The muxer for a file name; matroska takes any codec, so it is the default.
const char* muxerFor(const QString& path)
{
    const QString ext = QFileInfo(path).suffix().toLower();
    if (ext == QLatin1String("mp4"))
        return "mp4";
    if (ext == QLatin1String("mov"))
        return "mov";
    if (ext == QLatin1String("avi"))
        return "avi";
    return "matroska";
}

// FFmpeg's name for the memory layout of a QImage format, or NONE when the
// picture has to be converted first. Qt's 32-bit formats are native-endian
// 0xAARRGGBB words, which is what AV_PIX_FMT_RGB32 means.
AVPixelFormat pixelFormatOf(QImage::Format format)
{
    switch (format) {
    case QImage::Format_RGBA8888:
    case QImage::Format_RGBA8888_Premultiplied:
    case QImage::Format_RGBX8888:
        return AV_PIX_FMT_RGBA;
    case QImage::Format_ARGB32:
    case QImage::Format_ARGB32_Premultiplied:
        return AV_PIX_FMT_RGB32;
    case QImage::Format_RGB32:
        return AV_PIX_FMT_0RGB32;
    case QImage::Format_RGB888:
        return AV_PIX_FMT_RGB24;
    default:
        return AV_PIX_FMT_NONE;
    }
}

} // namespace

// The FFmpeg side of one recording. open() runs on the GUI thread before the
// encoder thread starts; from then on every field belongs to the encoder
// thread until stop() has joined it.
struct ScreenRecorder::Encoder {
    AVFormatContext* format = nullptr;
    AVCodecContext* codec = nullptr;
    AVStream* stream = nullptr;
    AVFrame* frame = nullptr;   // the current picture in yuv420p, reused for every frame
    AVPacket* packet = nullptr; // reused for every packet
    SwsContext* sws = nullptr;  // cached; rebuilt only when the source size or format changes
    QString path;
    QSize requested;            // size asked for in start()
    QSize encoded;              // requested, rounded down to even
    int fps = 0;
    bool fileOpen = false;      // avio opened: the file exists on disk
    bool customIo = false;      // written through the caller's descriptor
    int givenFd = -1;           // the caller's descriptor until the output takes it
    bool headerWritten = false;
    bool failed = false;        // an FFmpeg call failed; later pictures are dropped

    qint64 nextIndex = 0;       // number of the next frame to encode
    QImage current;             // newest picture taken, not yet superseded
    qint64 currentMsec = -1;    // its timestamp; -1 before the first picture
    bool currentConverted = false; // `frame` holds `current` already
    int written = 0;            // packets (= frames) muxed into the file

    ~Encoder()
    {
        sws_freeContext(sws);
        av_packet_free(&packet);
        av_frame_free(&frame);
        avcodec_free_context(&codec);
        if (format) {
            if (fileOpen)
                closeOutput();
            avformat_free_context(format);
        }
        if (givenFd >= 0)
            ::close(givenFd);
        // A file whose header never made it is no video; do not leave it
        // behind. A caller's descriptor names a file the caller made and
        // removes itself.
        if (fileOpen && !headerWritten && !customIo)
            QFile::remove(path);
    }

    void closeOutput()
    {
        if (customIo)
            closeDescriptorOutput(&format->pb);
        else
            avio_closep(&format->pb);
        fileOpen = false;
    }

    // Returns the reason of a failure, empty on success.
    QString open(const QString& filePath, QSize size, int framesPerSecond, bool allowH264)
    {
        path = filePath;
        requested = size;
        encoded = QSize(size.width() & ~1, size.height() & ~1);
        fps = framesPerSecond;
        const QByteArray name = QFile::encodeName(path);
        if (avformat_alloc_output_context2(&format, nullptr, muxerFor(path), name.constData()) < 0
            || !format)
            return QStringLiteral("no muxer for %1").arg(path);

        const AVCodec* h264 = allowH264 ? avcodec_find_encoder_by_name("libx264") : nullptr;
        if (!(h264 && openCodec(h264))) {
            const AVCodec* mpeg4 = avcodec_find_encoder(AV_CODEC_ID_MPEG4);
            if (!(mpeg4 && openCodec(mpeg4)))
                return QStringLiteral("no encoder (neither libx264 nor mpeg4 opened)");
        }
        stream = avformat_new_stream(format, nullptr);
        if (!stream || avcodec_parameters_from_context(stream->codecpar, codec) < 0)
            return QStringLiteral("cannot add the video stream");
        stream->time_base = codec->time_base;

        if (givenFd >= 0) {
            format->pb = openDescriptorOutput(givenFd);
            givenFd = -1; // taken over, closed even on failure
            if (!format->pb)
                return QStringLiteral("cannot write to the file of %1 (out of memory)").arg(path);
            format->flags |= AVFMT_FLAG_CUSTOM_IO;
            customIo = true;
        } else {
            const int opened = avio_open(&format->pb, name.constData(), AVIO_FLAG_WRITE);
            if (opened < 0)
                return QStringLiteral("cannot create file %1 (%2)").arg(path, avError(opened));
        }
        fileOpen = true;
        const int header = avformat_write_header(format, nullptr);
        if (header < 0)
            return QStringLiteral("cannot write the header of %1 (%2)").arg(path, avError(header));
        headerWritten = true;

        frame = av_frame_alloc();
        packet = av_packet_alloc();
        if (!frame || !packet)
            return QStringLiteral("out of memory");
        frame->format = AV_PIX_FMT_YUV420P;
        frame->width = encoded.width();
        frame->height = encoded.height();
        if (av_frame_get_buffer(frame, 0) < 0)
            return QStringLiteral("out of memory for a %1x%2 frame")
                .arg(encoded.width()).arg(encoded.height());
        return {};
    }

    bool openCodec(const AVCodec* encoder)
    {
        avcodec_free_context(&codec);
        codec = avcodec_alloc_context3(encoder);
        if (!codec)
            return false;
        codec->width = encoded.width();
        codec->height = encoded.height();
        codec->pix_fmt = AV_PIX_FMT_YUV420P;
        codec->time_base = AVRational{1, fps};
        codec->framerate = AVRational{fps, 1};
        codec->gop_size = 2 * fps; // a key frame every two seconds keeps seeking quick
        // swscale's default rgb->yuv is limited-range BT.601; say so in the file.
        codec->color_range = AVCOL_RANGE_MPEG;
        codec->colorspace = AVCOL_SPC_SMPTE170M;
        if (format->oformat->flags & AVFMT_GLOBALHEADER)
            codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        AVDictionary* options = nullptr;
        if (encoder->id == AV_CODEC_ID_H264) {
            av_dict_set(&options, "preset", "veryfast", 0);
        } else {
            codec->flags |= AV_CODEC_FLAG_QSCALE; // constant quality, like x264's default crf
            codec->global_quality = FF_QP2LAMBDA * 3;
        }
        const int result = avcodec_open2(codec, encoder, &options);
        av_dict_free(&options);
        if (result < 0) {
            qDebug().noquote() << "ScreenRecorder::start: encoder" << encoder->name
                               << "did not open:" << avError(result);
            avcodec_free_context(&codec);
            return false;
        }
        return true;
    }

    // Millisecond timestamps cannot hold n/fps exactly, so a picture counts
    // for frame n when it falls in the millisecond that holds n/fps.
    bool pictureCountsFor(qint64 msec, qint64 index) const
    {
        return msec * fps < index * 1000 + fps;
    }

    // One picture from the queue: frames whose time has passed before it show
    // the previous picture; then it becomes the current one.
    void take(const QImage& picture, qint64 msec)
    {
        if (currentMsec >= 0) {
            while (!failed && !pictureCountsFor(msec, nextIndex))
                encodeCurrent();
        }
        current = picture;
        currentMsec = msec;
        currentConverted = false;
    }

    // End of the recording: the last picture fills the frames up to its own
    // time, then the encoder is drained and the trailer written.
    void finish()
    {
        if (currentMsec >= 0) {
            while (!failed && nextIndex * 1000 < (currentMsec + 1) * fps)
                encodeCurrent();
        }
        current = QImage();
        if (!failed)
            send(nullptr); // flush the delayed frames
        if (headerWritten) {
            const int result = av_write_trailer(format);
            if (result < 0)
                qDebug().noquote() << "ScreenRecorder::stop: cannot finish" << path << avError(result);
        }
        if (fileOpen)
            closeOutput();
    }

    void encodeCurrent()
    {
        if (!currentConverted) {
            if (!convertCurrent()) {
                failed = true;
                return;
            }
            currentConverted = true;
        }
        frame->pts = nextIndex++;
        send(frame);
    }

    bool convertCurrent()
    {
        QImage source = current;
        AVPixelFormat sourceFormat = pixelFormatOf(source.format());
        if (sourceFormat == AV_PIX_FMT_NONE) { // unusual format: one conversion, then the usual path
            source = source.convertToFormat(QImage::Format_RGBA8888);
            sourceFormat = AV_PIX_FMT_RGBA;
        }
        // A picture of the requested size loses its odd last row/column; any
        // other size is scaled to the encoded size.
        const QSize from = source.size() == requested ? encoded : source.size();
        if (!source.isNull())
            sws = sws_getCachedContext(sws, from.width(), from.height(), sourceFormat,
                                       encoded.width(), encoded.height(), AV_PIX_FMT_YUV420P,
                                       SWS_BILINEAR, nullptr, nullptr, nullptr);
        if (source.isNull() || !sws) {
            qDebug().noquote() << "ScreenRecorder: cannot convert a" << source.width() << "x"
                               << source.height() << "picture; recording stops taking pictures";
            return false;
        }
        // The encoder may still hold a reference to the previous picture's buffer.
        const int writable = av_frame_make_writable(frame);
        if (writable < 0) {
            qDebug().noquote() << "ScreenRecorder: frame buffer:" << avError(writable);
            return false;
        }
        const uint8_t* planes[4] = {source.constBits(), nullptr, nullptr, nullptr};
        const int strides[4] = {int(source.bytesPerLine()), 0, 0, 0};
        sws_scale(sws, planes, strides, 0, from.height(), frame->data, frame->linesize);
        return true;
    }

    // Sends a frame (nullptr: end of stream) and muxes the packets that result.
    void send(const AVFrame* input)
    {
        int result = avcodec_send_frame(codec, input);
        while (result >= 0) {
            result = avcodec_receive_packet(codec, packet);
            if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
                return;
            if (result < 0)
                break;
            if (packet->duration <= 0)
                packet->duration = 1; // one frame, in the codec's 1/fps time base
            av_packet_rescale_ts(packet, codec->time_base, stream->time_base);
            packet->stream_index = stream->index;
            result = av_interleaved_write_frame(format, packet); // takes the packet's data
            av_packet_unref(packet);
            if (result >= 0)
                ++written;
        }
        qDebug().noquote() << "ScreenRecorder: encoding" << path << "failed:" << avError(result)
                           << "; later pictures are dropped";
        failed = true;
    }
};

ScreenRecorder::ScreenRecorder() : m_slots(kDefaultQueueCapacity) {}

ScreenRecorder::~ScreenRecorder()
{
    stop();
}

bool ScreenRecorder::start(const QString& path, QSize size, int fps, int fd)
{
    auto refuse = [fd](const QString& reason) {
        if (fd >= 0)
            ::close(fd); // taken over whatever happens
        qDebug().noquote() << "ScreenRecorder::start:" << reason;
        return false;
    };
    if (m_recording)
        return refuse(QStringLiteral("already recording to %1; ignored").arg(m_path));
    if (size.width() < 2 || size.height() < 2 || size.width() > kMaxSide || size.height() > kMaxSide)
        return refuse(QStringLiteral("bad size %1x%2").arg(size.width()).arg(size.height()));
    if (fps <= 0 || fps > kMaxFps)
        return refuse(QStringLiteral("bad fps %1 (1..%2)").arg(fps).arg(kMaxFps));
    if (path.isEmpty())
        return refuse(QStringLiteral("empty path"));

    auto encoder = std::make_unique<Encoder>();
    encoder->givenFd = fd;
    const QString error = encoder->open(path, size, fps, m_h264Allowed);
    if (!error.isEmpty()) {
        encoder.reset(); // closes the descriptor
        qDebug().noquote() << "ScreenRecorder::start:" << error;
        return false;
    }

    {
        // No encoder thread yet; locked so these fields change only under m_mutex.
        std::lock_guard<std::mutex> lock(m_mutex);
        m_head = 0;
        m_count = 0;
        m_stopRequested = false;
    }
    const QString codecName = QString::fromLatin1(encoder->codec->codec->name);
    m_encoder = std::move(encoder);
    try {
        m_thread = std::thread(&ScreenRecorder::run, this);
    } catch (const std::system_error& e) {
        m_encoder->finish(); // closes the file (the descriptor too)
        m_encoder.reset();
        qDebug().noquote() << "ScreenRecorder::start: cannot start the encoder thread" << e.what();
        return false;
    }
    m_recording = true;
    m_path = path;
    m_size = size;
    m_codecName = codecName;
    m_droppedSinceLog = 0;
    return true;
}

void ScreenRecorder::pushFrame(const QImage& picture, qint64 msec)
{
    const char* ignored = nullptr;
    if (!m_recording)
        ignored = "not recording";
    else if (picture.isNull())
        ignored = "null picture";
    else if (msec < 0 || msec > kMaxMsec)
        ignored = "timestamp out of range";
    if (ignored) {
        if (logAllowed(m_ignoreLog))
            qDebug().noquote() << "ScreenRecorder::pushFrame:" << ignored << "at" << msec << "ms; ignored";
        return;
    }

    QImage dropped; // released after the lock, so the GUI thread frees it unlocked
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const int capacity = int(m_slots.size());
        if (m_count == capacity) {
            dropped.swap(m_slots[m_head].picture);
            m_head = (m_head + 1) % capacity;
            --m_count;
            ++m_droppedSinceLog;
        }
        Queued& slot = m_slots[(m_head + m_count) % capacity];
        slot.picture = picture;
        slot.msec = msec;
        ++m_count;
    }
    m_wake.notify_one();
    if (m_droppedSinceLog > 0 && logAllowed(m_dropLog)) {
        qDebug().noquote() << "ScreenRecorder::pushFrame: encoder behind, dropped" << m_droppedSinceLog
                           << "queued picture(s)";
        m_droppedSinceLog = 0;
    }
}

int ScreenRecorder::stop()
{
    if (!m_recording)
        return 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopRequested = true;
    }
    m_wake.notify_one();
    m_thread.join();
    const int frames = m_encoder->written;
    m_encoder.reset();
    m_recording = false;
    if (m_droppedSinceLog > 0)
        qDebug().noquote() << "ScreenRecorder::stop: encoder was behind, dropped" << m_droppedSinceLog
                           << "queued picture(s)";
    m_droppedSinceLog = 0;
    return frames;
}

void ScreenRecorder::run()
{
    Encoder& encoder = *m_encoder;
    for (;;) {
        Queued item;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_wake.wait(lock, [this] { return m_count > 0 || m_stopRequested; });
            if (m_count == 0)
                break; // stop requested and everything queued is encoded
            item.picture.swap(m_slots[m_head].picture);
            item.msec = m_slots[m_head].msec;
            m_head = (m_head + 1) % int(m_slots.size());
            --m_count;
        }
        if (!encoder.failed)
            encoder.take(item.picture, item.msec);
    }
    encoder.finish();
}

bool ScreenRecorder::logAllowed(QElapsedTimer& last)
{
    if (last.isValid() && last.elapsed() < 1000)
        return false;
    last.start();
    return true;
}

bool ScreenRecorder::isRecording() const { return m_recording; }
QString ScreenRecorder::path() const { return m_path; }
QSize ScreenRecorder::size() const { return m_size; }
QString ScreenRecorder::codecName() const { return m_codecName; }
void ScreenRecorder::setH264Allowed(bool allowed) { m_h264Allowed = allowed; }

void ScreenRecorder::setQueueCapacity(int capacity)
{
    if (m_recording || capacity < 1 || capacity > kMaxQueueCapacity) {
        qDebug().noquote() << "ScreenRecorder::setQueueCapacity:" << capacity
                           << (m_recording ? "while recording" : "out of range 1..256") << "; ignored";
        return;
    }
    // No encoder thread; locked so these fields change only under m_mutex.
    std::lock_guard<std::mutex> lock(m_mutex);
    m_slots.assign(size_t(capacity), Queued{});
    m_head = 0;
    m_count = 0;
}

int ScreenRecorder::queueCapacity() const { return int(m_slots.size()); }

} // namespace kelmor::gl
