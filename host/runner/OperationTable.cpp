// One line per operation; the binder deduces the argument kinds from the
// signature. Overloaded names are picked with a cast to the public signature.
#include "OperationTable.h"

#include "OperationBinder.h"

#include "AVPlayer.h"
#include "ScenePlayer.h"
#include "UI_Proc_KELMOR_PlayerTimer_Desktop.h"
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QDebug>
#include <QList>
#include <climits>

using Service = UI_Proc_KELMOR_Player_Desktop;
using Registry = UI_Proc_KELMOR_PlayersManage_Desktop;
using Timer = UI_Proc_KELMOR_PlayerTimer_Desktop;
using Record = QMap<QString, QVariant>;
using binder::function;
using binder::member;
using binder::refused;
using binder::timerMember;


namespace {

Service& service() { return Service::getInstance(); }
Registry& registry() { return Registry::getInstance(); }

// Scene players that removeScenePlayer took out of the registry (GUI thread).
QList<ScenePlayer*>& removedLayers()
{
    static QList<ScenePlayer*> layers;
    return layers;
}

/// removeScenePlayer, keeping the record it takes out so that it is ended at
/// shutdown instead of leaking.
void removeScenePlayerKept(int bankId, int layerId)
{
    ScenePlayer* before = registry().getScenePlayer(bankId, layerId);
    registry().removeScenePlayer(bankId, layerId);
    if (before && registry().getScenePlayer(bankId, layerId) != before
        && !removedLayers().contains(before))
        removedLayers().append(before);
}


// Told of every player creatnewlayerTracked adds (GUI thread).
std::function<void(QtAV::AVPlayer*)>& playerCreatedHook()
{
    static std::function<void(QtAV::AVPlayer*)> hook;
    return hook;
}

// Further listeners, by id (GUI thread).
QVector<QPair<int, std::function<void(QtAV::AVPlayer*)>>>& playerCreatedListeners()
{
    static QVector<QPair<int, std::function<void(QtAV::AVPlayer*)>>> listeners;
    return listeners;
}

/// creatnewlayer, noting the layer's player so that shutdown can wait until
/// the player is really gone (its release ends on the player's thread later).
void creatnewlayerTracked(Record record)
{
    service().creatnewlayer(record);
    QtAV::AVPlayer* player = registry().getplayerByID(record.value(QStringLiteral("layerId")).toInt(),
                                                      record.value(QStringLiteral("bankId")).toInt());
    if (player && !createdPlayers().contains(player)) {
        createdPlayers().removeAll(nullptr);
        createdPlayers().append(player);
        if (playerCreatedHook())
            playerCreatedHook()(player);
        const auto listeners = playerCreatedListeners(); // a listener may remove itself
        for (const auto& listener : listeners)
            listener.second(player);
    }
}

/// startThread joins a running loop first, which would hold the GUI thread
/// until the item's pass ends: a playing timer is left alone (as the service
/// itself does).
void timerStartThreadGuarded(Timer* timer)
{
    if (timer->getPlayState() == 1201) {
        qDebug() << "timer.startThread ignored: the item is already playing";
        return;
    }
    timer->startThread();
}

QVector<Operation> buildTable()
{
    using VolumeByIds = void (Service::*)(int, int, Record);
    using ResizeByRecord = void (Service::*)(Record);
    using SceneByIds = ScenePlayer* (Registry::*)(int, int);
    using SceneByPlayer = ScenePlayer* (Registry::*)(QtAV::AVPlayer*);
    const char* S = "service";
    const char* R = "registry";

    return {
        // Service: frame, counters and look-ups.
        member("getAVPlayerEchoById", S, "layerId,bankId", &Service::getInstance, &Service::getAVPlayerEchoById),
        member("getRendererCount", S, "player", &Service::getInstance, &Service::getRendererCount),
        member("setCurPlayerCount", S, "bankId", &Service::getInstance, &Service::setCurPlayerCount),
        member("setFadeTime", S, "value", &Service::getInstance, &Service::setFadeTime),
        member("initFinishedFadeIn", S, "", &Service::getInstance, &Service::initFinishedFadeIn),
        member("initFinishedFadeOut", S, "", &Service::getInstance, &Service::initFinishedFadeOut),
        member("clearUseStopPlayer", S, "", &Service::getInstance, &Service::clearUseStopPlayer),
        // Layers and their content.
        function("creatnewlayer", S, "record", &creatnewlayerTracked),
        member("changeLayerContent", S, "layerId,bankId,record", &Service::getInstance, &Service::changeLayerContent),
        member("setLayerMediaType", S, "player,type", &Service::getInstance, &Service::setLayerMediaType),
        // Transport.
        member("play", S, "player", &Service::getInstance, &Service::play),
        member("pause", S, "player", &Service::getInstance, &Service::pause),
        member("stop", S, "player", &Service::getInstance, &Service::stop),
        member("resetPlay", S, "player,flag", &Service::getInstance, &Service::resetPlay),
        member("playReady", S, "player,msec,isPause", &Service::getInstance, &Service::playReady),
        member("setRepeat", S, "player,count", &Service::getInstance, &Service::setRepeat),
        member("setSynchClock", S, "player,value", &Service::getInstance, &Service::setSynchClock),
        member("setFadeInOut", S, "player,fadeOut,msec", &Service::getInstance, &Service::setFadeInOut),
        member("refreshUi", S, "player", &Service::getInstance, &Service::refreshUi),
        member("setPosition", S, "bankId,layerId,msec", &Service::getInstance, &Service::setPosition),
        member("setStartPosition", S, "bankId,layerId,msec", &Service::getInstance, &Service::setStartPosition),
        member("pptPageUpDown", S, "bankId,layerId,record", &Service::getInstance, &Service::pptPageUpDown),
        member("setDuration", S, "layerId,bankId,msec", &Service::getInstance, &Service::setDuration),
        member("updateFrame", S, "layerId,bankId", &Service::getInstance, &Service::updateFrame),
        member("setStopFade", S, "layerId,bankId,fadeIn", &Service::getInstance, &Service::setStopFade),
        // Renderer placement and geometry.
        member("addRenderer", S, "command", &Service::getInstance, &Service::addRenderer),
        member("moveRenderer", S, "command", &Service::getInstance, &Service::moveRenderer),
        member("resizeRenderer", S, "command", &Service::getInstance, static_cast<ResizeByRecord>(&Service::resizeRenderer)),
        member("resizeUIRenderer", S, "player,width,height", &Service::getInstance, &Service::resizeUIRenderer),
        member("seVectexRect", S, "command", &Service::getInstance, &Service::seVectexRect),
        member("setScalOriginalRatio", S, "originalWidth,originalHeight,actualWidth,actualHeight", &Service::getInstance, &Service::setScalOriginalRatio),
        // Warping, regions, monitor effects.
        member("setBezierPoint", S, "layerId,bankId,record", &Service::getInstance, &Service::setBezierPoint),
        member("setRegionOfInterest", S, "record,x,y,width,height", &Service::getInstance, &Service::setRegionOfInterest),
        member("setTP", S, "screenId,record", &Service::getInstance, &Service::setTP),
        member("getTP", S, "record", &Service::getInstance, &Service::getTP),
        // Outputs, effects and streams.
        member("setEffectsObj", S, "layerId,record", &Service::getInstance, &Service::setEffectsObj),
        member("setMonitorEffect", S, "id,record", &Service::getInstance, &Service::setMonitorEffect),
        member("setOutputRenderer", S, "record", &Service::getInstance, &Service::setOutputRenderer),
        member("setAllRenderList", S, "layerId,bankId", &Service::getInstance, &Service::setAllRenderList),
        member("setRendererZ", S, "player,z", &Service::getInstance, &Service::setRendererZ),
        member("setWidgetRenderVisible", S, "player,visible", &Service::getInstance, &Service::setWidgetRenderVisible),
        member("setNdiState", S, "player,state", &Service::getInstance, &Service::setNdiState),
        member("setSpoutState", S, "player,state", &Service::getInstance, &Service::setSpoutState),
        member("setRendererProperty", S, "player,record,value", &Service::getInstance, &Service::setRendererProperty),
        // Removal.
        member("delRenderer", S, "record,player", &Service::getInstance, &Service::delRenderer),
        member("delLayerAllRenderer", S, "bankId,layerId,clearOutputs", &Service::getInstance, &Service::delLayerAllRenderer),
        member("delCustomRenderer", S, "layerId,bankId", &Service::getInstance, &Service::delCustomRenderer),
        // Volume and sound track.
        member("setVolumeState", S, "layerId,bankId,record", &Service::getInstance, static_cast<VolumeByIds>(&Service::setVolumeState)),
        function("setVolumeStateThread", S, "player,record", &Service::setVolumeStateThread),

        // Registry.
        refused("insertScenePlayer", R, "bankId,layerId,scenePlayer",
                "it files a scene player built in memory, which a show cannot express; creatnewlayer files layers"),
        member("getScenePlayer", R, "bankId,layerId", &Registry::getInstance, static_cast<SceneByIds>(&Registry::getScenePlayer)),
        member("getScenePlayer", R, "player", &Registry::getInstance, static_cast<SceneByPlayer>(&Registry::getScenePlayer)),
        member("getplayerByID", R, "layerId,bankId", &Registry::getInstance, &Registry::getplayerByID),
        member("getModulePlayerMap", R, "bankId", &Registry::getInstance, &Registry::getModulePlayerMap),
        member("getBankIdRelyPlayer", R, "player", &Registry::getInstance, &Registry::getBankIdRelyPlayer),
        function("removeScenePlayer", R, "bankId,layerId", &removeScenePlayerKept),
        member("disConnect", R, "player", &Registry::getInstance, &Registry::disConnect),
        member("deleteplayerByID", R, "record", &Registry::getInstance, &Registry::deleteplayerByID),
        member("clearAllPlayer", R, "", &Registry::getInstance, &Registry::clearAllPlayer),
        function("stopPlayerThread", R, "player", &Registry::stopPlayerThread),

        // A layer's timer.
        function("timer.startThread", "timer", "layer", &timerStartThreadGuarded),
        refused("timer.startTimer", "timer", "layer",
                "it runs the timer's loop on the calling thread, which would hold the show until the item ends; use timer.startThread"),
        timerMember("timer.stopTimer", "layer", &Timer::stopTimer),
        timerMember("timer.pauseTimer", "layer,isPause", &Timer::pauseTimer),
        timerMember("timer.setProgressTimer", "layer,msec", &Timer::setProgressTimer),
        timerMember("timer.setRepeat", "layer,count", &Timer::setRepeat),
        timerMember("timer.setDuration", "layer,msec", &Timer::setDuration),
        timerMember("timer.getCurrProgress", "layer", &Timer::getCurrProgress),
        timerMember("timer.getDuration", "layer", &Timer::getDuration),
        timerMember("timer.getPlayState", "layer", &Timer::getPlayState),
    };
}

} // namespace

QList<QPointer<QtAV::AVPlayer>>& createdPlayers()
{
    static QList<QPointer<QtAV::AVPlayer>> players;
    return players;
}

void setPlayerCreatedHook(std::function<void(QtAV::AVPlayer*)> hook)
{
    playerCreatedHook() = std::move(hook);
}

int addPlayerCreatedListener(std::function<void(QtAV::AVPlayer*)> listener)
{
    static int lastId = 0;
    if (!listener)
        return 0;
    playerCreatedListeners().append(qMakePair(++lastId, std::move(listener)));
    return lastId;
}

void removePlayerCreatedListener(int id)
{
    auto& listeners = playerCreatedListeners();
    for (int i = 0; i < listeners.size(); ++i) {
        if (listeners.at(i).first == id) {
            listeners.removeAt(i);
            return;
        }
    }
}

const char* argKindName(ArgKind kind)
{
    switch (kind) {
    case ArgKind::Int: return "int";
    case ArgKind::Int64: return "int64";
    case ArgKind::Double: return "number";
    case ArgKind::Float: return "float";
    case ArgKind::Bool: return "bool";
    case ArgKind::String: return "string";
    case ArgKind::Record: return "record";
    case ArgKind::Player: return "player";
    case ArgKind::Timer: return "layer";
    }
    return "?";
}

QString Operation::signature() const
{
    QStringList parts;
    for (int i = 0; i < argNames.size(); ++i) {
        const QString kind = i < kinds.size() ? QLatin1String(argKindName(kinds.at(i))) : QString();
        if (!kind.isEmpty() && kind != argNames.at(i))
            parts << QStringLiteral("%1: %2").arg(argNames.at(i), kind);
        else
            parts << argNames.at(i);
    }
    return QStringLiteral("%1(%2)").arg(name, parts.join(QStringLiteral(", ")));
}

const QVector<Operation>& operationTable()
{
    static const QVector<Operation> table = buildTable();
    return table;
}

QVector<const Operation*> findOperations(const QString& name)
{
    QVector<const Operation*> found;
    for (const Operation& op : operationTable()) {
        if (op.name == name)
            found.append(&op); // table order, so overloads keep their order
    }
    return found;
}

void refileRemovedLayers()
{
    // A removed layer goes back under its own key when that is free, else
    // under a spare bank no show uses.
    int spareBank = INT_MIN;
    for (ScenePlayer* scene : removedLayers()) {
        if (scene->player && registry().getScenePlayer(scene->player))
            continue; // filed again meanwhile (its player under another key)
        while (registry().getScenePlayer(spareBank, scene->layerId))
            ++spareBank;
        registry().insertScenePlayer(spareBank, scene->layerId, scene);
    }
    removedLayers().clear();
}
