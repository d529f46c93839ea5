// Deleting a layer whose timer is running: the timer's loop is woken at once
// instead of being waited for, so the GUI thread is held only briefly, and
// the timer's thread is gone when deleteplayerByID returns.
#include "PlaybackFixture.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>

namespace {

class TeardownTimedTest : public PlaybackTest
{
protected:
    /// Layers ended one after another in each test: waiting out even a part
    /// of each one's 20 ms timer tick adds up far beyond the bound below.
    static constexpr int kLayers = 20;
    /// Functional bound for deleting all kLayers layers.
    static constexpr qint64 kAllDeletedBoundMs = 100;

    static Record key(int bankId, int layerId)
    {
        return Record({{"bankId", bankId}, {"layerId", layerId}});
    }

    /// Whether a thread of this process carries the given name (the timer
    /// names its thread "ktimer b<bank> l<layer>").
    static bool threadNamed(const QString& name)
    {
        const QStringList tasks = QDir(QStringLiteral("/proc/self/task"))
                                      .entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        for (const QString& task : tasks) {
            QFile comm(QStringLiteral("/proc/self/task/%1/comm").arg(task));
            if (comm.open(QIODevice::ReadOnly)
                && QString::fromLatin1(comm.readAll()).trimmed() == name)
                return true;
        }
        return false;
    }

    /// How many threads of this process carry a timer's name for the bank.
    static int timerThreadsOfBank(int bankId)
    {
        int count = 0;
        for (int layer = 1; layer <= kLayers; ++layer)
            count += threadNamed(QStringLiteral("ktimer b%1 l%2").arg(bankId).arg(layer)) ? 1 : 0;
        return count;
    }

    /// kLayers picture layers of the bank (layers 1 to kLayers) with
    /// hour-long items, all playing on their timers.
    QList<QtAV::AVPlayer*> playingPictures(int bankId)
    {
        QList<QtAV::AVPlayer*> players;
        for (int layer = 1; layer <= kLayers; ++layer) {
            players << createLayer(bankId, layer, "picture", 3600 * 1000);
            service().play(players.back());
        }
        for (int layer = 1; layer <= kLayers; ++layer)
            EXPECT_TRUE(waitPlaying(bankId, layer));
        // Well into the runs: every loop is between its ticks.
        QTest::qWait(50);
        return players;
    }

    /// Milliseconds that deleteplayerByID of (bankId, layerId) held the
    /// calling thread.
    static qint64 timedDelete(int bankId, int layerId)
    {
        QElapsedTimer clock;
        clock.start();
        reg().deleteplayerByID(key(bankId, layerId));
        return clock.elapsed();
    }
};

TEST_F(TeardownTimedTest, PlayingPictureLayersAreEachDeletedAtOnceAndTheirTimerThreadsAreGone)
{
    playingPictures(1);
    ASSERT_EQ(timerThreadsOfBank(1), kLayers);

    qint64 ms = 0;
    for (int layer = 1; layer <= kLayers; ++layer) {
        ms += timedDelete(1, layer);
        EXPECT_EQ(reg().getScenePlayer(1, layer), nullptr);
        EXPECT_FALSE(threadNamed(QStringLiteral("ktimer b1 l%1").arg(layer)));
    }

    EXPECT_LT(ms, kAllDeletedBoundMs);
    EXPECT_EQ(timerThreadsOfBank(1), 0);
}

TEST_F(TeardownTimedTest, PictureLayersJustChangedAndPlayedReadyAreEachDeletedAtOnce)
{
    QList<QtAV::AVPlayer*> players = playingPictures(3);

    qint64 ms = 0;
    for (int layer = 1; layer <= kLayers; ++layer) {
        Record change;
        change["type"] = QStringLiteral("picture");
        change["videoPath"] = QStringLiteral("media/next-%1.png").arg(layer);
        change["timeLenMsec"] = 600000;
        service().changeLayerContent(layer, 3, change);
        service().playReady(players.at(layer - 1), 0, false);
        ms += timedDelete(3, layer);
        EXPECT_EQ(reg().getScenePlayer(3, layer), nullptr);
    }

    EXPECT_LT(ms, kAllDeletedBoundMs);
    EXPECT_EQ(timerThreadsOfBank(3), 0);
}

TEST_F(TeardownTimedTest, PlayingPicturesOfABankAreAllClearedAtOnce)
{
    playingPictures(2);

    QElapsedTimer clock;
    clock.start();
    reg().clearAllPlayer();
    const qint64 ms = clock.elapsed();

    EXPECT_LT(ms, kAllDeletedBoundMs);
    EXPECT_EQ(timerThreadsOfBank(2), 0);
}

} // namespace
