// Input that waits in memory is bounded in bytes: per connection (and on
// stdin) a few MiB of whole lines plus the line being read, and for all
// connections together 32 MiB, past which the connection holding the most
// is told "input queue full" and disconnected. Floods of 1 MiB lines behind
// a "wait" leave the runner's memory bounded and it keeps serving.
#include "RawClient.h"
#include "RunnerHarness.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QThread>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

using namespace runner_test;

namespace {

constexpr qint64 kAllowedGrowthKiB = 100 * 1024;

/// A step line just under the 1 MiB cap (an unknown op: answered with a
/// short error when it finally runs).
QByteArray megabyteLine()
{
    const QByteArray head = "{\"op\": \"flood\", \"pad\": \"";
    const QByteArray tail = "\"}\n";
    return head + QByteArray((1 << 20) - 64 - head.size() - tail.size(), 'y') + tail;
}

/// One client's stream: a wait, then `lines` copies of the 1 MiB line.
struct Flood
{
    RawClient client;
    QByteArray head;
    qint64 sent = 0;
    qint64 total = 0;
    bool done = false;
};

TEST(RunnerLimits, EightClientsFloodingBehindAWaitLeaveMemoryBoundedAndServingGoesOn)
{
    LiveRunner runner;
    runner.process().setProcessEnvironment(measuredEnvironment());
    const quint16 port = startListening(runner, freshWorkDir(QStringLiteral("limits-tcp")));
    ASSERT_NE(port, 0);
    const qint64 baseKiB = processMemoryKiB(runner.pid(), "VmRSS");
    ASSERT_GT(baseKiB, 0);

    const QByteArray line = megabyteLine();
    std::vector<std::unique_ptr<Flood>> floods;
    for (int i = 0; i < 8; ++i) {
        auto flood = std::make_unique<Flood>();
        ASSERT_TRUE(flood->client.connectTo(QStringLiteral("127.0.0.1"), port));
        flood->head = "{\"op\": \"wait\", \"ms\": 5000}\n";
        flood->total = flood->head.size() + 261 * qint64(line.size());
        floods.push_back(std::move(flood));
    }

    // Send round the clients without waiting; stop when nothing moved for a
    // while (the runner reads no more) or everything went.
    qint64 peakKiB = baseKiB;
    QElapsedTimer clock, idle;
    clock.start();
    idle.start();
    while (idle.elapsed() < 1000 && clock.elapsed() < 15000) {
        bool moved = false;
        for (auto& f : floods) {
            if (f->done)
                continue;
            const char* data;
            qint64 size;
            if (f->sent < f->head.size()) {
                data = f->head.constData() + f->sent;
                size = f->head.size() - f->sent;
            } else {
                const qint64 at = (f->sent - f->head.size()) % line.size();
                data = line.constData() + at;
                size = qMin<qint64>(line.size() - at, f->total - f->sent);
            }
            const qint64 n = f->client.sendSome(data, size);
            if (n < 0 || f->sent + n >= f->total)
                f->done = true; // disconnected by the runner, or all sent
            if (n > 0) {
                f->sent += n;
                moved = true;
            }
        }
        if (moved)
            idle.restart();
        else
            QThread::msleep(10);
        const qint64 rss = processMemoryKiB(runner.pid(), "VmRSS");
        peakKiB = qMax(peakKiB, rss);
        ASSERT_LT(rss - baseKiB, kAllowedGrowthKiB)
            << "runner at " << rss << " KiB, started at " << baseKiB << " KiB";
    }
    qint64 sentInAll = 0;
    for (auto& f : floods)
        sentInAll += f->sent;
    // The kernel's buffers hold some; the rest waits at the clients.
    EXPECT_LT(sentInAll, 8 * 64 * qint64(1 << 20)) << "the runner read far more than it may hold";

    // All eight together passed the total: some were told and disconnected.
    int refused = 0;
    for (auto& f : floods) {
        const QJsonObject told = f->client.next([](const QJsonObject& o) { return isReplyLine(o); }, 300);
        if (told.value(QStringLiteral("error")).toString().contains(QStringLiteral("input queue full")))
            ++refused;
    }
    EXPECT_GE(refused, 1);
    EXPECT_LE(refused, 7);

    // Another client is served at once, though eight waits hold their queues.
    RawClient other;
    ASSERT_TRUE(other.connectTo(QStringLiteral("127.0.0.1"), port));
    ASSERT_TRUE(other.sendAll("{\"op\": \"getTP\", \"args\": [{}]}\n"));
    EXPECT_EQ(other.next(isReplyLine, 10000).value(QStringLiteral("ok")).toString(), QStringLiteral("getTP"));

    // The flooders go away mid-stream; the runner neither crashes nor grows.
    floods.clear();
    ASSERT_TRUE(other.sendAll("{\"op\": \"wait\", \"ms\": 300}\n{\"op\": \"quit\", \"code\": 9}\n"));
    EXPECT_EQ(runner.waitForExit(30000), 9);
    EXPECT_LT(peakKiB - baseKiB, kAllowedGrowthKiB);
    std::printf("runner memory: %lld KiB at start, %lld KiB more at most; %d client(s) told \"input queue full\"; "
                "%lld bytes sent before the runner stopped reading\n",
                baseKiB, peakKiB - baseKiB, refused, sentInAll);
}

TEST(RunnerLimits, AClientThatDoesNotReadIsDisconnectedAndServingGoesOn)
{
    LiveRunner runner;
    runner.process().setProcessEnvironment(measuredEnvironment());
    const quint16 port = startListening(runner, freshWorkDir(QStringLiteral("limits-slow-reader")));
    ASSERT_NE(port, 0);
    const qint64 baseKiB = processMemoryKiB(runner.pid(), "VmRSS");

    // Each step's error line quotes its long op twice: about 1 MiB of
    // output per step, which this client never reads.
    const QByteArray step = "{\"op\": \"" + QByteArray(450 * 1024, 'z') + "\"}\n";
    RawClient deaf;
    ASSERT_TRUE(deaf.connectTo(QStringLiteral("127.0.0.1"), port));
    QElapsedTimer clock;
    clock.start();
    qint64 sent = 0;
    const qint64 total = 80 * qint64(step.size());
    while (sent < total && clock.elapsed() < 10000) {
        const qint64 n = deaf.sendSome(step.constData() + sent % step.size(),
                                       qMin<qint64>(step.size() - sent % step.size(), total - sent));
        if (n < 0)
            break; // the runner closed the connection
        if (n == 0)
            QThread::msleep(5);
        sent += n;
    }
    const QString err = runner.waitForStderr(QStringLiteral("reads too slowly"), 15000);
    EXPECT_TRUE(err.contains(QStringLiteral("reads too slowly"))) << err.toStdString();
    EXPECT_LT(processMemoryKiB(runner.pid(), "VmRSS") - baseKiB, kAllowedGrowthKiB);

    RawClient other;
    ASSERT_TRUE(other.connectTo(QStringLiteral("127.0.0.1"), port));
    ASSERT_TRUE(other.sendAll("{\"op\": \"quit\", \"code\": 8}\n"));
    EXPECT_EQ(other.next(isReplyLine, 10000).value(QStringLiteral("ok")).toString(), QStringLiteral("quit"));
    EXPECT_EQ(runner.waitForExit(30000), 8);
}

TEST(RunnerLimits, StdinQueueIsBoundedInBytes)
{
    LiveRunner runner;
    runner.process().setProcessEnvironment(measuredEnvironment());
    ASSERT_TRUE(runner.start({QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--no-progress"),
                              QStringLiteral("-")},
                             freshWorkDir(QStringLiteral("limits-stdin"))));
    runner.write("{\"op\": \"getTP\", \"args\": [{}]}\n{\"op\": \"wait\", \"ms\": 3000}\n");
    ASSERT_FALSE(runner.nextLine(replyToLine(1)).isEmpty());
    const qint64 baseKiB = processMemoryKiB(runner.pid(), "VmRSS");
    ASSERT_GT(baseKiB, 0);

    // Feed 1 MiB lines while the wait holds, until the runner stops taking
    // them (the pipe and our write buffer fill) or 150 MiB went in.
    const QByteArray line = megabyteLine();
    QProcess& process = runner.process();
    QElapsedTimer clock, stuck;
    clock.start();
    stuck.start();
    int fed = 0;
    while (fed < 150 && clock.elapsed() < 2500) {
        if (process.bytesToWrite() < 2 * line.size()) {
            process.write(line);
            ++fed;
            stuck.restart();
        } else if (stuck.elapsed() > 500) {
            break;
        }
        process.waitForBytesWritten(20);
        const qint64 rss = processMemoryKiB(runner.pid(), "VmRSS");
        ASSERT_LT(rss - baseKiB, kAllowedGrowthKiB)
            << "after " << fed << " lines: " << rss << " KiB, started at " << baseKiB << " KiB";
    }
    EXPECT_LT(fed, 150) << "the runner took every line while its source waited";
    std::printf("stdin: %d lines of 1 MiB taken while the source waited\n", fed);

    // Everything fed still runs, in order, once the wait ends.
    process.closeWriteChannel();
    const QJsonObject last = runner.nextLine(replyToLine(2 + fed), 30000);
    EXPECT_TRUE(last.value(QStringLiteral("error")).toString().contains(QStringLiteral("unknown op"))) 
        << QJsonDocument(last).toJson().toStdString();
    EXPECT_EQ(runner.waitForExit(30000), 0);
}

} // namespace
