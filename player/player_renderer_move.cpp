// moveRenderer: moves and resizes the render object a layer already has on
// one screen, and renews the scale ratio and the region of interest. It
// never creates a render object.
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "player_internal.h"

#include "AVPlayer.h"
#include "NoxOpenGLRender.h"
#include "ScenePlayer.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QDebug>

using namespace kelmor;

void UI_Proc_KELMOR_Player_Desktop::moveRenderer(QMap<QString, QVariant> command)
{
    SaturationReport saturation("moveRenderer");
    const RendererGeometry g = readRendererGeometry(command, {
        "screenId", "bankId", "screenType", "clientGuid", "layerId", "frameX", "frameY",
        "rendererX", "rendererY", "crossWidth", "crossHeight", "originalWidth",
        "originalHeight", "isScal", "isOutArea", "isRotation", "relativeX", "relativeY",
        "actualWidth", "actualHeight", "isFill", "isBezier"});

    QtAV::AVPlayer* player = registry().getplayerByID(g.layerId, g.bankId);
    if (!player)
        return;

    if (g.isRotation || g.isBezier) {
        // A rotated or warped layer keeps its placement; only the mapping
        // goes back to the identity over the whole original picture.
        setScalOriginalRatio(g.originalWidth, g.originalHeight,
                             g.originalWidth, g.originalHeight);
        setRegionOfInterest(command, 0, 0, g.originalWidth, g.originalHeight);
        return;
    }

    if (!g.isOutArea) {
        ScenePlayer* scene = registry().getScenePlayer(g.bankId, g.layerId);
        const bool hasEntry = scene && scene->rendererMap.contains(g.screen);
        if (hasEntry) {
            QtAV::VideoRenderer* renderer = scene->rendererMap.value(g.screen);
            if (!renderer) {
                qDebug() << "moveRenderer renderer is NULL";
                return;
            }
            if (QtAV::NoxOpenGLRender* render = asRenderObject(renderer)) {
                const QRect placed =
                    boundedPlacement(g.rendererX, g.rendererY, g.crossWidth, g.crossHeight);
                render->setGeometry(placed.x(), placed.y(), placed.width(), placed.height());
            } else {
                qDebug() << "moveRenderer: screen" << g.screen.screenId
                         << "holds no render object; geometry not set";
            }
            // The tail below sets the same three things again with the same
            // values; the repetition is harmless and kept.
            setScalOriginalRatio(g.originalWidth, g.originalHeight,
                                 g.actualWidth, g.actualHeight);
            setRegionOfInterest(command, g.frameX, g.frameY, g.crossWidth, g.crossHeight);
        }
    }

    // Outside the area, or without a render object, the geometry is set only
    // through the resize step (which also drops a null entry).
    resizeRenderer(command, player, g.rendererX, g.rendererY, g.crossWidth, g.crossHeight);
    setScalOriginalRatio(g.originalWidth, g.originalHeight, g.actualWidth, g.actualHeight);
    setRegionOfInterest(command, g.frameX, g.frameY, g.crossWidth, g.crossHeight);
}
