// OSC input that is refused: bad packets and messages are answered with
// /kelmor/error and a debug line and change nothing else; queues and the
// number of senders are bounded; the allow-list keeps out senders beyond
// loopback; a start that cannot be made safe is refused. The client here is
// in the test process (it needs the answers, which go back to the sender's
// own port).
#include "RunnerHarness.h"
#include "test_runner_osc_support.h"

#include <QJsonDocument>
#include <QNetworkInterface>
#include <QUdpSocket>
#include <gtest/gtest.h>
#include <memory>

using namespace runner_test;
using namespace osc_test;

namespace {

/// Starts a runner with --osc-port 0 (and stdin); returns its OSC port.
quint16 startOsc(LiveRunner& runner, const QString& dir, const QStringList& more = {})
{
    QStringList args{QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--no-progress"),
                     QStringLiteral("--osc-port"), QStringLiteral("0")};
    if (!runner.start(args + more + QStringList{QStringLiteral("-")}, dir))
        return 0;
    const QJsonObject listening = runner.nextLine(
        [](const QJsonObject& o) { return o.value(QStringLiteral("host")).toString() == QLatin1String("oscListening"); });
    return quint16(listening.value(QStringLiteral("port")).toInt());
}

QByteArray stepPacket(const QByteArray& json)
{
    return encode("/kelmor/step", [&](lo_message m) { lo_message_add_string(m, json.constData()); });
}

QByteArray nestedBundle(int depth)
{
    return nestInBundles(encodeBundle(1, "/kelmor/step", [](lo_message m, int) { lo_message_add_int32(m, 3); }),
                         depth - 1);
}

QByteArray bundleOfSteps(int count, const char* json)
{
    return encodeBundle(count, "/kelmor/step", [json](lo_message m, int) { lo_message_add_string(m, json); });
}

TEST(RunnerOscErrors, BadInputIsAnsweredWithAnErrorAndTheShowGoesOn)
{
    LiveRunner runner;
    const quint16 port = startOsc(runner, freshWorkDir(QStringLiteral("osc-bad")));
    ASSERT_NE(port, 0);
    OscClient client;
    ASSERT_TRUE(client.open());

    struct Case
    {
        const char* what;
        QByteArray packet;
        const char* expected;
    };
    const QByteArray seek = encode("/kelmor/layer/1/1/seek", [](lo_message m) { lo_message_add_int32(m, 5); });
    // Close to the longest string one UDP datagram carries (a string of a
    // full 64 KiB does not fit in one).
    const QByteArray longString(65000, 'a');
    const std::vector<Case> cases{
        {"unknown address", encode("/kelmor/nope"), "unknown address /kelmor/nope"},
        {"wrong type", encode("/kelmor/layer/1/1/seek", [](lo_message m) { lo_message_add_string(m, "soon"); }),
         "argument 1 (ms) must be an integer, got type 's'"},
        {"wrong count", encode("/kelmor/layer/1/1/play", [](lo_message m) { lo_message_add_int32(m, 1); }),
         "takes no arguments, got 1"},
        {"malformed", seek.left(seek.size() - 4), "malformed packet"},
        {"not OSC", QByteArray("hello, runner"), "malformed packet"},
        {"empty datagram", QByteArray(), "an empty packet"},
        {"bundle 1000 deep", nestedBundle(1000), "more than 128 bundles"},
        {"bundle 9 deep", nestedBundle(9), "bundles nested deeper than 8"},
        {"long string", stepPacket(longString), "a string of"},
        {"largest datagram", QByteArray(65507, '\x01'), "malformed packet"},
    };
    for (const Case& c : cases) {
        ASSERT_TRUE(client.send(port, c.packet)) << c.what;
        QString path;
        const QJsonObject answer = client.nextAnswer(10000, &path);
        EXPECT_EQ(path, QStringLiteral("/kelmor/error")) << c.what;
        EXPECT_TRUE(answer.value(QStringLiteral("error")).toString().contains(QLatin1String(c.expected)))
            << c.what << ": " << answer.value(QStringLiteral("error")).toString().toStdString();
    }
    const QString debug = runner.waitForStderr(QStringLiteral("bundles nested deeper"));
    EXPECT_TRUE(debug.contains(QStringLiteral("OSC: from 127.0.0.1:%1: unknown address /kelmor/nope").arg(client.port())))
        << debug.toStdString();

    // The show goes on: the same sender's next step runs as line 1 (nothing
    // refused became a step), and its error text is stdin's.
    ASSERT_TRUE(client.send(port, stepPacket("{\"op\": \"setCurPlayerCount\", \"args\": [5]}")));
    QString path;
    QJsonObject answer = client.nextAnswer(10000, &path);
    EXPECT_EQ(path, QStringLiteral("/kelmor/reply"));
    EXPECT_EQ(answer.value(QStringLiteral("ok")).toString(), QStringLiteral("setCurPlayerCount"));
    EXPECT_EQ(answer.value(QStringLiteral("line")).toInt(), 1);
    EXPECT_FALSE(runner.nextLine([](const QJsonObject& o) {
                           return o.value(QStringLiteral("event")).toString() == QLatin1String("sPlayReady");
                       }).isEmpty());
    const QByteArray unknownOp = "{\"op\": \"noSuchOp\", \"args\": []}";
    ASSERT_TRUE(client.send(port, stepPacket(unknownOp)));
    answer = client.nextAnswer(10000, &path);
    EXPECT_EQ(path, QStringLiteral("/kelmor/reply"));
    runner.write(unknownOp + '\n');
    const QJsonObject onStdin = runner.nextLine(replyToLine(1));
    EXPECT_EQ(answer.value(QStringLiteral("error")), onStdin.value(QStringLiteral("error")));
    EXPECT_EQ(answer.value(QStringLiteral("line")).toInt(), 2);

    // The bank steps are steps of every surface: on stdin, a bank without
    // layers and a negative time are error lines.
    runner.write("{\"op\": \"playBank\", \"bank\": 42}\n{\"op\": \"readyBank\", \"bank\": 1, \"ms\": -5}\n");
    const QJsonObject noLayers = runner.nextLine(replyToLine(2));
    const QJsonObject negative = runner.nextLine(replyToLine(3));
    EXPECT_EQ(noLayers.value(QStringLiteral("error")).toString(), QStringLiteral("bank 42 has no layers"));
    EXPECT_TRUE(negative.value(QStringLiteral("error")).toString().startsWith(QStringLiteral("\"ms\"")))
        << negative.value(QStringLiteral("error")).toString().toStdString();

    // Nothing else reached stdout: no error line, no stray event.
    for (const QJsonObject& line : runner.seen()) {
        EXPECT_TRUE(line.contains(QStringLiteral("host")) || line.value(QStringLiteral("event")) == QStringLiteral("sPlayReady")
                    || line == onStdin || line == noLayers || line == negative)
            << QJsonDocument(line).toJson().toStdString();
    }
    // The run ends cleanly (under AddressSanitizer: nothing leaked).
    ASSERT_TRUE(client.send(port, stepPacket("{\"op\": \"quit\", \"code\": 0}")));
    EXPECT_EQ(runner.waitForExit(30000), 0);
}

TEST(RunnerOscErrors, QueuesAndSendersAreBounded)
{
    LiveRunner runner;
    const quint16 port = startOsc(runner, freshWorkDir(QStringLiteral("osc-bounds")));
    ASSERT_NE(port, 0);

    // A sender held by a wait, flooding with bundles of 64 steps (five
    // datagrams, so that the kernel's buffer keeps them all): past its
    // queue of 256 steps a whole bundle is refused.
    OscClient flood;
    ASSERT_TRUE(flood.open());
    ASSERT_TRUE(flood.send(port, stepPacket("{\"op\": \"wait\", \"ms\": 1500}")));
    for (int i = 0; i < 5; ++i)
        ASSERT_TRUE(flood.send(port, bundleOfSteps(64, "{\"op\": \"wait\", \"ms\": 0}")));
    int refusedBundles = 0;
    int replies = 0;
    while (replies + 64 * refusedBundles < 1 + 5 * 64) {
        QString path;
        const QJsonObject answer = flood.nextAnswer(10000, &path);
        if (answer.isEmpty())
            break;
        if (path == QLatin1String("/kelmor/error")) {
            EXPECT_TRUE(answer.value(QStringLiteral("error")).toString().startsWith(QStringLiteral("input queue full")))
                << answer.value(QStringLiteral("error")).toString().toStdString();
            ++refusedBundles;
        } else {
            ++replies;
        }
    }
    EXPECT_GE(refusedBundles, 1);
    EXPECT_EQ(replies + 64 * refusedBundles, 1 + 5 * 64);
    EXPECT_GE(replies, 1 + 3 * 64); // the first step may still wait in the queue

    // Past 32 senders the least recently heard one is dropped, and told so
    // when it still had steps waiting.
    OscClient first;
    ASSERT_TRUE(first.open());
    ASSERT_TRUE(first.send(port, stepPacket("{\"op\": \"wait\", \"ms\": 10000}")));
    ASSERT_TRUE(first.send(port, stepPacket("{\"op\": \"wait\", \"ms\": 0}")));
    std::vector<std::unique_ptr<OscClient>> others;
    for (int i = 0; i < 32; ++i) {
        others.push_back(std::make_unique<OscClient>());
        ASSERT_TRUE(others.back()->open());
        ASSERT_TRUE(others.back()->send(port, stepPacket("{\"op\": \"wait\", \"ms\": 0}")));
        EXPECT_TRUE(others.back()->nextAnswer(10000).contains(QStringLiteral("ok"))) << i;
    }
    QString path;
    const QJsonObject dropped = first.nextAnswer(10000, &path);
    EXPECT_EQ(path, QStringLiteral("/kelmor/error"));
    EXPECT_TRUE(dropped.value(QStringLiteral("error")).toString().contains(QStringLiteral("dropped for a newer OSC sender")))
        << dropped.value(QStringLiteral("error")).toString().toStdString();
}

TEST(RunnerOscErrors, UnsafeOrImpossibleStartsAreRefused)
{
    const QString dir = freshWorkDir(QStringLiteral("osc-start"));
    ShowRun run = runArgs({QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--osc-port"), QStringLiteral("0"),
                           QStringLiteral("--osc-address"), QStringLiteral("0.0.0.0")},
                          dir, 20000);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.errText.contains(QStringLiteral("--osc-allow ADDRESS/PREFIX"))) << run.errText.toStdString();

    run = runArgs({QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--osc-port"), QStringLiteral("0"),
                   QStringLiteral("--osc-address"), QStringLiteral("0.0.0.0"), QStringLiteral("--osc-allow"),
                   QStringLiteral("10.0.0.0/33")},
                  dir, 20000);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.errText.contains(QStringLiteral("--osc-allow: not ADDRESS/PREFIX"))) << run.errText.toStdString();

    QUdpSocket taken;
    ASSERT_TRUE(taken.bind(QHostAddress(QHostAddress::LocalHost), 0));
    run = runArgs({QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--osc-port"),
                   QString::number(taken.localPort())},
                  dir, 20000);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.errText.contains(QStringLiteral("cannot bind OSC"))) << run.errText.toStdString();

    run = runArgs({QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--osc-port"), QStringLiteral("0"),
                   QStringLiteral("--osc-send"), QStringLiteral("[::1]:9000")},
                  dir, 20000);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.errText.contains(QStringLiteral("cannot reach it"))) << run.errText.toStdString();
}

/// A non-loopback IPv4 address of this machine; empty when it has none.
QString localNonLoopbackAddress()
{
    for (const QHostAddress& address : QNetworkInterface::allAddresses()) {
        if (address.protocol() == QAbstractSocket::IPv4Protocol && !address.isLoopback())
            return address.toString();
    }
    return QString();
}

TEST(RunnerOscErrors, TheAllowListDecidesForSendersBeyondLoopback)
{
    const QString own = localNonLoopbackAddress();
    if (own.isEmpty())
        GTEST_SKIP() << "this machine has no IPv4 address beyond loopback to send from";
    const QByteArray query = stepPacket("{\"op\": \"setCurPlayerCount\", \"args\": [4]}");

    // Listening on the machine's own address, taking only 198.51.100.0/24.
    {
        LiveRunner runner;
        const quint16 port = startOsc(runner, freshWorkDir(QStringLiteral("osc-allow-no")),
                                      {QStringLiteral("--osc-address"), own, QStringLiteral("--osc-allow"),
                                       QStringLiteral("198.51.100.0/24")});
        ASSERT_NE(port, 0);
        OscClient outsider;
        ASSERT_TRUE(outsider.open(own));
        ASSERT_TRUE(outsider.send(port, query, own));
        const QString debug = runner.waitForStderr(QStringLiteral("not in --osc-allow"));
        EXPECT_TRUE(debug.contains(QStringLiteral("datagram from %1:%2 dropped").arg(own).arg(outsider.port())))
            << debug.toStdString();
        EXPECT_TRUE(outsider.nextAnswer(300).isEmpty()); // no answer to a sender outside
        // Loopback is always allowed: its step runs.
        OscClient local;
        ASSERT_TRUE(local.open());
        ASSERT_TRUE(local.send(port, query, own));
        EXPECT_TRUE(local.nextAnswer().contains(QStringLiteral("ok")));
        // Only the loopback sender's step ran.
        int ready = 0;
        while (!runner.nextLine([](const QJsonObject& o) { return o.value(QStringLiteral("event")) == QStringLiteral("sPlayReady"); },
                                500)
                    .isEmpty())
            ++ready;
        EXPECT_EQ(ready, 1);
    }
    // With the sender's own address allowed, the same step runs.
    LiveRunner runner;
    const quint16 port = startOsc(runner, freshWorkDir(QStringLiteral("osc-allow-yes")),
                                  {QStringLiteral("--osc-address"), own, QStringLiteral("--osc-allow"), own + QStringLiteral("/32")});
    ASSERT_NE(port, 0);
    OscClient insider;
    ASSERT_TRUE(insider.open(own));
    ASSERT_TRUE(insider.send(port, query, own));
    EXPECT_TRUE(insider.nextAnswer().contains(QStringLiteral("ok")));
}

} // namespace
