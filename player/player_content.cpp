// Changing what a layer shows. The layer keeps its player, timer, renderers
// and geometry; the old content is stopped and its stream hook-ups torn
// down, the renderers are blanked, and the new media type, source and length
// are set. Playback is not started.
//
// Media types are plain strings kept by the player. "video" and "audio" run
// on the player's own clock; every other type is a timed item driven by the
// layer's timer. "office" is never stored: it becomes "picture".
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "player_internal.h"

#include "AVPlayer.h"
#include "NdiService.h"
#include "ScenePlayer.h"
#include "UI_Proc_KELMOR_PlayerTimer_Desktop.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"
#include "VideoFrame.h"
#include "VideoRenderer.h"

#include <QDebug>

using namespace kelmor;

namespace {

constexpr qint64 kDefaultLengthMsec = 1000;

/// For the stop decision of a content change "networkVideo" counts as clock
/// media too (everywhere else it is a timed item).
bool isClockMediaForChange(const QString& type)
{
    return isClockMedia(type) || type == QLatin1String("networkVideo");
}

QString storedMediaType(const QString& type)
{
    return type == QLatin1String("office") ? QStringLiteral("picture") : type;
}

} // namespace

void UI_Proc_KELMOR_Player_Desktop::changeLayerContent(int layerId, int bankId,
                                                       QMap<QString, QVariant> record)
{
    ScenePlayer* scene = registry().getScenePlayer(bankId, layerId);
    if (!scene)
        return;
    QtAV::AVPlayer* player = scene->player;
    if (ignoreNullPlayer(player, "changeLayerContent"))
        return;

    QString type = record.value(QStringLiteral("type")).toString();
    QString path = record.value(QStringLiteral("videoPath")).toString();
    const qint64 length = record.contains(QStringLiteral("timeLenMsec"))
                              ? record.value(QStringLiteral("timeLenMsec")).toLongLong()
                              : kDefaultLengthMsec;

    // The stop below is the service's own when clock media is swapped for
    // clock media, or when a timed item is still playing: its report is
    // swallowed (onStopped).
    const QString oldType = player->getMediaType();
    const bool internalStop =
        (isClockMediaForChange(oldType) && isClockMediaForChange(type))
        || (scene->playerTimer && scene->playerTimer->getPlayState() == kTimerPlaying);
    if (internalStop)
        useStopPlayers[player] = true;

    // Tear down the old source's stream hook-ups (both test the old type).
    setSpoutState(player, 0);
    if (oldType == QLatin1String("ndi")) {
        NdiService ndi(nullptr);
        ndi.stopNDI(player->file(), player);
    }
    if (UI_Proc_KELMOR_PlayerTimer_Desktop* timer = timedItemTimer(player))
        timer->stopTimer(); // before the player, so that no tick outlives the content

    player->stop();
    for (QtAV::VideoRenderer* output : player->videoOutputs())
        output->receive(QtAV::VideoFrame()); // blank until the new content draws

    if (type == QLatin1String("ndi")) {
        path.append(QLatin1Char('#'));
        path.append(record.value(QStringLiteral("videoName")).toString());
    }
    type = storedMediaType(type);
    player->setMediaType(type);
    player->setFile(path);

    if (UI_Proc_KELMOR_PlayerTimer_Desktop* timer = timedItemTimer(player))
        timer->setDuration(length);
    // A still is drawn at once, without waiting for playback.
    if (type == QLatin1String("osd") || type == QLatin1String("picture")) {
        player->updateFrame();
        player->refreshUi();
    }
    setDuration(layerId, bankId, length);
}

void UI_Proc_KELMOR_Player_Desktop::setLayerMediaType(QtAV::AVPlayer* player, QString type)
{
    if (ignoreNullPlayer(player, "setLayerMediaType"))
        return;
    player->setMediaType(storedMediaType(type));
    qDebug() << "command setLayerMediaType success" << player;
}
