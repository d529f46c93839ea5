// The service's frame: construction, the singleton, look-ups, decoder ids,
// renderer lists and the bank's play-ready count.
#include "UI_Proc_KELMOR_Player_Desktop.h"

#include "AVPlayer.h"
#include "UI_Proc_KELMOR_PlayerTimer_Desktop.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"
#include "VideoDecoder.h"
#include "VideoRenderer.h"
#include "player_internal.h"

#include <QDebug>

using namespace kelmor;

UI_Proc_KELMOR_Player_Desktop::UI_Proc_KELMOR_Player_Desktop(QObject* parent)
    : QObject(parent),
      readyFlag(false),
      pendingReadyCount(0),
      curBankId(-1),
      workerPool(2),
      fadeOutCount(0),
      fadeOutFinishedCount(0),
      fadeInCount(0),
      fadeInFinishedCount(0),
      fadeTime(0.0f) // stored only; set so that it is never read uninitialised
{
    decoderNames.append(QStringLiteral("CUDA"));
    decoderNames.append(QStringLiteral("FFmpeg"));
}

// Members go in reverse order of declaration: the fade counters, then the
// worker pool (stopping and joining its threads), decoderNames,
// useStopPlayers and scaleRatio. Nothing per layer is deleted here.
UI_Proc_KELMOR_Player_Desktop::~UI_Proc_KELMOR_Player_Desktop() = default;

UI_Proc_KELMOR_Player_Desktop& UI_Proc_KELMOR_Player_Desktop::getInstance()
{
    static UI_Proc_KELMOR_Player_Desktop instance;
    return instance;
}

QObject* UI_Proc_KELMOR_Player_Desktop::getAVPlayerEchoById(int layerId, int bankId)
{
    return registry().getplayerByID(layerId, bankId);
}

int UI_Proc_KELMOR_Player_Desktop::getBankLayer(int first, int second)
{
    // Shift as unsigned so that negative or large ids wrap instead of being
    // undefined.
    return static_cast<int>(static_cast<quint32>(first) + (static_cast<quint32>(second) << 16));
}

int UI_Proc_KELMOR_Player_Desktop::getRendererCount(QtAV::AVPlayer* player)
{
    if (ignoreNullPlayer(player, "getRendererCount"))
        return 0;
    int count = 0;
    for (QtAV::VideoRenderer* output : player->videoOutputs()) {
        if (rendererNamed(output, kNoxGL))
            ++count;
    }
    return count;
}

bool UI_Proc_KELMOR_Player_Desktop::isOpenGLWidgetRenderer(QtAV::VideoRenderer* renderer)
{
    return rendererNamed(renderer, kNoxGL);
}

QList<void*> UI_Proc_KELMOR_Player_Desktop::getUIAndWidgetRendererList(
    QList<QtAV::VideoRenderer*> renderers)
{
    QList<void*> result;
    for (QtAV::VideoRenderer* renderer : renderers) {
        const char* name = renderer ? QtAV::VideoRenderer::name(renderer->id()) : nullptr;
        qDebug() << "getUIAndWidgetRendererList :" << name;
        if (renderer && !rendererNamed(renderer, kQmlGL))
            result.append(renderer);
    }
    return result;
}

QVector<int> UI_Proc_KELMOR_Player_Desktop::idsFromNames(const QStringList& names)
{
    QVector<int> ids;
    for (const QString& name : names) {
        const int id = QtAV::VideoDecoder::id(name.toLatin1().constData());
        if (id != 0)
            ids.append(id);
    }
    return ids;
}

void UI_Proc_KELMOR_Player_Desktop::setCurPlayerCount(int bankId)
{
    curBankId = bankId;
    const QMap<int, ScenePlayer*> layers = registry().getModulePlayerMap(bankId);
    if (layers.isEmpty()) {
        pendingReadyCount = 0;
        emit sPlayReady(bankId);
        return;
    }
    pendingReadyCount = layers.size();
}

void UI_Proc_KELMOR_Player_Desktop::onPlayReady()
{
    // Connected to media players only; a foreign sender finds no bank.
    auto* player = qobject_cast<QtAV::AVPlayer*>(sender());
    const int bank = registry().getBankIdRelyPlayer(player);
    if (bank != curBankId)
        return;
    const int before = pendingReadyCount--;
    if (before == 1)
        emit sPlayReady(bank);
}

void UI_Proc_KELMOR_Player_Desktop::clearUseStopPlayer()
{
    useStopPlayers.clear();
}

void UI_Proc_KELMOR_Player_Desktop::setPathPlayerThread(QtAV::AVPlayer* player,
                                                        const QString& path)
{
    if (ignoreNullPlayer(player, "setPathPlayerThread"))
        return;
    player->setFile(path);
}

void UI_Proc_KELMOR_Player_Desktop::setPlayThread(UI_Proc_KELMOR_PlayerTimer_Desktop* timer)
{
    if (!timer) {
        qDebug() << "setPlayThread ignored: null timer";
        return;
    }
    timer->startTimer();
}
