// The engine's choice of audio output when the host names none: an ordered
// list without the outputs that are unsafe with several cores in one process
// (SDL, OpenAL, JACK), ending with "null"; one line per engine saying which
// output opened; and an output the host names wins.
#include "EngineFixture.h"

#include "MpvAudioChoice.h"

using QtAV::AVPlayer;
using QtAV::MpvAudioChoice::defaultOutputs;

namespace {

// A sink for a backend made outside a player (an engine of the test's own).
class CountingSink : public QtAV::PlayerEventSink
{
public:
    QtAV::AVPlayer* player() const override { return nullptr; }
    void loaded() override { ++loads; }
    void stopped() override {}
    void positionChanged(qint64) override {}
    void fadeInFinished() override {}
    void fadeOutFinished() override {}
    void playReadySucess() override {}
    void released() override {}
    void mediaError(const QString&, const QString&) override { ++errors; }
    int loads = 0;
    int errors = 0;
};

int outputLines(const LogCapture& log)
{
    return log.count(QStringLiteral("mpv: audio output \""))
        + log.count(QStringLiteral("mpv: no sound output could be opened"));
}

} // namespace

TEST(EngineAudioChoice, DefaultListLeavesOutSharedStateOutputsAndEndsWithNull)
{
    const QList<QByteArray> outputs = defaultOutputs().split(',');
    ASSERT_FALSE(outputs.isEmpty());
    EXPECT_EQ(outputs.last(), QByteArray("null"));
    for (const char* unsafe : {"sdl", "openal", "jack"})
        EXPECT_FALSE(outputs.contains(unsafe)) << unsafe;
    EXPECT_EQ(QtAV::MpvAudioChoice::outputsFor(QString()), defaultOutputs());
    EXPECT_EQ(QtAV::MpvAudioChoice::outputsFor(QStringLiteral("sdl")), QByteArray("sdl"));
}

TEST_F(EngineTest, CoresOfAnEngineWithNoOutputNamedUseTheListAndSayOnceWhatOpened)
{
    QtAV::MpvEngine own{QtAV::MpvEngineOptions()};
    LogCapture log;
    CountingSink sinkA, sinkB;
    std::unique_ptr<QtAV::PlayerBackend> a = own.createBackend(sinkA);
    std::unique_ptr<QtAV::PlayerBackend> b = own.createBackend(sinkB);
    auto* mpvA = static_cast<QtAV::MpvBackend*>(a.get());
    ASSERT_TRUE(mpvA->hasCore());
    EXPECT_EQ(mpvA->propertyForDiagnostics("ao"), QString::fromUtf8(defaultOutputs()));
    a->open(EngineMedia::clip());
    b->open(EngineMedia::clip());
    a->setPaused(false);
    b->setPaused(false);
    ASSERT_TRUE(waitUntil([&] { return sinkA.loads == 1 && sinkB.loads == 1; }));
    ASSERT_TRUE(waitUntil([&] { return !mpvA->propertyForDiagnostics("current-ao").isEmpty(); }));
    ASSERT_TRUE(waitUntil([&] { return outputLines(log) >= 1; }));
    QTest::qWait(300);
    EXPECT_EQ(outputLines(log), 1) << log.lines().join('\n').toStdString();
    const QString current = mpvA->propertyForDiagnostics("current-ao");
    EXPECT_TRUE(defaultOutputs().split(',').contains(current.toUtf8())) << current.toStdString();
    EXPECT_EQ(sinkA.errors + sinkB.errors, 0);
    a->release();
    b->release();
}

TEST_F(EngineTest, AnOutputTheHostNamesWins)
{
    // The test engine was installed with "null".
    AVPlayer* player = loadedPlayer();
    EXPECT_EQ(prop(player, "ao"), QStringLiteral("null"));
}
