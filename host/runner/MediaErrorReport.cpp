#include "MediaErrorReport.h"

#include "EventHub.h"
#include "JsonLine.h"
#include "OperationTable.h"

#include "AVPlayer.h"
#include "ScenePlayer.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QDebug>

namespace {

using Registry = UI_Proc_KELMOR_PlayersManage_Desktop;

/// The (bank, layer) the registry files the player under; (-1, -1) when none.
QPair<int, int> registeredIds(QtAV::AVPlayer* player)
{
    Registry& registry = Registry::getInstance();
    ScenePlayer* scene = registry.getScenePlayer(player);
    if (!scene)
        return qMakePair(-1, -1);
    return qMakePair(registry.getBankIdRelyPlayer(player), scene->layerId);
}

} // namespace

MediaErrorReport::MediaErrorReport(EventHub& hub, QObject* parent)
    : QObject(parent), m_hub(hub)
{
    setPlayerCreatedHook([this](QtAV::AVPlayer* player) { watch(player); });
}

MediaErrorReport::~MediaErrorReport()
{
    setPlayerCreatedHook(nullptr);
}

void MediaErrorReport::watch(QtAV::AVPlayer* player)
{
    if (!player) {
        qDebug() << "MediaErrorReport::watch ignored: null player";
        return;
    }
    if (m_created.contains(player))
        return;
    m_created.insert(player, registeredIds(player));
    connect(player, &QtAV::AVPlayer::mediaError, this, &MediaErrorReport::onMediaError);
    connect(player, &QObject::destroyed, this,
            [this](QObject* gone) { m_created.remove(gone); });
}

void MediaErrorReport::onMediaError(const QString& path, const QString& reason)
{
    auto* player = qobject_cast<QtAV::AVPlayer*>(sender());
    if (!player)
        return;
    QPair<int, int> ids = registeredIds(player);
    if (ids.first == -1 && ids.second == -1)
        ids = m_created.value(player, ids); // out of the registry: its creation ids
    JsonLine fields;
    fields.add(QStringLiteral("bankId"), ids.first);
    fields.add(QStringLiteral("layerId"), ids.second);
    fields.add(QStringLiteral("path"), path);
    fields.add(QStringLiteral("reason"), reason);
    m_hub.printHostLine(QStringLiteral("mediaError"), fields);
}
