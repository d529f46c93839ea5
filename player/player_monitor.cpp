// Per-screen monitor-effect settings: forwarded to the effects service when
// the named screen (or, for -1, any screen) is open.
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "player_internal.h"

#include "EffectsService.h"
#include "ScreenService.h"

#include <QDebug>

void UI_Proc_KELMOR_Player_Desktop::setTP(int screenId, QMap<QString, QVariant> record)
{
    constexpr int kAllScreens = -1;

    const QList<ScreenWidget*> widgets = ScreenService::getInstance().widgetList();
    // Only decides whether the settings are forwarded; screens sharing an id
    // count once.
    QMap<int, ScreenWidget*> matching;
    for (ScreenWidget* widget : widgets) {
        if (!widget)
            continue;
        if (screenId == kAllScreens || widget->screenId() == screenId)
            matching.insert(widget->screenId(), widget);
    }
    if (matching.isEmpty())
        return;
    EffectsService::getInstance().setMonitorEffects(screenId, record);
}

QMap<QString, QVariant> UI_Proc_KELMOR_Player_Desktop::getTP(QMap<QString, QVariant> record)
{
    // No screen setting can be read back yet; the look-up is kept so that
    // the screen is resolved as it will be once there is something to report.
    ScreenService::getInstance().getScreenWidget(record);
    return {};
}
