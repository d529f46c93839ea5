#include "LayerCleanup.h"

#include "AVPlayer.h"
#include "NoxOpenGLRender.h"
#include "OperationTable.h"
#include "ScenePlayer.h"
#include "ScreenService.h"
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QSet>

void removeRenderObjectsOfLiveLayers()
{
    auto& registry = UI_Proc_KELMOR_PlayersManage_Desktop::getInstance();
    for (const QPointer<QtAV::AVPlayer>& player : createdPlayers()) {
        if (!player)
            continue;
        ScenePlayer* scene = registry.getScenePlayer(player.data());
        if (!scene)
            continue;
        const int bankId = registry.getBankIdRelyPlayer(player.data());
        UI_Proc_KELMOR_Player_Desktop::getInstance().delLayerAllRenderer(bankId, scene->layerId, true);
    }
}

int deleteRenderObjectsLeftOnScreens()
{
    // One render object may be hosted by several screens: destroyed once,
    // after every screen has let go of it.
    QSet<QtAV::NoxOpenGLRender*> left;
    for (ScreenWidget* widget : ScreenService::getInstance().widgetList()) {
        for (QtAV::NoxOpenGLRender* render : widget->renders()) {
            widget->removeRender(render);
            left.insert(render);
        }
    }
    qDeleteAll(left);
    return left.size();
}
