// Live control: a controller drives a running runner over a pipe (stdin) and
// over the loopback TCP port, one JSON line per step, each answered with its
// ok/error line; floods are answered line by line and the runner keeps
// serving.
#include "RunnerHarness.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QHostAddress>
#include <QTcpSocket>
#include <gtest/gtest.h>

using namespace runner_test;

namespace {

bool isEvent(const QJsonObject& o, const char* name)
{
    return o.value(QStringLiteral("event")).toString() == QLatin1String(name);
}

/// Reads lines of a socket as JSON objects.
class LineClient
{
public:
    bool connectTo(quint16 port)
    {
        m_socket.connectToHost(QHostAddress::LocalHost, port);
        return m_socket.waitForConnected(10000);
    }
    void send(const QByteArray& bytes)
    {
        m_socket.write(bytes);
        m_socket.flush();
    }
    /// The next line for which `match` holds (others are passed over).
    QJsonObject next(const std::function<bool(const QJsonObject&)>& match, int timeoutMs = 20000)
    {
        QElapsedTimer clock;
        clock.start();
        for (;;) {
            while (m_socket.canReadLine()) {
                const QJsonDocument doc = QJsonDocument::fromJson(m_socket.readLine());
                if (doc.isObject() && match(doc.object()))
                    return doc.object();
            }
            const qint64 left = timeoutMs - clock.elapsed();
            if (left <= 0 || !m_socket.waitForReadyRead(int(left)))
                return QJsonObject();
        }
    }
    QTcpSocket& socket() { return m_socket; }

private:
    QTcpSocket m_socket;
};

bool isReply(const QJsonObject& o)
{
    return o.contains(QStringLiteral("ok")) || o.contains(QStringLiteral("error"));
}

/// Starts a runner listening on a free loopback port; returns the port.
quint16 startOnLoopback(LiveRunner& runner, const QString& dir, const QStringList& more = {})
{
    QString address;
    const quint16 port = startListening(runner, dir, more, &address);
    EXPECT_EQ(address, QStringLiteral("127.0.0.1"));
    return port;
}

TEST(RunnerControl, StepsOverStdinAreAnsweredInOrderAndQuitSetsTheExitCode)
{
    LiveRunner runner;
    ASSERT_TRUE(runner.start({QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--no-progress"),
                              QStringLiteral("-")},
                             freshWorkDir(QStringLiteral("control-stdin"))));

    runner.write("{\"op\": \"setCurPlayerCount\", \"args\": [7]}\n");
    const QJsonObject ready = runner.nextLine([](const QJsonObject& o) { return isEvent(o, "sPlayReady"); });
    EXPECT_EQ(ready.value(QStringLiteral("bankId")).toInt(), 7);
    EXPECT_EQ(runner.nextLine(replyToLine(1)).value(QStringLiteral("ok")).toString(),
              QStringLiteral("setCurPlayerCount"));

    runner.write("# a comment\n{\"op\": \"getTP\", \"args\": [{}]}\n");
    const QJsonObject tp = runner.nextLine(replyToLine(3));
    EXPECT_EQ(tp.value(QStringLiteral("ok")).toString(), QStringLiteral("getTP"));
    EXPECT_EQ(tp.value(QStringLiteral("result")), QJsonValue(QJsonObject()));

    runner.write("{\"op\": \"play\", \"args\": [\n");
    const QJsonObject bad = runner.nextLine(replyToLine(4));
    EXPECT_TRUE(bad.value(QStringLiteral("error")).toString().startsWith(QStringLiteral("malformed JSON")));

    // A wait holds the steps behind it; they are answered after it, in order.
    runner.write("{\"op\": \"wait\", \"ms\": 200}\n{\"op\": \"getplayerByID\", \"args\": [1, 1]}\n");
    const QJsonObject waited = runner.nextLine(replyToLine(5));
    EXPECT_EQ(waited.value(QStringLiteral("ok")).toString(), QStringLiteral("wait"));
    const QJsonObject lookup = runner.nextLine(replyToLine(6));
    EXPECT_EQ(lookup.value(QStringLiteral("result")), QJsonValue(QJsonValue::Null));

    runner.write("{\"op\": \"quit\", \"code\": 3}\n{\"op\": \"setCurPlayerCount\", \"args\": [8]}\n");
    EXPECT_EQ(runner.nextLine(replyToLine(7)).value(QStringLiteral("ok")).toString(), QStringLiteral("quit"));
    EXPECT_EQ(runner.waitForExit(), 3);
    // Nothing ran after quit.
    for (const QJsonObject& line : runner.seen())
        EXPECT_NE(line.value(QStringLiteral("line")).toInt(), 8);
}

TEST(RunnerControl, EndOfStdinEndsTheRun)
{
    const ShowRun run = runArgs({QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--no-progress"),
                                 QStringLiteral("--stdin")},
                                freshWorkDir(QStringLiteral("control-stdin-end")), 30000,
                                "{\"op\": \"setCurPlayerCount\", \"args\": [4]}\n");
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.events(), QStringList({"sPlayReady bankId=4"}));
    EXPECT_EQ(run.replyTo(1).value(QStringLiteral("ok")).toString(), QStringLiteral("setCurPlayerCount"));
}

TEST(RunnerControl, TcpClientsGetTheirRepliesAndEveryEvent)
{
    LiveRunner runner;
    const quint16 port = startOnLoopback(runner, freshWorkDir(QStringLiteral("control-tcp")));
    ASSERT_NE(port, 0);

    LineClient a, b;
    ASSERT_TRUE(a.connectTo(port));
    ASSERT_TRUE(b.connectTo(port));
    // Client b's lines are numbered on its own connection. Its answer also
    // says the runner has taken b on, so b hears the event below (a client
    // still waiting to be accepted hears nothing sent before).
    b.send("{\"op\": \"nope\"}\n");
    const QJsonObject error = b.next(isReply);
    EXPECT_EQ(error.value(QStringLiteral("error")).toString(), QStringLiteral("unknown op \"nope\""));
    EXPECT_EQ(error.value(QStringLiteral("line")).toInt(), 1);

    a.send("{\"op\": \"setCurPlayerCount\", \"args\": [11]}\n");
    const QJsonObject reply = a.next(isReply);
    EXPECT_EQ(reply.value(QStringLiteral("ok")).toString(), QStringLiteral("setCurPlayerCount"));
    EXPECT_EQ(reply.value(QStringLiteral("line")).toInt(), 1);
    // Both clients (and stdout) see the event.
    EXPECT_EQ(b.next([](const QJsonObject& o) { return isEvent(o, "sPlayReady"); })
                  .value(QStringLiteral("bankId")).toInt(), 11);
    EXPECT_EQ(runner.nextLine([](const QJsonObject& o) { return isEvent(o, "sPlayReady"); })
                  .value(QStringLiteral("bankId")).toInt(), 11);

    // A line over 1 MiB is answered with an error and dropped; the next runs.
    QByteArray huge = "{\"op\": \"log\", \"text\": \"" + QByteArray(1200 * 1024, 'y') + "\"}\n";
    a.send(huge + "{\"op\": \"getTP\", \"args\": [{}]}\n");
    const QJsonObject tooLong = a.next(isReply);
    EXPECT_EQ(tooLong.value(QStringLiteral("line")).toInt(), 2);
    EXPECT_TRUE(tooLong.value(QStringLiteral("error")).toString().contains(QStringLiteral("longer than 1 MiB")));
    const QJsonObject after = a.next(isReply);
    EXPECT_EQ(after.value(QStringLiteral("line")).toInt(), 3);
    EXPECT_EQ(after.value(QStringLiteral("ok")).toString(), QStringLiteral("getTP"));

    b.send("{\"op\": \"quit\", \"code\": 0}\n");
    EXPECT_EQ(b.next(isReply).value(QStringLiteral("ok")).toString(), QStringLiteral("quit"));
    EXPECT_EQ(runner.waitForExit(), 0);
}

TEST(RunnerControl, FloodOfTwoThousandStepsIsAnsweredLineByLineAndServingGoesOn)
{
    LiveRunner runner;
    const quint16 port = startOnLoopback(runner, freshWorkDir(QStringLiteral("control-flood")));
    ASSERT_NE(port, 0);
    LineClient client;
    ASSERT_TRUE(client.connectTo(port));

    constexpr int kSteps = 2000;
    QByteArray flood;
    for (int i = 1; i <= kSteps; ++i) {
        // Every 100th step is bad: it is answered with an error in its place.
        flood += (i % 100 == 0) ? QByteArray("{\"op\": \"setFadeTime\", \"args\": [\"x\"]}\n")
                                : QByteArray("{\"op\": \"setFadeTime\", \"args\": [1.5]}\n");
    }
    client.send(flood);

    int oks = 0, errors = 0;
    for (int i = 1; i <= kSteps; ++i) {
        const QJsonObject reply = client.next(isReply);
        ASSERT_EQ(reply.value(QStringLiteral("line")).toInt(), i) << "reply " << i << " missing or out of order";
        if (reply.contains(QStringLiteral("ok")))
            ++oks;
        else
            ++errors;
    }
    EXPECT_EQ(oks, kSteps - kSteps / 100);
    EXPECT_EQ(errors, kSteps / 100);

    // Still serving: this connection and a new one.
    client.send("{\"op\": \"setCurPlayerCount\", \"args\": [3]}\n");
    EXPECT_EQ(client.next(isReply).value(QStringLiteral("line")).toInt(), kSteps + 1);
    LineClient late;
    ASSERT_TRUE(late.connectTo(port));
    late.send("{\"op\": \"getModulePlayerMap\", \"args\": [3]}\n");
    const QJsonObject map = late.next(isReply);
    EXPECT_EQ(map.value(QStringLiteral("ok")).toString(), QStringLiteral("getModulePlayerMap"));
    EXPECT_EQ(map.value(QStringLiteral("result")), QJsonValue(QJsonArray()));

    late.send("{\"op\": \"quit\"}\n");
    EXPECT_EQ(runner.waitForExit(), 0);
}

TEST(RunnerControl, ShowFileAndPortTogetherKeepServingAfterTheFileEnds)
{
    const QString dir = freshWorkDir(QStringLiteral("control-file-and-port"));
    QFile show(dir + QStringLiteral("/short.jsonl"));
    ASSERT_TRUE(show.open(QIODevice::WriteOnly));
    show.write("{\"op\": \"setCurPlayerCount\", \"args\": [21]}\n");
    show.close();

    LiveRunner runner;
    const quint16 port = startOnLoopback(runner, dir, {QStringLiteral("--keep-running"), show.fileName()});
    ASSERT_NE(port, 0);
    EXPECT_EQ(runner.nextLine(replyToLine(1)).value(QStringLiteral("ok")).toString(),
              QStringLiteral("setCurPlayerCount"));

    LineClient client;
    ASSERT_TRUE(client.connectTo(port));
    client.send("{\"op\": \"quit\", \"code\": 5}\n");
    EXPECT_EQ(client.next(isReply).value(QStringLiteral("ok")).toString(), QStringLiteral("quit"));
    EXPECT_EQ(runner.waitForExit(), 5);
}

TEST(RunnerControl, SigtermEndsTheRunInOrderWithItsLayersEnded)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    LiveRunner runner;
    const quint16 port = startOnLoopback(runner, freshWorkDir(QStringLiteral("control-sigterm")));
    ASSERT_NE(port, 0);
    LineClient client;
    ASSERT_TRUE(client.connectTo(port));
    const QByteArray layer = QStringLiteral(
        "{\"op\": \"creatnewlayer\", \"args\": [{\"bankId\": 1, \"layerId\": 1, \"path\": \"%1/clip.mp4\", "
        "\"groupID\": 1, \"type\": \"video\", \"timeLenMsec\": 4000, \"isSetPr\": false}]}\n"
        "{\"op\": \"setLayerMediaType\", \"args\": [{\"bank\": 1, \"layer\": 1}, \"video\"]}\n"
        "{\"op\": \"setCurPlayerCount\", \"args\": [1]}\n"
        "{\"op\": \"playReady\", \"args\": [{\"bank\": 1, \"layer\": 1}, 0, false]}\n"
        "{\"op\": \"waitFor\", \"signal\": \"sPlayReady\", \"timeoutMs\": 15000}\n")
                                .arg(mediaDir())
                                .toUtf8();
    client.send(layer);
    const QJsonObject ready = client.next([](const QJsonObject& o) { return isReply(o) && o.value(QStringLiteral("line")).toInt() == 5; });
    ASSERT_EQ(ready.value(QStringLiteral("ok")).toString(), QStringLiteral("waitFor"));

    runner.process().terminate(); // SIGTERM
    EXPECT_EQ(runner.waitForExit(), 128 + 15);
    const QString err = QString::fromUtf8(runner.process().readAllStandardError());
    EXPECT_TRUE(err.contains(QStringLiteral("signal 15: ending the run"))) << err.toStdString();
    // The layer was ended through the registry before the exit.
    EXPECT_TRUE(err.contains(QStringLiteral("comand deletePlayer"))) << err.toStdString();
}

} // namespace
