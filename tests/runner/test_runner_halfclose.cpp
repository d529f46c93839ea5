// Live control with a client that sends its steps and at once shuts down its
// sending side (shutdown(SHUT_WR), as "nc -N" or a script's last write
// does): every step still runs, every reply arrives in order, the events
// meanwhile too, and then the runner closes the connection.
#include "RawClient.h"
#include "RunnerHarness.h"

#include <QJsonDocument>
#include <gtest/gtest.h>

using namespace runner_test;

namespace {

TEST(RunnerHalfClose, RepliesToEveryLineArriveInOrderBeforeTheConnectionCloses)
{
    LiveRunner runner;
    const quint16 port = startListening(runner, freshWorkDir(QStringLiteral("halfclose")));
    ASSERT_NE(port, 0);

    RawClient client;
    ASSERT_TRUE(client.connectTo(QStringLiteral("127.0.0.1"), port));
    ASSERT_TRUE(client.sendAll("{\"op\": \"setCurPlayerCount\", \"args\": [31]}\n"
                               "{\"op\": \"wait\", \"ms\": 200}\n"
                               "{\"op\": \"getTP\", \"args\": [{}]}\n"
                               "{\"op\": \"nope\"}\n"
                               "{\"op\": \"wait\", \"ms\": 50}\n"
                               "{\"op\": \"setCurPlayerCount\", \"args\": [32]}")); // no line end: still a line
    client.shutdownWrite();

    QList<QByteArray> lines;
    ASSERT_TRUE(client.waitForEnd(15000, &lines)) << "the runner did not close the connection";
    QList<QJsonObject> replies;
    QStringList events;
    for (const QByteArray& line : lines) {
        const QJsonObject o = QJsonDocument::fromJson(line).object();
        if (isReplyLine(o))
            replies << o;
        else if (o.contains(QStringLiteral("event")))
            events << describeEvent(o);
    }
    ASSERT_EQ(replies.size(), 6) << lines.size() << " lines received";
    const QStringList expected{"setCurPlayerCount", "wait", "getTP", "", "wait", "setCurPlayerCount"};
    for (int i = 0; i < replies.size(); ++i) {
        EXPECT_EQ(replies.at(i).value(QStringLiteral("line")).toInt(), i + 1);
        EXPECT_EQ(replies.at(i).value(QStringLiteral("ok")).toString(), expected.at(i)) << "reply " << i + 1;
    }
    EXPECT_TRUE(replies.at(3).value(QStringLiteral("error")).toString().contains(QStringLiteral("unknown op")));
    // Events kept coming after the client's end of input, up to its last reply.
    EXPECT_EQ(events, QStringList({"sPlayReady bankId=31", "sPlayReady bankId=32"}));

    // The runner goes on serving.
    RawClient other;
    ASSERT_TRUE(other.connectTo(QStringLiteral("127.0.0.1"), port));
    ASSERT_TRUE(other.sendAll("{\"op\": \"quit\", \"code\": 4}\n"));
    EXPECT_EQ(other.next(isReplyLine).value(QStringLiteral("ok")).toString(), QStringLiteral("quit"));
    EXPECT_EQ(runner.waitForExit(), 4);
}

} // namespace
