// The service's frame: construction, bank readiness, fade counts, renderer
// names, decoder ids and the packed bank/layer key.
#include "AVPlayer.h"
#include "NoxOpenGLRender.h"
#include "RecordingEngine.h"
#include "ScenePlayer.h"
#include "TestAccess.h"
#include "TestSupport.h"
#include "UI_Proc_KELMOR_PlayerTimer_Desktop.h"
#include "VideoDecoder.h"

#include <QSignalSpy>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {

using Service = UI_Proc_KELMOR_Player_Desktop;
using Access = ServiceTestAccess;

class ServiceFrame : public ::testing::Test
{
protected:
    Service& service = Service::getInstance();
    UI_Proc_KELMOR_PlayersManage_Desktop& reg = UI_Proc_KELMOR_PlayersManage_Desktop::getInstance();

    void TearDown() override
    {
        RegistryTestAccess::map(reg).clear();
        records.clear();
        players.clear();
        service.initFinishedFadeIn();
        service.initFinishedFadeOut();
        Access::pendingReadyCount(service) = 0;
        RecordingEngine::instance().setDecoders({QtAV::VideoDecoderId_FFmpeg,
                                                 QtAV::VideoDecoderId_CUDA});
    }

    // A registered layer whose ready and fade reports reach the service as
    // the layer creation wires them (queued).
    QtAV::AVPlayer* addLayer(int bankId, int layerId)
    {
        players.push_back(std::make_unique<QtAV::AVPlayer>());
        QtAV::AVPlayer* player = players.back().get();
        QObject::connect(player, "2playReadySucess()", &service, "1onPlayReady()",
                         Qt::QueuedConnection);
        QObject::connect(player, "2fadeInFinished()", &service, "1onFadeInFinishedd()",
                         Qt::QueuedConnection);
        QObject::connect(player, "2fadeOutFinished()", &service, "1onFadeOutFinished()",
                         Qt::QueuedConnection);
        records.push_back(std::make_unique<ScenePlayer>());
        records.back()->player = player;
        records.back()->layerId = layerId;
        reg.insertScenePlayer(bankId, layerId, records.back().get());
        return player;
    }
    RecordingBackend* engineOf(QtAV::AVPlayer* player)
    {
        return RecordingEngine::instance().backend(player);
    }

    std::vector<std::unique_ptr<QtAV::AVPlayer>> players;
    std::vector<std::unique_ptr<ScenePlayer>> records;
};

TEST_F(ServiceFrame, FreshServiceStartsWithDecoderListAndNoBank)
{
    Service fresh;
    EXPECT_EQ(Access::decoderNames(fresh), QStringList({"CUDA", "FFmpeg"}));
    EXPECT_EQ(Access::curBankId(fresh), -1);
    EXPECT_EQ(Access::pendingReadyCount(fresh), 0);
    EXPECT_TRUE(Access::scaleRatio(fresh).isEmpty());
    EXPECT_TRUE(Access::useStopPlayers(fresh).isEmpty());
    EXPECT_EQ(Access::fadeInCount(fresh), 0);
    EXPECT_EQ(Access::fadeOutFinishedCount(fresh), 0);
    EXPECT_EQ(Access::workerPool(fresh).threadCount(), 2u);
}

TEST_F(ServiceFrame, GetInstanceIsOneObject)
{
    EXPECT_EQ(&Service::getInstance(), &service);
}

TEST_F(ServiceFrame, EmptyBankIsReadyAtOnce)
{
    QSignalSpy ready(&service, &Service::sPlayReady);
    service.setCurPlayerCount(4);
    ASSERT_EQ(ready.count(), 1);
    EXPECT_EQ(ready.at(0).at(0).toInt(), 4);
    EXPECT_EQ(Access::pendingReadyCount(service), 0);
    EXPECT_EQ(Access::curBankId(service), 4);
}

TEST_F(ServiceFrame, BankOfThreeIsReadyOnceAfterThirdReport)
{
    QtAV::AVPlayer* a = addLayer(2, 1);
    QtAV::AVPlayer* b = addLayer(2, 2);
    QtAV::AVPlayer* c = addLayer(2, 3);
    QtAV::AVPlayer* other = addLayer(3, 1);
    QSignalSpy ready(&service, &Service::sPlayReady);
    service.setCurPlayerCount(2);
    EXPECT_EQ(ready.count(), 0);
    EXPECT_EQ(Access::pendingReadyCount(service), 3);

    engineOf(other)->raisePlayReadySucess(); // another bank: ignored
    engineOf(a)->raisePlayReadySucess();
    engineOf(b)->raisePlayReadySucess();
    processEvents();
    EXPECT_EQ(ready.count(), 0);
    EXPECT_EQ(Access::pendingReadyCount(service), 1);

    engineOf(c)->raisePlayReadySucess();
    ASSERT_TRUE(ready.wait(2000));
    ASSERT_EQ(ready.count(), 1);
    EXPECT_EQ(ready.at(0).at(0).toInt(), 2);
    EXPECT_EQ(Access::pendingReadyCount(service), 0);

    engineOf(a)->raisePlayReadySucess(); // a surplus report
    processEvents();
    EXPECT_EQ(ready.count(), 1);
    EXPECT_EQ(Access::pendingReadyCount(service), -1);

    engineOf(other)->raisePlayReadySucess();
    processEvents();
    EXPECT_EQ(ready.count(), 1);
    EXPECT_EQ(Access::pendingReadyCount(service), -1);
}

TEST_F(ServiceFrame, FadeInGroupIsReportedWhenItsLastMemberFinishes)
{
    QtAV::AVPlayer* a = addLayer(1, 1);
    QtAV::AVPlayer* b = addLayer(1, 2);
    QSignalSpy fadedIn(&service, &Service::sFadeinFinished);
    QSignalSpy fadedOut(&service, &Service::sFadeoutFinished);
    service.setFadeInOut(a, false, 500);
    service.setFadeInOut(b, false, 500);
    EXPECT_EQ(RecordingEngine::instance().journal().count(a, "fadeIn(500)"), 1);
    EXPECT_EQ(Access::fadeInCount(service), 2);

    engineOf(a)->raiseFadeInFinished();
    processEvents();
    EXPECT_EQ(fadedIn.count(), 0);
    EXPECT_EQ(Access::fadeInFinishedCount(service), 1);

    engineOf(b)->raiseFadeInFinished();
    ASSERT_TRUE(fadedIn.wait(2000));
    EXPECT_EQ(fadedIn.count(), 1);
    EXPECT_EQ(fadedOut.count(), 0);
    EXPECT_EQ(Access::fadeInCount(service), 0);
    EXPECT_EQ(Access::fadeInFinishedCount(service), 0);
}

TEST_F(ServiceFrame, FadeOutGroupIsReportedOnceAndCountersReset)
{
    QtAV::AVPlayer* a = addLayer(1, 1);
    QtAV::AVPlayer* b = addLayer(1, 2);
    QSignalSpy fadedOut(&service, &Service::sFadeoutFinished);
    service.setFadeInOut(a, true, 300);
    service.setFadeInOut(b, true, 300);
    engineOf(a)->raiseFadeOutFinished();
    processEvents();
    EXPECT_EQ(fadedOut.count(), 0);
    engineOf(b)->raiseFadeOutFinished();
    ASSERT_TRUE(fadedOut.wait(2000));
    EXPECT_EQ(fadedOut.count(), 1);
    EXPECT_EQ(Access::fadeOutCount(service), 0);
    EXPECT_EQ(Access::fadeOutFinishedCount(service), 0);
}

TEST_F(ServiceFrame, InitFinishedFadeResetsWithoutSignal)
{
    QtAV::AVPlayer* a = addLayer(1, 1);
    QSignalSpy fadedIn(&service, &Service::sFadeinFinished);
    service.setFadeInOut(a, false, 100);
    service.initFinishedFadeIn();
    EXPECT_EQ(Access::fadeInCount(service), 0);
    EXPECT_EQ(Access::fadeInFinishedCount(service), 0);
    EXPECT_EQ(fadedIn.count(), 0);
    service.setFadeInOut(a, true, 100);
    service.setFadeInOut(a, true, 100);
    service.setFadeInOut(a, true, 100);
    EXPECT_EQ(Access::fadeOutCount(service), 3);
    service.initFinishedFadeOut();
    EXPECT_EQ(Access::fadeOutCount(service), 0);
}

TEST_F(ServiceFrame, RendererCountCountsExactlyNoxGL)
{
    QtAV::AVPlayer player;
    QtAV::NoxOpenGLRender nox1, nox2;
    TestRenderer qml("QmlGL");
    TestRenderer longer("NoxGLPreview");
    player.addVideoRenderer(&nox1);
    player.addVideoRenderer(&nox2);
    player.addVideoRenderer(&qml);
    EXPECT_EQ(service.getRendererCount(&player), 2);
    player.addVideoRenderer(&longer);
    EXPECT_EQ(service.getRendererCount(&player), 2);
    EXPECT_TRUE(Access::isOpenGLWidgetRenderer(service, &nox1));
    EXPECT_FALSE(Access::isOpenGLWidgetRenderer(service, &longer));
    EXPECT_FALSE(Access::isOpenGLWidgetRenderer(service, nullptr));
    QtAV::AVPlayer empty;
    EXPECT_EQ(service.getRendererCount(&empty), 0);
    EXPECT_EQ(service.getRendererCount(nullptr), 0);
}

TEST_F(ServiceFrame, RendererListDropsQmlAndLogsEachRenderer)
{
    TestRenderer qml("QmlGL");
    QtAV::NoxOpenGLRender nox;
    LogCapture log;
    const QList<void*> list = Access::getUIAndWidgetRendererList(service, {&qml, &nox});
    ASSERT_EQ(list.size(), 1);
    EXPECT_EQ(list.at(0), static_cast<void*>(static_cast<QtAV::VideoRenderer*>(&nox)));
    const QStringList lines = log.lines();
    ASSERT_EQ(log.count("getUIAndWidgetRendererList :"), 2);
    EXPECT_TRUE(lines.at(0).contains("QmlGL"));
    EXPECT_TRUE(lines.at(1).contains("NoxGL"));
}

TEST_F(ServiceFrame, DecoderIdsKeepNameOrderAndSkipUnknown)
{
    const QVector<int> ids =
        Access::idsFromNames(service, {"CUDA", "NoSuchDecoder", "FFmpeg"});
    EXPECT_EQ(ids, QVector<int>({QtAV::VideoDecoderId_CUDA, QtAV::VideoDecoderId_FFmpeg}));
    EXPECT_NE(QtAV::VideoDecoderId_CUDA, 0);
    EXPECT_NE(QtAV::VideoDecoderId_FFmpeg, 0);
}

TEST_F(ServiceFrame, DecoderIdsAreEmptyWhenNoDecoderIsAvailable)
{
    RecordingEngine::instance().setDecoders({});
    EXPECT_TRUE(Access::idsFromNames(service, {"CUDA", "NoSuchDecoder", "FFmpeg"}).isEmpty());
    RecordingEngine::instance().setDecoders({QtAV::VideoDecoderId_FFmpeg});
    EXPECT_EQ(Access::idsFromNames(service, {"CUDA", "FFmpeg"}),
              QVector<int>({QtAV::VideoDecoderId_FFmpeg}));
}

TEST_F(ServiceFrame, PackedBankLayerKey)
{
    EXPECT_EQ(Access::getBankLayer(service, 5, 2), 131077);
    EXPECT_EQ(Access::getBankLayer(service, 3, 2), 131075);
    EXPECT_EQ(Access::getBankLayer(service, 0, 0), 0);
    // Negative and huge ids wrap instead of being undefined.
    EXPECT_EQ(Access::getBankLayer(service, -1, 0), -1);
    EXPECT_EQ(Access::getBankLayer(service, 0, 0x10000), 0);
}

TEST_F(ServiceFrame, EchoByIdIsTheRegistryPlayer)
{
    QtAV::AVPlayer* p = addLayer(1, 2);
    EXPECT_EQ(service.getAVPlayerEchoById(2, 1), p);
    EXPECT_EQ(service.getAVPlayerEchoById(1, 2), nullptr);
}

TEST_F(ServiceFrame, ClearUseStopPlayerDropsEveryMark)
{
    QtAV::AVPlayer* p = addLayer(1, 2);
    Access::useStopPlayers(service).insert(p, true);
    Access::useStopPlayers(service).insert(nullptr, false);
    service.clearUseStopPlayer();
    EXPECT_TRUE(Access::useStopPlayers(service).isEmpty());
}

TEST_F(ServiceFrame, FadeTimeIsStored)
{
    service.setFadeTime(2.5f);
    EXPECT_FLOAT_EQ(Access::fadeTime(service), 2.5f);
}

TEST_F(ServiceFrame, PathJobOnlySetsTheFile)
{
    QtAV::AVPlayer player;
    RecordingEngine::instance().journal().clear();
    Access::setPathPlayerThread(&player, "/media/a.mp4");
    EXPECT_EQ(player.file(), "/media/a.mp4");
    EXPECT_EQ(RecordingEngine::instance().journal().names(&player),
              QStringList({"open(/media/a.mp4)"}));
    Access::setPathPlayerThread(nullptr, "/x"); // ignored with a debug line
}

TEST_F(ServiceFrame, PlayJobRunsTheTimerLoopOnTheCallingThread)
{
    UI_Proc_KELMOR_PlayerTimer_Desktop timer(1, 1, 0);
    QSignalSpy stopped(&timer, &UI_Proc_KELMOR_PlayerTimer_Desktop::stopped);
    Access::setPlayThread(&timer); // a zero duration ends in the first tick
    EXPECT_EQ(stopped.count(), 1);
    EXPECT_EQ(timer.getPlayState(), 1200);
}

TEST_F(ServiceFrame, MetaObjectListsSignalsThenSlotsInOrder)
{
    const QMetaObject* mo = service.metaObject();
    const char* expected[] = {
        "sendPlayerIndex(int,int)", "sendLoadAllComple(int)", "sFadeoutFinished()",
        "sFadeinFinished()", "sPositionChanged(int,int,qint64)", "sPlayReady(int)",
        "onStopped()", "onLoaded()", "onPositionChanged(qint64)", "onFadeOutFinished()",
        "onFadeInFinishedd()", "onPlayerLoadComple()", "onStarted(int,int)",
        "onStopped(int,int)", "onPaused(int,int,bool)", "onSetProgressTimered(int,int,qint64)",
        "onSetRepeated(int,int,int)", "onSetSynchClocked(int,int,float)",
        "onPlayReadyed(int,int,qint64,bool)", "onResetPlayed(int,int,bool)", "onPlayReady()",
        "onSigDeleteObj()"};
    ASSERT_EQ(mo->methodCount() - mo->methodOffset(), 22);
    for (int i = 0; i < 22; ++i) {
        const QMetaMethod m = mo->method(mo->methodOffset() + i);
        // The meta-object records qint64 under its underlying name.
        const QByteArray want = QByteArray(expected[i]).replace("qint64", "qlonglong");
        EXPECT_EQ(m.methodSignature().toStdString(), want.toStdString()) << "index " << i;
        EXPECT_EQ(m.methodType(), i < 6 ? QMetaMethod::Signal : QMetaMethod::Slot) << i;
        if (i >= 6)
            EXPECT_EQ(m.access(), QMetaMethod::Private) << i;
    }
    EXPECT_EQ(mo->method(mo->indexOfSignal("sendPlayerIndex(int,int)")).parameterNames(),
              QList<QByteArray>({"index", "bankId"}));
}

TEST_F(ServiceFrame, WorkerPoolRunsSubmittedJobs)
{
    std::future<int> f = Access::workerPool(service).enqueue([](int x) { return x * 2; }, 21);
    EXPECT_EQ(f.get(), 42);
}

} // namespace
