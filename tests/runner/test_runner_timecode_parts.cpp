// The parts of the runner's timecode input that the decoding tests do not
// reach: the bounded hand-over to the GUI thread, the time of a live
// input's samples, and a lock that is lost for want of frames.
#include "timecode/LtcQueue.h"
#include "timecode/SampleClock.h"
#include "timecode/TimecodeTracker.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

LtcReading frameAt(int seconds, int frames, qint64 startNs)
{
    LtcReading r;
    r.hours = 1;
    r.seconds = seconds;
    r.frames = frames;
    r.startNs = startNs;
    r.lengthNs = 40'000'000;
    return r;
}

TEST(TimecodeQueue, AFullQueueDropsTheOldestAndCountsThem)
{
    LtcQueue queue;
    EXPECT_TRUE(queue.push(frameAt(0, 0, 0)));  // was empty: wake the GUI thread
    EXPECT_FALSE(queue.push(frameAt(0, 1, 0))); // already waiting
    for (int i = 2; i < 100; ++i)
        queue.push(frameAt(i / 25, i % 25, 0));
    std::vector<LtcReading> out;
    quint64 dropped = 0;
    queue.takeAll(out, dropped);
    ASSERT_EQ(out.size(), LtcQueue::kCapacity);
    EXPECT_EQ(dropped, 100 - LtcQueue::kCapacity);
    EXPECT_EQ(out.back().seconds * 25 + out.back().frames, 99); // the newest are kept
    queue.takeAll(out, dropped);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(dropped, 0u);
    EXPECT_TRUE(queue.push(frameAt(0, 0, 0)));
}

TEST(TimecodeQueue, TwoThreadsLoseNothingBelowTheCapacity)
{
    LtcQueue queue;
    std::thread writer([&] {
        for (int i = 0; i < 20000; ++i) {
            queue.push(frameAt(0, 0, i));
            if (i % 32 == 0)
                std::this_thread::yield();
        }
    });
    qint64 seen = 0;
    quint64 droppedTotal = 0;
    std::vector<LtcReading> out;
    while (seen + static_cast<qint64>(droppedTotal) < 20000) {
        quint64 dropped = 0;
        queue.takeAll(out, dropped);
        seen += static_cast<qint64>(out.size());
        droppedTotal += dropped;
    }
    writer.join();
    EXPECT_EQ(seen + static_cast<qint64>(droppedTotal), 20000);
}

TEST(TimecodeSampleClock, PacedIsExactAndLiveTakesTheEarliestArrival)
{
    SampleClock paced;
    paced.startPaced(1'000'000'000, 48000);
    EXPECT_EQ(paced.timeOf(48000), 2'000'000'000);
    EXPECT_EQ(paced.timeOf(480), 1'010'000'000);

    // Blocks of 10 ms arrive late by 5 to 25 ms (device buffering, a
    // loaded machine): the start is taken from the least late.
    SampleClock live;
    live.startLive(48000);
    const qint64 t0 = 5'000'000'000;
    const qint64 lateness[] = {25, 12, 5, 18, 9, 22, 5, 7};
    for (int i = 0; i < 8; ++i) {
        const qint64 end = (i + 1) * 480;
        live.observe(end, t0 + (i + 1) * 10'000'000 + lateness[i] * 1'000'000);
    }
    EXPECT_NEAR(static_cast<double>(live.timeOf(0) - t0), 5e6, 0.1e6);
    EXPECT_NEAR(static_cast<double>(live.timeOf(48000) - live.timeOf(0)), 1e9, 1.0);
}

TEST(TimecodeTrackerLoss, NoFrameFor300msStopsTheTimecodeAndItStartsAgainOnTwo)
{
    TimecodeTracker tracker;
    EXPECT_FALSE(tracker.feed(frameAt(0, 0, 0)).started);
    EXPECT_TRUE(tracker.feed(frameAt(0, 1, 40'000'000)).started);
    EXPECT_FALSE(tracker.tick(300'000'000).stopped);
    // The time runs on from the last frame.
    EXPECT_DOUBLE_EQ(tracker.nowNs(140'000'000) - tracker.nowNs(40'000'000), 100e6);
    const TimecodeTracker::Change lost = tracker.tick(400'000'000);
    EXPECT_TRUE(lost.stopped);
    EXPECT_FALSE(tracker.running());
    // One frame is not enough to start again, two are.
    EXPECT_FALSE(tracker.feed(frameAt(10, 0, 1'000'000'000)).started);
    const TimecodeTracker::Change again = tracker.feed(frameAt(10, 1, 1'040'000'000));
    EXPECT_TRUE(again.started);
    EXPECT_DOUBLE_EQ(tracker.nowNs(1'040'000'000), (3610.0 * 25 + 1) * 40e6);
}

} // namespace
