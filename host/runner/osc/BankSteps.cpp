#include "BankSteps.h"

#include "ArgConvert.h"
#include "HostSteps.h"
#include "StepFields.h"

#include "ScenePlayer.h"
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QJsonArray>
#include <QList>

namespace {

enum class BankAction { Ready, Play, Stop };

StepOutcome runBank(const Step& step, BankAction action)
{
    const QStringList keys = action == BankAction::Ready ? QStringList{QStringLiteral("bank"), QStringLiteral("ms")}
                                                         : QStringList{QStringLiteral("bank")};
    StepFields fields(step, keys);
    const int bank = fields.integer("bank", 0, INT_MIN, INT_MAX, true);
    if (!fields.ok())
        return StepOutcome::error(fields.problem());
    qint64 ms = 0;
    const QJsonValue msValue = step.body.value(QLatin1String("ms"));
    QString why;
    if (!msValue.isUndefined() && (!argconv::toInt64(msValue, ms, why) || ms < 0))
        return StepOutcome::error(QStringLiteral("\"ms\": %1").arg(why.isEmpty() ? QStringLiteral("negative") : why));

    // Every layer of the bank with its player, in layer order (QMap).
    QList<QPair<int, QtAV::AVPlayer*>> layers;
    const QMap<int, ScenePlayer*> scenes = UI_Proc_KELMOR_PlayersManage_Desktop::getInstance().getModulePlayerMap(bank);
    for (auto it = scenes.constBegin(); it != scenes.constEnd(); ++it) {
        if (it.value() && it.value()->player)
            layers.append({it.key(), it.value()->player});
    }
    if (layers.isEmpty())
        return StepOutcome::error(QStringLiteral("bank %1 has no layers").arg(bank));

    UI_Proc_KELMOR_Player_Desktop& service = UI_Proc_KELMOR_Player_Desktop::getInstance();
    if (action == BankAction::Ready)
        service.setCurPlayerCount(bank);
    QJsonArray ids;
    for (const auto& layer : layers) {
        switch (action) {
        case BankAction::Ready: service.playReady(layer.second, ms, true); break;
        case BankAction::Play: service.play(layer.second); break;
        case BankAction::Stop: service.stop(layer.second); break;
        }
        ids.append(layer.first);
    }
    JsonLine extra;
    extra.add(QStringLiteral("layers"), ids);
    return StepOutcome::ok(extra);
}

} // namespace

namespace banksteps {

bool install(HostSteps& host)
{
    bool all = true;
    all = host.addStep(QStringLiteral("readyBank"),
                       [](StepSource&, const Step& step) { return runBank(step, BankAction::Ready); }) && all;
    all = host.addStep(QStringLiteral("playBank"),
                       [](StepSource&, const Step& step) { return runBank(step, BankAction::Play); }) && all;
    all = host.addStep(QStringLiteral("stopBank"),
                       [](StepSource&, const Step& step) { return runBank(step, BankAction::Stop); }) && all;
    return all;
}

} // namespace banksteps
