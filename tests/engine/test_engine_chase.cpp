// Chasing a moving external clock on the libmpv engine, as a timecode chase
// does: the host's time is handed over every 40 ms (one frame at 25 fps),
// and it jumps now and then. The positions the player reports must belong
// to the host's time line: none from before a jump once the jump was asked
// for, and close to the host's time soon after it.
#include "EngineFixture.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>

#include <algorithm>
#include <vector>

using QtAV::AVPlayer;

namespace {

/// A 12 s clip (160x90, 25 fps, a key frame every second), made once next
/// to the other engine media.
QString longClip()
{
    const QString dir = QFileInfo(EngineMedia::clip()).absolutePath();
    const QString target = dir + QStringLiteral("/chase-12s.mp4");
    if (QFileInfo::exists(target))
        return target;
    const QString tmp = target + QStringLiteral(".%1.part").arg(QCoreApplication::applicationPid());
    QProcess p;
    p.start(QStringLiteral("ffmpeg"),
            {"-v", "error", "-y", "-f", "lavfi", "-i", "testsrc=size=160x90:rate=25", "-t", "12",
             "-c:v", "libx264", "-pix_fmt", "yuv420p", "-g", "25", "-f", "mp4", tmp});
    if (!p.waitForFinished(60000) || p.exitCode() != 0)
        return QString();
    QFile::remove(target);
    QFile::rename(tmp, target);
    return QFileInfo::exists(target) ? target : QString();
}

/// The host's clock: a time line that runs at normal speed from `base`,
/// restarted by jumps.
class HostClock
{
public:
    void jumpTo(qint64 base)
    {
        m_base = base;
        m_since.start();
    }
    qint64 now() const { return m_base + m_since.elapsed(); }

private:
    qint64 m_base = 0;
    QElapsedTimer m_since;
};

struct Sample
{
    qint64 sinceJumpMs; // when the position came, after the last jump
    qint64 error;       // reported position minus the host's time then
};

class EngineChase : public EngineTest
{
protected:
    /// Plays `player` on the external clock: every 40 ms the host's time is
    /// handed over, for `ms`; every position report is sampled.
    void chaseFor(AVPlayer* player, int ms)
    {
        QElapsedTimer run;
        run.start();
        while (run.elapsed() < ms) {
            player->masterClock()->updateExternalClock(m_host.now());
            QTest::qWait(40);
        }
    }

    void follow(AVPlayer* player)
    {
        QObject::connect(player, &AVPlayer::positionChanged, player, [this](qint64 pos) {
            m_samples[m_jump].push_back({m_sinceJump.elapsed(), pos - m_host.now()});
        });
    }

    void jump(AVPlayer* player, qint64 to)
    {
        m_samples.emplace_back();
        m_jump = static_cast<int>(m_samples.size()) - 1;
        m_host.jumpTo(to);
        m_sinceJump.start();
        player->masterClock()->updateExternalClock(m_host.now());
        // libmpv's events are read at once, as a busy show reads them: a
        // position from before the seek is read before libmpv took the seek.
        QElapsedTimer spin;
        spin.start();
        while (spin.elapsed() < 20)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
    }

    HostClock m_host;
    QElapsedTimer m_sinceJump;
    std::vector<std::vector<Sample>> m_samples{1};
    int m_jump = 0;

public:
    EngineChase() { m_sinceJump.start(); }
};

TEST_F(EngineChase, NoPositionFromBeforeAJumpIsReportedAfterIt)
{
    const QString clip = longClip();
    ASSERT_FALSE(clip.isEmpty()) << "ffmpeg could not make the long clip";
    AVPlayer* player = loadedPlayer(clip);
    player->masterClock()->setClockType(QtAV::AVClock::ExternalClock);
    follow(player);
    m_host.jumpTo(500);
    player->pause(false);
    chaseFor(player, 800);

    // Back and forth across the clip, each jump several seconds long; a
    // stale report comes only when a jump meets a frame on its way, so there
    // are many jumps.
    const qint64 targets[] = {6000, 1500, 8000, 2500, 7000, 1000, 9000, 3000,
                              6500, 500,  8500, 2000, 7500, 1200, 9500, 3500};
    for (qint64 to : targets) {
        jump(player, to);
        chaseFor(player, 400);
    }
    for (int j = 1; j < static_cast<int>(m_samples.size()); ++j) {
        for (const Sample& s : m_samples[j]) {
            EXPECT_LT(std::llabs(s.error), 1000)
                << "jump " << j << " to " << targets[j - 1] << ": a position " << s.error
                << " ms off the host's time came " << s.sinceJumpMs << " ms after the jump";
        }
    }
}

TEST_F(EngineChase, AJumpIsCaughtWithinAFrameInHalfASecond)
{
    const QString clip = longClip();
    ASSERT_FALSE(clip.isEmpty()) << "ffmpeg could not make the long clip";
    AVPlayer* player = loadedPlayer(clip);
    player->masterClock()->setClockType(QtAV::AVClock::ExternalClock);
    follow(player);
    m_host.jumpTo(500);
    player->pause(false);
    chaseFor(player, 800);

    const qint64 targets[] = {5000, 2000, 8000};
    for (qint64 to : targets) {
        jump(player, to);
        chaseFor(player, 1500);
    }
    // Locked: every position from 500 ms after the jump on is within one
    // frame (40 ms) of the host's time; a loaded machine gets a second frame.
    for (int j = 1; j < static_cast<int>(m_samples.size()); ++j) {
        int late = 0;
        int total = 0;
        for (const Sample& s : m_samples[j]) {
            if (s.sinceJumpMs < 500)
                continue;
            ++total;
            if (std::llabs(s.error) > 40)
                ++late;
            EXPECT_LE(std::llabs(s.error), 80)
                << "jump " << j << ": " << s.error << " ms off, " << s.sinceJumpMs << " ms after it";
        }
        EXPECT_GT(total, 5) << "jump " << j << ": too few positions reported";
        EXPECT_LE(late, total / 5) << "jump " << j << ": " << late << " of " << total
                                   << " positions more than a frame off";
    }
}

TEST_F(EngineChase, PlayOnTheHostClockStartsWhenTheHostsTimeReachesTheFrame)
{
    const QString clip = longClip();
    ASSERT_FALSE(clip.isEmpty()) << "ffmpeg could not make the long clip";
    AVPlayer* player = loadedPlayer(clip);
    player->masterClock()->setClockType(QtAV::AVClock::ExternalClock);
    follow(player);
    // Paused on the first frame; the host's time is 300 ms before it.
    m_host.jumpTo(-300);
    player->masterClock()->updateExternalClock(m_host.now());
    player->pause(false);
    chaseFor(player, 1500);
    ASSERT_GT(m_samples[0].size(), 5u) << "too few positions reported";
    // Nothing plays before the host's time reaches the frame, and from the
    // first position on the player is within a frame of the host's time.
    for (const Sample& s : m_samples[0])
        EXPECT_LE(std::llabs(s.error), 40) << s.error << " ms off, " << s.sinceJumpMs << " ms in";
}

} // namespace
