// The runner's "drops" host line: a layer whose frames could not be drawn in
// time (the whole runner stopped for a moment, as an overloaded machine
// would) is reported once a second with its bank, layer, the frames dropped
// since the last line and its total.
#include "RunnerHarness.h"
#include "ShowText.h"

#include <QJsonArray>
#include <QThread>
#include <gtest/gtest.h>
#include <signal.h>

using namespace runner_test;

namespace {

bool isDrops(const QJsonObject& line)
{
    return line.value(QStringLiteral("host")) == QLatin1String("drops");
}

/// The entry of bank 1, layer 2 in a drops line; empty when none.
QJsonObject layerEntry(const QJsonObject& line)
{
    for (const QJsonValue& v : line.value(QStringLiteral("layers")).toArray()) {
        const QJsonObject entry = v.toObject();
        if (entry.value(QStringLiteral("bankId")).toInt() == 1
            && entry.value(QStringLiteral("layerId")).toInt() == 2)
            return entry;
    }
    return QJsonObject();
}

} // namespace

TEST(RunnerDrops, LayerThatDropsFramesIsReportedWithItsCounts)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    const QString dir = freshWorkDir(QStringLiteral("drops"));
    LiveRunner runner;
    ASSERT_TRUE(runner.start({QStringLiteral("--ao"), QStringLiteral("null"),
                              QStringLiteral("--no-progress"), QStringLiteral("--out"), dir,
                              QStringLiteral("--set"), QStringLiteral("media=") + mediaDir(),
                              QStringLiteral("-")},
                             dir));
    const QString show = openScreen(1, 320, 180)
        + createLayer(1, 2, QStringLiteral("${media}/clip.mp4"), QStringLiteral("video"))
        + addRenderer(1, 2, 1, 0, 0, 320, 180, 640, 360)
        + step(QStringLiteral("setRepeat"), layerRef(1, 2) + QStringLiteral(", -1"))
        + step(QStringLiteral("playReady"), layerRef(1, 2) + QStringLiteral(", 0, false"));
    runner.write(show.toUtf8());
    const QJsonObject moving = runner.nextLine([](const QJsonObject& line) {
        return line.value(QStringLiteral("event")) == QLatin1String("sPositionChanged")
            && line.value(QStringLiteral("position")).toDouble() >= 300;
    });
    ASSERT_FALSE(moving.isEmpty()) << "the layer did not play";

    // Stop the whole runner for 0.7 s: when it goes on, the frames due
    // meanwhile are too late to be drawn. A loaded machine may need a few.
    QJsonObject first;
    for (int attempt = 0; attempt < 5 && first.isEmpty(); ++attempt) {
        ASSERT_EQ(::kill(pid_t(runner.pid()), SIGSTOP), 0);
        QThread::msleep(700);
        ASSERT_EQ(::kill(pid_t(runner.pid()), SIGCONT), 0);
        first = runner.nextLine(isDrops, 2500);
    }
    ASSERT_FALSE(first.isEmpty()) << "no drops line";
    const QJsonObject entry = layerEntry(first);
    ASSERT_FALSE(entry.isEmpty()) << "bank 1 layer 2 not in the drops line";
    const qint64 dropped = qint64(entry.value(QStringLiteral("dropped")).toDouble());
    qint64 total = qint64(entry.value(QStringLiteral("total")).toDouble());
    EXPECT_GT(dropped, 0);
    EXPECT_GE(total, dropped);
    ASSERT_TRUE(first.value(QStringLiteral("t")).isDouble());

    // Later lines (while it still drops; a few looked at) go on from the
    // total, at least a second apart.
    double lastT = first.value(QStringLiteral("t")).toDouble();
    int looked = 0;
    for (QJsonObject next = runner.nextLine(isDrops, 2500); !next.isEmpty() && looked < 3;
         next = runner.nextLine(isDrops, 2500), ++looked) {
        EXPECT_GE(next.value(QStringLiteral("t")).toDouble() - lastT, 900.0);
        lastT = next.value(QStringLiteral("t")).toDouble();
        const QJsonObject e = layerEntry(next);
        if (e.isEmpty())
            continue;
        const qint64 d = qint64(e.value(QStringLiteral("dropped")).toDouble());
        EXPECT_GT(d, 0);
        EXPECT_EQ(qint64(e.value(QStringLiteral("total")).toDouble()), total + d);
        total += d;
    }
    runner.write("{\"op\": \"quit\"}\n");
    EXPECT_EQ(runner.waitForExit(), 0);
}
