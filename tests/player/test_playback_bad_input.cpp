// Bad input and awkward moments: null players, unknown layers, records that
// lack keys, and layers deleted while their timer runs, while a fade runs or
// from inside their own reports.
#include "PlaybackFixture.h"

#include "AVClock.h"

#include <limits>

namespace {

class PlaybackBadInput : public PlaybackTest
{
};

TEST_F(PlaybackBadInput, NullPlayerCommandsDoNothingAndSayWhichWasIgnored)
{
    LogCapture log;
    Service& s = service();
    const std::vector<std::pair<const char*, std::function<void()>>> commands = {
        {"play", [&] { s.play(nullptr); }},
        {"pause", [&] { s.pause(nullptr); }},
        {"stop", [&] { s.stop(nullptr); }},
        {"resetPlay", [&] { s.resetPlay(nullptr, true); }},
        {"playReady", [&] { s.playReady(nullptr, 0, false); }},
        {"setRepeat", [&] { s.setRepeat(nullptr, 1); }},
        {"setSynchClock", [&] { s.setSynchClock(nullptr, 1.0f); }},
        {"refreshUi", [&] { s.refreshUi(nullptr); }},
        {"setLayerMediaType", [&] { s.setLayerMediaType(nullptr, "video"); }},
        {"setRendererZ", [&] { s.setRendererZ(nullptr, 1.0); }},
        {"setWidgetRenderVisible", [&] { s.setWidgetRenderVisible(nullptr, true); }},
        {"setNdiState", [&] { s.setNdiState(nullptr, 1); }},
        {"setSpoutState", [&] { s.setSpoutState(nullptr, 1); }},
        {"setRendererProperty", [&] { s.setRendererProperty(nullptr, Record(), 0); }},
        {"setPlayerTimerState",
         [&] { ServiceTestAccess::setPlayerTimerState(s, nullptr, 1, true, 0, 0); }},
    };
    for (const auto& command : commands) {
        log.clear();
        command.second();
        EXPECT_EQ(log.lines().size(), 1) << command.first;
        EXPECT_EQ(log.count(QStringLiteral("%1 ignored: null player").arg(command.first)), 1)
            << command.first;
    }
    EXPECT_TRUE(journal().names().isEmpty());
}

TEST_F(PlaybackBadInput, NullPlayerIsIgnoredEvenWhenARecordHoldsNoPlayer)
{
    // A scene player without a player matches the reverse look-up of null.
    auto* empty = new ScenePlayer();
    reg().insertScenePlayer(7, 7, empty);
    LogCapture log;

    service().setNdiState(nullptr, 1);
    service().setSpoutState(nullptr, 1);
    service().setPosition(7, 7, 10);
    service().pptPageUpDown(7, 7, Record());
    service().changeLayerContent(7, 7, Record());

    EXPECT_EQ(empty->spoutNode, nullptr);
    EXPECT_EQ(log.count("ignored: null player"), 3);
    reg().deleteplayerByID(Record({{"bankId", 7}, {"layerId", 7}}));
    EXPECT_EQ(reg().getScenePlayer(7, 7), nullptr);
}

TEST_F(PlaybackBadInput, ClockTimesBeyondRangeAreClampedNotUndefined)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");

    service().setSynchClock(player, std::numeric_limits<float>::quiet_NaN());
    EXPECT_EQ(player->masterClock()->externalClock(), 0);
    service().setSynchClock(player, 1e30f);
    EXPECT_EQ(player->masterClock()->externalClock(), std::numeric_limits<qint64>::max());
    service().setSynchClock(player, -1e30f);
    EXPECT_EQ(player->masterClock()->externalClock(), std::numeric_limits<qint64>::min());
    service().setSynchClock(player, -2.9f);
    EXPECT_EQ(player->masterClock()->externalClock(), -2);
}

TEST_F(PlaybackBadInput, CommandsNamingUnknownLayersDoNothingSilently)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "picture");
    journal().clear();
    LogCapture log;

    service().setPosition(2, 1, 10);
    service().setStartPosition(2, 1, 10);
    service().pptPageUpDown(2, 1, Record({{"videoPath", "x"}}));
    service().setDuration(1, 2, 10);
    service().updateFrame(1, 2);
    EXPECT_FALSE(service().setStopFade(1, 2, 1));
    service().changeLayerContent(1, 2, Record());
    service().setAllRenderList(1, 2);
    service().setVolumeState(1, 2, Record({{"effectType", 7603}, {"volume", 1}}));
    reg().deleteplayerByID(Record({{"bankId", 2}, {"layerId", 1}}));
    waitForPool(servicePool());

    EXPECT_TRUE(log.lines().isEmpty());
    EXPECT_TRUE(journal().names().isEmpty());
    EXPECT_EQ(reg().getplayerByID(2, 1), player);
}

TEST_F(PlaybackBadInput, TimerReportsForUnknownLayersAreIgnored)
{
    createLayer(1, 2, "picture");
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    Timer* timer = timerOf(1, 2);
    journal().clear();

    emit timer->stopped(9, 9);
    emit timer->setProgressTimered(9, 9, 5);
    emit timer->paused(9, 9, true);
    emit timer->resetPlayed(9, 9, true);
    emit timer->playReadyed(9, 9, 1, true);
    emit timer->setRepeated(9, 9, 1);
    emit timer->setSynchClocked(9, 9, 1.0f);

    EXPECT_EQ(ends.count() + positions.count(), 0);
    EXPECT_TRUE(journal().names().isEmpty());
}

TEST_F(PlaybackBadInput, DeletingLayerWhileTimerRunsStopsItsThreadAndDropsLateReports)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "picture", 600000);
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);
    service().play(player);
    ASSERT_TRUE(positions.wait(5000));
    QPointer<Timer> timer(timerOf(1, 2));

    reg().deleteplayerByID(Record({{"bankId", 1}, {"layerId", 2}}));

    EXPECT_TRUE(timer.isNull()); // deleted, its thread joined
    processEvents();
    const int before = positions.count();
    processEvents();
    EXPECT_EQ(positions.count(), before); // no thread left to report
    EXPECT_EQ(ends.count(), 0);           // the loop's stop found no layer
}

TEST_F(PlaybackBadInput, DeletingLayerWhileFadeRunsStopsFadesAndDropsItsReport)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    QSignalSpy fadeIns(&service(), &Service::sFadeinFinished);
    service().setFadeInOut(player, false, 2000);
    backend(player)->fadeInRunning = true;
    journal().clear();

    reg().deleteplayerByID(Record({{"bankId", 1}, {"layerId", 2}}));
    backend(player)->raiseFadeInFinished(); // cut off: never reaches the service

    EXPECT_EQ(callsOf(player).mid(0, 3),
              QStringList({"stopFadeIn()", "stopFadeOut()", "setPaused(true)"}));
    processEvents();
    EXPECT_EQ(fadeIns.count(), 0);
    EXPECT_EQ(ServiceTestAccess::fadeInFinishedCount(service()), 0);
}

TEST_F(PlaybackBadInput, DeletingLayerFromInsideItsEndReport)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    QPointer<QtAV::AVPlayer> watch(player);
    auto connection = QObject::connect(&service(), &Service::sendPlayerIndex, &service(),
                                       [](int layerId, int bankId) {
        reg().deleteplayerByID(Record({{"bankId", bankId}, {"layerId", layerId}}));
    });
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);

    backend(player)->raiseStopped();
    ASSERT_TRUE(ends.wait(5000));
    QObject::disconnect(connection);

    EXPECT_EQ(reg().getScenePlayer(1, 2), nullptr);
    EXPECT_TRUE(waitUntil([&] { return watch.isNull(); }));
}

TEST_F(PlaybackBadInput, DeletingLayerFromInsideItsTimerProgressReport)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "picture", 600000);
    QPointer<QtAV::AVPlayer> watch(player);
    QPointer<Timer> timer(timerOf(1, 2));
    auto connection = QObject::connect(&service(), &Service::sPositionChanged, &service(),
                                       [](int layerId, int bankId, qint64) {
        reg().deleteplayerByID(Record({{"bankId", bankId}, {"layerId", layerId}}));
    });

    service().play(player);
    const bool gone = waitUntil([&] { return watch.isNull(); });
    QObject::disconnect(connection);

    EXPECT_TRUE(gone);
    EXPECT_TRUE(timer.isNull());
}

TEST_F(PlaybackBadInput, ClearingAllLayersFromInsideAnEndReport)
{
    // Two layers: the first one's end report deletes both.
    QtAV::AVPlayer* a = createLayer(1, 2, "video");
    QtAV::AVPlayer* b = createLayer(1, 3, "picture", 600000);
    service().play(b);
    auto connection = QObject::connect(&service(), &Service::sendPlayerIndex, &service(),
                                       [] { reg().clearAllPlayer(); });
    QSignalSpy ends(&service(), &Service::sendPlayerIndex);

    backend(a)->raiseStopped();
    ASSERT_TRUE(ends.wait(5000));
    QObject::disconnect(connection);

    EXPECT_TRUE(RegistryTestAccess::map(reg()).isEmpty());
}

TEST_F(PlaybackBadInput, TimerThreadsAreGoneAfterClearAll)
{
    for (int layer = 1; layer <= 3; ++layer)
        service().play(createLayer(1, layer, "picture", 600000));
    QSignalSpy positions(&service(), &Service::sPositionChanged);
    ASSERT_TRUE(positions.wait(5000));
    QList<QPointer<Timer>> timers;
    for (int layer = 1; layer <= 3; ++layer)
        timers << QPointer<Timer>(timerOf(1, layer));

    reg().clearAllPlayer();

    for (const QPointer<Timer>& timer : timers)
        EXPECT_TRUE(timer.isNull());
}

} // namespace
