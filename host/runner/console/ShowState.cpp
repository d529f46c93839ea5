#include "console/ShowState.h"

#include "HostSteps.h"
#include "OperationTable.h"
#include "StepFields.h"
#include "StepRunner.h"
#include "StepSource.h"
#include "console/LayerWatch.h"

#include "AVPlayer.h"
#include "EffectsService.h"
#include "ScenePlayer.h"
#include "ScreenService.h"
#include "UI_Proc_KELMOR_PlayerTimer_Desktop.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QJsonObject>
#include <algorithm>
#include <cmath>

namespace {

bool isTimed(const QString& type)
{
    return type != QLatin1String("video") && type != QLatin1String("audio");
}

/// A monitor-effect value of the screen's own record, else of the
/// all-screens record; `fallback` when neither has it.
QJsonValue screenSetting(int screenId, const QString& key, const QJsonValue& fallback)
{
    const EffectsService& effects = EffectsService::getInstance();
    for (const int id : {screenId, -1}) {
        const QMap<QString, QVariant> record = effects.monitorEffects(id);
        if (record.contains(key))
            return QJsonValue::fromVariant(record.value(key));
    }
    return fallback;
}

} // namespace

ShowState::ShowState(StepRunner& runner, HostSteps& host, LayerWatch& layers)
    : m_runner(runner), m_host(host), m_layers(layers)
{
}

StepOutcome ShowState::run(const Step& step)
{
    StepFields f(step, {});
    if (!f.ok())
        return StepOutcome::error(f.problem());
    JsonLine extra;
    extra.add(QStringLiteral("layers"), layers());
    extra.add(QStringLiteral("screens"), screens());
    extra.add(QStringLiteral("sources"), sources());
    return StepOutcome::ok(extra);
}

QJsonArray ShowState::layers() const
{
    struct Row
    {
        int bank;
        int layer;
        QJsonObject object;
    };
    std::vector<Row> rows;
    auto& registry = UI_Proc_KELMOR_PlayersManage_Desktop::getInstance();
    for (const QPointer<QtAV::AVPlayer>& pointer : createdPlayers()) {
        QtAV::AVPlayer* player = pointer.data();
        if (!player || player->isReleased())
            continue;
        ScenePlayer* scene = registry.getScenePlayer(player);
        const int bank = registry.getBankIdRelyPlayer(player);
        if (!scene || bank < 0)
            continue; // taken out of the registry
        UI_Proc_KELMOR_PlayerTimer_Desktop* timer = scene->playerTimer;
        const QString type = player->getMediaType();
        const bool timed = isTimed(type);
        const LayerWatch::View view = m_layers.view(player, timer, timed);
        QJsonArray screens;
        for (auto it = scene->rendererMap.constBegin(); it != scene->rendererMap.constEnd(); ++it)
            screens.append(it.key().screenId);
        const double volume = player->audio() ? player->audio()->volume() * 100.0 : 100.0;
        QJsonObject o{
            {QStringLiteral("bankId"), bank},
            {QStringLiteral("layerId"), scene->layerId},
            {QStringLiteral("type"), type},
            {QStringLiteral("path"), player->file()},
            {QStringLiteral("state"), view.state},
            {QStringLiteral("position"), double(timed ? (timer ? timer->getCurrProgress() : 0) : player->position())},
            {QStringLiteral("duration"), double(timer ? timer->getDuration() : 0)},
            {QStringLiteral("volume"), std::round(volume * 10.0) / 10.0},
            {QStringLiteral("repeat"), player->repeat()},
            {QStringLiteral("fade"), view.fade.isEmpty() ? QJsonValue() : QJsonValue(view.fade)},
            {QStringLiteral("opacity"), std::round(view.opacity * 1000.0) / 1000.0},
            {QStringLiteral("screens"), screens},
        };
        rows.push_back(Row{bank, scene->layerId, o});
    }
    std::stable_sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) {
        return a.bank != b.bank ? a.bank < b.bank : a.layer < b.layer;
    });
    QJsonArray out;
    for (const Row& row : rows)
        out.append(row.object);
    return out;
}

QJsonArray ShowState::screens() const
{
    QJsonArray out;
    const EffectsService& effects = EffectsService::getInstance();
    for (ScreenWidget* widget : ScreenService::getInstance().widgetList()) {
        const int id = widget->screenId();
        out.append(QJsonObject{
            {QStringLiteral("id"), id},
            {QStringLiteral("type"), widget->screenType()},
            {QStringLiteral("guid"), widget->clientGuid()},
            {QStringLiteral("width"), widget->size().width()},
            {QStringLiteral("height"), widget->size().height()},
            {QStringLiteral("offscreen"), widget->info().offscreen},
            {QStringLiteral("testPattern"), screenSetting(id, QStringLiteral("testPattern"), false)},
            {QStringLiteral("brightness"), screenSetting(id, QStringLiteral("brightness"), 0.0)},
            {QStringLiteral("effects"), QJsonObject::fromVariantMap(effects.monitorEffects(id))},
        });
    }
    return out;
}

QJsonArray ShowState::sources() const
{
    const QList<HostSteps::WaitView> waits = m_host.waitsInProgress();
    QJsonArray out;
    for (StepSource* source : m_runner.sources()) {
        QJsonValue waiting;
        for (const HostSteps::WaitView& w : waits) {
            if (w.source != source->name())
                continue;
            QJsonObject o{{QStringLiteral("op"), w.op},
                          {QStringLiteral("line"), w.line},
                          {QStringLiteral("ms"), double(w.sinceMs)}};
            if (!w.signal.isEmpty()) {
                o.insert(QStringLiteral("signal"), w.signal);
                o.insert(QStringLiteral("args"), w.match);
            }
            waiting = o;
        }
        out.append(QJsonObject{{QStringLiteral("name"), source->name()},
                               {QStringLiteral("primary"), source->isPrimary()},
                               {QStringLiteral("steps"), source->stepsRun},
                               {QStringLiteral("of"), source->totalSteps},
                               {QStringLiteral("waiting"), waiting}});
    }
    return out;
}
