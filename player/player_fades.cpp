// Fades and their completion counts: a group of fades started together is
// reported once, when its last member has finished.
#include "UI_Proc_KELMOR_Player_Desktop.h"

#include "AVPlayer.h"
#include "player_internal.h"

using namespace kelmor;

void UI_Proc_KELMOR_Player_Desktop::setFadeInOut(QtAV::AVPlayer* player, bool fadeOut, int msec)
{
    if (ignoreNullPlayer(player, "setFadeInOut"))
        return;
    if (fadeOut) {
        player->setFadeOut(msec);
        fadeOutCount += 1;
    } else {
        player->setFadeIn(msec);
        fadeInCount += 1;
    }
}

void UI_Proc_KELMOR_Player_Desktop::setFadeTime(float value)
{
    fadeTime = value;
}

void UI_Proc_KELMOR_Player_Desktop::initFinishedFadeIn()
{
    fadeInCount = 0;
    fadeInFinishedCount = 0;
}

void UI_Proc_KELMOR_Player_Desktop::initFinishedFadeOut()
{
    fadeOutCount = 0;
    fadeOutFinishedCount = 0;
}

void UI_Proc_KELMOR_Player_Desktop::onFadeInFinishedd()
{
    fadeInFinishedCount += 1;
    if (fadeInFinishedCount == fadeInCount) {
        emit sFadeinFinished();
        initFinishedFadeIn();
    }
}

void UI_Proc_KELMOR_Player_Desktop::onFadeOutFinished()
{
    fadeOutFinishedCount += 1;
    if (fadeOutFinishedCount == fadeOutCount) {
        emit sFadeoutFinished();
        initFinishedFadeOut();
    }
}
