// Layers chasing LTC timecode, end to end: kelmor-show reads an LTC file
// (made in the test with libltc's encoder) at real-time pace and its layers
// follow it: held on the first frame before "at", locked within a couple of
// frames, re-locked after a jump, freewheeling and then pausing when the LTC
// stops, and following again when it comes back; at 25 fps and at 29.97
// drop-frame, for a video and for a still on its timer.
//
// Limits are generous (two frames, four in five samples) because the suite
// runs on loaded machines and under AddressSanitizer; bench/ltc_chase.py
// measures how close the chase really is.
#include "test_runner_timecode_support.h"

#include <QJsonDocument>

using namespace runner_test;
using namespace timecode_test;

namespace {

TEST(TimecodeChase, LocksHoldsJumpsFreewheelsPausesAndResumesAt25Fps)
{
    const QString clip = chaseClip();
    ASSERT_FALSE(clip.isEmpty());
    const QString dir = freshWorkDir(QStringLiteral("timecode-chase-25"));
    // 4 s, a jump of 6 s, 3 s, LTC stops for 1.5 s, comes back 4 s later.
    const QString ltc = makeLtc(dir, QStringLiteral("ltc.wav"),
                                {"ltc:fps=25,start=01:00:00:00,frames=100", "ltc:fps=25,start=01:00:10:00,frames=75",
                                 "silence:ms=1500", "ltc:fps=25,start=01:00:14:00,frames=60"});
    ASSERT_FALSE(ltc.isEmpty());
    const QString show = openScreen(1, 160, 90) + chasedLayer(1, clip) + chaseStep(1, QStringLiteral("01:00:01:00"))
        + QStringLiteral("{\"op\": \"wait\", \"ms\": 11500}\n{\"op\": \"quit\"}\n");
    const ShowRun run = runShow(dir, show, {QStringLiteral("--ltc-input"), ltc});
    ASSERT_TRUE(run.finished) << run.errText.toStdString();
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.errors().isEmpty()) << QJsonDocument(run.errors().value(0)).toJson().toStdString();

    const std::vector<TcLine> tc = timecodeLines(run.lines);
    // The last frame of the file is never closed by a next one: the end is a stop.
    ASSERT_EQ(changes(tc), QStringList({"start", "jump", "stop", "start", "stop"})) << run.errText.toStdString();
    for (const TcLine& l : tc)
        EXPECT_EQ(l.fps, 25.0);
    EXPECT_TRUE(tc.front().tc.startsWith(QLatin1String("01:00:00:"))) << tc.front().tc.toStdString();

    const double atMs = labelMs(QStringLiteral("01:00:01:00"), 40.0);
    const std::vector<ChaseSample> samples = chaseSamples(run.lines, 1, atMs);
    // Before "at" the layer holds its first frame.
    for (const ChaseSample& s : samples) {
        if (s.mediaMs < -250)
            EXPECT_EQ(s.position, 0) << "played before \"at\": " << describe(samples);
    }
    int n = 0;
    EXPECT_GE(withinShare(samples, 500, 2900, 80, n), 0.8) << describe(samples);
    EXPECT_GE(n, 10);
    // The jump to 01:00:10:00 (media time 9 s) is caught within 500 ms.
    EXPECT_GE(withinShare(samples, 9500, 11900, 80, n), 0.8) << describe(samples);
    EXPECT_GE(n, 10);
    // Back at 01:00:14:00 (media time 13 s).
    EXPECT_GE(withinShare(samples, 13500, 15300, 80, n), 0.8) << describe(samples);
    EXPECT_GE(n, 8);

    // The stop: positions go on for the freewheel (10 frames from the last
    // frame heard), then the layer pauses until the LTC comes back.
    const auto stop = std::find_if(tc.begin(), tc.end(), [](const TcLine& l) { return l.change == "stop"; });
    const auto back = std::find_if(stop, tc.end(), [](const TcLine& l) { return l.change == "start"; });
    ASSERT_NE(back, tc.end());
    int freewheeling = 0;
    for (const QJsonObject& o : run.lines) {
        if (o.value(QStringLiteral("event")).toString() != QLatin1String("sPositionChanged"))
            continue;
        const double t = o.value(QStringLiteral("t")).toDouble();
        if (t > stop->t && t <= stop->t + 450)
            ++freewheeling;
        EXPECT_FALSE(t > stop->t + 700 && t < back->t) << "a position " << t - stop->t << " ms after the stop";
    }
    EXPECT_GE(freewheeling, 1) << "the layer paused at once instead of freewheeling";
}

TEST(TimecodeChase, DropFrameTimecodeDrivesAVideoAndAStillAcrossTheMinute)
{
    const QString clip = chaseClip();
    ASSERT_FALSE(clip.isEmpty());
    ASSERT_FALSE(mediaDir().isEmpty());
    const QString dir = freshWorkDir(QStringLiteral("timecode-chase-2997"));
    // 5 s of 29.97 drop-frame LTC across 00:01:00;02 (two labels left out).
    const QString ltc = makeLtc(dir, QStringLiteral("ltc.wav"), {"ltc:fps=29.97,start=00:00:58;00,frames=150"});
    ASSERT_FALSE(ltc.isEmpty());
    const QString show = openScreen(1, 160, 90) + chasedLayer(1, clip)
        + chasedLayer(2, QStringLiteral("${media}/still-a.png"), QStringLiteral("picture"), 20000)
        + chaseStep(1, QStringLiteral("00:00:58;15")) + chaseStep(2, QStringLiteral("00:00:58;15"))
        + QStringLiteral("{\"op\": \"wait\", \"ms\": 5500}\n{\"op\": \"quit\"}\n");
    const ShowRun run = runShow(dir, show, {QStringLiteral("--ltc-input"), ltc});
    ASSERT_TRUE(run.finished) << run.errText.toStdString();
    EXPECT_TRUE(run.errors().isEmpty()) << QJsonDocument(run.errors().value(0)).toJson().toStdString();

    const std::vector<TcLine> tc = timecodeLines(run.lines);
    ASSERT_EQ(changes(tc), QStringList({"start", "stop"})) << run.errText.toStdString();
    for (const TcLine& l : tc) {
        EXPECT_EQ(l.fps, 29.97);
        EXPECT_EQ(l.tc.mid(8, 1), QStringLiteral(";")) << l.tc.toStdString();
    }
    EXPECT_TRUE(std::any_of(tc.begin(), tc.end(), [](const TcLine& l) { return l.tc.startsWith("00:01:0"); }));

    // Frame 58;15 counted at 30000/1001 frames a second.
    const double atMs = (58 * 30 + 15) * 1001.0 / 30.0;
    int n = 0;
    const std::vector<ChaseSample> video = chaseSamples(run.lines, 1, atMs);
    EXPECT_GE(withinShare(video, 800, 4000, 67, n), 0.8) << describe(video);
    EXPECT_GE(n, 10);
    // The still's position is its timer's count, reported every 100 ms.
    const std::vector<ChaseSample> still = chaseSamples(run.lines, 2, atMs);
    EXPECT_GE(withinShare(still, 800, 4000, 150, n), 0.8) << describe(still);
    EXPECT_GE(n, 10);
}

} // namespace
