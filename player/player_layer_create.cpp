// Layer creation: a layer's media player and timer, wired to the service's
// slots, its source opened, and the bundle filed in the registry as a scene
// player. No renderer is made and nothing starts playing here.
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "player_internal.h"

#include "AVPlayer.h"
#include "AudioOutput.h"
#include "NdiService.h"
#include "ScenePlayer.h"
#include "UI_Proc_KELMOR_PlayerTimer_Desktop.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QDebug>
#include <chrono>

using namespace kelmor;

namespace {

/// A string-form connection: a signal signature (code digit 2) to a slot
/// signature (code digit 1).
struct Wire
{
    const char* signal;
    const char* slot;
    Qt::ConnectionType type;
};

// The media player's signals. "playReadySucess()" feeds two slots, the
// layer's load report before the bank's ready count. "sig_deleteObj()" is
// automatic: it runs the deletion at once when the player emits on the
// service's thread.
const Wire kPlayerWires[] = {
    {"2stopped()", "1onStopped()", Qt::QueuedConnection},
    {"2loaded()", "1onLoaded()", Qt::QueuedConnection},
    {"2positionChanged(qint64)", "1onPositionChanged(qint64)", Qt::QueuedConnection},
    {"2fadeOutFinished()", "1onFadeOutFinished()", Qt::QueuedConnection},
    {"2fadeInFinished()", "1onFadeInFinishedd()", Qt::QueuedConnection},
    {"2playReadySucess()", "1onPlayerLoadComple()", Qt::QueuedConnection},
    {"2playReadySucess()", "1onPlayReady()", Qt::QueuedConnection},
    {"2sig_deleteObj()", "1onSigDeleteObj()", Qt::AutoConnection},
};

// The timer's signals. The timer emits on its own thread, so the automatic
// connections are delivered queued on the service's thread.
const Wire kTimerWires[] = {
    {"2stopped(int,int)", "1onStopped(int,int)", Qt::AutoConnection},
    {"2paused(int,int,bool)", "1onPaused(int,int,bool)", Qt::AutoConnection},
    {"2setProgressTimered(int,int,qint64)", "1onSetProgressTimered(int,int,qint64)",
     Qt::AutoConnection},
    {"2setRepeated(int,int,int)", "1onSetRepeated(int,int,int)", Qt::AutoConnection},
    {"2setSynchClocked(int,int,float)", "1onSetSynchClocked(int,int,float)", Qt::AutoConnection},
    {"2playReadyed(int,int,qint64,bool)", "1onPlayReadyed(int,int,qint64,bool)",
     Qt::AutoConnection},
    {"2resetPlayed(int,int,bool)", "1onResetPlayed(int,int,bool)", Qt::AutoConnection},
};

template <std::size_t N>
void connectWires(QObject* sender, const Wire (&wires)[N], QObject* receiver)
{
    for (const Wire& wire : wires)
        QObject::connect(sender, wire.signal, receiver, wire.slot, wire.type);
}

/// Elapsed wall time in milliseconds. The creation time is measured on the
/// monotonic clock: the C library's clock() counts CPU time on Linux, not the
/// elapsed time the log line reports.
qint64 monotonicMsec()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

} // namespace

void UI_Proc_KELMOR_Player_Desktop::creatnewlayer(QMap<QString, QVariant> record)
{
    const int layerId = record.value(QStringLiteral("layerId")).toInt();
    const int bankId = record.value(QStringLiteral("bankId")).toInt();
    QString path = record.value(QStringLiteral("path")).toString();
    const int groupId = record.value(QStringLiteral("groupID")).toInt();
    const QString type = record.value(QStringLiteral("type")).toString();
    const qint64 timeLenMsec = record.value(QStringLiteral("timeLenMsec")).toLongLong();
    const bool isSetPr = record.value(QStringLiteral("isSetPr")).toBool();

    const qint64 start = monotonicMsec();
    if (registry().getScenePlayer(bankId, layerId))
        return; // the layer exists: a second creation changes nothing

    auto* player = new QtAV::AVPlayer(nullptr);
    if (isSetPr)
        player->setPriority(idsFromNames(decoderNames)); // CUDA before FFmpeg
    connectWires(player, kPlayerWires, this);

    auto* timer = new UI_Proc_KELMOR_PlayerTimer_Desktop(layerId, bankId, timeLenMsec);
    connectWires(timer, kTimerWires, this);

    if (type == QLatin1String("ndi")) {
        // The player receives the stream "source#stream".
        path.append(QLatin1Char('#'));
        path.append(record.value(QStringLiteral("videoName")).toString());
        NdiService ndi(nullptr);
        ndi.setPlayer(path, player);
    }
    player->setFile(path);

    const qint64 end = monotonicMsec();
    qDebug() << "setFile Time: " << (end - start) / 1000.0;

    player->audio()->setVolume(1.0);

    auto* scene = new ScenePlayer();
    scene->player = player;
    scene->playerTimer = timer;
    scene->groupId = groupId;
    scene->layerId = layerId;
    registry().insertScenePlayer(bankId, layerId, scene);
}
