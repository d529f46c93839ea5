// Live control beyond loopback needs a token: generated (and shown once on
// stderr) unless one is given with --token, which loopback then requires as
// well. A connection's first step must present it; until then nothing runs
// and no event is sent; a wrong token ends the connection.
#include "RawClient.h"
#include "RunnerHarness.h"

#include <QJsonDocument>
#include <QRegularExpression>
#include <gtest/gtest.h>

using namespace runner_test;

namespace {

const char* const kToken = "s3cret-token-for-tests-0123456789";

bool isEvent(const QJsonObject& o)
{
    return o.contains(QStringLiteral("event"));
}

QByteArray authLine(const QString& token)
{
    return "{\"op\": \"auth\", \"token\": \"" + token.toUtf8() + "\"}\n";
}

/// Reads a client's lines up to its next reply; events seen on the way are
/// counted in `events`.
QJsonObject replyCountingEvents(RawClient& client, int& events)
{
    return client.next([&events](const QJsonObject& o) {
        if (isEvent(o))
            ++events;
        return isReplyLine(o);
    });
}

TEST(RunnerAuth, BeyondLoopbackATokenIsGeneratedShownOnceOnStderrAndRequired)
{
    LiveRunner runner;
    const quint16 port = startListening(runner, freshWorkDir(QStringLiteral("auth-generated")),
                                        {QStringLiteral("--listen-address"), QStringLiteral("0.0.0.0")});
    ASSERT_NE(port, 0);
    const QString err = runner.waitForStderr(QStringLiteral("generated token: "), 10000);
    const QRegularExpressionMatch m =
        QRegularExpression(QStringLiteral("generated token: ([0-9a-f]{32})\\b")).match(err);
    ASSERT_TRUE(m.hasMatch()) << err.toStdString();
    const QString token = m.captured(1);
    EXPECT_EQ(err.count(token), 1);

    RawClient client;
    ASSERT_TRUE(client.connectTo(QStringLiteral("127.0.0.1"), port));
    ASSERT_TRUE(client.sendAll("{\"op\": \"setCurPlayerCount\", \"args\": [41]}\n"));
    int events = 0;
    const QJsonObject refused = replyCountingEvents(client, events);
    EXPECT_TRUE(refused.value(QStringLiteral("error")).toString().startsWith(QStringLiteral("not authenticated")))
        << QJsonDocument(refused).toJson().toStdString();
    EXPECT_EQ(refused.value(QStringLiteral("line")).toInt(), 1);

    ASSERT_TRUE(client.sendAll(authLine(token) + "{\"op\": \"setCurPlayerCount\", \"args\": [42]}\n"));
    EXPECT_EQ(replyCountingEvents(client, events).value(QStringLiteral("ok")).toString(), QStringLiteral("auth"));
    const QJsonObject ran = replyCountingEvents(client, events);
    EXPECT_EQ(ran.value(QStringLiteral("ok")).toString(), QStringLiteral("setCurPlayerCount"));
    EXPECT_EQ(ran.value(QStringLiteral("line")).toInt(), 3);
    EXPECT_EQ(events, 1); // bank 42's, now that it may see events

    ASSERT_TRUE(client.sendAll("{\"op\": \"quit\"}\n"));
    EXPECT_EQ(runner.waitForExit(), 0);
    // Shown once: the rest of stderr does not repeat it.
    EXPECT_FALSE(QString::fromUtf8(runner.process().readAllStandardError()).contains(token));
    // The refused step never ran; the token never reached stdout.
    for (const QJsonObject& line : runner.seen()) {
        EXPECT_NE(line.value(QStringLiteral("bankId")).toInt(), 41);
        EXPECT_FALSE(QJsonDocument(line).toJson().contains(token.toUtf8()));
    }
}

TEST(RunnerAuth, OnLoopbackAGivenTokenIsRequiredAndUnauthenticatedClientsGetNoEvents)
{
    LiveRunner runner;
    const quint16 port = startListening(runner, freshWorkDir(QStringLiteral("auth-loopback")),
                                        {QStringLiteral("--token"), QString::fromLatin1(kToken)});
    ASSERT_NE(port, 0);

    RawClient stranger, owner;
    ASSERT_TRUE(stranger.connectTo(QStringLiteral("127.0.0.1"), port));
    ASSERT_TRUE(owner.connectTo(QStringLiteral("127.0.0.1"), port));
    ASSERT_TRUE(stranger.sendAll("{\"op\": \"getTP\", \"args\": [{}]}\n"));
    int strangerEvents = 0, ownerEvents = 0;
    EXPECT_TRUE(replyCountingEvents(stranger, strangerEvents).value(QStringLiteral("error")).toString()
                    .startsWith(QStringLiteral("not authenticated")));

    ASSERT_TRUE(owner.sendAll(authLine(QString::fromLatin1(kToken)) + "{\"op\": \"setCurPlayerCount\", \"args\": [43]}\n"));
    EXPECT_EQ(replyCountingEvents(owner, ownerEvents).value(QStringLiteral("ok")).toString(), QStringLiteral("auth"));
    EXPECT_EQ(replyCountingEvents(owner, ownerEvents).value(QStringLiteral("ok")).toString(),
              QStringLiteral("setCurPlayerCount"));
    EXPECT_EQ(ownerEvents, 1);

    // The event went out before this reply: the stranger would have had it first.
    ASSERT_TRUE(stranger.sendAll("# still nobody\n{\"op\": \"getTP\", \"args\": [{}]}\n"));
    const QJsonObject second = replyCountingEvents(stranger, strangerEvents);
    EXPECT_EQ(second.value(QStringLiteral("line")).toInt(), 3);
    EXPECT_TRUE(second.contains(QStringLiteral("error")));
    EXPECT_EQ(strangerEvents, 0);

    ASSERT_TRUE(owner.sendAll("{\"op\": \"quit\"}\n"));
    EXPECT_EQ(runner.waitForExit(), 0);
}

TEST(RunnerAuth, AWrongTokenIsAnsweredAndTheConnectionClosed)
{
    LiveRunner runner;
    const quint16 port = startListening(runner, freshWorkDir(QStringLiteral("auth-wrong")),
                                        {QStringLiteral("--token"), QString::fromLatin1(kToken)});
    ASSERT_NE(port, 0);

    RawClient client;
    ASSERT_TRUE(client.connectTo(QStringLiteral("127.0.0.1"), port));
    ASSERT_TRUE(client.sendAll(authLine(QStringLiteral("s3cret-token-for-tests-0123456788"))
                               + "{\"op\": \"setCurPlayerCount\", \"args\": [44]}\n"));
    QList<QByteArray> lines;
    ASSERT_TRUE(client.waitForEnd(10000, &lines)) << "still connected after a wrong token";
    ASSERT_EQ(lines.size(), 1);
    const QJsonObject reply = QJsonDocument::fromJson(lines.first()).object();
    EXPECT_EQ(reply.value(QStringLiteral("error")).toString(), QStringLiteral("wrong token; disconnected"));
    EXPECT_EQ(reply.value(QStringLiteral("op")).toString(), QStringLiteral("auth"));

    // The right token still works on a new connection.
    RawClient again;
    ASSERT_TRUE(again.connectTo(QStringLiteral("127.0.0.1"), port));
    ASSERT_TRUE(again.sendAll(authLine(QString::fromLatin1(kToken)) + "{\"op\": \"quit\", \"code\": 6}\n"));
    EXPECT_EQ(again.next(isReplyLine).value(QStringLiteral("ok")).toString(), QStringLiteral("auth"));
    EXPECT_EQ(runner.waitForExit(), 6);
    for (const QJsonObject& line : runner.seen())
        EXPECT_NE(line.value(QStringLiteral("bankId")).toInt(), 44);
}

TEST(RunnerAuth, WithoutATokenAuthIsAnsweredAndStepsRunAsBefore)
{
    LiveRunner runner;
    const quint16 port = startListening(runner, freshWorkDir(QStringLiteral("auth-none")), {});
    ASSERT_NE(port, 0);
    RawClient client;
    ASSERT_TRUE(client.connectTo(QStringLiteral("127.0.0.1"), port));
    ASSERT_TRUE(client.sendAll(authLine(QStringLiteral("anything")) + "{\"op\": \"quit\", \"code\": 7}\n"));
    const QJsonObject auth = client.next(isReplyLine);
    EXPECT_EQ(auth.value(QStringLiteral("ok")).toString(), QStringLiteral("auth"));
    EXPECT_EQ(auth.value(QStringLiteral("required")), QJsonValue(false));
    EXPECT_EQ(runner.waitForExit(), 7);
}

TEST(RunnerAuth, ATooShortTokenIsAUsageError)
{
    const ShowRun run = runArgs({QStringLiteral("--listen"), QStringLiteral("0"), QStringLiteral("--token"),
                                 QStringLiteral("short")},
                                freshWorkDir(QStringLiteral("auth-usage")), 20000);
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.errText.contains(QStringLiteral("--token: 16 to 256 characters"))) << run.errText.toStdString();
}

} // namespace
