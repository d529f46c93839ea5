// The screen recorder: files ffprobe/ffmpeg read back with the right size,
// frame count, codec, container and colours; the constant frame rate built
// from timestamped pictures; refusals of bad input.
#include "gl/ScreenRecorder.h"

#include <QColor>
#include <QDir>
#include <QFile>
#include <QMap>
#include <QPainter>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <mutex>

using kelmor::gl::ScreenRecorder;

namespace {

constexpr int kTolerance = 12; // colour levels lost to yuv420p and the codec

QByteArray runTool(const QString& program, const QStringList& args)
{
    const QString exe = QStandardPaths::findExecutable(program);
    EXPECT_FALSE(exe.isEmpty()) << program.toStdString() << " is not installed";
    QProcess process;
    process.start(exe, args);
    process.waitForFinished(60000);
    EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    return process.readAllStandardOutput();
}

// key=value lines of ffprobe's default writer without section wrappers.
QMap<QString, QString> probe(const QString& file, const QString& entries)
{
    QMap<QString, QString> values;
    const QByteArray out = runTool("ffprobe", {"-v", "error", "-select_streams", "v:0", "-count_frames",
                                               "-show_entries", entries, "-of", "default=nw=1", file});
    for (const QByteArray& line : out.split('\n')) {
        const int eq = line.indexOf('=');
        if (eq > 0)
            values.insert(QString::fromUtf8(line.left(eq)), QString::fromUtf8(line.mid(eq + 1)).trimmed());
    }
    return values;
}

QMap<QString, QString> probeStream(const QString& file)
{
    return probe(file, "stream=width,height,nb_read_frames,codec_name");
}

// RGB of pixel (x, y) of one decoded frame, picked by options before the input
// (a seek) or after it (a select filter).
QColor decodedPixel(const QString& file, const QStringList& beforeInput, const QStringList& afterInput,
                    QSize size, int x, int y)
{
    const QStringList args = QStringList{"-v", "error"} + beforeInput + QStringList{"-i", file} + afterInput
        + QStringList{"-frames:v", "1", "-f", "rawvideo", "-pix_fmt", "rgb24", "-"};
    const QByteArray rgb = runTool("ffmpeg", args);
    const int at = (y * size.width() + x) * 3;
    if (rgb.size() != size.width() * size.height() * 3 || at + 2 >= rgb.size()) {
        ADD_FAILURE() << "decoded " << rgb.size() << " bytes";
        return {};
    }
    return QColor(quint8(rgb[at]), quint8(rgb[at + 1]), quint8(rgb[at + 2]));
}

QColor frameColour(const QString& file, int frame, QSize size = {320, 180}, int x = 160, int y = 90)
{
    return decodedPixel(file, {}, {"-vf", QString("select=eq(n\\,%1)").arg(frame), "-fps_mode", "passthrough"},
                        size, x, y);
}

QColor colourAtSecond(const QString& file, double seconds)
{
    return decodedPixel(file, {"-ss", QString::number(seconds)}, {}, {320, 180}, 160, 90);
}

void expectColour(const QColor& got, const QColor& want, const char* what)
{
    EXPECT_NEAR(got.red(), want.red(), kTolerance) << what;
    EXPECT_NEAR(got.green(), want.green(), kTolerance) << what;
    EXPECT_NEAR(got.blue(), want.blue(), kTolerance) << what;
}

QImage solid(QSize size, const QColor& colour, QImage::Format format = QImage::Format_RGBA8888)
{
    QImage picture(size, format);
    picture.fill(colour);
    return picture;
}

// The tests push pictures far faster than real time; a queue deep enough for
// all of them keeps the encoder from dropping any, so the content is exact.
void keepEveryPicture(ScreenRecorder& recorder)
{
    recorder.setQueueCapacity(ScreenRecorder::kMaxQueueCapacity);
    ASSERT_EQ(recorder.queueCapacity(), ScreenRecorder::kMaxQueueCapacity);
}

const QColor kRed(200, 40, 40);
const QColor kTeal(40, 180, 220);
const QColor kGreen(40, 180, 60);

// Captures debug lines so refusals can be checked for their reason.
std::mutex g_messagesMutex; // the encoder thread may log too
QStringList g_messages;
void captureMessage(QtMsgType, const QMessageLogContext&, const QString& text)
{
    std::lock_guard<std::mutex> lock(g_messagesMutex);
    g_messages << text;
}
struct MessageCapture {
    QtMessageHandler previous = qInstallMessageHandler(captureMessage);
    MessageCapture()
    {
        std::lock_guard<std::mutex> lock(g_messagesMutex);
        g_messages.clear();
    }
    ~MessageCapture() { qInstallMessageHandler(previous); }
    int count(const QString& part) const
    {
        std::lock_guard<std::mutex> lock(g_messagesMutex);
        return g_messages.filter(part).size();
    }
};

TEST(ScreenRecorder, RecordsFortyFiveFramesThatFfprobeReadsBack)
{
    QTemporaryDir dir;
    const QString file = dir.filePath("show.mp4");
    ScreenRecorder recorder;
    keepEveryPicture(recorder);
    ASSERT_TRUE(recorder.start(file, {320, 180}, 30));
    EXPECT_TRUE(recorder.isRecording());
    EXPECT_EQ(recorder.path(), file);
    EXPECT_EQ(recorder.size(), QSize(320, 180));
    EXPECT_EQ(recorder.codecName(), "libx264");
    for (int i = 0; i < 45; ++i)
        recorder.pushFrame(solid({320, 180}, i < 22 ? kRed : kTeal), i * 1000 / 30);
    EXPECT_EQ(recorder.stop(), 45);
    EXPECT_FALSE(recorder.isRecording());

    const auto stream = probeStream(file);
    EXPECT_EQ(stream.value("codec_name"), "h264");
    EXPECT_EQ(stream.value("width"), "320");
    EXPECT_EQ(stream.value("height"), "180");
    EXPECT_EQ(stream.value("nb_read_frames"), "45");
    EXPECT_EQ(probe(file, "format=duration").value("duration"), "1.500000");
    expectColour(colourAtSecond(file, 0.2), kRed, "first half");
    expectColour(colourAtSecond(file, 1.2), kTeal, "second half");
}

TEST(ScreenRecorder, RepeatsSlowPicturesToKeepTheFrameRate)
{
    QTemporaryDir dir;
    const QString file = dir.filePath("slow.mkv");
    ScreenRecorder recorder;
    keepEveryPicture(recorder);
    ASSERT_TRUE(recorder.start(file, {320, 180}, 30));
    for (int i = 0; i <= 10; ++i) // 10 pictures a second, alternating colours
        recorder.pushFrame(solid({320, 180}, i % 2 ? kTeal : kRed), i * 100);
    EXPECT_EQ(recorder.stop(), 31); // frames 0..30 cover 0..1000 ms
    EXPECT_EQ(probeStream(file).value("nb_read_frames"), "31");
    expectColour(frameColour(file, 2), kRed, "frame 2 (66.7 ms) shows picture 0");
    expectColour(frameColour(file, 3), kTeal, "frame 3 (100 ms) shows picture 1");
    expectColour(frameColour(file, 29), kTeal, "frame 29 (966.7 ms) shows picture 9");
    expectColour(frameColour(file, 30), kRed, "frame 30 (1000 ms) shows picture 10");
}

TEST(ScreenRecorder, RoundedMillisecondTimestampsLandOnTheirOwnFrame)
{
    QTemporaryDir dir;
    const QString file = dir.filePath("rounded.mkv");
    ScreenRecorder recorder;
    keepEveryPicture(recorder);
    ASSERT_TRUE(recorder.start(file, {320, 180}, 30));
    for (int i = 0; i < 12; ++i) // 0, 33, 67, 100, 133, 167 ...: some a fraction of a ms late
        recorder.pushFrame(solid({320, 180}, i % 2 ? kTeal : kRed), qRound(i * 1000.0 / 30));
    EXPECT_EQ(recorder.stop(), 12);
    EXPECT_EQ(probeStream(file).value("nb_read_frames"), "12");
    expectColour(frameColour(file, 1), kTeal, "frame 1 shows picture 1 (33 ms)");
    expectColour(frameColour(file, 2), kRed, "frame 2 shows picture 2 (67 ms)");
    expectColour(frameColour(file, 5), kTeal, "frame 5 shows picture 5 (167 ms)");
    expectColour(frameColour(file, 11), kTeal, "frame 11 shows picture 11 (367 ms)");
}

TEST(ScreenRecorder, DropsPicturesFasterThanTheFrameRate)
{
    QTemporaryDir dir;
    const QString file = dir.filePath("fast.mkv");
    ScreenRecorder recorder;
    keepEveryPicture(recorder);
    ASSERT_TRUE(recorder.start(file, {320, 180}, 30));
    for (int i = 0; i < 60; ++i) // 60 pictures a second; the colour changes at picture 31 (516 ms)
        recorder.pushFrame(solid({320, 180}, i <= 30 ? kRed : kTeal), i * 1000 / 60);
    EXPECT_EQ(recorder.stop(), 30); // the last picture is at 983 ms: frames 0..29
    EXPECT_EQ(probeStream(file).value("nb_read_frames"), "30");
    expectColour(frameColour(file, 15), kRed, "frame 15 (500 ms) shows picture 30");
    expectColour(frameColour(file, 16), kTeal, "frame 16 (533 ms) shows picture 32");
}

TEST(ScreenRecorder, FrameCountFollowsTimestampsWhenTheQueueOverflows)
{
    QTemporaryDir dir;
    const QString file = dir.filePath("burst.mkv");
    ScreenRecorder recorder;
    recorder.setQueueCapacity(2);
    ASSERT_TRUE(recorder.start(file, {1280, 720}, 30));
    const QImage picture = solid({1280, 720}, kGreen);
    for (int i = 0; i < 150; ++i) // far faster than the encoder: the queue overflows
        // dropped pictures are stood in for by the newest earlier one
        recorder.pushFrame(picture.copy(), i * 1000 / 30);
    EXPECT_EQ(recorder.stop(), 150);
    const auto stream = probeStream(file);
    EXPECT_EQ(stream.value("nb_read_frames"), "150");
    expectColour(frameColour(file, 149, {1280, 720}, 640, 360), kGreen, "last frame");
}

TEST(ScreenRecorder, StartRefusesBadArgumentsWithAReason)
{
    QTemporaryDir dir;
    MessageCapture messages;
    ScreenRecorder recorder;
    EXPECT_FALSE(recorder.start(dir.filePath("a.mp4"), {0, 0}, 30));
    EXPECT_FALSE(recorder.start(dir.filePath("a.mp4"), {-320, 180}, 30));
    EXPECT_FALSE(recorder.start(dir.filePath("a.mp4"), {1, 180}, 30));
    EXPECT_EQ(messages.count("ScreenRecorder::start: bad size"), 3);
    EXPECT_FALSE(recorder.start(dir.filePath("a.mp4"), {320, 180}, 0));
    EXPECT_FALSE(recorder.start(dir.filePath("a.mp4"), {320, 180}, 241));
    EXPECT_EQ(messages.count("ScreenRecorder::start: bad fps"), 2);
    EXPECT_FALSE(recorder.start(dir.filePath("missing/dir/a.mp4"), {320, 180}, 30));
    EXPECT_EQ(messages.count("ScreenRecorder::start: cannot create file"), 1);
    EXPECT_FALSE(recorder.start(QString(), {320, 180}, 30));
    EXPECT_EQ(messages.count("ScreenRecorder::start: empty path"), 1);
    EXPECT_FALSE(recorder.isRecording());
    EXPECT_TRUE(QDir(dir.path()).entryList(QDir::Files | QDir::NoDotAndDotDot).isEmpty());
    EXPECT_EQ(recorder.stop(), 0);
}

TEST(ScreenRecorder, QueueCapacityChangesOnlyInRangeAndWhileIdle)
{
    QTemporaryDir dir;
    MessageCapture messages;
    ScreenRecorder recorder;
    EXPECT_EQ(recorder.queueCapacity(), ScreenRecorder::kDefaultQueueCapacity);
    recorder.setQueueCapacity(0);
    recorder.setQueueCapacity(ScreenRecorder::kMaxQueueCapacity + 1);
    EXPECT_EQ(messages.count("ScreenRecorder::setQueueCapacity:"), 2);
    EXPECT_EQ(recorder.queueCapacity(), ScreenRecorder::kDefaultQueueCapacity);
    recorder.setQueueCapacity(3);
    EXPECT_EQ(recorder.queueCapacity(), 3);
    ASSERT_TRUE(recorder.start(dir.filePath("capacity.mkv"), {320, 180}, 30));
    recorder.setQueueCapacity(20);
    EXPECT_EQ(messages.count("ScreenRecorder::setQueueCapacity: 20 while recording"), 1);
    EXPECT_EQ(recorder.queueCapacity(), 3);
    EXPECT_EQ(recorder.stop(), 0); // no picture, no frame
}

TEST(ScreenRecorder, StopWithoutStartReturnsZeroAndSecondStopToo)
{
    QTemporaryDir dir;
    ScreenRecorder idle;
    EXPECT_EQ(idle.stop(), 0);
    EXPECT_EQ(idle.stop(), 0);
    idle.pushFrame(solid({320, 180}, kRed), 0); // not recording: ignored

    ScreenRecorder recorder;
    ASSERT_TRUE(recorder.start(dir.filePath("twice.mkv"), {320, 180}, 30));
    recorder.pushFrame(solid({320, 180}, kRed), 0);
    EXPECT_EQ(recorder.stop(), 1);
    EXPECT_EQ(recorder.stop(), 0);
}

TEST(ScreenRecorder, SecondStartIsRefusedAndTheFirstRecordingGoesOn)
{
    QTemporaryDir dir;
    MessageCapture messages;
    ScreenRecorder recorder;
    ASSERT_TRUE(recorder.start(dir.filePath("first.mkv"), {320, 180}, 30));
    EXPECT_FALSE(recorder.start(dir.filePath("second.mkv"), {640, 360}, 25));
    EXPECT_EQ(messages.count("ScreenRecorder::start: already recording"), 1);
    EXPECT_EQ(recorder.path(), dir.filePath("first.mkv"));
    for (int i = 0; i < 6; ++i)
        recorder.pushFrame(solid({320, 180}, kRed), i * 1000 / 30);
    EXPECT_EQ(recorder.stop(), 6);
    EXPECT_FALSE(QFile::exists(dir.filePath("second.mkv")));
    EXPECT_EQ(probeStream(dir.filePath("first.mkv")).value("nb_read_frames"), "6");

    // and after stop a new recording starts
    ASSERT_TRUE(recorder.start(dir.filePath("again.mkv"), {320, 180}, 30));
    recorder.pushFrame(solid({320, 180}, kRed), 0);
    EXPECT_EQ(recorder.stop(), 1);
}

TEST(ScreenRecorder, NullPicturesAndBadTimestampsAreIgnored)
{
    QTemporaryDir dir;
    const QString file = dir.filePath("ignored.mkv");
    MessageCapture messages;
    ScreenRecorder recorder;
    ASSERT_TRUE(recorder.start(file, {320, 180}, 30));
    recorder.pushFrame(QImage(), 0);
    EXPECT_EQ(messages.count("ScreenRecorder::pushFrame: null picture"), 1);
    for (int i = 0; i < 10; ++i) {
        recorder.pushFrame(solid({320, 180}, kRed), i * 1000 / 30);
        recorder.pushFrame(QImage(), i * 1000 / 30);
        recorder.pushFrame(solid({320, 180}, kTeal), -1);
        recorder.pushFrame(solid({320, 180}, kTeal), ScreenRecorder::kMaxMsec + 1);
    }
    EXPECT_EQ(recorder.stop(), 10);
    EXPECT_EQ(probeStream(file).value("nb_read_frames"), "10");
    expectColour(frameColour(file, 9), kRed, "only the valid pictures were recorded");
}

TEST(ScreenRecorder, OddSizeIsCroppedToEvenAndStaysReadable)
{
    QTemporaryDir dir;
    const QString file = dir.filePath("odd.mp4");
    ScreenRecorder recorder;
    keepEveryPicture(recorder);
    ASSERT_TRUE(recorder.start(file, {321, 181}, 30));
    EXPECT_EQ(recorder.size(), QSize(321, 181));
    for (int i = 0; i < 30; ++i)
        recorder.pushFrame(solid({321, 181}, kTeal), i * 1000 / 30);
    EXPECT_EQ(recorder.stop(), 30);
    const auto stream = probeStream(file);
    EXPECT_EQ(stream.value("width"), "320");
    EXPECT_EQ(stream.value("height"), "180");
    EXPECT_EQ(stream.value("nb_read_frames"), "30");
    expectColour(frameColour(file, 20), kTeal, "odd-size picture");
}

TEST(ScreenRecorder, PictureOfAnotherSizeIsScaledNotCropped)
{
    QTemporaryDir dir;
    const QString file = dir.filePath("scaled.mkv");
    ScreenRecorder recorder;
    keepEveryPicture(recorder);
    ASSERT_TRUE(recorder.start(file, {320, 180}, 30));
    QImage large = solid({640, 360}, kRed); // left half red, right half teal
    QPainter(&large).fillRect(320, 0, 320, 360, kTeal);
    QImage small = solid({100, 50}, kGreen);
    for (int i = 0; i < 10; ++i)
        recorder.pushFrame(i < 5 ? large : small, i * 1000 / 30);
    EXPECT_EQ(recorder.stop(), 10);
    EXPECT_EQ(probeStream(file).value("width"), "320");
    expectColour(frameColour(file, 2, {320, 180}, 80, 90), kRed, "left half of the large picture");
    expectColour(frameColour(file, 2, {320, 180}, 240, 90), kTeal, "right half of the large picture");
    expectColour(frameColour(file, 8, {320, 180}, 300, 170), kGreen, "small picture fills the frame");
}

TEST(ScreenRecorder, ContainerFollowsTheExtension)
{
    QTemporaryDir dir;
    const struct {
        const char* name;
        const char* format;
        const char* brand;
    } cases[] = {{"a.mp4", "mov,mp4,m4a,3gp,3g2,mj2", "isom"},
                 {"a.mov", "mov,mp4,m4a,3gp,3g2,mj2", "qt"},
                 {"a.mkv", "matroska,webm", ""},
                 {"a.avi", "avi", ""},
                 {"a.video", "matroska,webm", ""}};
    for (const auto& c : cases) {
        const QString file = dir.filePath(c.name);
        ScreenRecorder recorder;
        ASSERT_TRUE(recorder.start(file, {320, 180}, 25)) << c.name;
        for (int i = 0; i < 5; ++i)
            recorder.pushFrame(solid({320, 180}, kGreen), i * 40);
        EXPECT_EQ(recorder.stop(), 5) << c.name;
        const auto format = probe(file, "format=format_name:format_tags=major_brand");
        EXPECT_EQ(format.value("format_name"), c.format) << c.name;
        EXPECT_EQ(format.value("TAG:major_brand"), c.brand) << c.name;
        EXPECT_EQ(probeStream(file).value("nb_read_frames"), "5") << c.name;
    }
}

TEST(ScreenRecorder, UsesMpeg4WhenH264IsNotAllowed)
{
    QTemporaryDir dir;
    const QString file = dir.filePath("part2.avi");
    ScreenRecorder recorder;
    keepEveryPicture(recorder);
    recorder.setH264Allowed(false);
    ASSERT_TRUE(recorder.start(file, {320, 180}, 30));
    EXPECT_EQ(recorder.codecName(), "mpeg4");
    for (int i = 0; i < 20; ++i)
        recorder.pushFrame(solid({320, 180}, i < 10 ? kRed : kTeal), i * 1000 / 30);
    EXPECT_EQ(recorder.stop(), 20);
    const auto stream = probeStream(file);
    EXPECT_EQ(stream.value("codec_name"), "mpeg4");
    EXPECT_EQ(stream.value("nb_read_frames"), "20");
    expectColour(frameColour(file, 5), kRed, "mpeg4 first half");
    expectColour(frameColour(file, 15), kTeal, "mpeg4 second half");
}

TEST(ScreenRecorder, AcceptsRgbaRgb32Argb32AndConvertsOtherFormats)
{
    QTemporaryDir dir;
    const QString file = dir.filePath("formats.mkv");
    ScreenRecorder recorder;
    keepEveryPicture(recorder);
    ASSERT_TRUE(recorder.start(file, {320, 180}, 30));
    const QColor blue(50, 60, 210);
    const QColor grey(128, 128, 128);
    const QImage pictures[] = {solid({320, 180}, kRed, QImage::Format_RGBA8888),
                               solid({320, 180}, kGreen, QImage::Format_RGB32),
                               solid({320, 180}, blue, QImage::Format_ARGB32),
                               solid({320, 180}, grey, QImage::Format_Grayscale8)};
    for (int i = 0; i < 40; ++i)
        recorder.pushFrame(pictures[i / 10], i * 1000 / 30);
    EXPECT_EQ(recorder.stop(), 40);
    expectColour(frameColour(file, 5), kRed, "RGBA8888");
    expectColour(frameColour(file, 15), kGreen, "RGB32");
    expectColour(frameColour(file, 25), blue, "ARGB32");
    expectColour(frameColour(file, 35), grey, "Grayscale8");
}

TEST(ScreenRecorder, DestructorFinishesARunningRecording)
{
    QTemporaryDir dir;
    const QString file = dir.filePath("dropped.mp4");
    {
        ScreenRecorder recorder;
        ASSERT_TRUE(recorder.start(file, {320, 180}, 30));
        for (int i = 0; i < 12; ++i)
            recorder.pushFrame(solid({320, 180}, kTeal), i * 1000 / 30);
    }
    EXPECT_EQ(probeStream(file).value("nb_read_frames"), "12");
}

} // namespace
