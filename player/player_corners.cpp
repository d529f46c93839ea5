// Corner placement of a render object and the service's scale ratio.
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "player_internal.h"

#include "NoxOpenGLRender.h"
#include "ScenePlayer.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QDebug>
#include <QPointF>

using namespace kelmor;

void UI_Proc_KELMOR_Player_Desktop::seVectexRect(QMap<QString, QVariant> command)
{
    const int layerId = command.value(QStringLiteral("layerId")).toInt();
    const int bankId = command.value(QStringLiteral("bankId")).toInt();
    const QPointF leftTop = command.value(QStringLiteral("lTPoint")).toPointF();
    const QPointF rightTop = command.value(QStringLiteral("rTPoint")).toPointF();
    const QPointF leftBottom = command.value(QStringLiteral("lBpoint")).toPointF();
    const QPointF rightBottom = command.value(QStringLiteral("rBpoint")).toPointF();
    const ScreenKey key = screenKeyOf(command);

    ScenePlayer* scene = registry().getScenePlayer(bankId, layerId);
    if (!scene)
        return;
    // A scene player filed under another layer's key is not touched.
    if (scene->layerId != layerId)
        return;
    const auto it = scene->rendererMap.constFind(key);
    if (it == scene->rendererMap.constEnd())
        return;
    if (!it.value()) {
        qDebug() << "seVectexRect renderer is NULL";
        return;
    }
    QtAV::NoxOpenGLRender* render = asRenderObject(it.value());
    if (!render) {
        qDebug() << "seVectexRect: screen" << key.screenId
                 << "holds no render object; corners not set";
        return;
    }
    // Corners go in order along the edges of the quadrilateral, not in the
    // order the keys were read; they are passed on unchecked, so a sender
    // that swaps two of them gets a crossed quadrilateral.
    render->setRect(leftTop, leftBottom, rightBottom, rightTop);
}

void UI_Proc_KELMOR_Player_Desktop::setScalOriginalRatio(double originalWidth,
                                                         double originalHeight,
                                                         double actualWidth,
                                                         double actualHeight)
{
    // A zero actual size gives an infinity or NaN, stored as it is: the
    // region-of-interest computation copes with it.
    const double widthRatio = originalWidth / actualWidth;
    const double heightRatio = originalHeight / actualHeight;
    scaleRatio.clear(); // keeps the capacity
    scaleRatio.append(widthRatio);
    scaleRatio.append(heightRatio);
}
