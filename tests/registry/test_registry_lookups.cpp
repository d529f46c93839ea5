// The registry's filing and look-ups, in both id orders.
#include "AVPlayer.h"
#include "ScenePlayer.h"
#include "TestAccess.h"
#include "TestSupport.h"

#include <QSignalSpy>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {

class RegistryLookups : public ::testing::Test
{
protected:
    UI_Proc_KELMOR_PlayersManage_Desktop& reg = UI_Proc_KELMOR_PlayersManage_Desktop::getInstance();

    void SetUp() override { ASSERT_TRUE(RegistryTestAccess::map(reg).isEmpty()); }
    void TearDown() override
    {
        // These tests own their records: take them out of the map and free them.
        RegistryTestAccess::map(reg).clear();
        records.clear();
        players.clear();
    }

    QtAV::AVPlayer* newPlayer()
    {
        players.push_back(std::make_unique<QtAV::AVPlayer>());
        return players.back().get();
    }
    ScenePlayer* newRecord(QtAV::AVPlayer* player, int layerId = 0)
    {
        records.push_back(std::make_unique<ScenePlayer>());
        records.back()->player = player;
        records.back()->layerId = layerId;
        return records.back().get();
    }

    std::vector<std::unique_ptr<QtAV::AVPlayer>> players;
    std::vector<std::unique_ptr<ScenePlayer>> records;
};

TEST_F(RegistryLookups, LookupOnEmptyRegistryYieldsNullAndCreatesNoBank)
{
    EXPECT_EQ(reg.getScenePlayer(3, 7), nullptr);
    EXPECT_EQ(reg.getplayerByID(7, 3), nullptr);
    EXPECT_TRUE(RegistryTestAccess::map(reg).isEmpty());
    EXPECT_FALSE(RegistryTestAccess::map(reg).contains(3));
}

TEST_F(RegistryLookups, SecondInsertUnderSameKeyReplacesAndLeavesFirstAlive)
{
    ScenePlayer* a = newRecord(newPlayer(), 2);
    ScenePlayer* b = newRecord(newPlayer(), 2);
    reg.insertScenePlayer(1, 2, a);
    reg.insertScenePlayer(1, 2, b);
    EXPECT_EQ(reg.getScenePlayer(1, 2), b);
    // a is still a live object (owned here) and no map holds it.
    EXPECT_EQ(a->layerId, 2);
    for (const auto& layers : RegistryTestAccess::map(reg))
        for (ScenePlayer* sp : layers)
            EXPECT_NE(sp, a);
    EXPECT_EQ(reg.getScenePlayer(a->player), nullptr);
}

TEST_F(RegistryLookups, InsertLogsPushPlayerWithThePlayer)
{
    LogCapture log;
    ScenePlayer* a = newRecord(newPlayer(), 2);
    reg.insertScenePlayer(1, 2, a);
    ASSERT_EQ(log.count("comand pushPlayer: "), 1);
    EXPECT_TRUE(log.lines().last().contains("QtAV::AVPlayer"));
}

TEST_F(RegistryLookups, GetPlayerByIdTakesLayerFirst)
{
    QtAV::AVPlayer* p12 = newPlayer();
    QtAV::AVPlayer* p21 = newPlayer();
    reg.insertScenePlayer(1, 2, newRecord(p12, 2)); // bank 1, layer 2
    reg.insertScenePlayer(2, 1, newRecord(p21, 1)); // bank 2, layer 1
    EXPECT_EQ(reg.getplayerByID(2, 1), p12);
    EXPECT_EQ(reg.getplayerByID(1, 2), p21);
    EXPECT_EQ(reg.getScenePlayer(1, 2)->player, p12);
}

TEST_F(RegistryLookups, PlayerFiledUnderTwoBanksBankLookupTakesHighestRecordLookupTakesFirst)
{
    QtAV::AVPlayer* shared = newPlayer();
    ScenePlayer* inBank1 = newRecord(shared, 4);
    ScenePlayer* inBank5 = newRecord(shared, 4);
    reg.insertScenePlayer(5, 4, inBank5);
    reg.insertScenePlayer(1, 4, inBank1);
    EXPECT_EQ(reg.getBankIdRelyPlayer(shared), 5);
    EXPECT_EQ(reg.getScenePlayer(shared), inBank1);
}

TEST_F(RegistryLookups, RemovingLastLayerKeepsTheEmptyBank)
{
    reg.insertScenePlayer(1, 2, newRecord(newPlayer(), 2));
    reg.removeScenePlayer(1, 2);
    EXPECT_TRUE(reg.getModulePlayerMap(1).isEmpty());
    EXPECT_TRUE(RegistryTestAccess::map(reg).contains(1));
    EXPECT_EQ(reg.getScenePlayer(1, 2), nullptr);
}

TEST_F(RegistryLookups, RemovingUnknownKeysChangesNothing)
{
    ScenePlayer* a = newRecord(newPlayer(), 2);
    reg.insertScenePlayer(1, 2, a);
    reg.removeScenePlayer(9, 2);
    reg.removeScenePlayer(1, 9);
    EXPECT_EQ(reg.getScenePlayer(1, 2), a);
    EXPECT_FALSE(RegistryTestAccess::map(reg).contains(9));
}

TEST_F(RegistryLookups, BankOfAnUnknownPlayerIsMinusOne)
{
    QtAV::AVPlayer* nowhere = newPlayer();
    EXPECT_EQ(reg.getBankIdRelyPlayer(nowhere), -1);
    reg.insertScenePlayer(1, 1, newRecord(newPlayer(), 1));
    EXPECT_EQ(reg.getBankIdRelyPlayer(nowhere), -1);
    EXPECT_EQ(reg.getScenePlayer(nowhere), nullptr);
}

TEST_F(RegistryLookups, ModulePlayerMapIsTheBankInLayerOrder)
{
    ScenePlayer* l3 = newRecord(newPlayer(), 3);
    ScenePlayer* l1 = newRecord(newPlayer(), 1);
    reg.insertScenePlayer(4, 3, l3);
    reg.insertScenePlayer(4, 1, l1);
    const QMap<int, ScenePlayer*> bank = reg.getModulePlayerMap(4);
    EXPECT_EQ(bank.keys(), QList<int>({1, 3}));
    EXPECT_EQ(bank.values(), QList<ScenePlayer*>({l1, l3}));
    EXPECT_TRUE(reg.getModulePlayerMap(5).isEmpty());
}

TEST_F(RegistryLookups, NullPlayerMatchesARecordWhosePlayerWasCleared)
{
    ScenePlayer* cleared = newRecord(nullptr, 6);
    reg.insertScenePlayer(2, 6, cleared);
    EXPECT_EQ(reg.getScenePlayer(static_cast<QtAV::AVPlayer*>(nullptr)), cleared);
    EXPECT_EQ(reg.getBankIdRelyPlayer(nullptr), 2);
    EXPECT_EQ(reg.getplayerByID(6, 2), nullptr);
}

TEST_F(RegistryLookups, NegativeAndHugeIdsAreOrdinaryKeys)
{
    ScenePlayer* neg = newRecord(newPlayer(), -5);
    ScenePlayer* huge = newRecord(newPlayer(), INT_MAX);
    reg.insertScenePlayer(INT_MIN, -5, neg);
    reg.insertScenePlayer(INT_MAX, INT_MAX, huge);
    EXPECT_EQ(reg.getScenePlayer(INT_MIN, -5), neg);
    EXPECT_EQ(reg.getplayerByID(INT_MAX, INT_MAX), huge->player);
    EXPECT_EQ(reg.getBankIdRelyPlayer(neg->player), INT_MIN);
}

TEST_F(RegistryLookups, NullArgumentsAreHarmless)
{
    reg.insertScenePlayer(1, 1, nullptr); // a null record is filed but never matched
    EXPECT_EQ(reg.getScenePlayer(1, 1), nullptr);
    EXPECT_EQ(reg.getplayerByID(1, 1), nullptr);
    EXPECT_EQ(reg.getScenePlayer(static_cast<QtAV::AVPlayer*>(nullptr)), nullptr);
    reg.disConnect(nullptr);
}

TEST_F(RegistryLookups, DisconnectCutsPlaybackSignalsButKeepsDeletionNotice)
{
    QtAV::AVPlayer* player = newPlayer();
    QObject receiver;
    QStringList heard;
    QObject::connect(player, &QtAV::AVPlayer::stopped, &receiver, [&] { heard << "stopped"; });
    QObject::connect(player, &QtAV::AVPlayer::loaded, &receiver, [&] { heard << "loaded"; });
    QObject::connect(player, &QtAV::AVPlayer::positionChanged, &receiver,
                     [&] { heard << "positionChanged"; });
    QObject::connect(player, &QtAV::AVPlayer::fadeOutFinished, &receiver,
                     [&] { heard << "fadeOutFinished"; });
    QObject::connect(player, &QtAV::AVPlayer::fadeInFinished, &receiver,
                     [&] { heard << "fadeInFinished"; });
    QObject::connect(player, &QtAV::AVPlayer::playReadySucess, &receiver,
                     [&] { heard << "playReadySucess"; });
    QObject::connect(player, &QtAV::AVPlayer::sig_deleteObj, &receiver,
                     [&] { heard << "sig_deleteObj"; });

    reg.disConnect(player);

    const char* signalNames[] = {"stopped", "loaded", "fadeOutFinished", "fadeInFinished",
                                 "playReadySucess", "sig_deleteObj"};
    for (const char* name : signalNames)
        QMetaObject::invokeMethod(player, name, Qt::DirectConnection);
    QMetaObject::invokeMethod(player, "positionChanged", Qt::DirectConnection,
                              Q_ARG(qint64, 5));
    EXPECT_EQ(heard, QStringList({"sig_deleteObj"}));
}

TEST_F(RegistryLookups, MetaObjectDeclaresNoSignalsSlotsOrProperties)
{
    const QMetaObject* mo = reg.metaObject();
    EXPECT_STREQ(mo->className(), "UI_Proc_KELMOR_PlayersManage_Desktop");
    EXPECT_EQ(mo->methodCount(), mo->methodOffset());
    EXPECT_EQ(mo->propertyCount(), mo->propertyOffset());
}

TEST_F(RegistryLookups, SingletonIsOneObjectWithATwoThreadPool)
{
    EXPECT_EQ(&UI_Proc_KELMOR_PlayersManage_Desktop::getInstance(), &reg);
    EXPECT_EQ(RegistryTestAccess::threadPool(reg).threadCount(), 2u);
}

} // namespace
