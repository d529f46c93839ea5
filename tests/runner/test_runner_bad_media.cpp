// Media that cannot be played: every layer given a damaged, missing or
// non-media source reports a "mediaError" host line within 2 s and never
// loads, the runner neither crashes nor hangs, and a good layer plays on
// throughout. The host line reaches live-control clients too.
#include "DamagedMedia.h"
#include "RunnerHarness.h"
#include "ShowText.h"

#include <QDir>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QTcpSocket>
#include <gtest/gtest.h>

using namespace runner_test;

namespace {

constexpr int kBank = 2;          // the damaged layers' bank (the sentinel is bank 1, layer 1)
constexpr int kFirstLayer = 101;  // their layer ids: 101, 102, ... (never the sentinel's)
constexpr int kGroup = 10;        // layers tried at the same time
constexpr int kGroupMs = 2500;    // how long each group is given
constexpr int kErrorWithinMs = 2000;

/// The show: the sentinel clip playing, then the damaged files in groups,
/// each layer created and readied to play, the group deleted after its time.
/// `createLine` gets, per file, the show line of its creatnewlayer.
QString badMediaShow(const QString& sentinel, const QList<DamagedFile>& files,
                     QList<int>& createLine, QList<int>& groupLine)
{
    QString show = createLayer(1, 1, sentinel, QStringLiteral("video"), 40000)
        + step(QStringLiteral("playReady"), layerRef(1, 1) + QStringLiteral(", 0, false"))
        + waitFor(QStringLiteral("sendLoadAllComple"), QStringLiteral("{\"layerId\": 1}"));
    auto lineCount = [&show] { return show.count(QLatin1Char('\n')); };
    for (int first = 0; first < files.size(); first += kGroup) {
        const int last = qMin(first + kGroup, files.size());
        groupLine.append(lineCount() + 1);
        for (int i = first; i < last; ++i) {
            createLine.append(lineCount() + 1);
            show += createLayer(kBank, kFirstLayer + i, files.at(i).path, files.at(i).layerType);
            show += step(QStringLiteral("playReady"),
                         layerRef(kBank, kFirstLayer + i) + QStringLiteral(", 0, false"));
        }
        show += QStringLiteral("{\"op\": \"wait\", \"ms\": %1}\n").arg(kGroupMs);
        for (int i = first; i < last; ++i)
            show += step(QStringLiteral("deleteplayerByID"),
                         QStringLiteral("{\"bankId\": %1, \"layerId\": %2}").arg(kBank).arg(kFirstLayer + i));
    }
    return show;
}

QList<QJsonObject> mediaErrorsOf(const ShowRun& run, int bankId, int layerId)
{
    QList<QJsonObject> out;
    for (const QJsonObject& line : run.hostLines(QStringLiteral("mediaError"))) {
        if (line.value(QStringLiteral("bankId")).toInt() == bankId
            && line.value(QStringLiteral("layerId")).toInt() == layerId)
            out << line;
    }
    return out;
}

int loadReportsOf(const ShowRun& run, int layerId)
{
    return run.events().count(QStringLiteral("sendLoadAllComple layerId=%1").arg(layerId));
}

TEST(RunnerBadMedia, DamagedMediaErrNeverLoadAndTheSentinelPlaysOn)
{
    const QString dir = freshWorkDir(QStringLiteral("bad-media"));
    const QList<DamagedFile> files = makeDamagedMedia(dir);
    ASSERT_EQ(files.size(), 40);
    const QString sentinel = makeSentinelClip(dir);
    ASSERT_FALSE(sentinel.isEmpty());

    QList<int> createLine, groupLine;
    const QString show = badMediaShow(sentinel, files, createLine, groupLine);
    const ShowRun run = runShow(dir, show, {}, 120000);
    ASSERT_TRUE(run.finished) << "the runner hung\n" << run.errText.toStdString();
    ASSERT_EQ(run.exitCode, 0) << "the runner crashed or failed\n" << run.errText.right(4000).toStdString();
    EXPECT_TRUE(run.errors().isEmpty());

    for (int i = 0; i < files.size(); ++i) {
        const DamagedFile& f = files.at(i);
        const int layer = kFirstLayer + i;
        const QString name = QDir(dir).relativeFilePath(f.path);
        const double tried = run.replyTo(createLine.at(i)).value(QStringLiteral("t")).toDouble(-1);
        ASSERT_GE(tried, 0) << name.toStdString() << ": no reply to its creatnewlayer";
        const QList<QJsonObject> errors = mediaErrorsOf(run, kBank, layer);
        const int loads = loadReportsOf(run, layer);
        if (!errors.isEmpty()) {
            EXPECT_LE(errors.first().value(QStringLiteral("t")).toDouble() - tried, kErrorWithinMs)
                << name.toStdString();
            EXPECT_EQ(errors.first().value(QStringLiteral("path")).toString(), f.path);
            EXPECT_FALSE(errors.first().value(QStringLiteral("reason")).toString().isEmpty());
        }
        if (f.mustFail) {
            EXPECT_FALSE(errors.isEmpty()) << name.toStdString() << " gave no mediaError";
            EXPECT_EQ(loads, 0) << name.toStdString() << " reported loaded";
        } else {
            // It may play what it can, or fail: one or the other, plainly.
            EXPECT_NE(errors.isEmpty(), loads == 0)
                << name.toStdString() << ": " << errors.size() << " mediaError, " << loads << " loaded";
        }
    }

    // The sentinel played throughout: while each group was tried, its
    // position moved on, and it never went back.
    QList<QPair<double, qint64>> sentinelPositions; // (t, position)
    for (const QJsonObject& line : run.lines) {
        if (line.value(QStringLiteral("event")) == QLatin1String("sPositionChanged")
            && line.value(QStringLiteral("bankId")).toInt() == 1
            && line.value(QStringLiteral("layerId")).toInt() == 1)
            sentinelPositions.append({line.value(QStringLiteral("t")).toDouble(),
                                      qint64(line.value(QStringLiteral("position")).toDouble())});
    }
    ASSERT_FALSE(sentinelPositions.isEmpty());
    for (int g = 0; g < groupLine.size(); ++g) {
        const double from = run.replyTo(groupLine.at(g)).value(QStringLiteral("t")).toDouble();
        qint64 low = -1, high = -1;
        for (const auto& p : sentinelPositions) {
            if (p.first < from || p.first > from + kGroupMs)
                continue;
            if (low < 0)
                low = p.second;
            high = p.second;
        }
        EXPECT_GE(high - low, kGroupMs / 2) << "the sentinel stalled while group " << g << " was tried";
    }
    for (int i = 1; i < sentinelPositions.size(); ++i)
        EXPECT_GE(sentinelPositions.at(i).second, sentinelPositions.at(i - 1).second);
    EXPECT_EQ(run.events().count(QStringLiteral("sendPlayerIndex bankId=1 layerId=1")), 0);
}

TEST(RunnerBadMedia, MediaErrorReachesLiveControlClients)
{
    const QString dir = freshWorkDir(QStringLiteral("bad-media-client"));
    const QString missing = dir + QStringLiteral("/no-such-picture.png");
    LiveRunner runner;
    const quint16 port = startListening(runner, dir);
    ASSERT_NE(port, 0);
    QTcpSocket client;
    client.connectToHost(QStringLiteral("127.0.0.1"), port);
    ASSERT_TRUE(client.waitForConnected(5000));
    client.write(createLayer(3, 4, missing, QStringLiteral("picture")).toUtf8());
    ASSERT_TRUE(client.waitForBytesWritten(5000));

    QJsonObject seen;
    QElapsedTimer clock;
    clock.start();
    while (seen.isEmpty() && clock.elapsed() < 10000) {
        while (client.canReadLine()) {
            const QJsonObject o = QJsonDocument::fromJson(client.readLine()).object();
            if (o.value(QStringLiteral("host")).toString() == QLatin1String("mediaError"))
                seen = o;
        }
        if (seen.isEmpty())
            client.waitForReadyRead(200);
    }
    ASSERT_FALSE(seen.isEmpty()) << "no mediaError line reached the client";
    EXPECT_EQ(seen.value(QStringLiteral("bankId")).toInt(), 3);
    EXPECT_EQ(seen.value(QStringLiteral("layerId")).toInt(), 4);
    EXPECT_EQ(seen.value(QStringLiteral("path")).toString(), missing);
    // The same line went to stdout.
    const QJsonObject printed = runner.nextLine([](const QJsonObject& o) {
        return o.value(QStringLiteral("host")).toString() == QLatin1String("mediaError");
    });
    EXPECT_EQ(printed.value(QStringLiteral("path")).toString(), missing);
    client.write("{\"op\": \"quit\", \"code\": 0}\n");
    client.waitForBytesWritten(5000);
    EXPECT_EQ(runner.waitForExit(), 0);
}

} // namespace
