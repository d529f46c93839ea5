// Resizing a layer's render objects: the public resize command, the step
// that sets a recorded render object's geometry and size (shared with
// addRenderer and moveRenderer), and the resize of the player's non-screen
// outputs.
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "player_internal.h"

#include "AVPlayer.h"
#include "NoxOpenGLRender.h"
#include "ScenePlayer.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QDebug>

using namespace kelmor;

void UI_Proc_KELMOR_Player_Desktop::resizeRenderer(QMap<QString, QVariant> command,
                                                   QtAV::AVPlayer* /*player*/,
                                                   int x, int y, int width, int height)
{
    // The layer is found again from the record; the player argument is not
    // needed for that.
    const RendererGeometry g = readRendererGeometry(command, {
        "screenId", "screenType", "clientGuid", "bankId", "layerId"});

    ScenePlayer* scene = registry().getScenePlayer(g.bankId, g.layerId);
    if (!scene)
        return;
    const auto it = scene->rendererMap.find(g.screen);
    if (it == scene->rendererMap.end())
        return;

    QtAV::VideoRenderer* renderer = it.value();
    if (!renderer) {
        // A null entry, left by a region look-up, is cleaned up here.
        scene->rendererMap.remove(g.screen);
        return;
    }
    // The size follows the placement, saturated alike.
    const QRect placed = boundedPlacement(x, y, width, height);
    if (QtAV::NoxOpenGLRender* render = asRenderObject(renderer))
        render->setGeometry(placed.x(), placed.y(), placed.width(), placed.height());
    else
        qDebug() << "resizeRenderer: screen" << g.screen.screenId
                 << "holds no render object; geometry not set";
    renderer->resizeRenderer(placed.width(), placed.height());
}

void UI_Proc_KELMOR_Player_Desktop::resizeRenderer(QMap<QString, QVariant> command)
{
    SaturationReport saturation("resizeRenderer");
    const RendererGeometry g = readRendererGeometry(command, {
        "screenId", "bankId", "screenType", "clientGuid", "layerId", "frameX", "frameY",
        "rendererX", "rendererY", "crossWidth", "crossHeight", "originalWidth",
        "originalHeight", "isScal", "isRotation", "relativeX", "relativeY", "actualWidth",
        "actualHeight", "isFill", "isBezier"});

    QtAV::AVPlayer* player = registry().getplayerByID(g.layerId, g.bankId);
    if (!player)
        return;

    if (ScenePlayer* scene = registry().getScenePlayer(g.bankId, g.layerId)) {
        const auto it = scene->rendererMap.constFind(g.screen);
        if (it != scene->rendererMap.constEnd()) {
            if (QtAV::NoxOpenGLRender* render = asRenderObject(it.value()))
                render->setOriginalWH(static_cast<double>(g.originalWidth),
                                      static_cast<double>(g.originalHeight));
            else
                qDebug() << "resizeRenderer: screen" << g.screen.screenId
                         << "holds no render object; original size not set";
        }
    }

    if (g.isRotation || g.isBezier) {
        // Rotated and warped layers are placed by their bounding box; ratio
        // and region of interest stay as they are.
        resizeRenderer(command, player, g.relativeX, g.relativeY, g.actualWidth, g.actualHeight);
        return;
    }
    resizeRenderer(command, player, g.rendererX, g.rendererY, g.crossWidth, g.crossHeight);
    setScalOriginalRatio(g.originalWidth, g.originalHeight, g.actualWidth, g.actualHeight);
    setRegionOfInterest(command, g.frameX, g.frameY, g.crossWidth, g.crossHeight);
}

void UI_Proc_KELMOR_Player_Desktop::resizeUIRenderer(QtAV::AVPlayer* player, int width, int height)
{
    if (ignoreNullPlayer(player, "resizeUIRenderer"))
        return;
    // Render objects on output screens keep their size; only the previews in
    // the host's window follow.
    for (QtAV::VideoRenderer* output : player->videoOutputs()) {
        if (!output)
            continue;
        if (!rendererNamed(output, kNoxGL))
            output->resizeRenderer(width, height);
    }
}
