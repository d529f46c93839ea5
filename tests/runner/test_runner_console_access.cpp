// The operator console's doors: loopback by default, the runner's token on
// every request and WebSocket beyond loopback, Host and Origin checked
// (no other site's page, no DNS rebinding), files only from the console's
// own folder, and bounded requests.
#include "test_runner_console_kit.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <gtest/gtest.h>

#include <unistd.h>

using namespace runner_test;
using namespace console_test;

namespace {

QString consoleWebDir()
{
    return QStringLiteral(KELMOR_EXAMPLES_DIR "/../host/console-web");
}

} // namespace

TEST(RunnerConsole, ServesThePageOnLoopbackAndNothingElse)
{
    LiveRunner runner;
    QJsonObject line;
    const quint16 port = startConsole(runner, freshWorkDir(QStringLiteral("console-page")), {}, &line);
    ASSERT_NE(port, 0);
    EXPECT_EQ(line.value(QStringLiteral("address")).toString(), QStringLiteral("127.0.0.1"));
    EXPECT_EQ(line.value(QStringLiteral("url")).toString(), QStringLiteral("http://127.0.0.1:%1/").arg(port));
    EXPECT_FALSE(line.value(QStringLiteral("token")).toBool());

    const HttpReply page = get(port, "/");
    EXPECT_EQ(page.status, 200);
    EXPECT_TRUE(page.header("Content-Type").startsWith("text/html"));
    EXPECT_TRUE(page.body.contains("console.js"));
    EXPECT_TRUE(page.header("Content-Security-Policy").contains("default-src 'self'"));
    EXPECT_EQ(page.header("X-Content-Type-Options"), QByteArray("nosniff"));
    const HttpReply script = get(port, "/console.js");
    EXPECT_EQ(script.status, 200);
    EXPECT_TRUE(script.header("Content-Type").startsWith("text/javascript"));
    EXPECT_EQ(get(port, "/missing.js").status, 404);
    EXPECT_EQ(get(port, "/sub/console.js").status, 404);
    EXPECT_EQ(request(port, "POST", "/").status, 405);
    EXPECT_EQ(request(port, "DELETE", "/console.js").status, 405);
    EXPECT_EQ(request(port, "GET", "/", {{"Content-Length", "5"}}).status, 413);
    // Not open beyond loopback: nothing listens on the other addresses.
    runner.write("{\"op\": \"quit\"}\n");
    EXPECT_EQ(runner.waitForExit(), 0);
}

TEST(RunnerConsole, PathsLeavingTheFolderAreRefused)
{
    // A copy of the page's folder with a link to a file outside it.
    const QString dir = freshWorkDir(QStringLiteral("console-traversal"));
    const QString web = dir + QStringLiteral("/web");
    QDir().mkpath(web);
    for (const QString& name : QDir(consoleWebDir()).entryList(QDir::Files))
        ASSERT_TRUE(QFile::copy(consoleWebDir() + QLatin1Char('/') + name, web + QLatin1Char('/') + name));
    QFile secret(dir + QStringLiteral("/secret.txt"));
    ASSERT_TRUE(secret.open(QIODevice::WriteOnly));
    secret.write("root:the secret\n");
    secret.close();
    ASSERT_EQ(::symlink("../secret.txt", QFile::encodeName(web + QStringLiteral("/linked.txt")).constData()), 0);
    QDir().mkpath(web + QStringLiteral("/sub"));

    LiveRunner runner;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("KELMOR_CONSOLE_DIR"), web);
    runner.process().setProcessEnvironment(env);
    const quint16 port = startConsole(runner, dir);
    ASSERT_NE(port, 0);
    EXPECT_EQ(get(port, "/index.html").status, 200) << "the folder from KELMOR_CONSOLE_DIR is served";

    const QByteArray paths[] = {
        "/../secret.txt",         "/../../../../etc/passwd", "/%2e%2e/secret.txt", "/%2E%2E%2Fsecret.txt",
        "/..%2fsecret.txt",       "/still/../../secret.txt",  "/./../secret.txt",   "/.%2e/secret.txt",
        "/web/../../secret.txt",  "/..",                      "/..\\secret.txt",    "/%5c..%5csecret.txt",
        "/linked.txt",            "/sub",                     "/.hidden",           "/index.html/..",
    };
    for (const QByteArray& path : paths) {
        const HttpReply reply = get(port, path);
        EXPECT_TRUE(reply.status == 400 || reply.status == 403 || reply.status == 404)
            << path.constData() << " answered " << reply.status;
        EXPECT_FALSE(reply.body.contains("root:")) << path.constData() << " served the file outside the folder";
    }
    EXPECT_EQ(get(port, "/linked.txt").status, 403) << "a symbolic link is not followed";
    EXPECT_EQ(get(port, "/../secret.txt").status, 400);
    runner.write("{\"op\": \"quit\"}\n");
    EXPECT_EQ(runner.waitForExit(), 0);
}

TEST(RunnerConsole, HostAndOriginMustBeTheConsolesOwn)
{
    LiveRunner runner;
    const quint16 port = startConsole(runner, freshWorkDir(QStringLiteral("console-origin")));
    ASSERT_NE(port, 0);
    const QByteArray own = originOf(port);
    const QByteArray portText = QByteArray::number(port);

    // DNS rebinding: another name for this address is not this console.
    EXPECT_EQ(get(port, "/", {{"Host", "evil.example:" + portText}}).status, 421);
    EXPECT_EQ(get(port, "/", {{"Host", "127.0.0.1:1"}}).status, 421);
    EXPECT_EQ(get(port, "/", {{"Host", "localhost:" + portText}}).status, 200);
    // A page of another site may not fetch from it either.
    EXPECT_EQ(get(port, "/", {{"Origin", "http://evil.example"}}).status, 403);

    // The WebSocket: only from the console's own page.
    EXPECT_EQ(upgrade(port, "/ws", {{"Origin", "http://evil.example"}}).status, 403);
    EXPECT_EQ(upgrade(port, "/ws", {{"Origin", "http://127.0.0.1:" + QByteArray::number(port + 1)}}).status, 403);
    EXPECT_EQ(upgrade(port, "/ws", {{"Origin", "null"}}).status, 403);
    EXPECT_EQ(upgrade(port, "/ws", {}).status, 403) << "an Origin is required";
    EXPECT_EQ(upgrade(port, "/ws", {{"Origin", own}, {"Host", "evil.example:" + portText}}).status, 421);
    EXPECT_EQ(upgrade(port, "/other", {{"Origin", own}}).status, 404);
    EXPECT_EQ(upgrade(port, "/ws", {{"Origin", own}}).status, 101);
    const QString notes = runner.waitForStderr(QStringLiteral("another origin"));
    EXPECT_TRUE(notes.contains(QStringLiteral("refused GET /ws from 127.0.0.1: the request comes from another origin")));

    runner.write("{\"op\": \"quit\"}\n");
    EXPECT_EQ(runner.waitForExit(), 0);
}

TEST(RunnerConsole, BeyondLoopbackEveryRequestNeedsTheToken)
{
    LiveRunner runner;
    QJsonObject line;
    const quint16 port = startConsole(runner, freshWorkDir(QStringLiteral("console-token")),
                                      {QStringLiteral("--http-address"), QStringLiteral("0.0.0.0")}, &line);
    ASSERT_NE(port, 0);
    EXPECT_TRUE(line.value(QStringLiteral("token")).toBool());
    EXPECT_FALSE(line.value(QStringLiteral("url")).toString().contains(QStringLiteral("token="))) << "never on stdout";
    const QString notes = runner.waitForStderr(QStringLiteral("(generated token)"));
    const QRegularExpressionMatch m = QRegularExpression(QStringLiteral("\\?token=([0-9a-f]{32}) \\(generated token\\)")).match(notes);
    ASSERT_TRUE(m.hasMatch()) << notes.toStdString();
    const QByteArray token = m.captured(1).toLatin1();

    EXPECT_EQ(get(port, "/").status, 401);
    EXPECT_EQ(get(port, "/console.js").status, 401);
    EXPECT_EQ(get(port, "/still/1.png").status, 401);
    EXPECT_EQ(get(port, "/?token=0123456789abcdef0123456789abcdef").status, 403);
    EXPECT_EQ(get(port, "/", {{"Cookie", "kelmor_console=wrongwrongwrongwrong"}}).status, 403);
    EXPECT_EQ(upgrade(port, "/ws", {{"Origin", originOf(port)}}).status, 401);
    // The token with its last digit changed (a fixed digit would be the
    // token itself once in 16 runs).
    const QByteArray nearMiss = token.left(31) + (token.endsWith('0') ? "1" : "0");
    EXPECT_EQ(upgrade(port, "/ws?token=" + nearMiss, {{"Origin", originOf(port)}}).status, 403);

    // The right token in the query: the page, and a cookie for the rest.
    const HttpReply page = get(port, "/?token=" + token);
    EXPECT_EQ(page.status, 200);
    const QByteArray cookie = page.header("Set-Cookie");
    EXPECT_TRUE(cookie.startsWith("kelmor_console=" + token + ";")) << cookie.constData();
    EXPECT_TRUE(cookie.contains("HttpOnly"));
    EXPECT_TRUE(cookie.contains("SameSite=Strict"));
    EXPECT_EQ(get(port, "/console.js", {{"Cookie", "kelmor_console=" + token}}).status, 200);

    ConsolePage pageSocket;
    ASSERT_TRUE(pageSocket.open(port, "/ws?token=" + token));
    EXPECT_FALSE(pageSocket.next([](const QJsonObject& o) { return o.contains(QStringLiteral("console")); }).isEmpty());
    pageSocket.send("{\"op\": \"state\"}");
    EXPECT_EQ(pageSocket.next(replyTo(1)).value(QStringLiteral("ok")).toString(), QStringLiteral("state"));
    pageSocket.close();

    runner.write("{\"op\": \"quit\"}\n");
    EXPECT_EQ(runner.waitForExit(), 0);
}

TEST(RunnerConsole, AGivenTokenIsRequiredOnLoopbackToo)
{
    LiveRunner runner;
    const QByteArray token = "console-token-1234567890";
    const quint16 port = startConsole(runner, freshWorkDir(QStringLiteral("console-given-token")),
                                      {QStringLiteral("--token"), QString::fromLatin1(token)});
    ASSERT_NE(port, 0);
    EXPECT_EQ(get(port, "/").status, 401);
    EXPECT_EQ(get(port, "/?token=" + token).status, 200);
    EXPECT_FALSE(runner.waitForStderr(QStringLiteral("requires the runner's token")).contains(QString::fromLatin1(token)))
        << "a token the operator gave is not printed";
    runner.write("{\"op\": \"quit\"}\n");
    EXPECT_EQ(runner.waitForExit(), 0);
}

TEST(RunnerConsole, AnAddressThatIsNotOneIsAUsageError)
{
    const ShowRun run = runArgs({QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--http"),
                                 QStringLiteral("0"), QStringLiteral("--http-address"), QStringLiteral("console.example")},
                                freshWorkDir(QStringLiteral("console-bad-address")), 20000);
    EXPECT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.errText.contains(QStringLiteral("--http-address: not an IP address"))) << run.errText.toStdString();
    const ShowRun badPort = runArgs({QStringLiteral("--http"), QStringLiteral("70000")},
                                    freshWorkDir(QStringLiteral("console-bad-port")), 20000);
    EXPECT_EQ(badPort.exitCode, 1);
    EXPECT_TRUE(badPort.errText.contains(QStringLiteral("--http: not a port number")));
}
