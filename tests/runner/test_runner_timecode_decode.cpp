// The runner's LTC chain without a process: audio made by libltc's encoder
// (the project's LTC maker) decoded by the runner's decoder stage, with the
// time of each sample known exactly, and judged by its timecode tracker.
// Labels and their drop-frame counts are checked on their own as well.
#include "LtcFileMaker.h"
#include "timecode/LtcDecoderStage.h"
#include "timecode/SampleClock.h"
#include "timecode/Timecode.h"
#include "timecode/TimecodeTracker.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace {

using timecode::Label;
using timecode::Rate;

constexpr int kRate = 48000;

/// What the tracker made of a plan, change by change.
struct Heard
{
    struct Event
    {
        double atMs;       // when (the sample time of the reading)
        std::string what;  // "start", "jump", "stop"
        std::string tc;    // the label at the reading's start
        Rate rate;
    };
    std::vector<Event> events;
    int refused = 0;
    int frames = 0;
    std::vector<std::int64_t> segmentStarts; // samples
    TimecodeTracker tracker;

    double segmentMs(size_t i) const { return segmentStarts.at(i) * 1000.0 / kRate; }
};

ltcfile::Segment segment(const std::string& text)
{
    ltcfile::Segment s;
    std::string error;
    EXPECT_TRUE(ltcfile::parseSegment(text, s, error)) << text << ": " << error;
    return s;
}

/// Renders the segments and runs them through the decoder and the tracker,
/// 10 ms at a time, as the reader thread does; sample 0 is heard at time 0.
Heard hear(const std::vector<std::string>& segments)
{
    ltcfile::Plan plan;
    plan.sampleRate = kRate;
    for (const std::string& s : segments)
        plan.segments.push_back(segment(s));
    Heard heard;
    const std::vector<std::uint8_t> audio = ltcfile::render(plan, &heard.segmentStarts);
    std::vector<float> samples(audio.size());
    for (size_t i = 0; i < audio.size(); ++i)
        samples[i] = (static_cast<float>(audio[i]) - 128.0f) / 128.0f;

    SampleClock clock;
    clock.startPaced(0, kRate);
    LtcDecoderStage stage(kRate);
    std::vector<LtcReading> readings;
    const size_t slice = kRate / 100;
    for (size_t at = 0; at < samples.size(); at += slice) {
        stage.feed(samples.data() + at, std::min(slice, samples.size() - at), clock, readings);
        for (const LtcReading& r : readings) {
            if (r.kind == LtcReading::Kind::Frame)
                ++heard.frames;
            const TimecodeTracker::Change c = heard.tracker.feed(r);
            heard.refused += c.refused ? 1 : 0;
            const char* what = c.started ? "start" : c.jumped ? "jump" : c.stopped ? "stop" : nullptr;
            if (what) {
                const Rate rate = heard.tracker.rate();
                heard.events.push_back({r.startNs / 1e6, what,
                                        timecode::format(heard.tracker.labelAt(r.startNs), rate).toStdString(),
                                        rate});
            }
        }
        readings.clear();
    }
    return heard;
}

std::string describe(const Heard& h)
{
    std::string out;
    for (const Heard::Event& e : h.events)
        out += e.what + " " + e.tc + " at " + std::to_string(static_cast<int>(e.atMs)) + " ms; ";
    return out + std::to_string(h.frames) + " frames, " + std::to_string(h.refused) + " refused";
}

TEST(TimecodeLabels, DropFrameCountsRoundTripOverAWholeDay)
{
    const Rate rate = Rate::Fps2997Drop;
    ASSERT_EQ(timecode::framesPerDay(rate), 2589408);
    for (qint64 count = 0; count < timecode::framesPerDay(rate); ++count) {
        const Label l = timecode::fromCount(count, rate);
        ASSERT_TRUE(timecode::isValid(l, rate)) << count;
        ASSERT_EQ(timecode::toCount(l, rate), count) << timecode::format(l, rate).toStdString();
    }
    // The labels left out: frames 0 and 1 of minutes not divisible by ten.
    EXPECT_FALSE(timecode::isValid(Label{0, 1, 0, 0}, rate));
    EXPECT_FALSE(timecode::isValid(Label{0, 1, 0, 1}, rate));
    EXPECT_TRUE(timecode::isValid(Label{0, 10, 0, 0}, rate));
    EXPECT_EQ(timecode::format(timecode::fromCount(1800, rate), rate), QStringLiteral("00:01:00;02"));
    // An hour of drop-frame labels is an hour of real time, to 3.6 ms.
    const double hourNs = timecode::countToNs(timecode::toCount(Label{1, 0, 0, 0}, rate), rate);
    EXPECT_NEAR(hourNs / 1e6, 3600000.0, 3.7);
}

TEST(TimecodeLabels, ParseAcceptsLabelsAndRefusesTheRest)
{
    Label l;
    QString problem;
    ASSERT_TRUE(timecode::parse(QStringLiteral("01:00:10:05"), l, problem));
    EXPECT_EQ(timecode::toCount(l, Rate::Fps25), (3600 + 10) * 25 + 5);
    EXPECT_TRUE(timecode::parse(QStringLiteral("00:59:59;29"), l, problem));
    for (const char* bad : {"1:00:10:05", "01:00:10", "24:00:00:00", "01:60:00:00", "01:00:00:30",
                            "01:00:10:05 ", "", "aa:bb:cc:dd", "01:00:10:05:00"}) {
        EXPECT_FALSE(timecode::parse(QString::fromLatin1(bad), l, problem)) << bad;
        EXPECT_FALSE(problem.isEmpty());
    }
}

TEST(TimecodeDecode, EachRateIsDetectedAndLockedOnTheSecondFrame)
{
    struct Case
    {
        const char* fps;
        Rate rate;
        const char* start;
        const char* second; // the label heard when the lock starts
    };
    const Case cases[] = {
        {"24", Rate::Fps24, "10:00:00:00", "10:00:00:01"},
        {"25", Rate::Fps25, "01:00:00:00", "01:00:00:01"},
        {"29.97", Rate::Fps2997Drop, "00:00:59;28", "00:00:59;29"},
        {"30", Rate::Fps30, "10:00:00:00", "10:00:00:01"},
    };
    for (const Case& c : cases) {
        const Heard h = hear({std::string("ltc:fps=") + c.fps + ",start=" + c.start + ",frames=60"});
        ASSERT_FALSE(h.events.empty()) << c.fps << ": " << describe(h);
        EXPECT_EQ(h.events[0].what, "start") << c.fps;
        EXPECT_EQ(h.events[0].rate, c.rate) << c.fps << ": " << describe(h);
        EXPECT_EQ(h.events[0].tc, c.second) << c.fps << ": " << describe(h);
        EXPECT_EQ(h.refused, 0) << c.fps << ": " << describe(h);
        // The clock it keeps: the frame started exactly one frame in.
        const double frameMs = 1000.0 / timecode::realFps(c.rate);
        EXPECT_NEAR(h.events[0].atMs, frameMs, 1.0) << c.fps;
    }
}

TEST(TimecodeDecode, DropFrameLabelsRunAcrossTheMinuteWithoutAJump)
{
    const Heard h = hear({"ltc:fps=29.97,start=00:00:59;00,frames=90"});
    ASSERT_EQ(h.events.size(), 1u) << describe(h);
    EXPECT_EQ(h.events[0].rate, Rate::Fps2997Drop);
    EXPECT_EQ(h.refused, 0) << describe(h);
    EXPECT_TRUE(h.tracker.running());
}

TEST(TimecodeDecode, AJumpReLocksOnItsSecondFrameAndAStopIsHeard)
{
    const Heard h = hear({"ltc:fps=25,start=01:00:00:00,frames=50", "ltc:fps=25,start=01:00:20:00,frames=50",
                          "silence:ms=500"});
    ASSERT_EQ(h.events.size(), 3u) << describe(h);
    EXPECT_EQ(h.events[1].what, "jump");
    EXPECT_EQ(h.events[1].tc, "01:00:20:01");
    // Known at the end of the new place's second frame, read when its
    // sync word is complete: 2 frames and a 10 ms slice after the jump.
    EXPECT_NEAR(h.events[1].atMs, h.segmentMs(1) + 40.0, 1.0);
    EXPECT_EQ(h.events[2].what, "stop");
    EXPECT_LE(h.refused, 1) << describe(h);
}

TEST(TimecodeDecode, OneStrayFrameMovesNothing)
{
    // A single frame from elsewhere in the middle of running LTC.
    const Heard h = hear({"ltc:fps=25,start=01:00:00:00,frames=25", "ltc:fps=25,start=05:00:00:00,frames=1",
                          "ltc:fps=25,start=01:00:01:01,frames=25"});
    ASSERT_EQ(h.events.size(), 1u) << describe(h);
    EXPECT_EQ(h.events[0].what, "start");
    EXPECT_GE(h.refused, 1) << describe(h);
    EXPECT_TRUE(h.tracker.running());
    // The last frame heard is the one before the last written (the end of
    // the last word is never closed by a next one).
    EXPECT_EQ(timecode::format(h.tracker.labelAt(h.tracker.anchorStartNs()), Rate::Fps25),
              QStringLiteral("01:00:01:24"));
}

TEST(TimecodeDecode, ReversedWrongRateAndNoiseNeverLock)
{
    for (const char* plan : {"ltc:fps=25,start=01:00:10:00,frames=60,reverse=1",
                             "ltc:fps=25,start=01:00:10:00,frames=60,speed=1.1",
                             "ltc:fps=30,start=01:00:10:00,frames=60,speed=0.9", "noise:ms=2000,level=0.8"}) {
        const Heard h = hear({plan});
        EXPECT_TRUE(h.events.empty()) << plan << ": " << describe(h);
        EXPECT_FALSE(h.tracker.everLocked()) << plan;
    }
}

TEST(TimecodeDecode, ARateChangeAfterOddLtcLocksAgain)
{
    const Heard h = hear({"noise:ms=500", "ltc:fps=25,start=01:00:10:00,frames=30,reverse=1",
                          "ltc:fps=25,start=02:00:00:00,frames=30,speed=1.1",
                          "ltc:fps=24,start=10:00:00:00,frames=30"});
    ASSERT_EQ(h.events.size(), 1u) << describe(h);
    EXPECT_EQ(h.events[0].rate, Rate::Fps24) << describe(h);
}

TEST(TimecodeDecode, NoisyLtcStillLocksAndRunsWithoutJumps)
{
    const Heard h = hear({"ltc:fps=25,start=01:00:00:00,frames=100,noise=0.3"});
    ASSERT_FALSE(h.events.empty()) << describe(h);
    EXPECT_EQ(h.events[0].what, "start");
    for (const Heard::Event& e : h.events)
        EXPECT_NE(e.what, "jump") << describe(h);
}

} // namespace
