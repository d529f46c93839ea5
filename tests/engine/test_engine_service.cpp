// A layer made by the service, played on the libmpv engine from end to end.
#include "EngineFixture.h"

#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

TEST_F(EngineTest, ServiceLayerLoadsPlaysToItsDurationAndIsTornDown)
{
    auto& service = UI_Proc_KELMOR_Player_Desktop::getInstance();
    auto& registry = UI_Proc_KELMOR_PlayersManage_Desktop::getInstance();
    Record record;
    record["layerId"] = 7;
    record["bankId"] = 70;
    record["path"] = EngineMedia::clip();
    record["groupID"] = 1;
    record["type"] = QStringLiteral("video");
    record["timeLenMsec"] = 2000;
    record["isSetPr"] = true;
    service.creatnewlayer(record);
    QPointer<QtAV::AVPlayer> player = registry.getplayerByID(7, 70);
    ASSERT_TRUE(player);
    service.setLayerMediaType(player, QStringLiteral("video"));

    QSignalSpy loadComplete(&service, SIGNAL(sendLoadAllComple(int)));
    QSignalSpy ended(&service, SIGNAL(sendPlayerIndex(int,int)));
    QSignalSpy positions(&service, SIGNAL(sPositionChanged(int,int,qint64)));
    service.setDuration(7, 70, 700); // the stop position of a clip
    service.playReady(player, 200, false);
    ASSERT_TRUE(waitFor(loadComplete));
    EXPECT_EQ(loadComplete.at(0).at(0).toInt(), 7);
    ASSERT_TRUE(waitFor(ended));
    EXPECT_EQ(ended.at(0).at(0).toInt(), 7);
    EXPECT_EQ(ended.at(0).at(1).toInt(), 70);
    ASSERT_FALSE(positions.isEmpty());
    for (const QList<QVariant>& args : positions) {
        EXPECT_GE(args.at(2).toLongLong(), 200);
        EXPECT_LE(args.at(2).toLongLong(), 750);
    }

    registry.clearAllPlayer();
    EXPECT_TRUE(waitUntil([&] { return player.isNull(); })) << "the layer's player was not deleted";
}
