// Slots fed by the layers' media players. Their signals carry no ids: the
// slot finds its layer from the sending player (QObject::sender) through the
// registry's reverse look-ups. Every slot emits as its last step, so that a
// receiver of the service's signal may delete the layer at once.
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "player_internal.h"

#include "AVPlayer.h"
#include "NdiService.h"
#include "NoxOpenGLRender.h"
#include "ScenePlayer.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QDebug>
#include <QStringList>

using namespace kelmor;

namespace {

/// Items whose end is reported by their timer, not by the media player.
const QStringList& timerEndedTypes()
{
    static const QStringList types = {
        QStringLiteral("picture"),     QStringLiteral("osd"),     QStringLiteral("networkVideo"),
        QStringLiteral("ndi"),         QStringLiteral("captureCard"), QStringLiteral("office"),
        QStringLiteral("virtualScreen"), QStringLiteral("spout"),
    };
    return types;
}

/// Items whose positions come from their timer. "spout" is not among them:
/// a Spout layer reports the media player's positions.
const QStringList& timerPositionedTypes()
{
    static const QStringList types = {
        QStringLiteral("picture"),     QStringLiteral("osd"),     QStringLiteral("networkVideo"),
        QStringLiteral("ndi"),         QStringLiteral("captureCard"), QStringLiteral("office"),
        QStringLiteral("virtualScreen"),
    };
    return types;
}

} // namespace

void UI_Proc_KELMOR_Player_Desktop::onStopped()
{
    auto* player = qobject_cast<QtAV::AVPlayer*>(sender());
    if (!player)
        return;
    if (timerEndedTypes().contains(player->getMediaType()))
        return;
    ScenePlayer* scene = registry().getScenePlayer(player);
    if (!scene)
        return;
    const int bankId = registry().getBankIdRelyPlayer(player);
    const int layerId = scene->layerId;
    qDebug() << "player play over ID:" << layerId;
    // A stop caused by a content change is the service's own: not reported.
    if (useStopPlayers.value(player, false)) {
        useStopPlayers.remove(player);
        return;
    }
    emit sendPlayerIndex(layerId, bankId);
}

void UI_Proc_KELMOR_Player_Desktop::onLoaded()
{
    auto* player = qobject_cast<QtAV::AVPlayer*>(sender());
    if (!player)
        return;
    const double frameRate = player->statistics().video.frame_rate;
    for (QtAV::NoxOpenGLRender* render : renderObjectsOf(player))
        render->setFrameRate(frameRate);
}

void UI_Proc_KELMOR_Player_Desktop::onPositionChanged(qint64 position)
{
    auto* player = qobject_cast<QtAV::AVPlayer*>(sender());
    if (!player)
        return;
    if (timerPositionedTypes().contains(player->getMediaType()))
        return;
    ScenePlayer* scene = registry().getScenePlayer(player);
    if (!scene)
        return;
    emit sPositionChanged(scene->layerId, registry().getBankIdRelyPlayer(player), position);
}

void UI_Proc_KELMOR_Player_Desktop::onPlayerLoadComple()
{
    auto* player = qobject_cast<QtAV::AVPlayer*>(sender());
    if (!player)
        return;
    ScenePlayer* scene = registry().getScenePlayer(player);
    if (!scene)
        return;
    emit sendLoadAllComple(scene->layerId);
}

// The end of the release begun by the registry's teardown (releaseObj): the
// player has let go of its media and is deleted here.
void UI_Proc_KELMOR_Player_Desktop::onSigDeleteObj()
{
    auto* player = qobject_cast<QtAV::AVPlayer*>(sender());
    if (!player)
        return;
    // A volume job queued for this player must not outlive it (the job holds
    // the raw pointer and nobody waits for its future).
    waitForQueuedJobs(workerPool);
    // The NDI state is keyed by player: a later player at the same address
    // must not inherit this one's senders or sources.
    NdiService::forgetPlayer(player);
    delete player;
}
