// The command line: help, the version, usage errors, --strict and variables.
#include "RunnerHarness.h"
#include "ShowText.h"

#include <QProcess>
#include <QRegularExpression>
#include <gtest/gtest.h>
#include <string>

using namespace runner_test;

namespace {

TEST(RunnerCli, HelpIsAManualPageListingEveryStepAndOperation)
{
    QProcess help;
    help.start(showBinary(), {QStringLiteral("--help")});
    ASSERT_TRUE(help.waitForFinished(20000));
    EXPECT_EQ(help.exitCode(), 0);
    const QString text = QString::fromUtf8(help.readAllStandardOutput());
    int at = -1;
    for (const char* section : {"NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "STEPS", "EVENTS",
                                "EXIT STATUS", "EXAMPLES"}) {
        const int found = text.indexOf(QRegularExpression(QStringLiteral("^%1$").arg(section),
                                                          QRegularExpression::MultilineOption));
        EXPECT_GT(found, at) << section << " missing or out of order";
        at = found;
    }
    for (const char* entry : {"openScreen", "closeScreen", "waitFor", "snapshot", "record", "audio",
                              "creatnewlayer(record)", "seVectexRect(command: record)",
                              "setBezierPoint(layerId: int, bankId: int, record)",
                              "playReady(player, msec: int64, isPause: bool)",
                              "getScenePlayer(bankId: int, layerId: int)", "getScenePlayer(player)",
                              "timer.setRepeat(layer, count: int)", "--listen-address", "--strict",
                              "--position-interval"})
        EXPECT_TRUE(text.contains(QLatin1String(entry))) << entry;
}

TEST(RunnerCli, VersionIsTheOneTheBuildComputed)
{
    QProcess version;
    version.start(showBinary(), {QStringLiteral("--version")});
    ASSERT_TRUE(version.waitForFinished(20000));
    EXPECT_EQ(version.exitCode(), 0);
    EXPECT_EQ(version.readAllStandardOutput().toStdString(),
              std::string("kelmor-show " KELMOR_EXPECTED_SHOW_VERSION "\n"));
}

// Every way of giving steps, as the "nothing to run" refusal must name them.
const char* const kStepSourceOptions[] = {"show file", "- (stdin)", "--listen PORT", "--osc-port PORT",
                                          "--http PORT"};

TEST(RunnerCli, NothingToRunNamesEveryWayOfGivingSteps)
{
    const ShowRun run = runArgs({QStringLiteral("--ao"), QStringLiteral("null")}, freshWorkDir(QStringLiteral("cli-nothing")));
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.errText.contains(QStringLiteral("nothing to run"))) << run.errText.toStdString();
    for (const char* source : kStepSourceOptions)
        EXPECT_TRUE(run.errText.contains(QLatin1String(source))) << source << " in " << run.errText.toStdString();
}

TEST(RunnerCli, TimecodeInputAloneIsRefusedSayingThatStepsMakeTheLayers)
{
    // The timecode only drives layers that steps made and told to chase it;
    // without a step source nothing could ever chase it and nothing would
    // end the run.
    const QString dir = freshWorkDir(QStringLiteral("cli-ltc-alone"));
    const ShowRun run = runArgs({QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--ltc-input"),
                                 dir + QStringLiteral("/ltc.wav")},
                                dir, 20000);
    ASSERT_TRUE(run.finished) << "a run with only a timecode input did not end";
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.errText.contains(QStringLiteral("nothing to run"))) << run.errText.toStdString();
    EXPECT_TRUE(run.errText.contains(QStringLiteral("--ltc-input"))) << run.errText.toStdString();
    EXPECT_TRUE(run.errText.contains(QStringLiteral("chase"))) << run.errText.toStdString();
    for (const char* source : kStepSourceOptions)
        EXPECT_TRUE(run.errText.contains(QLatin1String(source))) << source << " in " << run.errText.toStdString();
}

TEST(RunnerCli, UsageErrorsExitWithOne)
{
    const QString dir = freshWorkDir(QStringLiteral("cli-usage"));
    EXPECT_EQ(runArgs({QStringLiteral("--bogus")}, dir).exitCode, 1);
    EXPECT_EQ(runArgs({}, dir).exitCode, 1);
    EXPECT_EQ(runArgs({QStringLiteral("--listen"), QStringLiteral("70000")}, dir).exitCode, 1);
    const ShowRun vsync = runArgs({QStringLiteral("--vsync"), QStringLiteral("sometimes"), QStringLiteral("-")}, dir);
    EXPECT_EQ(vsync.exitCode, 1);
    EXPECT_TRUE(vsync.errText.contains(QStringLiteral("--vsync: \"sometimes\" is not auto, on or off")))
        << vsync.errText.toStdString();
    const ShowRun missing = runArgs({QStringLiteral("--ao"), QStringLiteral("null"), dir + QStringLiteral("/none.show")}, dir);
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(missing.errText.contains(QStringLiteral("cannot open the show file")));
}

// The render thread (the default) starts with the first screen: a show that
// opens none makes no GL context for it.
TEST(RunnerCli, AShowWithoutScreensStartsNoRenderThread)
{
    const ShowRun run = runShow(freshWorkDir(QStringLiteral("cli-no-screens")),
                                step(QStringLiteral("setCurPlayerCount"), QStringLiteral("2")));
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_FALSE(run.errText.contains(QStringLiteral("output frames are drawn")))
        << run.errText.toStdString();
}

TEST(RunnerCli, FailedWaitForEndsAStrictRunWithTwoAndALenientOneGoesOn)
{
    const QString show = waitFor(QStringLiteral("sPlayReady"), QStringLiteral("{\"bankId\": 99}"), 100)
        + step(QStringLiteral("setCurPlayerCount"), QStringLiteral("6"));

    const ShowRun lenient = runShow(freshWorkDir(QStringLiteral("cli-lenient")), show);
    ASSERT_TRUE(lenient.finished);
    EXPECT_EQ(lenient.exitCode, 0);
    ASSERT_EQ(lenient.errors().size(), 1);
    const QString problem = lenient.errors().at(0).value(QStringLiteral("error")).toString();
    EXPECT_TRUE(problem.startsWith(QStringLiteral("waitFor sPlayReady {\"bankId\":99}: timed out after ")))
        << problem.toStdString();
    EXPECT_EQ(lenient.errors().at(0).value(QStringLiteral("line")).toInt(), 1);
    EXPECT_EQ(lenient.replyTo(2).value(QStringLiteral("ok")).toString(), QStringLiteral("setCurPlayerCount"));
    EXPECT_EQ(lenient.events(), QStringList({"sPlayReady bankId=6"}));

    const ShowRun strict = runShow(freshWorkDir(QStringLiteral("cli-strict")), show, {QStringLiteral("--strict")});
    ASSERT_TRUE(strict.finished);
    EXPECT_EQ(strict.exitCode, 2);
    ASSERT_EQ(strict.errors().size(), 1);
    EXPECT_EQ(strict.errors().at(0).value(QStringLiteral("line")).toInt(), 1);
    EXPECT_TRUE(strict.events().isEmpty());
    EXPECT_TRUE(strict.replyTo(2).isEmpty());
}

TEST(RunnerCli, WaitForFindsAnEventThatCameJustBeforeIt)
{
    // sPlayReady of an empty bank is emitted inside setCurPlayerCount, before
    // the waitFor step runs.
    const QString show = step(QStringLiteral("setCurPlayerCount"), QStringLiteral("12"))
        + waitFor(QStringLiteral("sPlayReady"), QStringLiteral("{\"bankId\": 12}"), 1000)
        // The event was used up: a second waitFor for it times out.
        + waitFor(QStringLiteral("sPlayReady"), QStringLiteral("{\"bankId\": 12}"), 100);
    const ShowRun run = runShow(freshWorkDir(QStringLiteral("cli-waitfor-earlier")), show);
    ASSERT_TRUE(run.finished);
    const QJsonObject matched = run.replyTo(2);
    EXPECT_EQ(matched.value(QStringLiteral("ok")).toString(), QStringLiteral("waitFor"));
    EXPECT_EQ(matched.value(QStringLiteral("matched")).toObject().value(QStringLiteral("bankId")).toInt(), 12);
    EXPECT_TRUE(run.replyTo(3).value(QStringLiteral("error")).toString().contains(QStringLiteral("timed out")));
}

TEST(RunnerCli, VariablesExpandInStringsAndOutNamesTheOutputDirectory)
{
    const QString dir = freshWorkDir(QStringLiteral("cli-variables"));
    const QString show = QStringLiteral(
        "{\"op\": \"log\", \"text\": \"${who}-$${literal}\"}\n"
        "{\"op\": \"log\", \"text\": \"out=${out}\"}\n");
    const ShowRun run = runShow(dir, show, {QStringLiteral("--set"), QStringLiteral("who=me")});
    ASSERT_TRUE(run.finished);
    EXPECT_TRUE(run.errors().isEmpty());
    EXPECT_TRUE(run.errText.contains(QStringLiteral("kelmor-show: me-${literal}\n"))) << run.errText.toStdString();
    EXPECT_TRUE(run.errText.contains(QStringLiteral("kelmor-show: out=") + dir)) << run.errText.toStdString();
}

} // namespace
