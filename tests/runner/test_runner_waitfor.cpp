// waitFor looks at the events since its source's previous waitFor matched,
// also when a waitFor in between timed out: a timeout uses nothing up.
#include "RunnerHarness.h"

#include <QJsonDocument>
#include <gtest/gtest.h>

using namespace runner_test;

namespace {

TEST(RunnerWaitFor, AnEventBeforeATimedOutWaitForIsStillFoundAfterIt)
{
    const QString dir = freshWorkDir(QStringLiteral("waitfor-after-timeout"));
    // setCurPlayerCount with no layers makes the bank ready at once.
    const QString show = QStringLiteral(
        "{\"op\": \"setCurPlayerCount\", \"args\": [11]}\n"
        "{\"op\": \"waitFor\", \"signal\": \"sPlayReady\", \"args\": {\"bankId\": 11}, \"timeoutMs\": 5000}\n"
        "{\"op\": \"wait\", \"ms\": 150}\n"
        "{\"op\": \"setCurPlayerCount\", \"args\": [12]}\n"
        "{\"op\": \"waitFor\", \"signal\": \"sPlayReady\", \"args\": {\"bankId\": 99}, \"timeoutMs\": 300}\n"
        "{\"op\": \"waitFor\", \"signal\": \"sPlayReady\", \"args\": {\"bankId\": 12}, \"timeoutMs\": 3000}\n"
        "# A timeout with nothing since: the next event is found as it comes.\n"
        "{\"op\": \"waitFor\", \"signal\": \"sPlayReady\", \"args\": {\"bankId\": 98}, \"timeoutMs\": 200}\n"
        "{\"op\": \"setCurPlayerCount\", \"args\": [13]}\n"
        "{\"op\": \"waitFor\", \"signal\": \"sPlayReady\", \"args\": {\"bankId\": 13}, \"timeoutMs\": 3000}\n");
    const ShowRun run = runShow(dir, show);
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.replyTo(2).value(QStringLiteral("ok")).toString(), QStringLiteral("waitFor"));
    EXPECT_TRUE(run.replyTo(5).value(QStringLiteral("error")).toString().contains(QStringLiteral("timed out")));
    const QJsonObject found = run.replyTo(6);
    EXPECT_EQ(found.value(QStringLiteral("ok")).toString(), QStringLiteral("waitFor"))
        << QJsonDocument(found).toJson().toStdString();
    EXPECT_EQ(found.value(QStringLiteral("matched")).toObject().value(QStringLiteral("bankId")).toInt(), 12);
    EXPECT_TRUE(run.replyTo(8).value(QStringLiteral("error")).toString().contains(QStringLiteral("timed out")));
    EXPECT_EQ(run.replyTo(10).value(QStringLiteral("ok")).toString(), QStringLiteral("waitFor"));
    // A matched event is used up: bank 11's event is not matched twice.
    EXPECT_EQ(run.errors().size(), 2);
}

} // namespace
