// A layer's whole life for every media type, driven as the host drives it:
// create, arm the bank, ready reports, play, positions, end of the item,
// content change, delete. And the end of a whole show over several banks.
#include "PlaybackFixture.h"

#include "NdiService.h"
#include "SpoutNode.h"

namespace {

constexpr int kBank = 6;
constexpr int kLayer = 1;
constexpr qint64 kItemMsec = 300;

class PlaybackLifecycle : public PlaybackTest, public ::testing::WithParamInterface<const char*>
{
protected:
    QString type() const { return QString::fromLatin1(GetParam()); }
    bool isClock() const { return type() == "video" || type() == "audio"; }
};

TEST_P(PlaybackLifecycle, CreateReadyPlayReportEndChangeAndDelete)
{
    QSignalSpy loads(&service(), &Service::sendLoadAllComple);
    QSignalSpy ready(&service(), &Service::sPlayReady);
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);

    // Create.
    QtAV::AVPlayer* player = createLayer(kBank, kLayer, type(), kItemMsec, "show/" + type());
    ASSERT_NE(player, nullptr);
    QPointer<QtAV::AVPlayer> watch(player);
    EXPECT_EQ(player->getMediaType(), type() == "office" ? QString("picture") : type());

    // Arm the bank; the layer reports ready.
    service().setCurPlayerCount(kBank);
    EXPECT_EQ(ServiceTestAccess::pendingReadyCount(service()), 1);
    backend(player)->raisePlayReadySucess();
    ASSERT_TRUE(ready.wait(5000));
    EXPECT_EQ(loads.at(0), QVariantList({kLayer}));
    EXPECT_EQ(ready.at(0), QVariantList({kBank}));

    // Play.
    journal().clear();
    service().play(player);
    EXPECT_EQ(callsOf(player).value(0), "setPaused(false)");
    if (isClock())
        EXPECT_EQ(timerOf(kBank, kLayer)->getPlayState(), kStopped);
    else
        EXPECT_TRUE(waitUntil([&] {
            return timerOf(kBank, kLayer)->getPlayState() != kStopped || !ends.isEmpty();
        }));
    if (type() == "captureCard")
        EXPECT_EQ(callsOf(player).value(1), "playReady(show/captureCard, 0, false)");
    if (type() == "ndi")
        EXPECT_TRUE(NdiService::isSending(player->file(), player));
    if (type() == "spout") {
        SpoutNode* node = reg().getScenePlayer(kBank, kLayer)->spoutNode;
        ASSERT_NE(node, nullptr);
        EXPECT_TRUE(node->isPlaying());
    }

    // Positions: the player's for clock media (and Spout), the timer's for
    // timed items.
    backend(player)->raisePositionChanged(99999);
    if (isClock() || type() == "spout") {
        ASSERT_TRUE(waitUntil([&] {
            for (const QVariantList& p : positions)
                if (p == QVariantList({kLayer, kBank, qint64(99999)}))
                    return true;
            return false;
        }));
    }
    if (!isClock())
        ASSERT_TRUE(waitUntil([&] { return !positions.isEmpty(); }));
    for (const QVariantList& p : positions) {
        EXPECT_EQ(p.at(0).toInt(), kLayer);
        EXPECT_EQ(p.at(1).toInt(), kBank);
        if (type() != "spout" && !isClock())
            EXPECT_LE(p.at(2).toLongLong(), kItemMsec); // from the timer only
    }

    // End of the item: the player's stop for clock media, the timer's end
    // of its pass for timed items.
    journal().clear();
    if (isClock())
        backend(player)->raiseStopped();
    ASSERT_TRUE(ends.wait(10000));
    processEvents();
    ASSERT_EQ(ends.count(), 1);
    EXPECT_EQ(ends.at(0), QVariantList({kLayer, kBank}));
    EXPECT_EQ(timerOf(kBank, kLayer)->getPlayState(), kStopped);
    if (type() == "osd")
        EXPECT_TRUE(player->isPaused());
    if (type() == "spout")
        EXPECT_EQ(reg().getScenePlayer(kBank, kLayer)->spoutNode, nullptr);

    // Content change to a clip.
    journal().clear();
    Record next({{"type", "video"}, {"videoPath", "show/next.mp4"}, {"timeLenMsec", 2000}});
    service().changeLayerContent(kLayer, kBank, next);
    EXPECT_EQ(player->getMediaType(), "video");
    EXPECT_EQ(player->file(), "show/next.mp4");
    EXPECT_EQ(player->stopPosition(), 2000);
    EXPECT_EQ(timerOf(kBank, kLayer)->getDuration(), 2000);
    EXPECT_EQ(journal().count(player, "stop()"), 1);
    // From clock media (networkVideo counts as such here) the stop is the
    // service's own.
    const bool marked = isClock() || type() == "networkVideo";
    EXPECT_EQ(useStopPlayers().value(player, false), marked);
    if (type() == "ndi")
        EXPECT_EQ(NdiService::senderCount(), 0);

    // Delete.
    reg().deleteplayerByID(Record({{"bankId", kBank}, {"layerId", kLayer}}));
    EXPECT_EQ(reg().getScenePlayer(kBank, kLayer), nullptr);
    EXPECT_TRUE(reg().getModulePlayerMap(kBank).isEmpty());
    EXPECT_TRUE(waitUntil([&] { return watch.isNull(); }));
    EXPECT_EQ(ends.count(), 1);
}

INSTANTIATE_TEST_SUITE_P(EveryMediaType, PlaybackLifecycle,
                         ::testing::Values("video", "audio", "picture", "office", "osd", "ndi",
                                           "captureCard", "networkVideo", "virtualScreen",
                                           "spout"),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                             return std::string(info.param);
                         });

class PlaybackShowEnd : public PlaybackTest
{
};

TEST_F(PlaybackShowEnd, ClearAllEndsEveryLayerOfEveryBankInOrder)
{
    const QList<QPair<int, int>> layers = {{4, 1}, {1, 3}, {1, 2}, {9, 5}};
    QMap<QtAV::AVPlayer*, QPair<int, int>> idsOf;
    QList<QPointer<QtAV::AVPlayer>> watched;
    const char* types[] = {"video", "picture", "spout", "ndi"};
    int i = 0;
    for (const auto& layer : layers) {
        QtAV::AVPlayer* player = createLayer(layer.first, layer.second, types[i++], 600000);
        service().play(player);
        idsOf.insert(player, layer);
        watched << QPointer<QtAV::AVPlayer>(player);
    }
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    ASSERT_TRUE(positions.wait(5000));
    LogCapture log;

    reg().clearAllPlayer();

    // One teardown line per layer, in ascending bank, then layer.
    QList<QPair<int, int>> order;
    for (const QString& line : log.lines()) {
        if (!line.startsWith("comand deletePlayer: "))
            continue;
        for (auto it = idsOf.constBegin(); it != idsOf.constEnd(); ++it) {
            const QString address = QString::number(quintptr(it.key()), 16);
            if (line.contains(address))
                order << it.value();
        }
    }
    EXPECT_EQ(order, (QList<QPair<int, int>>{{1, 2}, {1, 3}, {4, 1}, {9, 5}}));
    EXPECT_TRUE(RegistryTestAccess::map(reg()).isEmpty());
    EXPECT_TRUE(waitUntil([&] {
        for (const auto& player : watched)
            if (player)
                return false;
        return true;
    }));
    EXPECT_EQ(NdiService::senderCount(), 0);
}

} // namespace
