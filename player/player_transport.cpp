// Transport of one layer: play, pause, stop, reset, prepare, seek, start and
// stop positions, duration, repeat, external clock and redraws. (Fades are
// in player_fades.cpp.)
//
// Each command drives the media player and, alongside it, the layer's
// stream outputs (an NDI sender for "ndi" content, the Spout node through
// setSpoutState) and, for timed items, the layer's timer. The timer rule:
// the timer is driven for every media type that is not exactly "video" or
// "audio", and only when the player is registered (timedItemTimer).
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "player_internal.h"

#include "AVClock.h"
#include "AVPlayer.h"
#include "ScenePlayer.h"
#include "UI_Proc_KELMOR_PlayerTimer_Desktop.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QDebug>

using namespace kelmor;

namespace {

// Timer operations of setPlayerTimer / setPlayerTimerState.
enum TimerOp {
    TimerStop = 0,
    TimerStart = 1,
    TimerPause = 2,
    TimerSeek = 3,
    TimerRepeat = 4,
    TimerDuration = 5,
};

/// Starts the timer's run. A run that is playing and still meant to go on
/// keeps going: starting it again would make the calling (GUI) thread wait
/// for the whole pass to end before replaying it. A run that a stop or a
/// pause has just ended (a content change stops the timer) may still read as
/// playing while its loop finishes; it is replaced at once: startThread joins
/// that loop, which the stop woke, so the wait is short, and the old run
/// still reports its stop before the new one reports its start. (A run whose
/// thread has not yet entered its loop counts as playing.)
void startTimedItem(UI_Proc_KELMOR_PlayerTimer_Desktop* timer)
{
    if (timer->getPlayState() == kTimerPlaying && timer->isRunning()) {
        qDebug() << "timer start ignored: the item is already playing";
        return;
    }
    timer->startThread();
}

} // namespace

void UI_Proc_KELMOR_Player_Desktop::play(QtAV::AVPlayer* player)
{
    if (ignoreNullPlayer(player, "play"))
        return;
    player->pause(false); // resumes; there is no separate start
    if (isNdiMedia(player))
        setNdiState(player, 1);
    setSpoutState(player, true);
    if (player->getMediaType() == QLatin1String("captureCard"))
        player->playReady(0, false);
    if (UI_Proc_KELMOR_PlayerTimer_Desktop* timer = timedItemTimer(player))
        startTimedItem(timer);
}

void UI_Proc_KELMOR_Player_Desktop::pause(QtAV::AVPlayer* player)
{
    if (ignoreNullPlayer(player, "pause"))
        return;
    player->pause(true);
    if (isNdiMedia(player))
        setNdiState(player, 0);
    setSpoutState(player, false);
    if (UI_Proc_KELMOR_PlayerTimer_Desktop* timer = timedItemTimer(player))
        timer->pauseTimer(true);
}

void UI_Proc_KELMOR_Player_Desktop::stop(QtAV::AVPlayer* player)
{
    if (ignoreNullPlayer(player, "stop"))
        return;
    // The media player is only paused: AVPlayer::stop is left to the
    // content change, whose stop report is swallowed.
    player->pause(true);
    if (isNdiMedia(player))
        setNdiState(player, 0);
    setSpoutState(player, false);
    if (UI_Proc_KELMOR_PlayerTimer_Desktop* timer = timedItemTimer(player))
        timer->stopTimer();
}

void UI_Proc_KELMOR_Player_Desktop::resetPlay(QtAV::AVPlayer* player, bool flag)
{
    if (ignoreNullPlayer(player, "resetPlay"))
        return;
    player->resetPlay(flag);
    if (isNdiMedia(player))
        setNdiState(player, 0);
    setSpoutState(player, false);
    if (UI_Proc_KELMOR_PlayerTimer_Desktop* timer = timedItemTimer(player))
        timer->stopTimer();
}

void UI_Proc_KELMOR_Player_Desktop::playReady(QtAV::AVPlayer* player, qint64 msec, bool isPause)
{
    if (ignoreNullPlayer(player, "playReady"))
        return;
    player->playReady(player->file(), msec, isPause);
    if (isNdiMedia(player))
        setNdiState(player, isPause ? 0 : 1);
    setSpoutState(player, !isPause);
    if (UI_Proc_KELMOR_PlayerTimer_Desktop* timer = timedItemTimer(player)) {
        if (isPause)
            timer->stopTimer();
        else
            startTimedItem(timer);
    }
}

void UI_Proc_KELMOR_Player_Desktop::setRepeat(QtAV::AVPlayer* player, int count)
{
    if (ignoreNullPlayer(player, "setRepeat"))
        return;
    player->setRepeat(count);
    if (UI_Proc_KELMOR_PlayerTimer_Desktop* timer = timedItemTimer(player))
        timer->setRepeat(count);
}

void UI_Proc_KELMOR_Player_Desktop::setSynchClock(QtAV::AVPlayer* player, float value)
{
    if (ignoreNullPlayer(player, "setSynchClock"))
        return;
    // Only a video follows the host's clock.
    QtAV::AVClock* clock = player->masterClock();
    if (!clock || player->getMediaType() != QLatin1String("video"))
        return;
    clock->setClockType(QtAV::AVClock::ExternalClock);
    clock->updateExternalClock(truncatedMsec(value));
}

void UI_Proc_KELMOR_Player_Desktop::refreshUi(QtAV::AVPlayer* player)
{
    if (ignoreNullPlayer(player, "refreshUi"))
        return;
    player->refreshUi();
}

void UI_Proc_KELMOR_Player_Desktop::setPosition(int bankId, int layerId, qint64 msec)
{
    ScenePlayer* scene = registry().getScenePlayer(bankId, layerId);
    if (!scene || !scene->player)
        return;
    scene->player->setPosition(msec);
    setPlayerTimerState(scene->player, TimerSeek, true, msec, 0);
}

void UI_Proc_KELMOR_Player_Desktop::setStartPosition(int bankId, int layerId, qint64 msec)
{
    ScenePlayer* scene = registry().getScenePlayer(bankId, layerId);
    if (!scene || !scene->player)
        return;
    scene->player->setStartPosition(msec);
}

void UI_Proc_KELMOR_Player_Desktop::pptPageUpDown(int bankId, int layerId,
                                                  QMap<QString, QVariant> record)
{
    // An office page is shown by opening the page's own file.
    ScenePlayer* scene = registry().getScenePlayer(bankId, layerId);
    if (!scene || !scene->player)
        return;
    scene->player->setFile(record.value(QStringLiteral("videoPath")).toString());
    scene->player->updateFrame();
    scene->player->refreshUi();
}

void UI_Proc_KELMOR_Player_Desktop::setDuration(int layerId, int bankId, qint64 msec)
{
    QtAV::AVPlayer* player = registry().getplayerByID(layerId, bankId);
    if (!player)
        return;
    if (isClockMedia(player->getMediaType()))
        player->setStopPosition(msec);
    // Every kind keeps its length in the timer too.
    ScenePlayer* scene = registry().getScenePlayer(bankId, layerId);
    if (scene && scene->playerTimer)
        scene->playerTimer->setDuration(msec);
}

void UI_Proc_KELMOR_Player_Desktop::updateFrame(int layerId, int bankId)
{
    if (QtAV::AVPlayer* player = registry().getplayerByID(layerId, bankId))
        player->updateFrame();
}

bool UI_Proc_KELMOR_Player_Desktop::setStopFade(int layerId, int bankId, int fadeIn)
{
    QtAV::AVPlayer* player = registry().getplayerByID(layerId, bankId);
    if (!player)
        return false;
    return fadeIn != 0 ? player->stopFadeIn() : player->stopFadeOut();
}

void UI_Proc_KELMOR_Player_Desktop::setPlayerTimerState(QtAV::AVPlayer* player, int op, bool flag,
                                                        qint64 msec, qint64 value)
{
    if (ignoreNullPlayer(player, "setPlayerTimerState"))
        return;
    UI_Proc_KELMOR_PlayerTimer_Desktop* timer = timedItemTimer(player);
    if (!timer)
        return;
    if (op == TimerStart)
        startTimedItem(timer);
    else
        setPlayerTimer(timer, op, flag, msec, value);
}

void UI_Proc_KELMOR_Player_Desktop::setPlayerTimer(UI_Proc_KELMOR_PlayerTimer_Desktop* timer,
                                                   int op, bool flag, qint64 msec, qint64 value)
{
    if (!timer) {
        qDebug() << "setPlayerTimer ignored: null timer";
        return;
    }
    switch (op) {
    case TimerStop:
        timer->stopTimer();
        break;
    case TimerPause:
        timer->pauseTimer(flag);
        break;
    case TimerSeek:
        timer->setProgressTimer(msec);
        break;
    case TimerRepeat:
        timer->setRepeat(static_cast<int>(value));
        break;
    case TimerDuration:
        timer->setDuration(msec);
        break;
    default: // TimerStart is handled by setPlayerTimerState; others do nothing
        break;
    }
}
