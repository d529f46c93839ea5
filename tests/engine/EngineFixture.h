// Fixture of the engine tests: players on the libmpv engine, waiting on the
// event loop with generous limits, and read-back of the core's properties.
#pragma once

#include "AVPlayer.h"
#include "EngineMedia.h"
#include "MpvBackend.h"
#include "MpvEngine.h"
#include "TestSupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QPointer>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

#include <functional>
#include <memory>

class EngineTest : public ::testing::Test
{
protected:
    static constexpr int kWait = 15000; // generous: machines are shared

    void SetUp() override
    {
        ASSERT_TRUE(EngineMedia::ready()) << "ffmpeg could not make the test media";
        ASSERT_NE(engine(), nullptr) << "the libmpv engine is not installed";
    }

    void TearDown() override
    {
        // Every player goes the way the service ends one: released, then
        // deleted on its sig_deleteObj().
        for (QPointer<QtAV::AVPlayer>& p : m_players) {
            if (!p)
                continue;
            QtAV::AVPlayer* player = p.data();
            QObject::connect(player, &QtAV::AVPlayer::sig_deleteObj, player,
                             [player] { player->deleteLater(); });
            player->releaseObj();
        }
        EXPECT_TRUE(waitUntil([this] {
            for (const QPointer<QtAV::AVPlayer>& p : m_players) {
                if (p)
                    return false;
            }
            return true;
        })) << "a released player was not announced for deletion";
    }

    static QtAV::MpvEngine* engine()
    {
        return dynamic_cast<QtAV::MpvEngine*>(QtAV::mediaEngine());
    }

    QtAV::AVPlayer* newPlayer()
    {
        auto* player = new QtAV::AVPlayer;
        m_players.append(player);
        return player;
    }

    static QtAV::MpvBackend* backend(QtAV::AVPlayer* player)
    {
        return engine()->backend(player);
    }

    /// A libmpv property of the player's core, read back as text.
    static QString prop(QtAV::AVPlayer* player, const char* name)
    {
        QtAV::MpvBackend* b = backend(player);
        return b ? b->propertyForDiagnostics(name) : QString();
    }

    static double propDouble(QtAV::AVPlayer* player, const char* name)
    {
        bool ok = false;
        const double v = prop(player, name).toDouble(&ok);
        return ok ? v : -1.0;
    }

    /// Runs the event loop until `done` holds or the time is up.
    static bool waitUntil(const std::function<bool()>& done, int timeoutMs = kWait)
    {
        QDeadlineTimer deadline(timeoutMs);
        while (!done()) {
            if (deadline.hasExpired())
                return false;
            QTest::qWait(10);
        }
        return true;
    }

    /// Waits until the spy holds at least `count` signals.
    static bool waitFor(QSignalSpy& spy, int count = 1, int timeoutMs = kWait)
    {
        return waitUntil([&] { return spy.count() >= count; }, timeoutMs);
    }

    /// Opens the clip (or `file`) and waits until it is loaded.
    QtAV::AVPlayer* loadedPlayer(const QString& file = EngineMedia::clip())
    {
        QtAV::AVPlayer* player = newPlayer();
        QSignalSpy loaded(player, &QtAV::AVPlayer::loaded);
        player->setFile(file);
        EXPECT_TRUE(waitFor(loaded)) << "not loaded: " << file.toStdString();
        return player;
    }

    /// The positions a spy on positionChanged holds.
    static QList<qint64> positions(const QSignalSpy& spy)
    {
        QList<qint64> out;
        for (const QList<QVariant>& args : spy)
            out << args.at(0).toLongLong();
        return out;
    }

    /// How often the positions fall back (a new pass starting).
    static int restarts(const QList<qint64>& list)
    {
        int n = 0;
        for (int i = 1; i < list.size(); ++i) {
            if (list[i] + 200 < list[i - 1])
                ++n;
        }
        return n;
    }

private:
    QList<QPointer<QtAV::AVPlayer>> m_players;
};
