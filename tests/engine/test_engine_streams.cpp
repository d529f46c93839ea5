// Live sources on the libmpv engine: capture cards and network streams are
// opened for low latency, and a network stream that drops or cannot be
// reached is reopened while the layer plays.
#include "EngineFixture.h"

#include "MpvSources.h"

#include <QProcess>
#include <QRegularExpression>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using QtAV::AVPlayer;
using QtAV::MpvRetry;
using QtAV::MpvSource;
using QtAV::MpvSources::sourceFor;

namespace {

const char kLowLatency[] = "cache=no,cache-pause=no,demuxer-lavf-o-add=fflags=+nobuffer,"
                           "demuxer-lavf-analyzeduration=0.5,video-sync=audio";
const char kNetwork[] = "cache=no,cache-pause=no,demuxer-lavf-o-add=fflags=+nobuffer,"
                        "demuxer-lavf-analyzeduration=0.5,video-sync=audio,"
                        "network-timeout=5,keep-open=no";

const QString kRefusedUrl = QStringLiteral("rtsp://127.0.0.1:9/x"); // the discard port: refused
const QString kRetryLine = QStringLiteral("mpv: stream ");

// A TCP port on the loopback that nobody listens on just now.
quint16 freePort()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0)
        return 0;
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = 0;
    socklen_t len = sizeof addr;
    quint16 port = 0;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0
        && ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) == 0)
        port = ntohs(addr.sin_port);
    ::close(fd);
    return port;
}

// The test clip served in real time, for ever, as an MPEG-TS over HTTP by
// ffmpeg (one client); killing it drops the stream.
class LiveServer
{
public:
    explicit LiveServer(quint16 port)
        : m_url(QStringLiteral("http://127.0.0.1:%1/live.ts").arg(port))
    {
    }
    ~LiveServer() { kill(); }

    QString url() const { return m_url; }

    bool start()
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QStringLiteral("ffmpeg"),
                        {"-v", "error", "-nostdin", "-re", "-stream_loop", "-1", "-i",
                         EngineMedia::clip(), "-c", "copy", "-f", "mpegts", "-listen", "1", m_url});
        return m_process.waitForStarted(10000);
    }

    void kill()
    {
        if (m_process.state() == QProcess::NotRunning)
            return;
        m_process.kill();
        m_process.waitForFinished(10000);
    }

private:
    QString m_url;
    QProcess m_process;
};

} // namespace

// --- Sources and options by media type ---------------------------------------

TEST(MpvSourcesTest, CaptureDevicePathOpensThroughV4l2ForLowLatency)
{
    const MpvSource s = sourceFor(QStringLiteral("captureCard"), QStringLiteral("/dev/video0"));
    EXPECT_EQ(s.url, QByteArray("av://v4l2:/dev/video0"));
    EXPECT_EQ(s.options, QByteArray(kLowLatency));
    EXPECT_TRUE(s.live);
    EXPECT_FALSE(s.reopens);
}

TEST(MpvSourcesTest, CaptureUrlIsPassedAsItIs)
{
    const MpvSource s = sourceFor(QStringLiteral("captureCard"),
                                  QStringLiteral("av://lavfi:testsrc=size=160x90"));
    EXPECT_EQ(s.url, QByteArray("av://lavfi:testsrc=size=160x90"));
    EXPECT_EQ(s.options, QByteArray(kLowLatency));
}

TEST(MpvSourcesTest, NetworkStreamsOpenForLowLatencyAndReopen)
{
    for (const char* url : {"srt://10.0.0.2:9000", "udp://239.0.0.1:1234", "rtmp://host/app/key",
                            "http://host/live.ts", "https://host/live.m3u8"}) {
        const MpvSource s = sourceFor(QStringLiteral("networkVideo"), QString::fromLatin1(url));
        EXPECT_EQ(s.url, QByteArray(url));
        EXPECT_EQ(s.options, QByteArray(kNetwork)) << url;
        EXPECT_TRUE(s.live);
        EXPECT_TRUE(s.reopens);
    }
}

TEST(MpvSourcesTest, RtspStreamsUseTcp)
{
    for (const char* url : {"rtsp://cam/stream", "RTSP://cam/stream", "rtsps://cam/stream"}) {
        const MpvSource s = sourceFor(QStringLiteral("networkVideo"), QString::fromLatin1(url));
        EXPECT_EQ(s.options, QByteArray(kNetwork) + ",rtsp-transport=tcp") << url;
    }
}

TEST(MpvSourcesTest, OtherTypesPlayTheFileWithoutOptions)
{
    for (const char* type : {"video", "audio", "picture", "", "somethingElse"}) {
        const MpvSource s = sourceFor(QString::fromLatin1(type), QStringLiteral("/media/a.mp4"));
        EXPECT_EQ(s.url, QByteArray("/media/a.mp4")) << type;
        EXPECT_TRUE(s.options.isEmpty()) << type;
        EXPECT_FALSE(s.live) << type;
        EXPECT_FALSE(s.reopens) << type;
    }
    // A device path is only rewritten for a capture card.
    EXPECT_EQ(sourceFor(QStringLiteral("video"), QStringLiteral("/dev/video0")).url,
              QByteArray("/dev/video0"));
}

TEST(MpvSourcesTest, EmptyFileGivesNothingToOpen)
{
    const MpvSource s = sourceFor(QStringLiteral("networkVideo"), QString());
    EXPECT_TRUE(s.url.isEmpty());
    EXPECT_TRUE(s.options.isEmpty());
    EXPECT_FALSE(s.reopens);
}

TEST(MpvRetryTest, BackOffDoublesFrom500MsUpTo5s)
{
    MpvRetry retry;
    EXPECT_EQ(retry.attempt(), 0);
    EXPECT_EQ(retry.next(), 500);
    EXPECT_EQ(retry.attempt(), 1);
    EXPECT_EQ(retry.next(), 1000);
    EXPECT_EQ(retry.next(), 2000);
    EXPECT_EQ(retry.next(), 4000);
    EXPECT_EQ(retry.next(), 5000);
    EXPECT_EQ(retry.next(), 5000);
    EXPECT_EQ(retry.attempt(), 6);
}

TEST(MpvRetryTest, ResetStartsOverFromTheFirstDelay)
{
    MpvRetry retry;
    retry.next();
    retry.next();
    retry.next();
    retry.reset();
    EXPECT_EQ(retry.attempt(), 0);
    EXPECT_EQ(retry.nextDelay(), 500);
    EXPECT_EQ(retry.next(), 500);
    EXPECT_EQ(retry.attempt(), 1);
}

// --- Capture cards -------------------------------------------------------------

TEST_F(EngineTest, CaptureUrlPlaysWithLowLatencyOptionsForItsEntryOnly)
{
    AVPlayer* player = newPlayer();
    QSignalSpy loaded(player, &AVPlayer::loaded);
    QSignalSpy positions(player, &AVPlayer::positionChanged);
    player->setMediaType(QStringLiteral("captureCard"));
    player->setFile(QStringLiteral("av://lavfi:testsrc=size=160x90:rate=25"));
    player->pause(false);
    ASSERT_TRUE(waitFor(loaded));
    ASSERT_TRUE(waitUntil([&] { return !positions.isEmpty() && positions.last().at(0).toLongLong() > 300; }));
    EXPECT_EQ(prop(player, "path"), QStringLiteral("av://lavfi:testsrc=size=160x90:rate=25"));
    EXPECT_EQ(prop(player, "cache"), QStringLiteral("no"));
    EXPECT_EQ(prop(player, "cache-pause"), QStringLiteral("no"));
    EXPECT_EQ(prop(player, "demuxer-lavf-o"), QStringLiteral("fflags=+nobuffer"));
    EXPECT_EQ(prop(player, "demuxer-lavf-analyzeduration"), QStringLiteral("0.500000"));
    EXPECT_EQ(prop(player, "video-sync"), QStringLiteral("audio"));
    EXPECT_EQ(prop(player, "keep-open"), QStringLiteral("yes")); // a capture ends like a file

    // The next source, a file, gets the core's settings back.
    player->setMediaType(QStringLiteral("video"));
    player->setFile(EngineMedia::clip());
    ASSERT_TRUE(waitFor(loaded, 2));
    EXPECT_TRUE(prop(player, "path").endsWith(QStringLiteral("clip.mp4")));
    EXPECT_EQ(prop(player, "cache"), QStringLiteral("auto"));
    EXPECT_EQ(prop(player, "cache-pause"), QStringLiteral("yes"));
    EXPECT_EQ(prop(player, "demuxer-lavf-o"), QString());
}

TEST_F(EngineTest, MissingCaptureDeviceIsReportedAndTheLayerStaysUsable)
{
    LogCapture log;
    AVPlayer* player = newPlayer();
    QSignalSpy loaded(player, &AVPlayer::loaded);
    QSignalSpy stopped(player, &AVPlayer::stopped);
    player->setMediaType(QStringLiteral("captureCard"));
    player->setFile(QStringLiteral("/dev/video99"));
    player->pause(false);
    ASSERT_TRUE(waitUntil([&] { return log.count(QStringLiteral("mpv: cannot play")) >= 1; }));
    EXPECT_EQ(log.count(QStringLiteral("/dev/video99")), 1);
    QTest::qWait(1500); // a capture card is not reopened
    EXPECT_EQ(log.count(QStringLiteral("mpv: cannot play")), 1);
    EXPECT_EQ(log.count(kRetryLine), 0);
    EXPECT_EQ(loaded.count(), 0);
    EXPECT_EQ(stopped.count(), 0);

    player->setMediaType(QStringLiteral("video"));
    player->setFile(EngineMedia::clip());
    ASSERT_TRUE(waitFor(loaded));
    EXPECT_NEAR(player->statistics().video.frame_rate, 25.0, 0.5);
}

// --- Network streams -----------------------------------------------------------

TEST_F(EngineTest, UnreachableStreamIsRetriedWithBackOffUntilTheContentChanges)
{
    LogCapture log;
    AVPlayer* player = newPlayer();
    QSignalSpy loaded(player, &AVPlayer::loaded);
    QSignalSpy stopped(player, &AVPlayer::stopped);
    player->setMediaType(QStringLiteral("networkVideo"));
    player->setFile(kRefusedUrl);
    player->pause(false);
    ASSERT_TRUE(waitUntil([&] { return log.count(kRetryLine) >= 3; }, 30000));

    // One line per failed attempt, with libmpv's reason, the attempt and its delay.
    const QRegularExpression line(
        QStringLiteral("^mpv: stream rtsp://127\\.0\\.0\\.1:9/x dropped \\((.+)\\), retry (\\d+) in (\\d+) ms$"));
    QList<int> attempts;
    QList<int> delays;
    for (const QString& l : log.lines()) {
        if (!l.contains(kRetryLine))
            continue;
        const QRegularExpressionMatch m = line.match(l);
        ASSERT_TRUE(m.hasMatch()) << l.toStdString();
        EXPECT_FALSE(m.captured(1).trimmed().isEmpty());
        attempts << m.captured(2).toInt();
        delays << m.captured(3).toInt();
    }
    ASSERT_GE(attempts.size(), 3);
    EXPECT_EQ(attempts.mid(0, 3), (QList<int>{1, 2, 3}));
    EXPECT_EQ(delays.mid(0, 3), (QList<int>{500, 1000, 2000}));
    EXPECT_EQ(log.count(QStringLiteral("mpv: cannot play")), 0);
    EXPECT_EQ(loaded.count(), 0);
    EXPECT_EQ(stopped.count(), 0);

    // A new source ends the retries, and plays.
    player->setMediaType(QStringLiteral("video"));
    player->setFile(EngineMedia::clip());
    const int retries = log.count(kRetryLine);
    ASSERT_TRUE(waitFor(loaded));
    QTest::qWait(5500); // longer than any pending back-off
    EXPECT_EQ(log.count(kRetryLine), retries);
    EXPECT_TRUE(prop(player, "path").endsWith(QStringLiteral("clip.mp4")));
}

TEST_F(EngineTest, StreamIsNotRetriedWhilePausedOrStopped)
{
    LogCapture log;
    AVPlayer* player = newPlayer();
    QSignalSpy stopped(player, &AVPlayer::stopped);
    player->setMediaType(QStringLiteral("networkVideo"));

    // Opened paused: the failure is reported like any bad source, once.
    player->setFile(kRefusedUrl);
    ASSERT_TRUE(waitUntil([&] { return log.count(QStringLiteral("mpv: cannot play")) >= 1; }));
    QTest::qWait(1500);
    EXPECT_EQ(log.count(QStringLiteral("mpv: cannot play")), 1);
    EXPECT_EQ(log.count(kRetryLine), 0);

    // Play reopens it, and retries follow; pausing ends them.
    player->pause(false);
    ASSERT_TRUE(waitUntil([&] { return log.count(kRetryLine) >= 1; }));
    player->pause(true);
    const int afterPause = log.count(kRetryLine);
    QTest::qWait(3000);
    EXPECT_EQ(log.count(kRetryLine), afterPause);

    // The same for stop().
    player->pause(false);
    ASSERT_TRUE(waitUntil([&] { return log.count(kRetryLine) >= afterPause + 1; }));
    player->stop();
    const int afterStop = log.count(kRetryLine);
    QTest::qWait(3000);
    EXPECT_EQ(log.count(kRetryLine), afterStop);
    EXPECT_EQ(stopped.count(), 1); // stop()'s own

    // Still usable: the next content plays.
    QSignalSpy ready(player, &AVPlayer::playReadySucess);
    player->setMediaType(QStringLiteral("video"));
    player->playReady(EngineMedia::clip(), 300, true);
    ASSERT_TRUE(waitFor(ready));
}

TEST_F(EngineTest, DroppedStreamIsReopenedAndPlaysOnWithoutStopping)
{
    const quint16 port = freePort();
    ASSERT_NE(port, 0);
    LiveServer server(port);
    ASSERT_TRUE(server.start());

    LogCapture log;
    AVPlayer* player = newPlayer();
    QSignalSpy loaded(player, &AVPlayer::loaded);
    QSignalSpy stopped(player, &AVPlayer::stopped);
    QSignalSpy positions(player, &AVPlayer::positionChanged);
    player->setMediaType(QStringLiteral("networkVideo"));
    player->setFile(server.url()); // retried if ffmpeg is not listening yet
    player->pause(false);
    const auto playedPast = [&](qint64 ms) {
        return !positions.isEmpty() && positions.last().at(0).toLongLong() > ms;
    };
    ASSERT_TRUE(waitUntil([&] { return playedPast(1000); }, 30000));
    ASSERT_GE(loaded.count(), 1);

    // The stream's low-latency options, read back from the core.
    EXPECT_EQ(prop(player, "path"), server.url());
    EXPECT_EQ(prop(player, "cache"), QStringLiteral("no"));
    EXPECT_EQ(prop(player, "cache-pause"), QStringLiteral("no"));
    EXPECT_EQ(prop(player, "demuxer-lavf-o"), QStringLiteral("fflags=+nobuffer"));
    EXPECT_EQ(prop(player, "demuxer-lavf-analyzeduration"), QStringLiteral("0.500000"));
    EXPECT_EQ(prop(player, "video-sync"), QStringLiteral("audio"));
    EXPECT_EQ(prop(player, "network-timeout"), QStringLiteral("5.000000"));
    EXPECT_EQ(prop(player, "keep-open"), QStringLiteral("no"));

    // The server goes away: the drop is reported, then each failed reopen.
    const int linesBefore = log.count(kRetryLine);
    const int loadsBefore = loaded.count();
    server.kill();
    ASSERT_TRUE(waitUntil([&] { return log.count(kRetryLine) >= linesBefore + 2; }, 30000));
    const QString dropLine = QStringLiteral("mpv: stream %1 dropped (end of stream), retry 1 in 500 ms")
                                 .arg(server.url());
    EXPECT_EQ(log.count(dropLine), 1);

    // It comes back on the same port: the stream is reopened and plays on.
    ASSERT_TRUE(server.start());
    positions.clear();
    ASSERT_TRUE(waitUntil([&] { return playedPast(1000); }, 30000));
    EXPECT_EQ(loaded.count(), loadsBefore + 1);
    EXPECT_EQ(stopped.count(), 0);
    EXPECT_EQ(player->getMediaType(), QStringLiteral("networkVideo"));

    // A second drop starts the back-off over: the reopen had succeeded.
    server.kill();
    ASSERT_TRUE(waitUntil([&] { return log.count(dropLine) >= 2; }, 30000));
    EXPECT_EQ(stopped.count(), 0);

    // Pausing ends the retries.
    player->pause(true);
    const int afterPause = log.count(kRetryLine);
    QTest::qWait(3000);
    EXPECT_EQ(log.count(kRetryLine), afterPause);
}
