// The OSC room's parts, in the test process: which senders the allow-list
// takes, what step each controller address becomes, how packets are
// decoded (liblo) and refused, and how events are typed.
#include "EventHub.h"
#include "StepParser.h"
#include "osc/OscAddressMap.h"
#include "osc/OscAllowList.h"
#include "osc/OscDecoder.h"
#include "osc/OscEventFormat.h"
#include "osc/OscSubscribers.h"

#include "test_runner_osc_support.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>

using osc_test::encode;

namespace {

// ---- allow-list ----

TEST(RunnerOscAllowList, LoopbackIsAlwaysAllowedAndNothingElseWithoutNetworks)
{
    OscAllowList allow;
    QString problem;
    ASSERT_TRUE(allow.parse({}, problem));
    EXPECT_TRUE(allow.allows(QHostAddress(QStringLiteral("127.0.0.1"))));
    EXPECT_TRUE(allow.allows(QHostAddress(QStringLiteral("127.0.0.2"))));
    EXPECT_TRUE(allow.allows(QHostAddress(QStringLiteral("::1"))));
    EXPECT_TRUE(allow.allows(QHostAddress(QStringLiteral("::ffff:127.0.0.1"))));
    EXPECT_FALSE(allow.allows(QHostAddress(QStringLiteral("192.168.1.5"))));
    EXPECT_FALSE(allow.allows(QHostAddress(QStringLiteral("2001:db8::1"))));
    EXPECT_FALSE(allow.allows(QHostAddress()));
}

TEST(RunnerOscAllowList, NetworksTakeTheirAddressesOnly)
{
    OscAllowList allow;
    QString problem;
    ASSERT_TRUE(allow.parse({QStringLiteral("192.168.1.0/24"), QStringLiteral("10.1.2.3"),
                             QStringLiteral("2001:db8::/32"), QStringLiteral("::ffff:172.16.0.0/108")},
                            problem))
        << problem.toStdString();
    EXPECT_TRUE(allow.allows(QHostAddress(QStringLiteral("192.168.1.77"))));
    EXPECT_TRUE(allow.allows(QHostAddress(QStringLiteral("::ffff:192.168.1.5")))); // IPv4 seen through IPv6
    EXPECT_FALSE(allow.allows(QHostAddress(QStringLiteral("192.168.2.1"))));
    EXPECT_TRUE(allow.allows(QHostAddress(QStringLiteral("10.1.2.3"))));
    EXPECT_FALSE(allow.allows(QHostAddress(QStringLiteral("10.1.2.4"))));
    EXPECT_TRUE(allow.allows(QHostAddress(QStringLiteral("2001:db8:5::9"))));
    EXPECT_FALSE(allow.allows(QHostAddress(QStringLiteral("2001:db9::1"))));
    EXPECT_TRUE(allow.allows(QHostAddress(QStringLiteral("172.16.9.9")))); // ::ffff:172.16.0.0/108 is 172.16.0.0/12
    EXPECT_FALSE(allow.allows(QHostAddress(QStringLiteral("172.32.0.1"))));
    EXPECT_EQ(allow.describe().first(), QStringLiteral("192.168.1.0/24"));
}

TEST(RunnerOscAllowList, MalformedNetworksAreRefusedWithTheirText)
{
    for (const char* bad : {"300.1.1.1/8", "10.0.0.0/33", "banana", "", "10.0.0.0/", "::ffff:10.0.0.0/64"}) {
        OscAllowList allow;
        QString problem;
        EXPECT_FALSE(allow.parse({QString::fromLatin1(bad)}, problem)) << bad;
        EXPECT_TRUE(problem.contains(QStringLiteral("--osc-allow"))) << problem.toStdString();
    }
    QStringList many;
    for (int i = 0; i <= OscAllowList::kMaxEntries; ++i)
        many << QStringLiteral("10.0.%1.0/24").arg(i);
    OscAllowList allow;
    QString problem;
    EXPECT_FALSE(allow.parse(many, problem));
}

// ---- addresses ----

OscArg intArg(qint64 n, char type = 'i')
{
    OscArg a;
    a.type = type;
    a.integer = n;
    return a;
}
OscArg realArg(double x, char type = 'f')
{
    OscArg a;
    a.type = type;
    a.real = x;
    return a;
}
OscArg textArg(const QByteArray& s)
{
    OscArg a;
    a.type = 's';
    a.text = s;
    return a;
}
OscArg tagArg(char type)
{
    OscArg a;
    a.type = type;
    return a;
}

OscRoute route(const char* path, QVector<OscArg> args = {})
{
    OscMessage m;
    m.path = path;
    m.args = std::move(args);
    return routeOscMessage(m);
}

QJsonObject json(const char* text)
{
    return QJsonDocument::fromJson(text).object();
}

/// The route is a step equal to `expected` that the runner's parser takes.
::testing::AssertionResult isStep(const OscRoute& r, const char* expected)
{
    if (r.kind != OscRoute::Kind::Step)
        return ::testing::AssertionFailure() << "not a step: " << r.problem.toStdString();
    const QJsonObject have = QJsonDocument::fromJson(r.step).object();
    if (have != json(expected))
        return ::testing::AssertionFailure() << r.step.toStdString() << " is not " << expected;
    RawLine raw;
    raw.number = 1;
    raw.text = r.step;
    Step step;
    QString problem;
    if (parseStep(raw, {}, step, problem) != ParseOutcome::Parsed)
        return ::testing::AssertionFailure() << "the parser refuses " << r.step.toStdString() << ": "
                                             << problem.toStdString();
    return ::testing::AssertionSuccess();
}

TEST(RunnerOscAddresses, LayerAddressesBecomeTheModuleSteps)
{
    EXPECT_TRUE(isStep(route("/kelmor/layer/1/2/play"), R"({"op": "play", "args": [{"bank": 1, "layer": 2}]})"));
    EXPECT_TRUE(isStep(route("/kelmor/layer/1/2/pause"), R"({"op": "pause", "args": [{"bank": 1, "layer": 2}]})"));
    EXPECT_TRUE(isStep(route("/kelmor/layer/-3/2/stop"), R"({"op": "stop", "args": [{"bank": -3, "layer": 2}]})"));
    EXPECT_TRUE(isStep(route("/kelmor/layer/1/2/ready"),
                       R"({"op": "playReady", "args": [{"bank": 1, "layer": 2}, 0, true]})"));
    EXPECT_TRUE(isStep(route("/kelmor/layer/1/2/ready", {intArg(500), tagArg('F')}),
                       R"({"op": "playReady", "args": [{"bank": 1, "layer": 2}, 500, false]})"));
    EXPECT_TRUE(isStep(route("/kelmor/layer/1/2/seek", {intArg(5000000000LL, 'h')}),
                       R"({"op": "setPosition", "args": [1, 2, 5000000000]})"));
    EXPECT_TRUE(isStep(route("/kelmor/layer/1/2/seek", {realArg(1500.0)}),
                       R"({"op": "setPosition", "args": [1, 2, 1500]})"));
    EXPECT_TRUE(isStep(route("/kelmor/layer/1/2/volume", {realArg(50)}),
                       R"({"op": "setVolumeState", "args": [2, 1, {"effectType": 7603, "volume": 50}]})"));
    EXPECT_TRUE(isStep(route("/kelmor/layer/1/2/fadein", {intArg(800)}),
                       R"({"op": "setFadeInOut", "args": [{"bank": 1, "layer": 2}, false, 800]})"));
    EXPECT_TRUE(isStep(route("/kelmor/layer/1/2/fadeout", {intArg(800)}),
                       R"({"op": "setFadeInOut", "args": [{"bank": 1, "layer": 2}, true, 800]})"));
    EXPECT_TRUE(isStep(route("/kelmor/layer/1/2/repeat", {intArg(3)}),
                       R"({"op": "setRepeat", "args": [{"bank": 1, "layer": 2}, 3]})"));
    EXPECT_TRUE(isStep(route("/kelmor/layer/1/2/opacity", {realArg(0.5, 'd')}),
                       R"({"op": "setEffectsObj", "args": [2, {"bankId": 1, "opacity": 0.5}]})"));
    EXPECT_TRUE(isStep(route("/kelmor/layer/1/2/visible", {tagArg('T')}),
                       R"({"op": "setWidgetRenderVisible", "args": [{"bank": 1, "layer": 2}, true]})"));
    EXPECT_TRUE(isStep(route("/kelmor/layer/1/2/visible", {realArg(0.0)}),
                       R"({"op": "setWidgetRenderVisible", "args": [{"bank": 1, "layer": 2}, false]})"));
}

TEST(RunnerOscAddresses, BankStepAndSubscriptionAddresses)
{
    EXPECT_TRUE(isStep(route("/kelmor/bank/4/ready"), R"({"op": "readyBank", "bank": 4, "ms": 0})"));
    EXPECT_TRUE(isStep(route("/kelmor/bank/4/ready", {intArg(250)}), R"({"op": "readyBank", "bank": 4, "ms": 250})"));
    EXPECT_TRUE(isStep(route("/kelmor/bank/4/play"), R"({"op": "playBank", "bank": 4})"));
    EXPECT_TRUE(isStep(route("/kelmor/bank/4/stop"), R"({"op": "stopBank", "bank": 4})"));
    EXPECT_TRUE(isStep(route("/kelmor/step", {textArg(R"({"op": "log", "text": "a"})")}),
                       R"({"op": "log", "text": "a"})"));

    OscRoute r = route("/kelmor/subscribe");
    EXPECT_EQ(r.kind, OscRoute::Kind::Subscribe);
    EXPECT_EQ(r.port, 0);
    EXPECT_EQ(r.intervalMs, -1);
    r = route("/kelmor/subscribe", {intArg(9000), intArg(250)});
    EXPECT_EQ(r.kind, OscRoute::Kind::Subscribe);
    EXPECT_EQ(r.port, 9000);
    EXPECT_EQ(r.intervalMs, 250);
    r = route("/kelmor/unsubscribe", {intArg(9000)});
    EXPECT_EQ(r.kind, OscRoute::Kind::Unsubscribe);
    EXPECT_EQ(r.port, 9000);
}

void expectRefused(const OscRoute& r, const char* needle)
{
    EXPECT_EQ(r.kind, OscRoute::Kind::Refused) << r.step.toStdString();
    EXPECT_TRUE(r.problem.contains(QLatin1String(needle))) << r.problem.toStdString() << " lacks " << needle;
}

TEST(RunnerOscAddresses, WrongAddressesTypesAndCountsAreRefusedWithAReason)
{
    expectRefused(route("/kelmor/nope"), "unknown address /kelmor/nope");
    expectRefused(route("/other/step", {textArg("{}")}), "unknown address");
    expectRefused(route("/kelmor/layer/1/2/jump"), "unknown address");
    expectRefused(route("/kelmor/layer/*/2/play"), "unknown address"); // patterns are not expanded
    expectRefused(route("/kelmor/layer/99999999999/2/play"), "unknown address");
    expectRefused(route("/kelmor/layer/1/play"), "unknown address");
    expectRefused(route("/kelmor/layer/1/2/play", {intArg(1)}), "takes no arguments, got 1");
    expectRefused(route("/kelmor/layer/1/2/seek"), "takes 1 argument (ms), got 0");
    expectRefused(route("/kelmor/layer/1/2/seek", {intArg(1), intArg(2)}), "got 2");
    expectRefused(route("/kelmor/layer/1/2/seek", {textArg("10")}), "argument 1 (ms) must be an integer, got type 's'");
    expectRefused(route("/kelmor/layer/1/2/seek", {realArg(1.5)}), "must be an integer");
    expectRefused(route("/kelmor/layer/1/2/repeat", {intArg(5000000000LL, 'h')}), "in range");
    expectRefused(route("/kelmor/layer/1/2/volume", {realArg(std::nan(""), 'd')}), "must be a number");
    expectRefused(route("/kelmor/layer/1/2/visible", {textArg("yes")}), "must be a boolean");
    expectRefused(route("/kelmor/layer/1/2/ready", {intArg(0), tagArg('T'), intArg(1)}), "takes 0 to 2 arguments");
    expectRefused(route("/kelmor/step"), "takes 1 string");
    expectRefused(route("/kelmor/step", {intArg(1)}), "got types 'i'");
    expectRefused(route("/kelmor/subscribe", {intArg(70000)}), "out of range");
    expectRefused(route("/kelmor/subscribe", {intArg(9000), intArg(-5)}), "out of range");
    expectRefused(route("/kelmor/bank/x/play"), "unknown address");
}

// ---- decoding ----

/// A bundle of `messages` plays (argument i), in `depth` levels of bundles.
QByteArray bundleOf(int depth, int messages = 1)
{
    const QByteArray inner = osc_test::encodeBundle(messages, "/kelmor/layer/1/1/play",
                                                    [](lo_message m, int i) { lo_message_add_int32(m, i); });
    return osc_test::nestInBundles(inner, depth - 1);
}

TEST(RunnerOscDecoder, NestingBytesAreLiblosOwn)
{
    // The tests' shortcut for deep bundles against liblo's lo_bundle_add_bundle.
    lo_message m = lo_message_new();
    lo_message_add_int32(m, 0);
    lo_bundle bundle = lo_bundle_new(LO_TT_IMMEDIATE);
    lo_bundle_add_message(bundle, "/kelmor/layer/1/1/play", m);
    for (int level = 1; level < 9; ++level) {
        lo_bundle wrap = lo_bundle_new(LO_TT_IMMEDIATE);
        lo_bundle_add_bundle(wrap, bundle);
        bundle = wrap;
    }
    std::size_t size = 0;
    void* data = lo_bundle_serialise(bundle, nullptr, &size);
    const QByteArray liblo(static_cast<const char*>(data), int(size));
    std::free(data);
    lo_bundle_free_recursive(bundle);
    EXPECT_EQ(bundleOf(9), liblo);
}

TEST(RunnerOscDecoder, MessagesAndBundlesComeOutInOrderWithTheirArguments)
{
    OscDecoder decoder;
    ASSERT_TRUE(decoder.isReady()) << decoder.setupProblem().toStdString();
    QVector<OscMessage> messages;
    QString problem;
    const QByteArray packet = encode("/kelmor/layer/1/2/seek", [](lo_message m) {
        lo_message_add_int64(m, 5000000000LL);
        lo_message_add_float(m, 0.5f);
        lo_message_add_string(m, "text");
        lo_message_add_true(m);
    });
    ASSERT_TRUE(decoder.decode(packet, messages, problem)) << problem.toStdString();
    ASSERT_EQ(messages.size(), 1);
    EXPECT_EQ(messages[0].path, QByteArray("/kelmor/layer/1/2/seek"));
    EXPECT_EQ(messages[0].types(), QByteArray("hfsT"));
    EXPECT_EQ(messages[0].args[0].integer, 5000000000LL);
    EXPECT_EQ(messages[0].args[1].real, 0.5);
    EXPECT_EQ(messages[0].args[2].text, QByteArray("text"));

    ASSERT_TRUE(decoder.decode(bundleOf(OscDecoder::kMaxBundleDepth, 3), messages, problem)) << problem.toStdString();
    ASSERT_EQ(messages.size(), 3);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(messages[i].args[0].integer, i);
}

TEST(RunnerOscDecoder, DeepBundlesAreRefusedWholeAtEveryDepthADatagramCanHold)
{
    OscDecoder decoder;
    QVector<OscMessage> messages;
    QString problem;
    // Nesting past the limit, walked by liblo.
    for (int depth : {OscDecoder::kMaxBundleDepth + 1, OscDecoder::kMaxBundles}) {
        EXPECT_FALSE(decoder.decode(bundleOf(depth), messages, problem)) << depth;
        EXPECT_TRUE(problem.contains(QStringLiteral("bundles nested deeper than 8"))) << problem.toStdString();
        EXPECT_TRUE(messages.isEmpty());
    }
    // 1000 levels, and the deepest nesting one UDP datagram can carry (20
    // bytes a level): refused before liblo has to walk them.
    for (int depth : {1000, (OscDecoder::kMaxPacketBytes - 64) / 20}) {
        const QByteArray packet = bundleOf(depth);
        ASSERT_LE(packet.size(), OscDecoder::kMaxPacketBytes);
        EXPECT_FALSE(decoder.decode(packet, messages, problem)) << depth;
        EXPECT_TRUE(problem.contains(QStringLiteral("more than 128 bundles"))) << problem.toStdString();
    }
    // Bundles side by side count as well: one holding 128 empty bundles.
    const QByteArray head = osc_test::nestInBundles(QByteArray(), 1).left(16); // "#bundle\0" and the time tag
    QByteArray siblings = head;
    for (int i = 0; i < OscDecoder::kMaxBundles; ++i)
        siblings += QByteArray("\0\0\0\x10", 4) + head;
    EXPECT_FALSE(decoder.decode(siblings, messages, problem));
    EXPECT_TRUE(problem.contains(QStringLiteral("more than 128 bundles"))) << problem.toStdString();
    // The decoder is still usable afterwards.
    EXPECT_TRUE(decoder.decode(bundleOf(2), messages, problem)) << problem.toStdString();
    EXPECT_EQ(messages.size(), 1);
}

TEST(RunnerOscDecoder, MalformedOversizedAndOverfullPacketsAreRefused)
{
    OscDecoder decoder;
    QVector<OscMessage> messages;
    QString problem;
    const QByteArray good = encode("/kelmor/layer/1/1/seek", [](lo_message m) { lo_message_add_int32(m, 7); });
    EXPECT_FALSE(decoder.decode(good.left(good.size() - 4), messages, problem)); // argument cut off
    EXPECT_TRUE(problem.startsWith(QStringLiteral("malformed packet"))) << problem.toStdString();
    EXPECT_FALSE(decoder.decode(QByteArray("garbage!"), messages, problem));
    EXPECT_TRUE(problem.startsWith(QStringLiteral("malformed packet"))) << problem.toStdString();
    QByteArray badBundle = bundleOf(2);
    badBundle[18] = char(0x7f); // the inner element's size runs past the end
    EXPECT_FALSE(decoder.decode(badBundle, messages, problem));
    EXPECT_TRUE(problem.startsWith(QStringLiteral("malformed packet"))) << problem.toStdString();
    EXPECT_FALSE(decoder.decode(QByteArray(), messages, problem));
    EXPECT_FALSE(decoder.decode(QByteArray(OscDecoder::kMaxPacketBytes + 1, '/'), messages, problem));
    EXPECT_TRUE(problem.contains(QStringLiteral("at most 65536"))) << problem.toStdString();

    const QByteArray longString = encode("/kelmor/step", [](lo_message m) {
        lo_message_add_string(m, QByteArray(60000, 'a').constData());
    });
    EXPECT_FALSE(decoder.decode(longString, messages, problem));
    EXPECT_TRUE(problem.contains(QStringLiteral("a string of 60000 bytes (at most 32768)"))) << problem.toStdString();

    EXPECT_FALSE(decoder.decode(bundleOf(1, OscDecoder::kMaxMessages + 1), messages, problem));
    EXPECT_TRUE(problem.contains(QStringLiteral("more than 64 messages"))) << problem.toStdString();
    EXPECT_TRUE(messages.isEmpty());
    EXPECT_TRUE(decoder.decode(bundleOf(1, OscDecoder::kMaxMessages), messages, problem));
    EXPECT_EQ(messages.size(), OscDecoder::kMaxMessages);
}

// ---- events out ----

TEST(RunnerOscEvents, EventsAreTypedAsTheSignalDeclaresThem)
{
    OscEventFormat format;
    ShowEvent event;
    event.name = QStringLiteral("sPositionChanged");
    event.args.add(QStringLiteral("layerId"), 2);
    event.args.add(QStringLiteral("bankId"), 1);
    event.args.add(QStringLiteral("position"), 1500.0);
    OscMessage m = format.fromEvent(event);
    EXPECT_EQ(m.path, QByteArray("/kelmor/event/sPositionChanged"));
    ASSERT_EQ(m.types(), QByteArray("iih")); // positions as 64-bit integers
    EXPECT_EQ(m.args[0].integer, 2);
    EXPECT_EQ(m.args[1].integer, 1);
    EXPECT_EQ(m.args[2].integer, 1500);

    event = ShowEvent();
    event.name = QStringLiteral("sFadeinFinished");
    EXPECT_EQ(format.fromEvent(event).types(), QByteArray());
}

TEST(RunnerOscEvents, HostLinesKeepTheirPrintedFieldOrder)
{
    OscEventFormat format;
    OscMessage m;
    ASSERT_TRUE(format.fromHostLine(
        R"({"t": 12, "host": "recordFinished", "screen": 1, "path": "/out/a.mkv", "cut": true, "frames": 6000000000, "fps": 29.97})",
        m));
    EXPECT_EQ(m.path, QByteArray("/kelmor/event/recordFinished"));
    EXPECT_EQ(m.types(), QByteArray("isThd"));
    EXPECT_EQ(m.args[1].text, QByteArray("/out/a.mkv"));
    EXPECT_FALSE(format.fromHostLine(R"({"t": 12, "event": "sPlayReady", "bankId": 1})", m));
    EXPECT_FALSE(format.fromHostLine("not json \"host\"", m));
    ASSERT_TRUE(format.fromHostLine(R"({"t": 1, "host": "we ird/name"})", m));
    EXPECT_EQ(m.path, QByteArray("/kelmor/event/we_ird_name"));
}

TEST(RunnerOscEvents, PositionsAreThinnedPerSubscriberAndLayer)
{
    OscSubscribers subscribers;
    OscPeer every{QHostAddress(QStringLiteral("127.0.0.1")), 9001};
    OscPeer thinned{QHostAddress(QStringLiteral("127.0.0.1")), 9002};
    ASSERT_EQ(subscribers.add(every, 0), OscSubscribers::Added::New);
    ASSERT_EQ(subscribers.add(thinned, 5000), OscSubscribers::Added::New);
    ASSERT_EQ(subscribers.add(thinned, 1000), OscSubscribers::Added::Updated); // the interval changes
    QHash<quint16, int> got;
    for (qint64 t = 0; t <= 2000; t += 100) {
        for (int layer : {1, 2}) {
            ShowEvent event;
            event.t = t;
            event.name = QStringLiteral("sPositionChanged");
            event.args.add(QStringLiteral("layerId"), layer);
            event.args.add(QStringLiteral("bankId"), 1);
            event.args.add(QStringLiteral("position"), double(t));
            for (const OscPeer& peer : subscribers.recipients(event))
                ++got[peer.port];
        }
    }
    EXPECT_EQ(got.value(9001), 2 * 21);
    EXPECT_EQ(got.value(9002), 2 * 3); // t = 0, 1000, 2000 for each layer
    ShowEvent other;
    other.t = 2050;
    other.name = QStringLiteral("sPlayReady");
    other.args.add(QStringLiteral("bankId"), 1);
    EXPECT_EQ(subscribers.recipients(other).size(), 2); // only positions are thinned

    EXPECT_TRUE(subscribers.remove(thinned));
    EXPECT_FALSE(subscribers.remove(thinned));
    for (int i = 1; i < OscSubscribers::kMaxSubscribers; ++i)
        EXPECT_EQ(subscribers.add(OscPeer{QHostAddress(QStringLiteral("127.0.0.1")), quint16(10000 + i)}, 0),
                  OscSubscribers::Added::New);
    EXPECT_EQ(subscribers.add(OscPeer{QHostAddress(QStringLiteral("127.0.0.1")), 20000}, 0),
              OscSubscribers::Added::Full);
}

} // namespace
