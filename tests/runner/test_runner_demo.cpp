// The demonstration show (examples/demo.show) runs from start to end
// offscreen: every step succeeds, the events come in the show's order, and
// the snapshots show what the show did at those moments.
#include "RunnerHarness.h"

#include <QColor>
#include <QImage>
#include <QRegularExpression>
#include <gtest/gtest.h>

using namespace runner_test;

namespace {

bool near(const QColor& have, const QColor& want)
{
    return std::abs(have.red() - want.red()) <= 24 && std::abs(have.green() - want.green()) <= 24
        && std::abs(have.blue() - want.blue()) <= 24;
}

TEST(RunnerDemo, DemoShowRunsToItsEndWithEveryStepOkAndItsSnapshotsWritten)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    const QString dir = freshWorkDir(QStringLiteral("demo"));
    // With the progress line (offscreen): it reports the show's steps.
    const ShowRun run = runArgs({QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--offscreen"),
                                 QStringLiteral("--out"), dir, QStringLiteral("--set"),
                                 QStringLiteral("media=") + mediaDir(),
                                 examplesDir() + QStringLiteral("/demo.show")},
                                dir, 55000);
    ASSERT_TRUE(run.finished) << run.errText.toStdString();
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.badLines.isEmpty());
    EXPECT_TRUE(run.errors().isEmpty()) << run.errText.toStdString();
    EXPECT_TRUE(run.errText.contains(QStringLiteral("kelmor-show: demo finished")));
    EXPECT_TRUE(run.errText.contains(QRegularExpression(QStringLiteral("demo\\.show \\d+\\.\\d s, step \\d+/64, offscreen"))))
        << run.errText.toStdString();

    // The bank's three layers load in any order; everything after follows
    // the show.
    QStringList events = run.events();
    ASSERT_GE(events.size(), 3);
    QStringList loads = events.mid(0, 3);
    loads.sort();
    EXPECT_EQ(loads, QStringList({"sendLoadAllComple layerId=1", "sendLoadAllComple layerId=2",
                                  "sendLoadAllComple layerId=3"}));
    EXPECT_EQ(events.mid(3), QStringList({"sPlayReady bankId=1", "sFadeinFinished",
                                          "sendLoadAllComple layerId=4",
                                          "sendPlayerIndex bankId=1 layerId=2",
                                          "sendLoadAllComple layerId=1", "sFadeoutFinished"}));
    ASSERT_EQ(run.hostLines(QStringLiteral("recordFinished")).size(), 1);

    for (const char* name : {"screen1-roi-and-still.png", "screen2-warps.png", "screen1-content-changed.png",
                             "screen1-faded-out.png", "screen2-faded-out.png"}) {
        const QImage image(dir + QLatin1Char('/') + QLatin1String(name));
        EXPECT_EQ(image.size(), QSize(640, 360)) << name;
    }
    // Layer 1 became the magenta still; the yellow still stays at its place.
    const QImage changed(dir + QStringLiteral("/screen1-content-changed.png"));
    EXPECT_TRUE(near(changed.pixelColor(320, 180), QColor(255, 0, 255)));
    EXPECT_TRUE(near(changed.pixelColor(520, 76), QColor(255, 255, 0)));
    // After the fade out both screens are black.
    for (const char* name : {"screen1-faded-out.png", "screen2-faded-out.png"}) {
        const QImage faded(dir + QLatin1Char('/') + QLatin1String(name));
        for (const QPoint& p : {QPoint(10, 10), QPoint(320, 180), QPoint(520, 76), QPoint(480, 270)})
            EXPECT_TRUE(near(faded.pixelColor(p), QColor(0, 0, 0))) << name << " at " << p.x() << "," << p.y();
    }
}

} // namespace
