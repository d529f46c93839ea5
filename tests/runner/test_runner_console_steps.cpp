// A console page is a step source like any other: its steps run in order and
// are answered on the page; every event reaches every page; the "state"
// step answers any source alike; oversized or binary messages and too many
// pages are refused; a page that stops reading is dropped, not waited for.
#include "test_runner_console_kit.h"

#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QJsonArray>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

using namespace runner_test;
using namespace console_test;

namespace {

void writeShow(const QString& dir, const QString& text)
{
    QFile file(dir + QStringLiteral("/show.jsonl"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text.toUtf8());
}

bool isHello(const QJsonObject& o)
{
    return o.value(QStringLiteral("console")).toString() == QLatin1String("hello");
}

} // namespace

TEST(RunnerConsole, StepsOfAPageAreAnsweredOnItInOrderAndEventsReachEveryPage)
{
    LiveRunner runner;
    const quint16 port = startConsole(runner, freshWorkDir(QStringLiteral("console-steps")));
    ASSERT_NE(port, 0);
    ConsolePage first, second;
    ASSERT_TRUE(first.open(port));
    ASSERT_TRUE(second.open(port));
    EXPECT_FALSE(first.next(isHello).isEmpty());
    EXPECT_FALSE(second.next(isHello).isEmpty());

    // Three lines in one message: run in order, answered by line.
    ASSERT_TRUE(first.send("{\"op\": \"setCurPlayerCount\", \"args\": [7]}\n{\"op\": \"state\"}\n{\"op\": \"nope\"}"));
    const QJsonObject one = first.next(replyTo(1));
    EXPECT_EQ(one.value(QStringLiteral("ok")).toString(), QStringLiteral("setCurPlayerCount"));
    const QJsonObject two = first.next(replyTo(2));
    EXPECT_EQ(two.value(QStringLiteral("ok")).toString(), QStringLiteral("state"));
    EXPECT_TRUE(two.value(QStringLiteral("layers")).isArray());
    const QJsonObject three = first.next(replyTo(3));
    EXPECT_TRUE(three.value(QStringLiteral("error")).toString().contains(QStringLiteral("unknown op")));
    // The event the step caused reaches both pages and stdout; the replies
    // only the page that sent the steps.
    EXPECT_EQ(second.next(event("sPlayReady")).value(QStringLiteral("bankId")).toInt(), 7);
    EXPECT_FALSE(runner.nextLine([](const QJsonObject& o) {
        return o.value(QStringLiteral("event")).toString() == QLatin1String("sPlayReady");
    }).isEmpty());
    // Steps from stdin: their events reach the pages too.
    runner.write("{\"op\": \"setCurPlayerCount\", \"args\": [8]}\n");
    EXPECT_EQ(first.next(event("sPlayReady")).value(QStringLiteral("bankId")).toInt(), 8);
    EXPECT_EQ(second.next(event("sPlayReady")).value(QStringLiteral("bankId")).toInt(), 8);
    EXPECT_TRUE(second.next(isReply, 300).isEmpty()) << "a page sees no other source's replies";

    // A page that leaves: its source ends, the others go on.
    first.close();
    runner.write("{\"op\": \"state\"}\n");
    const QJsonObject state = runner.nextLine([](const QJsonObject& o) {
        return o.value(QStringLiteral("ok")).toString() == QLatin1String("state");
    });
    ASSERT_FALSE(state.isEmpty());
    runner.write("{\"op\": \"quit\"}\n");
    EXPECT_EQ(runner.waitForExit(), 0);
    EXPECT_TRUE(second.waitClosed(5000)) << "the runner's end closes the pages";
}

TEST(RunnerConsole, StateStepDescribesLayersScreensAndWaitingSources)
{
    const QString dir = freshWorkDir(QStringLiteral("console-state"));
    const QString media = mediaDir();
    ASSERT_FALSE(media.isEmpty());
    LiveRunner runner;
    // The show file waits; stdin asks for the state meanwhile.
    writeShow(dir, QStringLiteral(R"({"op": "openScreen", "id": 3, "width": 320, "height": 180, "offscreen": true}
{"op": "creatnewlayer", "args": [{"bankId": 2, "layerId": 5, "path": "${media}/still-a.png", "groupID": 1, "type": "picture", "timeLenMsec": 3000, "isSetPr": false}]}
{"op": "setLayerMediaType", "args": [{"bank": 2, "layer": 5}, "picture"]}
{"op": "setRepeat", "args": [{"bank": 2, "layer": 5}, 2]}
{"op": "setTP", "args": [3, {"testPattern": true, "brightness": -0.25}]}
{"op": "waitFor", "signal": "sFadeinFinished", "timeoutMs": 20000}
)"));
    ASSERT_TRUE(runner.start({QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--no-progress"),
                              QStringLiteral("--set"), QStringLiteral("media=") + media, QStringLiteral("show.jsonl"),
                              QStringLiteral("-")},
                             dir));
    ASSERT_FALSE(runner.nextLine(replyToLine(5)).isEmpty());
    runner.write("{\"op\": \"state\"}\n");
    const QJsonObject state = runner.nextLine([](const QJsonObject& o) {
        return o.value(QStringLiteral("ok")).toString() == QLatin1String("state");
    });
    ASSERT_FALSE(state.isEmpty());
    const QJsonArray layers = state.value(QStringLiteral("layers")).toArray();
    ASSERT_EQ(layers.size(), 1);
    const QJsonObject layer = layers.at(0).toObject();
    EXPECT_EQ(layer.value(QStringLiteral("bankId")).toInt(), 2);
    EXPECT_EQ(layer.value(QStringLiteral("layerId")).toInt(), 5);
    EXPECT_EQ(layer.value(QStringLiteral("type")).toString(), QStringLiteral("picture"));
    EXPECT_EQ(layer.value(QStringLiteral("path")).toString(), media + QStringLiteral("/still-a.png"));
    EXPECT_EQ(layer.value(QStringLiteral("duration")).toInt(), 3000);
    EXPECT_EQ(layer.value(QStringLiteral("repeat")).toInt(), 2);
    EXPECT_EQ(layer.value(QStringLiteral("volume")).toDouble(), 100.0);
    EXPECT_TRUE(layer.value(QStringLiteral("fade")).isNull());
    EXPECT_TRUE(QStringList({QStringLiteral("created"), QStringLiteral("loaded")})
                    .contains(layer.value(QStringLiteral("state")).toString()));
    const QJsonArray screens = state.value(QStringLiteral("screens")).toArray();
    ASSERT_EQ(screens.size(), 1);
    const QJsonObject screen = screens.at(0).toObject();
    EXPECT_EQ(screen.value(QStringLiteral("id")).toInt(), 3);
    EXPECT_EQ(screen.value(QStringLiteral("width")).toInt(), 320);
    EXPECT_EQ(screen.value(QStringLiteral("testPattern")), QJsonValue(true));
    EXPECT_EQ(screen.value(QStringLiteral("brightness")).toDouble(), -0.25);
    bool sawShow = false;
    for (const QJsonValue& v : state.value(QStringLiteral("sources")).toArray()) {
        const QJsonObject source = v.toObject();
        if (source.value(QStringLiteral("name")).toString() != QLatin1String("show.jsonl"))
            continue;
        sawShow = true;
        EXPECT_EQ(source.value(QStringLiteral("of")).toInt(), 6);
        EXPECT_EQ(source.value(QStringLiteral("steps")).toInt(), 6);
        const QJsonObject waiting = source.value(QStringLiteral("waiting")).toObject();
        EXPECT_EQ(waiting.value(QStringLiteral("op")).toString(), QStringLiteral("waitFor"));
        EXPECT_EQ(waiting.value(QStringLiteral("signal")).toString(), QStringLiteral("sFadeinFinished"));
        EXPECT_EQ(waiting.value(QStringLiteral("line")).toInt(), 6);
    }
    EXPECT_TRUE(sawShow);
    // Unknown fields are refused, as for every host step.
    runner.write("{\"op\": \"state\", \"what\": 1}\n");
    EXPECT_TRUE(runner.nextLine([](const QJsonObject& o) {
        return o.value(QStringLiteral("op")).toString() == QLatin1String("state") && o.contains(QStringLiteral("error"));
    }).value(QStringLiteral("error")).toString().contains(QStringLiteral("what")));
    runner.write("{\"op\": \"quit\"}\n");
    EXPECT_EQ(runner.waitForExit(), 0);
}

TEST(RunnerConsole, OversizedBinaryAndFragmentedInputIsRefusedAndClosed)
{
    LiveRunner runner;
    const quint16 port = startConsole(runner, freshWorkDir(QStringLiteral("console-limits")));
    ASSERT_NE(port, 0);
    {
        ConsolePage page;
        ASSERT_TRUE(page.open(port));
        ASSERT_TRUE(page.send(QByteArray((1 << 20) + 4096, 'x')));
        const QJsonObject refusal = page.next([](const QJsonObject& o) { return o.contains(QStringLiteral("error")); });
        EXPECT_TRUE(refusal.value(QStringLiteral("error")).toString().contains(QStringLiteral("refused")))
            << refusal.value(QStringLiteral("error")).toString().toStdString();
        EXPECT_TRUE(page.waitClosed(5000));
    }
    {
        ConsolePage page;
        ASSERT_TRUE(page.open(port));
        ASSERT_TRUE(page.sendBinary("\x01\x02\x03"));
        EXPECT_TRUE(page.next([](const QJsonObject& o) { return o.contains(QStringLiteral("error")); })
                        .value(QStringLiteral("error")).toString().contains(QStringLiteral("only text")));
        EXPECT_TRUE(page.waitClosed(5000));
    }
    // A line over 1 MiB inside an allowed message: an error line, the page
    // stays.
    {
        ConsolePage page;
        ASSERT_TRUE(page.open(port));
        ASSERT_TRUE(page.send("{\"op\": \"log\", \"text\": \"" + QByteArray((1 << 20) + 10, 'y') + "\"}"));
        ASSERT_TRUE(page.send("{\"op\": \"state\"}"));
        EXPECT_TRUE(page.next(replyTo(1)).value(QStringLiteral("error")).toString().contains(QStringLiteral("longer")));
        EXPECT_EQ(page.next(replyTo(2)).value(QStringLiteral("ok")).toString(), QStringLiteral("state"));
        EXPECT_FALSE(page.closed());
    }
    runner.write("{\"op\": \"quit\"}\n");
    EXPECT_EQ(runner.waitForExit(), 0);
}

TEST(RunnerConsole, AtMostEightPagesAreServedAtOnce)
{
    LiveRunner runner;
    const quint16 port = startConsole(runner, freshWorkDir(QStringLiteral("console-pages")));
    ASSERT_NE(port, 0);
    std::vector<std::unique_ptr<ConsolePage>> pages;
    for (int i = 0; i < 8; ++i) {
        pages.push_back(std::make_unique<ConsolePage>());
        ASSERT_TRUE(pages.back()->open(port)) << "page " << i;
        ASSERT_FALSE(pages.back()->next(isHello).isEmpty());
    }
    const HttpReply ninth = upgrade(port, "/ws", {{"Origin", originOf(port)}});
    EXPECT_EQ(ninth.status, 503);
    EXPECT_TRUE(ninth.body.contains("too many"));
    // One leaves: there is room again.
    pages.front()->close();
    QElapsedTimer clock;
    clock.start();
    bool admitted = false;
    while (!admitted && clock.elapsed() < 10000) {
        auto page = std::make_unique<ConsolePage>();
        admitted = page->open(port);
        if (admitted)
            pages.push_back(std::move(page));
    }
    EXPECT_TRUE(admitted);
    runner.write("{\"op\": \"quit\"}\n");
    EXPECT_EQ(runner.waitForExit(), 0);
}

TEST(RunnerConsole, APageThatStopsReadingIsDroppedAndTheShowGoesOn)
{
    LiveRunner runner;
    const quint16 port = startConsole(runner, freshWorkDir(QStringLiteral("console-stalled")));
    ASSERT_NE(port, 0);
    ConsolePage stalled;
    ASSERT_TRUE(stalled.open(port));
    ASSERT_FALSE(stalled.next(isHello).isEmpty());
    // From here on the page is not read (nothing below waits on it) while
    // host lines flood out: a layer whose source cannot be played reports
    // it with the source's name, some 60 KiB each here. The runner answers
    // stdin all along, and gives the page up.
    const QByteArray missing = "/nonexistent/" + QByteArray(60000, 'm') + ".mp4";
    runner.write("{\"op\": \"creatnewlayer\", \"args\": [{\"bankId\": 1, \"layerId\": 1, \"path\": \"\", "
                 "\"groupID\": 1, \"type\": \"video\", \"timeLenMsec\": 1000, \"isSetPr\": false}]}\n");
    QByteArray burst;
    for (int i = 0; i < 16; ++i)
        burst += "{\"op\": \"changeLayerContent\", \"args\": [1, 1, {\"type\": \"video\", \"videoPath\": \""
            + missing + QByteArray::number(i) + "\"}]}\n";
    QElapsedTimer clock;
    clock.start();
    QString notes;
    int bursts = 0;
    while (clock.elapsed() < 60000) {
        runner.write(burst);
        ++bursts;
        runner.write("{\"op\": \"state\"}\n");
        ASSERT_FALSE(runner.nextLine([](const QJsonObject& o) {
            return o.value(QStringLiteral("ok")).toString() == QLatin1String("state");
        }, 10000).isEmpty()) << "the runner stopped answering while a page did not read";
        notes = runner.waitForStderr(QStringLiteral("does not read"), 100);
        if (notes.contains(QStringLiteral("does not read")))
            break;
    }
    EXPECT_TRUE(notes.contains(QStringLiteral("page 1 does not read"))) << "after " << bursts << " bursts";
    // Read again: what was sent comes, then the end.
    EXPECT_TRUE(stalled.waitClosed(30000));
    // A new page is served as usual.
    ConsolePage fresh;
    ASSERT_TRUE(fresh.open(port));
    fresh.send("{\"op\": \"state\"}");
    EXPECT_FALSE(fresh.next(replyTo(1), 10000).isEmpty());
    runner.write("{\"op\": \"quit\"}\n");
    EXPECT_EQ(runner.waitForExit(), 0);
}

TEST(RunnerConsole, PagesGetThumbnailsOfTheScreensAndStillsOnRequest)
{
    const QString media = mediaDir();
    ASSERT_FALSE(media.isEmpty());
    LiveRunner runner;
    const quint16 port = startConsole(runner, freshWorkDir(QStringLiteral("console-thumbnails")),
                                      {QStringLiteral("--set"), QStringLiteral("media=") + media});
    ASSERT_NE(port, 0);
    ConsolePage page, plain;
    ASSERT_TRUE(page.open(port));
    ASSERT_TRUE(plain.open(port, "/ws?thumbnails=0"));
    // A yellow still over all of screen 5 (640x360).
    runner.write("{\"op\": \"openScreen\", \"id\": 5, \"width\": 640, \"height\": 360, \"offscreen\": true}\n"
                 "{\"op\": \"creatnewlayer\", \"args\": [{\"bankId\": 1, \"layerId\": 1, \"path\": \"${media}/still-a.png\", "
                 "\"groupID\": 1, \"type\": \"picture\", \"timeLenMsec\": 5000, \"isSetPr\": false}]}\n"
                 "{\"op\": \"setLayerMediaType\", \"args\": [{\"bank\": 1, \"layer\": 1}, \"picture\"]}\n"
                 "{\"op\": \"addRenderer\", \"args\": [{\"bankId\": 1, \"layerId\": 1, \"screenId\": 5, \"screenType\": 0, "
                 "\"clientGuid\": \"\", \"frameX\": 0, \"frameY\": 0, \"rendererX\": 0, \"rendererY\": 0, \"crossWidth\": 640, "
                 "\"crossHeight\": 360, \"originalWidth\": 320, \"originalHeight\": 180, \"actualWidth\": 640, "
                 "\"actualHeight\": 360, \"layerRotation\": 0, \"isScal\": false, \"isRotation\": false, \"isFill\": false, "
                 "\"relativeX\": 0, \"relativeY\": 0}]}\n");
    QElapsedTimer clock;
    clock.start();
    QImage thumb;
    while (clock.elapsed() < 15000) {
        page.next([](const QJsonObject&) { return false; }, 100);
        const QByteArray message = page.lastBinary();
        if (message.size() > 4) {
            ASSERT_EQ(message.left(4), QByteArray("\x00\x00\x00\x05", 4)) << "the screen id comes first";
            thumb = QImage::fromData(message.mid(4), "JPEG");
            if (!thumb.isNull() && qRed(thumb.pixel(160, 90)) > 200 && qBlue(thumb.pixel(160, 90)) < 60)
                break;
        }
    }
    ASSERT_FALSE(thumb.isNull());
    EXPECT_EQ(thumb.size(), QSize(320, 180));
    const QRgb centre = thumb.pixel(160, 90);
    EXPECT_TRUE(qRed(centre) > 200 && qGreen(centre) > 200 && qBlue(centre) < 60) << std::hex << centre;
    plain.next([](const QJsonObject&) { return false; }, 300);
    EXPECT_EQ(plain.binaryMessages(), 0) << "a page that asked for none gets none";

    // A full-size still, in memory.
    const HttpReply still = get(port, "/still/5.png");
    EXPECT_EQ(still.status, 200);
    EXPECT_EQ(still.header("Content-Type"), QByteArray("image/png"));
    const QImage full = QImage::fromData(still.body, "PNG");
    EXPECT_EQ(full.size(), QSize(640, 360));
    const QRgb middle = full.pixel(320, 180);
    EXPECT_TRUE(qRed(middle) >= 250 && qGreen(middle) >= 250 && qBlue(middle) <= 5) << std::hex << middle;
    EXPECT_EQ(get(port, "/still/6.png").status, 404);
    EXPECT_EQ(get(port, "/still/x.png").status, 404);
    runner.write("{\"op\": \"quit\"}\n");
    EXPECT_EQ(runner.waitForExit(), 0);
}
