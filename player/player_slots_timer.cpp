// Slots fed by the layers' timed-item timers. The timer runs on its own
// thread, so these arrive queued on the service's thread. Their signals carry
// (layerId, bankId); the slot finds the layer's player with
// getplayerByID(layerId, bankId) and does nothing when the layer is gone (a
// report that was still queued when its layer was deleted). Only timed items
// (neither "video" nor "audio") are acted upon.
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "player_internal.h"

#include "AVClock.h"
#include "AVPlayer.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

using namespace kelmor;

namespace {

/// The layer's player when it exists and plays a timed item; null otherwise.
QtAV::AVPlayer* timedPlayer(int layerId, int bankId)
{
    QtAV::AVPlayer* player = registry().getplayerByID(layerId, bankId);
    return player && !isClockMedia(player->getMediaType()) ? player : nullptr;
}

} // namespace

void UI_Proc_KELMOR_Player_Desktop::onStarted(int layerId, int bankId)
{
    // The host learns of a start from its own command.
    Q_UNUSED(layerId)
    Q_UNUSED(bankId)
}

void UI_Proc_KELMOR_Player_Desktop::onStopped(int layerId, int bankId)
{
    QtAV::AVPlayer* player = registry().getplayerByID(layerId, bankId);
    if (!player)
        return;
    // A stop caused by a content change is the service's own: not reported.
    if (useStopPlayers.value(player, false)) {
        useStopPlayers.remove(player);
        return;
    }
    if (player->getMediaType() == QLatin1String("osd"))
        player->pause(true);
    setSpoutState(player, false);
    if (!isClockMedia(player->getMediaType()))
        emit sendPlayerIndex(layerId, bankId);
}

void UI_Proc_KELMOR_Player_Desktop::onPaused(int layerId, int bankId, bool isPause)
{
    QtAV::AVPlayer* player = timedPlayer(layerId, bankId);
    if (!player)
        return;
    // Both Spout stops are intended: one before and one after the player's
    // own pause.
    setSpoutState(player, false);
    player->pause(isPause);
    if (isNdiMedia(player))
        setNdiState(player, 0);
    setSpoutState(player, false);
}

void UI_Proc_KELMOR_Player_Desktop::onSetProgressTimered(int layerId, int bankId, qint64 timeMsec)
{
    if (!timedPlayer(layerId, bankId))
        return;
    emit sPositionChanged(layerId, bankId, timeMsec);
}

void UI_Proc_KELMOR_Player_Desktop::onSetRepeated(int layerId, int bankId, int count)
{
    if (QtAV::AVPlayer* player = timedPlayer(layerId, bankId))
        player->setRepeat(count);
}

void UI_Proc_KELMOR_Player_Desktop::onSetSynchClocked(int layerId, int bankId, float timeMsec)
{
    // Kept as it stands: only a "video" follows an external clock, and a
    // timed item is never one, so the clock update below is never reached.
    QtAV::AVPlayer* player = timedPlayer(layerId, bankId);
    if (!player || !player->masterClock())
        return;
    if (player->getMediaType() == QLatin1String("video")) {
        player->masterClock()->setClockType(QtAV::AVClock::ExternalClock);
        player->masterClock()->updateExternalClock(truncatedMsec(timeMsec));
    }
}

void UI_Proc_KELMOR_Player_Desktop::onPlayReadyed(int layerId, int bankId, qint64 timeMsec,
                                                  bool isPause)
{
    if (QtAV::AVPlayer* player = timedPlayer(layerId, bankId))
        player->playReady(timeMsec, isPause);
}

void UI_Proc_KELMOR_Player_Desktop::onResetPlayed(int layerId, int bankId, bool isPause)
{
    QtAV::AVPlayer* player = timedPlayer(layerId, bankId);
    if (!player)
        return;
    player->resetPlay(isPause);
    if (isNdiMedia(player))
        setNdiState(player, 0);
    setSpoutState(player, false);
}
