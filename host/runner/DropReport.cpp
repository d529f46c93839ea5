#include "DropReport.h"

#include "EventHub.h"
#include "JsonLine.h"

#include "AVPlayer.h"
#include "ScenePlayer.h"
#include "ScreenService.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QJsonArray>
#include <QJsonObject>
#include <algorithm>
#include <vector>

namespace {

struct Drop
{
    QtAV::AVPlayer* player;
    quint64 dropped;
    quint64 total;
};

} // namespace

DropReport::DropReport(EventHub& hub, QObject* parent)
    : QObject(parent), m_hub(hub)
{
    m_timer.setInterval(kIntervalMs);
    connect(&m_timer, &QTimer::timeout, this, &DropReport::check);
    m_timer.start();
}

void DropReport::check()
{
    const QHash<QtAV::AVPlayer*, quint64> counts = ScreenService::getInstance().droppedFrameCounts();
    // Players gone since: their entries go (a new player may reuse the address).
    for (auto it = m_reported.begin(); it != m_reported.end();)
        it = counts.contains(it.key()) ? std::next(it) : m_reported.erase(it);
    std::vector<Drop> drops;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it) {
        const quint64 before = m_reported.value(it.key(), 0);
        const quint64 total = it.value();
        if (total == before)
            continue;
        drops.push_back(Drop{it.key(), total > before ? total - before : total, total});
        m_reported.insert(it.key(), total);
    }
    if (drops.empty())
        return;
    std::sort(drops.begin(), drops.end(), [](const Drop& a, const Drop& b) {
        return a.dropped != b.dropped ? a.dropped > b.dropped : a.total > b.total;
    });
    UI_Proc_KELMOR_PlayersManage_Desktop& registry = UI_Proc_KELMOR_PlayersManage_Desktop::getInstance();
    QJsonArray layers;
    for (size_t i = 0; i < drops.size() && i < size_t(kMaxLayers); ++i) {
        ScenePlayer* scene = registry.getScenePlayer(drops[i].player);
        QJsonObject layer;
        layer.insert(QStringLiteral("bankId"), scene ? registry.getBankIdRelyPlayer(drops[i].player) : -1);
        layer.insert(QStringLiteral("layerId"), scene ? scene->layerId : -1);
        layer.insert(QStringLiteral("dropped"), double(drops[i].dropped));
        layer.insert(QStringLiteral("total"), double(drops[i].total));
        layers.append(layer);
    }
    JsonLine fields;
    fields.add(QStringLiteral("layers"), layers);
    if (drops.size() > size_t(kMaxLayers))
        fields.add(QStringLiteral("more"), int(drops.size() - size_t(kMaxLayers)));
    m_hub.printHostLine(QStringLiteral("drops"), fields);
}
