// A step's JSON text: duplicate keys (at any depth) and deep nesting are
// refused with an error line, and a flood of lines full of duplicated keys
// costs the runner no lasting memory. The parser is also called directly,
// as a fuzz target calls it (no application, no process).
#include "RunnerHarness.h"

#include "JsonValidation.h"
#include "LineAssembler.h"
#include "StepParser.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <cstdio>
#include <gtest/gtest.h>

using namespace runner_test;

namespace {

ParseOutcome parseText(const QByteArray& text, Step& step, QString& problem)
{
    RawLine raw;
    raw.number = 1;
    raw.text = text;
    return parseStep(raw, {}, step, problem);
}

QByteArray nested(int levels)
{
    // The step's own object is level 1; each array adds one.
    return "{\"op\": \"log\", \"text\": \"x\", \"deep\": " + QByteArray(levels - 1, '[')
        + QByteArray(levels - 1, ']') + "}";
}

/// The line from the report: a log step with 70000 copies of an
/// object-valued key.
QByteArray duplicateFlood()
{
    QByteArray line = "{\"op\":\"log\",\"text\":\"x\"";
    for (int i = 0; i < 70000; ++i)
        line += ",\"a\":{\"x\":1}";
    return line + "}\n";
}

TEST(StepJson, DuplicateKeysAreRefusedAtAnyDepthAndNamed)
{
    Step step;
    QString problem;
    EXPECT_EQ(parseText("{\"op\": \"log\", \"text\": \"a\", \"text\": \"b\"}", step, problem), ParseOutcome::Error);
    EXPECT_TRUE(problem.contains(QStringLiteral("duplicate key \"text\""))) << problem.toStdString();

    problem.clear();
    EXPECT_EQ(parseText("{\"op\": \"x\", \"args\": [1, {\"bank\": 1, \"layer\": 2, \"bank\": 3}]}", step, problem),
              ParseOutcome::Error);
    EXPECT_TRUE(problem.contains(QStringLiteral("duplicate key \"bank\""))) << problem.toStdString();

    // Past the keys compared one by one: found when the object closes.
    QByteArray many = "{\"op\": \"x\"";
    for (int i = 0; i < 40; ++i)
        many += ",\"k" + QByteArray::number(i) + "\": 0";
    problem.clear();
    EXPECT_EQ(parseText(many + ", \"k7\": 1}", step, problem), ParseOutcome::Error);
    EXPECT_TRUE(problem.contains(QStringLiteral("duplicate key \"k7\""))) << problem.toStdString();

    // The same key in different objects is fine.
    EXPECT_EQ(parseText("{\"op\": \"x\", \"a\": {\"x\": 1}, \"b\": {\"x\": 2}, \"c\": [{\"x\": 3}, {\"x\": 4}]}",
                        step, problem),
              ParseOutcome::Parsed);
}

TEST(StepJson, NestingIsBoundedAndDeepInputIsAnErrorNotACrash)
{
    Step step;
    QString problem;
    EXPECT_EQ(parseText(nested(kMaxJsonDepth), step, problem), ParseOutcome::Parsed) << problem.toStdString();
    EXPECT_EQ(parseText(nested(kMaxJsonDepth + 1), step, problem), ParseOutcome::Error);
    EXPECT_TRUE(problem.contains(QStringLiteral("nested deeper than 32"))) << problem.toStdString();
    // Far deeper than any stack would take if each level were a call.
    problem.clear();
    EXPECT_EQ(parseText(QByteArray(500000, '['), step, problem), ParseOutcome::Error);
    EXPECT_TRUE(problem.contains(QStringLiteral("nested deeper"))) << problem.toStdString();
}

TEST(StepJson, ManyUniqueKeysParseAndMalformedTextSaysWhere)
{
    QByteArray line = "{\"op\": \"log\", \"text\": \"x\"";
    for (int i = 69999; i >= 0; --i)
        line += ",\"k" + QByteArray::number(i) + "\":1";
    line += "}";
    Step step;
    QString problem;
    ASSERT_EQ(parseText(line, step, problem), ParseOutcome::Parsed) << problem.toStdString();
    EXPECT_EQ(step.body.size(), 70002);
    EXPECT_EQ(step.op, QStringLiteral("log"));

    EXPECT_EQ(parseText("{\"op\": \"play\", \"args\": [", step, problem), ParseOutcome::Error);
    EXPECT_TRUE(problem.startsWith(QStringLiteral("malformed JSON"))) << problem.toStdString();
    EXPECT_TRUE(problem.contains(QStringLiteral("at column"))) << problem.toStdString();
    // A long bad token is not quoted whole.
    EXPECT_EQ(parseText("{\"op\": \"x\", \"v\": tru" + QByteArray(100000, 'e') + "}", step, problem),
              ParseOutcome::Error);
    EXPECT_LT(problem.size(), 400);
}

TEST(StepJson, LinesFromBytesToStepsNeedNoApplication)
{
    LineAssembler lines(1 << 20);
    lines.feed("{\"op\": \"a\"}\n# note\n{\"op\": \"b\", \"op\": \"c\"}\r\n{\"op\"");
    lines.finish();
    QList<ParseOutcome> outcomes;
    while (lines.hasLine()) {
        Step step;
        QString problem;
        outcomes << parseStep(lines.takeLine(), {}, step, problem);
    }
    EXPECT_EQ(outcomes, (QList<ParseOutcome>{ParseOutcome::Parsed, ParseOutcome::Skip, ParseOutcome::Error,
                                              ParseOutcome::Error}));
}

LiveRunner* startOnStdin(LiveRunner& runner, const QString& dir)
{
    if (!runner.start({QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--no-progress"),
                       QStringLiteral("-")},
                      dir))
        return nullptr;
    return &runner;
}

TEST(RunnerStepJson, DuplicateKeyAndDeepNestingGetErrorLinesAndTheShowGoesOn)
{
    LiveRunner runner;
    ASSERT_TRUE(startOnStdin(runner, freshWorkDir(QStringLiteral("json-errors"))));
    runner.write("{\"op\": \"setCurPlayerCount\", \"args\": [5], \"args\": [6]}\n");
    const QJsonObject dup = runner.nextLine(replyToLine(1));
    EXPECT_TRUE(dup.value(QStringLiteral("error")).toString().contains(QStringLiteral("duplicate key \"args\"")))
        << QJsonDocument(dup).toJson().toStdString();

    runner.write(nested(1000) + "\n");
    const QJsonObject deep = runner.nextLine(replyToLine(2));
    EXPECT_TRUE(deep.value(QStringLiteral("error")).toString().contains(QStringLiteral("nested deeper than 32")))
        << QJsonDocument(deep).toJson().toStdString();

    runner.write("{\"op\": \"setCurPlayerCount\", \"args\": [6]}\n");
    EXPECT_EQ(runner.nextLine(replyToLine(3)).value(QStringLiteral("ok")).toString(),
              QStringLiteral("setCurPlayerCount"));
    // Nothing ran for the refused lines: only bank 6 got ready.
    runner.write("{\"op\": \"quit\"}\n");
    EXPECT_EQ(runner.waitForExit(), 0);
    QStringList ready;
    for (const QJsonObject& line : runner.seen()) {
        if (line.contains(QStringLiteral("event")))
            ready << describeEvent(line);
    }
    EXPECT_EQ(ready, QStringList({"sPlayReady bankId=6"}));
}

TEST(RunnerStepJson, HundredLinesOfDuplicatedKeysLeaveMemoryBounded)
{
    LiveRunner runner;
    runner.process().setProcessEnvironment(measuredEnvironment());
    ASSERT_TRUE(startOnStdin(runner, freshWorkDir(QStringLiteral("json-memory"))));
    runner.write("{\"op\": \"getTP\", \"args\": [{}]}\n");
    ASSERT_FALSE(runner.nextLine(replyToLine(1)).isEmpty());
    const qint64 baseKiB = processMemoryKiB(runner.pid(), "VmRSS");
    ASSERT_GT(baseKiB, 0);
    constexpr qint64 kAllowedKiB = 100 * 1024;

    const QByteArray line = duplicateFlood();
    int sent = 1;
    for (int batch = 0; batch < 10; ++batch) {
        QByteArray bytes;
        for (int i = 0; i < 10; ++i)
            bytes += line;
        runner.write(bytes);
        while (runner.process().bytesToWrite() > 0)
            ASSERT_TRUE(runner.process().waitForBytesWritten(20000));
        sent += 10;
        const QJsonObject reply = runner.nextLine(replyToLine(sent), 60000);
        ASSERT_FALSE(reply.isEmpty()) << "no reply to line " << sent;
        EXPECT_TRUE(reply.value(QStringLiteral("error")).toString().contains(QStringLiteral("duplicate key \"a\"")));
        const qint64 rss = processMemoryKiB(runner.pid(), "VmRSS");
        ASSERT_LT(rss - baseKiB, kAllowedKiB) << "after " << (sent - 1) << " lines: " << rss << " KiB, started at "
                                              << baseKiB << " KiB";
    }
    const qint64 peak = processMemoryKiB(runner.pid(), "VmHWM");
    EXPECT_LT(peak - baseKiB, kAllowedKiB) << "peak " << peak << " KiB, started at " << baseKiB << " KiB";
    std::printf("runner memory: %lld KiB after start, peak %lld KiB\n", baseKiB, peak);
    runner.write("{\"op\": \"quit\"}\n");
    EXPECT_EQ(runner.waitForExit(), 0);
}

} // namespace
