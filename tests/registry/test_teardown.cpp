// Teardown of layers: the fixed order of stops and releases, what is left
// afterwards, and clearAllPlayer over every bank.
#include "PlaybackFixture.h"

#include "SpoutNode.h"

namespace {

/// Writes the teardown log line into the engine journal under the player it
/// names, so that its place among the player's backend calls can be checked.
class TeardownLogInJournal
{
public:
    explicit TeardownLogInJournal(QtAV::AVPlayer* player)
    {
        s_player = player;
        s_previous = qInstallMessageHandler(&TeardownLogInJournal::handle);
    }
    ~TeardownLogInJournal()
    {
        qInstallMessageHandler(s_previous);
        s_player = nullptr;
    }

private:
    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& text)
    {
        if (text.startsWith("comand deletePlayer: "))
            RecordingEngine::instance().journal().record(s_player, QStringLiteral("log"));
        if (s_previous)
            s_previous(type, context, text);
    }
    static inline QtAV::AVPlayer* s_player = nullptr;
    static inline QtMessageHandler s_previous = nullptr;
};

class TeardownTest : public PlaybackTest
{
protected:
    static Record key(int bankId, int layerId)
    {
        return Record({{"bankId", bankId}, {"layerId", layerId}});
    }
    /// Notes an object's destruction in the journal under the player.
    static void noteDestruction(QObject* object, QtAV::AVPlayer* player, const QString& what)
    {
        QObject::connect(object, &QObject::destroyed,
                         [player, what] { journal().record(player, what); });
    }
};

TEST_F(TeardownTest, UnknownIdsLeaveRegistryUnchangedAndLogNothing)
{
    createLayer(1, 2, "video");
    const auto before = RegistryTestAccess::map(reg());
    journal().clear();
    LogCapture log;

    reg().deleteplayerByID(key(2, 1));
    reg().deleteplayerByID(key(1, 3));

    EXPECT_EQ(RegistryTestAccess::map(reg()), before);
    EXPECT_TRUE(log.lines().isEmpty());
    EXPECT_TRUE(journal().names().isEmpty());
}

TEST_F(TeardownTest, OutputsThenFadesAndPauseThenTimerThenLogThenRelease)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "spout", 600000, "TexA");
    service().play(player); // starts the Spout node and the timer
    ScenePlayer* scene = reg().getScenePlayer(1, 2);
    ASSERT_NE(scene->spoutNode, nullptr);
    QPointer<SpoutNode> node(scene->spoutNode);
    noteDestruction(scene->spoutNode, player, "spout node deleted");
    noteDestruction(scene->playerTimer, player, "timer deleted");
    journal().clear();
    TeardownLogInJournal logged(player);

    reg().deleteplayerByID(key(1, 2));

    EXPECT_EQ(callsOf(player), QStringList({"spout node deleted", "stopFadeIn()", "stopFadeOut()",
                                            "setPaused(true)", "timer deleted", "log",
                                            "release()"}));
    EXPECT_TRUE(node.isNull());
}

TEST_F(TeardownTest, LayerWithoutSpoutOrTimerIsStillStoppedLoggedReleasedAndRemoved)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    QPointer<QtAV::AVPlayer> watch(player);
    ScenePlayer* scene = reg().getScenePlayer(1, 2);
    delete scene->playerTimer;
    scene->playerTimer = nullptr;
    journal().clear();
    LogCapture log;
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);

    reg().deleteplayerByID(key(1, 2));

    EXPECT_EQ(callsOf(player),
              QStringList({"stopFadeIn()", "stopFadeOut()", "setPaused(true)", "release()"}));
    EXPECT_EQ(log.count("comand deletePlayer: "), 1);
    EXPECT_EQ(reg().getScenePlayer(1, 2), nullptr);
    // Disconnected: a stop of the released player no longer reaches the
    // service, while its release notice still deletes it.
    backend(player)->raiseStopped();
    EXPECT_TRUE(waitUntil([&] { return watch.isNull(); }));
    EXPECT_EQ(ends.count(), 0);
}

TEST_F(TeardownTest, ReleasedPlayerIsNoLongerFoundByIdsOrByBank)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    backend(player)->autoRelease = false; // keep it alive to ask about it

    reg().deleteplayerByID(key(1, 2));

    EXPECT_EQ(reg().getplayerByID(2, 1), nullptr);
    EXPECT_EQ(reg().getBankIdRelyPlayer(player), -1);
    EXPECT_EQ(reg().getScenePlayer(player), nullptr);
    EXPECT_TRUE(reg().getModulePlayerMap(1).isEmpty());
    EXPECT_TRUE(RegistryTestAccess::map(reg()).contains(1)); // the bank's map stays
    EXPECT_TRUE(player->isReleased());
    backend(player)->raiseReleased(); // the release completes: the player goes
}

TEST_F(TeardownTest, SecondDeleteOfSameLayerFindsNothing)
{
    createLayer(1, 2, "video");
    reg().deleteplayerByID(key(1, 2));
    LogCapture log;

    reg().deleteplayerByID(key(1, 2));

    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(TeardownTest, ClearAllDeletesBanksAndLayersInAscendingOrder)
{
    QMap<QtAV::AVPlayer*, QString> names;
    names.insert(createLayer(4, 1, "video"), "4/1");
    names.insert(createLayer(1, 3, "picture"), "1/3");
    names.insert(createLayer(1, 2, "audio"), "1/2");
    journal().clear();

    reg().clearAllPlayer();

    QStringList releases;
    for (const EngineCall& call : journal().calls()) {
        if (call.text == "release()")
            releases << names.value(call.player);
    }
    EXPECT_EQ(releases, QStringList({"1/2", "1/3", "4/1"}));
    EXPECT_TRUE(RegistryTestAccess::map(reg()).isEmpty());
}

TEST_F(TeardownTest, RecordWithoutKeysEndsLayerZeroOfBankZero)
{
    createLayer(0, 0, "video");
    createLayer(0, 1, "video");

    reg().deleteplayerByID(Record());

    EXPECT_EQ(reg().getScenePlayer(0, 0), nullptr);
    EXPECT_NE(reg().getScenePlayer(0, 1), nullptr);
}

TEST_F(TeardownTest, RecordWithoutPlayerIsRemovedWithDebugLine)
{
    reg().insertScenePlayer(3, 3, new ScenePlayer());
    LogCapture log;

    reg().deleteplayerByID(key(3, 3));

    EXPECT_EQ(reg().getScenePlayer(3, 3), nullptr);
    EXPECT_EQ(log.count("without player"), 1);
    EXPECT_EQ(log.count("comand deletePlayer: "), 0);
}

TEST_F(TeardownTest, StopPlayerThreadHasNoEffect)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "picture", 600000);
    service().play(player);
    ASSERT_TRUE(waitPlaying(1, 2));
    journal().clear();

    Registry::stopPlayerThread(player);
    Registry::stopPlayerThread(nullptr);

    EXPECT_TRUE(journal().names().isEmpty());
    EXPECT_EQ(timerOf(1, 2)->getPlayState(), kPlaying);
    EXPECT_EQ(reg().getplayerByID(2, 1), player);
}

} // namespace
