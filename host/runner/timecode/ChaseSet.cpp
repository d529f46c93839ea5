#include "timecode/ChaseSet.h"

#include "AVPlayer.h"
#include "ScenePlayer.h"
#include "UI_Proc_KELMOR_PlayerTimer_Desktop.h"
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QDebug>
#include <QStringList>
#include <cmath>

namespace {

constexpr int kTimerPlaying = 1201;      // the timer's play state while it counts
constexpr double kTimedToleranceMs = 60; // a timed item this far off is moved
constexpr double kPreRollMs = 200;       // a video is started this long before "at"

UI_Proc_KELMOR_Player_Desktop& service()
{
    return UI_Proc_KELMOR_Player_Desktop::getInstance();
}

const QStringList& liveKinds()
{
    static const QStringList kinds{QStringLiteral("captureCard"), QStringLiteral("networkVideo"),
                                   QStringLiteral("ndi"), QStringLiteral("spout"),
                                   QStringLiteral("virtualScreen")};
    return kinds;
}

/// `at` as a frame count at `rate`: a label that does not exist at that rate
/// (frame 27 at 25 fps, a dropped drop-frame label) counts as the nearest
/// label that does.
qint64 atCount(timecode::Label at, timecode::Rate rate)
{
    at.frames = std::min(at.frames, timecode::nominalFps(rate) - 1);
    if (!timecode::isValid(at, rate))
        at.frames = 2; // a drop-frame label left out at the start of a minute
    return std::max<qint64>(0, timecode::toCount(at, rate));
}

} // namespace

bool ChaseSet::kindOf(const ScenePlayer* scene, int bankId, int layerId, Kind& kind, QString& problem)
{
    if (!scene || !scene->player) {
        problem = QStringLiteral("no layer %1 in bank %2").arg(layerId).arg(bankId);
        return false;
    }
    const QString type = scene->player->getMediaType();
    if (type == QLatin1String("video")) {
        kind = Kind::Video;
        return true;
    }
    if (type == QLatin1String("audio") || liveKinds().contains(type) || !scene->playerTimer) {
        problem = QStringLiteral("layer %1 in bank %2 is \"%3\", which cannot chase timecode "
                                 "(video layers and timed items such as stills can)")
                      .arg(layerId)
                      .arg(bankId)
                      .arg(type.left(40));
        return false;
    }
    kind = Kind::Timed;
    return true;
}

bool ChaseSet::add(int bankId, int layerId, const timecode::Label& at, const Clock& clock, QString& problem)
{
    const Key key(bankId, layerId);
    ScenePlayer* scene = UI_Proc_KELMOR_PlayersManage_Desktop::getInstance().getScenePlayer(bankId, layerId);
    Kind kind = Kind::Video;
    if (!kindOf(scene, bankId, layerId, kind, problem))
        return false;
    if (!m_chases.contains(key) && m_chases.size() >= kMaxChases) {
        problem = QStringLiteral("%1 layers chase already (the most there can be)").arg(kMaxChases);
        return false;
    }
    Chase chase;
    chase.at = at;
    chase.kind = kind;
    m_chases.insert(key, chase);
    // The new chase takes its place at once: held on its first frame before
    // "at" (or before any timecode), following otherwise.
    if (!updateOne(key, m_chases[key], clock))
        m_chases.remove(key);
    return true;
}

bool ChaseSet::remove(int bankId, int layerId)
{
    const Key key(bankId, layerId);
    if (!m_chases.contains(key))
        return false;
    const Chase chase = m_chases.take(key);
    ScenePlayer* scene = UI_Proc_KELMOR_PlayersManage_Desktop::getInstance().getScenePlayer(bankId, layerId);
    // Back on its own clock at normal speed.
    if (chase.kind == Kind::Video && scene && scene->player && scene->player->masterClock())
        scene->player->masterClock()->setClockType(QtAV::AVClock::AudioClock);
    return true;
}

void ChaseSet::update(const Clock& clock)
{
    for (auto it = m_chases.begin(); it != m_chases.end();) {
        if (updateOne(it.key(), it.value(), clock))
            ++it;
        else
            it = m_chases.erase(it);
    }
}

bool ChaseSet::updateOne(const Key& key, Chase& chase, const Clock& clock)
{
    ScenePlayer* scene = UI_Proc_KELMOR_PlayersManage_Desktop::getInstance().getScenePlayer(key.first, key.second);
    Kind kind = chase.kind;
    QString problem;
    if (!kindOf(scene, key.first, key.second, kind, problem) || kind != chase.kind) {
        qDebug().noquote() << "timecode: the chase of layer" << key.second << "in bank" << key.first
                           << "ends:" << (problem.isEmpty() ? QStringLiteral("its content changed") : problem);
        return false;
    }
    const double mediaMs = clock.known
        ? (clock.tcNs - timecode::countToNs(atCount(chase.at, clock.rate), clock.rate)) / 1e6
        : -1.0;
    // A video starts a little before "at": the engine holds its first frame
    // until the media time reaches it, so that it starts exactly on time.
    const double startsAt = chase.kind == Kind::Video ? -kPreRollMs : 0.0;
    if (mediaMs < startsAt) {
        hold(key, chase, *scene);
    } else if (clock.run) {
        follow(chase, *scene, mediaMs);
    } else if (chase.phase == Phase::Playing) {
        service().pause(scene->player);
        chase.phase = Phase::Paused;
    }
    return true;
}

void ChaseSet::hold(const Key& key, Chase& chase, ScenePlayer& scene)
{
    if (chase.phase == Phase::Holding)
        return;
    service().pause(scene.player);
    service().setPosition(key.first, key.second, 0);
    chase.phase = Phase::Holding;
}

void ChaseSet::follow(Chase& chase, ScenePlayer& scene, double mediaMs)
{
    QtAV::AVPlayer* player = scene.player;
    if (chase.kind == Kind::Video) {
        // The engine compares the media time with its position: a seek for a
        // large difference, a slightly faster or slower speed for a small one.
        service().setSynchClock(player, static_cast<float>(mediaMs));
        if (chase.phase != Phase::Playing)
            service().play(player);
        chase.phase = Phase::Playing;
        return;
    }
    UI_Proc_KELMOR_PlayerTimer_Desktop* timer = scene.playerTimer;
    const qint64 duration = timer->getDuration();
    if (duration > 0 && mediaMs >= static_cast<double>(duration))
        return; // past the item's end: the timer ends (or repeats) the item itself
    if (chase.phase != Phase::Playing || timer->getPlayState() != kTimerPlaying)
        service().play(player);
    if (std::fabs(static_cast<double>(timer->getCurrProgress()) - mediaMs) > kTimedToleranceMs)
        timer->setProgressTimer(static_cast<qint64>(mediaMs));
    chase.phase = Phase::Playing;
}
