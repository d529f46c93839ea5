// A timed item started right after a content change: the change stops the
// layer's timer, whose loop is still on its way out when the next play or
// playReady arrives; the new item's run must start all the same, after the
// old run reported its stop.
#include "PlaybackFixture.h"

#include <QStringList>

namespace {

class PlaybackRestart : public PlaybackTest
{
protected:
    static Record change(const QString& path)
    {
        Record record;
        record["type"] = QStringLiteral("picture");
        record["videoPath"] = path;
        record["timeLenMsec"] = 600000;
        return record;
    }

    /// Records the timer's start and stop reports in the order they were
    /// sent, on this thread (queued: they are sent from the timer's threads).
    void watch(Timer* timer)
    {
        QObject::connect(timer, &Timer::started, &m_context,
                         [this] { m_reports << QStringLiteral("started"); }, Qt::QueuedConnection);
        QObject::connect(timer, &Timer::stopped, &m_context,
                         [this] { m_reports << QStringLiteral("stopped"); }, Qt::QueuedConnection);
    }

    /// Whether the timer runs an item that has been playing for a while.
    static bool runsAgain(Timer* timer)
    {
        return timer->getPlayState() == kPlaying && timer->getCurrProgress() >= 60;
    }

    QObject m_context;
    QStringList m_reports;
};

TEST_F(PlaybackRestart, PlayOrPlayReadyRightAfterAContentChangeRunsTheNewItem)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "picture", 600000, QStringLiteral("media/a.png"));
    ASSERT_NE(player, nullptr);
    Timer* timer = timerOf(1, 2);
    ASSERT_NE(timer, nullptr);
    watch(timer);
    service().play(player);
    ASSERT_TRUE(waitUntil([&] { return runsAgain(timer); }));
    processEvents();

    constexpr int kRepetitions = 20;
    int ran = 0;
    for (int i = 0; i < kRepetitions; ++i) {
        m_reports.clear();
        const QString path = QStringLiteral("media/%1.png").arg(i % 2 ? "a" : "b");
        service().changeLayerContent(2, 1, change(path));
        if (i % 2)
            service().playReady(player, 0, false);
        else
            service().play(player);
        // The new item's run: started, and its position advancing.
        if (!waitUntil([&] { return runsAgain(timer) && m_reports.contains("started"); }, 3000)) {
            ADD_FAILURE() << "repetition " << i << ": the new item's timer did not run (state "
                          << timer->getPlayState() << ", progress " << timer->getCurrProgress()
                          << ", reports " << m_reports.join(' ').toStdString() << ")";
            break;
        }
        // The old run still reports its stop, before the new one starts.
        processEvents();
        EXPECT_EQ(m_reports, QStringList({"stopped", "started"})) << "repetition " << i;
        EXPECT_EQ(player->file(), path);
        ++ran;
    }
    EXPECT_EQ(ran, kRepetitions);

    service().stop(player);
    EXPECT_TRUE(waitUntil([&] { return timer->getPlayState() == kStopped; }));
}

TEST_F(PlaybackRestart, PlayWhileTheItemPlaysKeepsItsRun)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "picture", 600000);
    ASSERT_NE(player, nullptr);
    Timer* timer = timerOf(1, 2);
    ASSERT_NE(timer, nullptr);
    watch(timer);
    service().play(player);
    ASSERT_TRUE(waitUntil([&] { return runsAgain(timer); }));
    const qint64 reached = timer->getCurrProgress();

    // A second play of a playing item neither restarts nor stops its run.
    service().play(player);
    ASSERT_TRUE(waitUntil([&] { return timer->getCurrProgress() >= reached + 60; }));
    processEvents();
    EXPECT_EQ(m_reports, QStringList({"started"}));
    EXPECT_EQ(timer->getPlayState(), kPlaying);
}

} // namespace
