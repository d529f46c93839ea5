// Timecode input that is hostile or absent, and chase steps that cannot be
// run: noise, reversed LTC, LTC at a speed that fits no frame rate and
// single stray frames never start or move a chase; an input that cannot be
// opened says so and the show goes on; a chase of a layer that does not
// exist, that plays audio, or with a malformed "at" is an error line.
#include "test_runner_timecode_support.h"

#include <QJsonDocument>
#include <QProcess>

using namespace runner_test;
using namespace timecode_test;

namespace {

QString quitAfter(int ms)
{
    return QStringLiteral("{\"op\": \"wait\", \"ms\": %1}\n{\"op\": \"quit\"}\n").arg(ms);
}

TEST(TimecodeInput, NoiseReversedAndWrongSpeedLtcNeverStartAChase)
{
    const QString clip = chaseClip();
    ASSERT_FALSE(clip.isEmpty());
    const QString dir = freshWorkDir(QStringLiteral("timecode-bad-ltc"));
    const QString ltc = makeLtc(dir, QStringLiteral("bad.wav"),
                                {"noise:ms=800,level=0.7", "ltc:fps=25,start=01:00:10:00,frames=25,reverse=1",
                                 "ltc:fps=25,start=01:00:20:00,frames=25,speed=1.1",
                                 "ltc:fps=25,start=01:00:30:00,frames=1", "silence:ms=200",
                                 "ltc:fps=30,start=01:00:40:00,frames=25,speed=0.85"});
    ASSERT_FALSE(ltc.isEmpty());
    const QString show = openScreen(1, 160, 90) + chasedLayer(1, clip) + chaseStep(1, QStringLiteral("00:00:00:00"))
        + quitAfter(4800);
    const ShowRun run = runShow(dir, show, {QStringLiteral("--ltc-input"), ltc});
    ASSERT_TRUE(run.finished) << run.errText.toStdString();
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.errors().isEmpty()) << QJsonDocument(run.errors().value(0)).toJson().toStdString();
    EXPECT_TRUE(timecodeLines(run.lines).empty()) << run.errText.toStdString();
    for (const QJsonObject& o : run.lines) {
        if (o.value(QStringLiteral("event")).toString() == QLatin1String("sPositionChanged"))
            EXPECT_EQ(o.value(QStringLiteral("position")).toDouble(), 0) << "the layer moved";
    }
    // The input itself was read to its end.
    const QList<QJsonObject> input = run.hostLines(QStringLiteral("timecodeInput"));
    ASSERT_EQ(input.size(), 2);
    EXPECT_EQ(input[0].value(QStringLiteral("state")).toString(), QStringLiteral("opened"));
    EXPECT_EQ(input[1].value(QStringLiteral("state")).toString(), QStringLiteral("ended"));
}

TEST(TimecodeInput, StrayFramesInRunningLtcMoveNothingAndNoisyLtcHolds)
{
    const QString dir = freshWorkDir(QStringLiteral("timecode-stray"));
    // Noisy LTC with a stray frame from elsewhere in it, twice.
    const QString ltc = makeLtc(dir, QStringLiteral("stray.wav"),
                                {"ltc:fps=25,start=01:00:00:00,frames=40,noise=0.25",
                                 "ltc:fps=25,start=07:00:00:00,frames=1,noise=0.25",
                                 "ltc:fps=25,start=01:00:01:16,frames=30,noise=0.25",
                                 "ltc:fps=25,start=09:30:00:00,frames=1,noise=0.25",
                                 "ltc:fps=25,start=01:00:02:22,frames=30,noise=0.25"});
    ASSERT_FALSE(ltc.isEmpty());
    const ShowRun run = runShow(dir, quitAfter(4800), {QStringLiteral("--ltc-input"), ltc});
    ASSERT_TRUE(run.finished) << run.errText.toStdString();
    const std::vector<TcLine> tc = timecodeLines(run.lines);
    EXPECT_EQ(changes(tc), QStringList({"start", "stop"})) << run.errText.toStdString();
    EXPECT_TRUE(run.errText.contains(QStringLiteral("refused"))) << run.errText.toStdString();
    // The timecode lines keep to one time line: 01:00:00:00 plus the time.
    for (const TcLine& l : tc) {
        if (l.running)
            EXPECT_NEAR(l.tcMs - l.t, tc.front().tcMs - tc.front().t, 20) << l.tc.toStdString();
    }
}

TEST(TimecodeInput, AnInputThatCannotBeOpenedIsReportedAndTheShowGoesOn)
{
    const QString dir = freshWorkDir(QStringLiteral("timecode-absent"));
    for (const QString& input : {dir + QStringLiteral("/missing.wav"), QStringLiteral("alsa:hw:97,0")}) {
        const ShowRun run = runShow(dir, quitAfter(600), {QStringLiteral("--ltc-input"), input});
        ASSERT_TRUE(run.finished) << run.errText.toStdString();
        EXPECT_EQ(run.exitCode, 0) << input.toStdString();
        const QList<QJsonObject> lines = run.hostLines(QStringLiteral("timecodeInput"));
        ASSERT_FALSE(lines.isEmpty()) << input.toStdString() << "\n" << run.errText.toStdString();
        EXPECT_EQ(lines[0].value(QStringLiteral("state")).toString(), QStringLiteral("failed"));
        EXPECT_TRUE(run.errText.contains(QStringLiteral("timecode: input failed"))) << run.errText.toStdString();
    }
}

TEST(TimecodeInput, ChaseStepsThatCannotRunAreErrorLines)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    const QString dir = freshWorkDir(QStringLiteral("timecode-steps"));
    const QString ltc = makeLtc(dir, QStringLiteral("quiet.wav"), {"silence:ms=1000"});
    const QString show = createLayer(1, 1, QStringLiteral("${media}/clip.mp4"), QStringLiteral("audio"))   // 1, 2
        + chaseStep(5, QStringLiteral("01:00:00:00"))                                                     // 3
        + chaseStep(1, QStringLiteral("01:00:00:00"))                                                     // 4
        + chaseStep(1, QStringLiteral("1:00:00:00"))                                                      // 5
        + QStringLiteral("{\"op\": \"chase\", \"layer\": {\"bank\": 1}, \"at\": \"01:00:00:00\"}\n")       // 6
        + QStringLiteral("{\"op\": \"chase\", \"layer\": {\"bank\": 1, \"layer\": 1}}\n")                  // 7
        + QStringLiteral("{\"op\": \"chase\", \"layer\": {\"bank\": 1, \"layer\": 1}, \"at\": \"01:00:00:00\", \"speed\": 2}\n") // 8
        + QStringLiteral("{\"op\": \"unchase\", \"layer\": {\"bank\": 1, \"layer\": 1}}\n")                // 9
        + QStringLiteral("{\"op\": \"quit\"}\n");                                                          // 10
    const ShowRun run = runShow(dir, show, {QStringLiteral("--ltc-input"), ltc});
    ASSERT_TRUE(run.finished) << run.errText.toStdString();
    EXPECT_EQ(run.exitCode, 0);
    auto problem = [&](int line) { return run.replyTo(line).value(QStringLiteral("error")).toString().toStdString(); };
    EXPECT_NE(problem(3).find("no layer 5 in bank 1"), std::string::npos) << problem(3);
    EXPECT_NE(problem(4).find("\"audio\""), std::string::npos) << problem(4);
    EXPECT_NE(problem(5).find("HH:MM:SS:FF"), std::string::npos) << problem(5);
    EXPECT_NE(problem(6).find("layer"), std::string::npos) << problem(6);
    EXPECT_NE(problem(7).find("\"at\": missing"), std::string::npos) << problem(7);
    EXPECT_NE(problem(8).find("unknown key \"speed\""), std::string::npos) << problem(8);
    EXPECT_NE(problem(9).find("does not chase"), std::string::npos) << problem(9);
    EXPECT_EQ(run.oks().size(), 3); // the layer, its type, the quit

    // Without a timecode input a chase has nothing to follow.
    const ShowRun none = runShow(dir, chaseStep(1, QStringLiteral("01:00:00:00")) + QStringLiteral("{\"op\": \"quit\"}\n"));
    ASSERT_TRUE(none.finished);
    EXPECT_NE(none.replyTo(1).value(QStringLiteral("error")).toString().indexOf(QStringLiteral("--ltc-input")), -1);
}

TEST(TimecodeInput, OptionsAreCheckedAndDescribed)
{
    const QString dir = freshWorkDir(QStringLiteral("timecode-options"));
    const QStringList show{QStringLiteral("-")};
    for (const QStringList& bad : {QStringList{QStringLiteral("--ltc-channel"), QStringLiteral("0")},
                                   QStringList{QStringLiteral("--ltc-channel"), QStringLiteral("65")},
                                   QStringList{QStringLiteral("--ltc-freewheel"), QStringLiteral("-1")},
                                   QStringList{QStringLiteral("--ltc-freewheel"), QStringLiteral("ten")},
                                   QStringList{QStringLiteral("--ltc-input=")}}) {
        const ShowRun run = runArgs(bad + show, dir);
        EXPECT_EQ(run.exitCode, 1) << bad.join(' ').toStdString();
        EXPECT_TRUE(run.errText.contains(QStringLiteral("--ltc-"))) << run.errText.toStdString();
    }
    const ShowRun noValue = runArgs(show + QStringList{QStringLiteral("--ltc-input")}, dir);
    EXPECT_EQ(noValue.exitCode, 1);
    EXPECT_TRUE(noValue.errText.contains(QStringLiteral("--ltc-input needs a value"))) << noValue.errText.toStdString();
    QProcess help;
    help.start(showBinary(), {QStringLiteral("--help")});
    ASSERT_TRUE(help.waitForFinished(20000));
    const QString text = QString::fromUtf8(help.readAllStandardOutput());
    for (const char* entry : {"--ltc-input SOURCE", "--ltc-channel N", "--ltc-freewheel F", "chase       {",
                              "unchase     {", "\"host\": \"timecode\""})
        EXPECT_TRUE(text.contains(QLatin1String(entry))) << entry;
}

} // namespace

