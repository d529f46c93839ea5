// The screen-sharing steps (publishScreen, unpublishScreen) through the
// runner: answers, refusals and a clean end of the run with a screen still
// published. No PipeWire daemon is needed: the node would appear once one
// ran (the picture itself is tested in tests/pipewire/).
#include "RunnerHarness.h"

#include <QJsonDocument>
#include <gtest/gtest.h>

using namespace runner_test;

namespace {

QString describe(const QJsonObject& line)
{
    return QString::fromUtf8(QJsonDocument(line).toJson(QJsonDocument::Compact));
}

/// Points the runner at a PipeWire socket nobody serves while it lives.
class NoDaemon
{
public:
    NoDaemon() : m_saved(qgetenv("PIPEWIRE_REMOTE")), m_had(qEnvironmentVariableIsSet("PIPEWIRE_REMOTE"))
    {
        qputenv("PIPEWIRE_REMOTE", "kelmor-runner-test-no-daemon");
    }
    ~NoDaemon()
    {
        if (m_had)
            qputenv("PIPEWIRE_REMOTE", m_saved);
        else
            qunsetenv("PIPEWIRE_REMOTE");
    }

private:
    QByteArray m_saved;
    bool m_had;
};

TEST(RunnerScreenSharing, PublishAndUnpublishAreAnsweredAndBadRequestsRefused)
{
    NoDaemon noDaemon;
    const QString longName(200, QLatin1Char('n'));
    const QString show = QStringLiteral(
        "{\"op\": \"openScreen\", \"id\": 1, \"width\": 320, \"height\": 180, \"offscreen\": true}\n"   // 1
        "{\"op\": \"openScreen\", \"id\": 2, \"width\": 320, \"height\": 180, \"offscreen\": true}\n"   // 2
        "{\"op\": \"publishScreen\", \"screen\": 1, \"name\": \"kelmor-screen-1\"}\n"                    // 3 ok
        "{\"op\": \"publishScreen\", \"screen\": 9, \"name\": \"kelmor-screen-9\"}\n"                    // 4 unknown
        "{\"op\": \"publishScreen\", \"screen\": 2, \"name\": \"\"}\n"                                   // 5 empty
        "{\"op\": \"publishScreen\", \"screen\": 2, \"name\": \"%1\"}\n"                                 // 6 long
        "{\"op\": \"publishScreen\", \"screen\": 2}\n"                                                   // 7 no name
        "{\"op\": \"publishScreen\", \"screen\": 2, \"name\": \"kelmor-screen-1\"}\n"                    // 8 taken
        "{\"op\": \"publishScreen\", \"screen\": 2, \"name\": \"a\\u0001b\"}\n"                          // 9 control
        "{\"op\": \"unpublishScreen\", \"screen\": 1}\n"                                                 // 10 ok
        "{\"op\": \"unpublishScreen\", \"screen\": 1}\n"                                                 // 11 not published
        "{\"op\": \"unpublishScreen\", \"screen\": 1, \"name\": \"x\"}\n"                                // 12 unknown key
        "{\"op\": \"publishScreen\", \"screen\": 2, \"name\": \"kelmor-screen-2\"}\n"                    // 13 ok, left
        "{\"op\": \"log\", \"text\": \"end\"}\n")                                                        // 14
                             .arg(longName);

    const ShowRun run = runShow(freshWorkDir(QStringLiteral("screen-sharing-steps")), show);
    ASSERT_TRUE(run.finished) << run.errText.toStdString();
    EXPECT_EQ(run.exitCode, 0) << run.errText.toStdString();

    const QJsonObject published = run.replyTo(3);
    EXPECT_FALSE(published.contains(QStringLiteral("error"))) << describe(published).toStdString();
    EXPECT_EQ(published.value(QStringLiteral("name")).toString(), QStringLiteral("kelmor-screen-1"));
    const struct { int line; const char* part; } refused[] = {
        {4, "unknown screen 9"}, {5, "empty"}, {6, "longer than 128"}, {7, "name"},
        {8, "already published by screen 1"}, {9, "control characters"}, {11, "not published"},
        {12, "name"}};
    for (const auto& r : refused) {
        const QJsonObject reply = run.replyTo(r.line);
        ASSERT_TRUE(reply.contains(QStringLiteral("error"))) << "line " << r.line << ": "
                                                             << describe(reply).toStdString();
        EXPECT_TRUE(reply.value(QStringLiteral("error")).toString().contains(QLatin1String(r.part)))
            << "line " << r.line << ": " << describe(reply).toStdString();
    }
    for (int line : {10, 13, 14}) {
        const QJsonObject reply = run.replyTo(line);
        EXPECT_FALSE(reply.isEmpty() || reply.contains(QStringLiteral("error")))
            << "line " << line << ": " << describe(reply).toStdString();
    }
    EXPECT_TRUE(run.errText.contains(QStringLiteral("no PipeWire daemon answers"))) << run.errText.toStdString();
}

} // namespace
