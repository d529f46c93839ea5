// AudioSource: one channel of an audio input as float samples, through
// FFmpeg: libavdevice for sound cards and sound servers, libavformat for
// files and network streams, libavcodec to decode, libswresample to take
// the chosen channel as mono float at the input's own rate.
//
// The source text (--ltc-input) is either DEVICE:NAME, where DEVICE is one
// of libavdevice's input devices ("alsa:hw:1,0", "pulse:default"), or
// anything libavformat opens (a file path or a URL). A local file is meant
// to be read at real-time pace (paced()); everything else arrives at its
// own pace.
//
// Every blocking call (opening, reading) gives up as soon as the stop flag
// is set (libavformat's interrupt callback).
//
// Threading: the reader thread only.
#pragma once

#include <QString>
#include <atomic>
#include <vector>

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct SwrContext;

class AudioSource
{
public:
    /// Rates outside this range are refused.
    static constexpr int kMinRate = 8000;
    static constexpr int kMaxRate = 192000;

    explicit AudioSource(const std::atomic<bool>& stop);
    ~AudioSource();
    AudioSource(const AudioSource&) = delete;
    AudioSource& operator=(const AudioSource&) = delete;

    /// Opens `input`, taking channel `channel` (1 = the first; an input with
    /// fewer channels is refused). false and `error` when it cannot.
    bool open(const QString& input, int channel, QString& error);
    void close();

    enum class Read { Samples, End, Error };
    /// The next samples (replacing `out`'s content; may be none). End: the
    /// input has ended; Error: `error` says why.
    Read read(std::vector<float>& out, QString& error);

    /// Whether `input` names a local file (read at real-time pace).
    static bool isLocalFile(const QString& input);

    int sampleRate() const { return m_rate; }
    bool paced() const { return m_paced; }
    /// "alsa hw:1,0, 48000 Hz, channel 1 of 2" and the like.
    const QString& description() const { return m_description; }

private:
    bool openDecoder(QString& error);
    bool setUpResampler(const AVFrame* frame, QString& error);
    Read convert(AVFrame* frame, std::vector<float>& out, QString& error);

    const std::atomic<bool>& m_stop;
    AVFormatContext* m_format = nullptr;
    AVCodecContext* m_codec = nullptr;
    SwrContext* m_swr = nullptr;
    AVPacket* m_packet = nullptr;
    AVFrame* m_frame = nullptr;
    int m_stream = -1;
    int m_channel = 1;
    int m_rate = 0;
    bool m_paced = false;
    bool m_draining = false; // the demuxer ended; the decoder gives what it holds
    // The resampler's input format, to set it up again when frames change.
    int m_swrFormat = -1;
    int m_swrRate = 0;
    int m_swrChannels = 0;
    QString m_description;
};
