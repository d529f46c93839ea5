// Fixture of the playback-control and teardown tests: layers made the way the
// host makes them (creatnewlayer, then a media type), waiting on the event
// loop for queued reports and for released players to be deleted, and
// read-back helpers for the journal, the scene players and the timers.
//
// Every test leaves the process as it found it: the layers are ended with
// clearAllPlayer and the fixture waits until each player it made has been
// deleted (on its release notice); the service's counters and marks are
// reset.
#pragma once

#include "AVPlayer.h"
#include "RecordingEngine.h"
#include "ScenePlayer.h"
#include "TestAccess.h"
#include "TestSupport.h"
#include "UI_Proc_KELMOR_PlayerTimer_Desktop.h"
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"
#include "WorkerPool.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QPointer>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

class PlaybackTest : public ::testing::Test
{
protected:
    using Service = UI_Proc_KELMOR_Player_Desktop;
    using Registry = UI_Proc_KELMOR_PlayersManage_Desktop;
    using Timer = UI_Proc_KELMOR_PlayerTimer_Desktop;

    static constexpr int kPlaying = 1201;
    static constexpr int kStopped = 1200;
    static constexpr int kPaused = 1202;

    static Service& service() { return Service::getInstance(); }
    static Registry& reg() { return Registry::getInstance(); }
    static EngineJournal& journal() { return RecordingEngine::instance().journal(); }
    static RecordingBackend* backend(QtAV::AVPlayer* player)
    {
        return RecordingEngine::instance().backend(player);
    }
    static QMap<QtAV::AVPlayer*, bool>& useStopPlayers()
    {
        return ServiceTestAccess::useStopPlayers(service());
    }

    void SetUp() override
    {
        ASSERT_TRUE(RegistryTestAccess::map(reg()).isEmpty())
            << "a previous test left layers behind";
        journal().clear();
    }

    void TearDown() override
    {
        reg().clearAllPlayer();
        EXPECT_TRUE(waitUntil([this] { return allPlayersDeleted(); }))
            << "a released player was not deleted";
        processEvents();
        service().clearUseStopPlayer();
        service().initFinishedFadeIn();
        service().initFinishedFadeOut();
        ServiceTestAccess::pendingReadyCount(service()) = 0;
        journal().clear();
    }

    /// A creation record with every key the host sends.
    static Record layerRecord(int bankId, int layerId, const QString& path,
                              qint64 timeLenMsec = 1000, const QString& type = QString())
    {
        return hostLayerRecord(bankId, layerId, path, timeLenMsec, type);
    }

    /// Creates the layer and gives it its media type, as the host does.
    QtAV::AVPlayer* createLayer(int bankId, int layerId, const QString& type,
                                qint64 timeLenMsec = 1000, QString path = QString())
    {
        if (path.isEmpty())
            path = QStringLiteral("media/%1-%2.%3").arg(bankId).arg(layerId).arg(type);
        service().creatnewlayer(layerRecord(bankId, layerId, path, timeLenMsec, type));
        QtAV::AVPlayer* player = reg().getplayerByID(layerId, bankId);
        if (player) {
            track(player);
            service().setLayerMediaType(player, type);
        }
        return player;
    }

    /// Players the fixture waits for at the end of the test.
    void track(QtAV::AVPlayer* player) { m_players.append(QPointer<QtAV::AVPlayer>(player)); }

    bool allPlayersDeleted() const
    {
        for (const QPointer<QtAV::AVPlayer>& player : m_players) {
            if (player)
                return false;
        }
        return true;
    }

    static Timer* timerOf(int bankId, int layerId)
    {
        ScenePlayer* scene = reg().getScenePlayer(bankId, layerId);
        return scene ? scene->playerTimer : nullptr;
    }

    /// Waits until the layer's timer loop runs. The loop sets the playing
    /// state on its own thread, so a pause or stop sent before that moment
    /// would be overridden by the starting loop.
    static bool waitPlaying(int bankId, int layerId)
    {
        return waitUntil([=] {
            Timer* timer = timerOf(bankId, layerId);
            return timer && timer->getPlayState() == kPlaying;
        });
    }

    /// Runs the event loop until `done` holds or the time is up (generous:
    /// machines are shared). Returns whether it holds.
    static bool waitUntil(const std::function<bool()>& done, int timeoutMs = 10000)
    {
        QDeadlineTimer deadline(timeoutMs);
        while (!done()) {
            if (deadline.hasExpired())
                return false;
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            QTest::qWait(5);
        }
        return true;
    }

    /// Blocks until every job queued on the pool so far has finished: each
    /// worker takes one meeting job and waits in it for the others, so no
    /// worker still runs an earlier job (the queue is first in, first out).
    static void waitForPool(WorkerPool& pool)
    {
        struct Meeting
        {
            std::mutex mutex;
            std::condition_variable cv;
            std::size_t arrived = 0;
        };
        auto meeting = std::make_shared<Meeting>();
        const std::size_t workers = pool.threadCount();
        std::vector<std::future<void>> jobs;
        for (std::size_t i = 0; i < workers; ++i) {
            jobs.push_back(pool.enqueue([meeting, workers] {
                std::unique_lock<std::mutex> lock(meeting->mutex);
                ++meeting->arrived;
                meeting->cv.notify_all();
                meeting->cv.wait(lock, [&] { return meeting->arrived == workers; });
            }));
        }
        for (std::future<void>& job : jobs)
            job.wait();
    }

    static WorkerPool& servicePool() { return ServiceTestAccess::workerPool(service()); }

    /// The backend calls of one player, in order.
    static QStringList callsOf(QtAV::AVPlayer* player) { return journal().names(player); }

private:
    QList<QPointer<QtAV::AVPlayer>> m_players;
};
