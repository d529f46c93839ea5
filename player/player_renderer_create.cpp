// addRenderer: puts a layer's picture onto one output screen.
//
// A layer has at most one render object per screen number: the render object
// is recorded in the scene player's rendererMap under the screen's key, which
// matches by screen number alone, and a second call for the same number only
// refreshes the effects list and the picture.
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "player_internal.h"

#include "AVPlayer.h"
#include "NoxOpenGLRender.h"
#include "ScenePlayer.h"
#include "ScreenService.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QDebug>

using namespace kelmor;

namespace {

/// Whether the layer already shows a render object on the key's screen
/// number (an entry left null by a region look-up does not count).
bool showsOnScreen(const ScenePlayer& scene, const ScreenKey& key)
{
    const auto it = scene.rendererMap.constFind(key);
    return it != scene.rendererMap.constEnd() && it.value() != nullptr;
}

} // namespace

void UI_Proc_KELMOR_Player_Desktop::addRenderer(QMap<QString, QVariant> command)
{
    SaturationReport saturation("addRenderer");
    const RendererGeometry g = readRendererGeometry(command, {
        "bankId", "screenId", "screenType", "clientGuid", "layerId", "frameX", "frameY",
        "rendererX", "rendererY", "crossWidth", "crossHeight", "originalWidth",
        "originalHeight", "layerRotation", "isScal", "isRotation", "actualWidth",
        "actualHeight", "isFill", "relativeX", "relativeY"});
    const QMap<QString, QVariant> screenRecord = screenRecordOf(g.screen);

    QtAV::AVPlayer* player = registry().getplayerByID(g.layerId, g.bankId);
    if (!player)
        return;

    ScenePlayer* scene = registry().getScenePlayer(g.bankId, g.layerId);
    if (scene && !showsOnScreen(*scene, g.screen)) {
        ScreenWidget* widget = ScreenService::getInstance().getScreenWidget(screenRecord);
        if (!widget) {
            qDebug() << "screen Widget is NULL";
            return;
        }

        // Fully configured and attached to the player before the screen
        // widget can draw it.
        auto* render = new QtAV::NoxOpenGLRender();
        render->setOriginalWH(static_cast<double>(g.originalWidth),
                              static_cast<double>(g.originalHeight));
        const QRect placed = boundedPlacement(g.rendererX, g.rendererY, g.crossWidth, g.crossHeight);
        render->setGeometry(placed.x(), placed.y(), placed.width(), placed.height());
        render->setPlayerLayerID(g.screen.screenId, g.layerId);
        player->addVideoRenderer(render);
        render->setFrameRate(player->statistics().video.frame_rate);
        // Spout textures arrive at their own pace, not the stream's.
        if (player->getMediaType() == QLatin1String("spout"))
            render->setFrameRate(60.0);
        widget->pushRender(render);

        // Replaces a null entry of the same screen number, if any.
        scene->rendererMap.insert(g.screen, render);
        render->resizeRenderer(placed.width(), placed.height());

        if (g.isRotation) {
            // A rotated layer is placed by its rotated bounding box; its
            // scale ratio and region of interest stay as they are.
            resizeRenderer(command, player, g.relativeX, g.relativeY,
                           g.actualWidth, g.actualHeight);
        } else {
            setScalOriginalRatio(g.originalWidth, g.originalHeight,
                                 g.actualWidth, g.actualHeight);
            setRegionOfInterest(command, g.frameX, g.frameY, g.crossWidth, g.crossHeight);
        }
    }

    setAllRenderList(g.layerId, g.bankId);
    player->refreshUi();
}
