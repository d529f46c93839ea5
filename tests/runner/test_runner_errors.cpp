// Bad steps are answered with an error line naming the line and the
// problem, and the show goes on: the last step of each show still runs.
#include "RunnerHarness.h"
#include "ShowText.h"

#include <QFile>
#include <QJsonDocument>
#include <gtest/gtest.h>

using namespace runner_test;

namespace {

/// The error line answering `line`, its problem containing `part`.
void expectError(const ShowRun& run, int line, const QString& op, const QString& part)
{
    const QJsonObject reply = run.replyTo(line);
    ASSERT_TRUE(reply.contains(QStringLiteral("error")))
        << "line " << line << ": " << QJsonDocument(reply).toJson(QJsonDocument::Compact).toStdString();
    EXPECT_TRUE(reply.value(QStringLiteral("error")).toString().contains(part))
        << "line " << line << ": " << reply.value(QStringLiteral("error")).toString().toStdString()
        << " lacks " << part.toStdString();
    EXPECT_EQ(reply.value(QStringLiteral("op")).toString(), op) << "line " << line;
}

TEST(RunnerErrors, EveryBadStepIsAnsweredAndTheShowGoesOn)
{
    const QString show = QStringLiteral(
        "{\"op\": \"setCurPlayerCount\", \"args\": [\n"                          // 1 truncated
        "{\"op\": \"setCurPlayerCount\", \"args\": [\"one\"]}\n"                 // 2 wrong type
        "{\"op\": \"setCurPlayerCount\", \"args\": [1e20]}\n"                    // 3 huge
        "{\"op\": \"setCurPlayerCount\", \"args\": [2147483648]}\n"              // 4 just past int
        "{\"op\": \"setCurPlayerCount\", \"args\": [1.5]}\n"                     // 5 not an integer
        "{\"op\": \"noSuchOp\"}\n"                                               // 6 unknown op
        "{\"op\": \"setCurPlayerCount\", \"args\": [1, 2]}\n"                    // 7 count
        "{\"op\": \"snapshot\", \"screen\": 9, \"path\": \"x.png\"}\n"           // 8 unknown screen
        "{\"op\": \"closeScreen\", \"id\": 9}\n"                                 // 9 unknown screen
        "{\"op\": \"play\", \"args\": [{\"bank\": 5, \"layer\": 5}]}\n"          // 10 no such layer
        "{\"op\": \"creatnewlayer\", \"args\": [{\"bankId\": 1e12, \"layerId\": 1}]}\n" // 11
        "[1, 2, 3]\n"                                                            // 12 not an object
        "{\"op\": \"wait\", \"ms\": -5}\n"                                       // 13 out of range
        "{\"op\": \"waitFor\", \"signal\": \"sNope\"}\n"                         // 14 unknown signal
        "{\"op\": \"wait\", \"msec\": 5}\n"                                      // 15 unknown key
        "{\"op\": \"insertScenePlayer\", \"args\": [1, 2, 3]}\n"                 // 16 refused
        "{\"op\": \"play\", \"args\": {\"bank\": 1}}\n"                          // 17 args not array
        "{\"op\": \"setFadeInOut\", \"args\": [null, \"yes\", 5]}\n"             // 18 bool wanted
        "{\"op\": \"record\", \"screen\": 9, \"path\": \"r.mkv\", \"ms\": 100}\n" // 19 unknown screen
        "{\"op\": \"log\", \"text\": \"${nope}\"}\n"                             // 20 unknown variable
        "{\"op\": \"setCurPlayerCount\", \"args\": [42]}\n");                    // 21 fine

    const ShowRun run = runShow(freshWorkDir(QStringLiteral("errors-bad-steps")), show);
    ASSERT_TRUE(run.finished) << run.errText.toStdString();
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.badLines.isEmpty());

    expectError(run, 1, QString(), QStringLiteral("malformed JSON"));
    expectError(run, 2, QStringLiteral("setCurPlayerCount"),
                QStringLiteral("argument 1 (bankId): expected an integer, got a string"));
    expectError(run, 3, QStringLiteral("setCurPlayerCount"), QStringLiteral("out of int range"));
    expectError(run, 4, QStringLiteral("setCurPlayerCount"), QStringLiteral("2147483648 is out of int range"));
    expectError(run, 5, QStringLiteral("setCurPlayerCount"), QStringLiteral("expected an integer, got 1.5"));
    expectError(run, 6, QStringLiteral("noSuchOp"), QStringLiteral("unknown op \"noSuchOp\""));
    expectError(run, 7, QStringLiteral("setCurPlayerCount"), QStringLiteral("takes 1 argument, got 2"));
    expectError(run, 8, QStringLiteral("snapshot"), QStringLiteral("unknown screen 9"));
    expectError(run, 9, QStringLiteral("closeScreen"), QStringLiteral("unknown screen 9"));
    expectError(run, 10, QStringLiteral("play"), QStringLiteral("no layer 5 in bank 5"));
    expectError(run, 11, QStringLiteral("creatnewlayer"),
                QStringLiteral("record key \"bankId\": 1000000000000 is out of int range"));
    expectError(run, 12, QString(), QStringLiteral("must be a JSON object"));
    expectError(run, 13, QStringLiteral("wait"), QStringLiteral("\"ms\": -5 is outside"));
    expectError(run, 14, QStringLiteral("waitFor"), QStringLiteral("unknown signal \"sNope\""));
    expectError(run, 15, QStringLiteral("wait"), QStringLiteral("unknown key \"msec\""));
    expectError(run, 16, QStringLiteral("insertScenePlayer"), QStringLiteral("not available from a show"));
    expectError(run, 17, QStringLiteral("play"), QStringLiteral("\"args\" must be an array"));
    expectError(run, 18, QStringLiteral("setFadeInOut"),
                QStringLiteral("argument 2 (fadeOut): expected true or false, got a string"));
    expectError(run, 19, QStringLiteral("record"), QStringLiteral("unknown screen 9"));
    expectError(run, 20, QStringLiteral("log"), QStringLiteral("unknown variable ${nope}"));
    EXPECT_EQ(run.errors().size(), 20);

    // The show went on to its last step.
    EXPECT_EQ(run.replyTo(21).value(QStringLiteral("ok")).toString(), QStringLiteral("setCurPlayerCount"));
    EXPECT_EQ(run.events(), QStringList({"sPlayReady bankId=42"}));
}

TEST(RunnerErrors, LineOverOneMebibyteIsDroppedWithAnError)
{
    const QString dir = freshWorkDir(QStringLiteral("errors-long-line"));
    QByteArray show = "{\"op\": \"log\", \"text\": \"";
    show += QByteArray(1536 * 1024, 'x');
    show += "\"}\n{\"op\": \"setCurPlayerCount\", \"args\": [5]}\n";
    QFile file(dir + QStringLiteral("/long.jsonl"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(show);
    file.close();

    const ShowRun run = runArgs({QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--no-progress"),
                                 file.fileName()},
                                dir);
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0);
    ASSERT_EQ(run.errors().size(), 1);
    EXPECT_EQ(run.errors().at(0).value(QStringLiteral("line")).toInt(), 1);
    EXPECT_TRUE(run.errors().at(0).value(QStringLiteral("error")).toString().contains(QStringLiteral("longer than 1 MiB")));
    EXPECT_EQ(run.replyTo(2).value(QStringLiteral("ok")).toString(), QStringLiteral("setCurPlayerCount"));
    EXPECT_EQ(run.events(), QStringList({"sPlayReady bankId=5"}));
}

TEST(RunnerErrors, DeletingALayerInTheMiddleOfItsFadeLeavesTheShowRunning)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    const QString show = openScreen(1)
        + createLayer(1, 1, QStringLiteral("${media}/clip.mp4"), QStringLiteral("video"))
        + addRenderer(1, 1, 1, 0, 0, 640, 360, 640, 360)
        + step(QStringLiteral("setCurPlayerCount"), QStringLiteral("1"))
        + step(QStringLiteral("playReady"), layerRef(1, 1) + QStringLiteral(", 0, false"))
        + waitFor(QStringLiteral("sPlayReady"))
        + step(QStringLiteral("setFadeInOut"), layerRef(1, 1) + QStringLiteral(", true, 2000"))
        + QStringLiteral("{\"op\": \"wait\", \"ms\": 300}\n")
        + step(QStringLiteral("deleteplayerByID"), QStringLiteral("{\"bankId\": 1, \"layerId\": 1}"))
        + QStringLiteral("{\"op\": \"wait\", \"ms\": 300}\n")
        // The layer is gone: a command for it is an error line, not a crash.
        + step(QStringLiteral("setStopFade"), QStringLiteral("1, 1, 0"))
        + step(QStringLiteral("play"), layerRef(1, 1))
        + step(QStringLiteral("setCurPlayerCount"), QStringLiteral("42"));

    const ShowRun run = runShow(freshWorkDir(QStringLiteral("errors-delete-in-fade")), show);
    ASSERT_TRUE(run.finished) << run.errText.toStdString();
    EXPECT_EQ(run.exitCode, 0);
    // No fade end is reported for a layer deleted in its fade.
    EXPECT_EQ(run.events(), QStringList({"sendLoadAllComple layerId=1", "sPlayReady bankId=1",
                                         "sPlayReady bankId=42"}));
    ASSERT_EQ(run.errors().size(), 1);
    EXPECT_EQ(run.errors().at(0).value(QStringLiteral("line")).toInt(), 13);
    EXPECT_TRUE(run.errors().at(0).value(QStringLiteral("error")).toString().contains(QStringLiteral("no layer 1 in bank 1")));
    // setStopFade of a missing layer answers false.
    EXPECT_EQ(run.replyTo(12).value(QStringLiteral("result")), QJsonValue(false));
    EXPECT_EQ(run.replyTo(14).value(QStringLiteral("ok")).toString(), QStringLiteral("setCurPlayerCount"));
}

} // namespace
