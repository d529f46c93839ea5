// setBezierPoint: hands a layer's patch warp to its render objects. The host
// has already cut the picture into patches and computed every screen's
// control points; this only converts the record into the renderer's calls.
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "player_internal.h"

#include "AVPlayer.h"
#include "ScenePlayer.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"
#include "VideoRenderer.h"

#include <QDebug>
#include <QRectF>
#include <QVector>

using namespace kelmor;

namespace {

/// Patch regions from a flat list, four numbers (x, y, width, height) per
/// patch; a trailing group of fewer than four numbers is dropped.
QVector<QRectF> patchRegionsOf(const QVariantList& numbers)
{
    QVector<QRectF> regions;
    for (int i = 3; i < numbers.size(); i += 4) {
        // Each number goes through single precision, as the renderer's
        // patch data is float.
        regions.append(QRectF(numbers.at(i - 3).toFloat(), numbers.at(i - 2).toFloat(),
                              numbers.at(i - 1).toFloat(), numbers.at(i).toFloat()));
    }
    return regions;
}

QVector<float> controlPointsOf(const QVariantList& numbers)
{
    QVector<float> points;
    points.reserve(numbers.size());
    for (const QVariant& number : numbers)
        points.append(number.toFloat());
    return points;
}

/// rows x cols, wrapping like the 32-bit product of the renderer's own
/// arithmetic rather than overflowing.
int patchCountOf(int rows, int cols)
{
    return static_cast<int>(static_cast<unsigned>(rows) * static_cast<unsigned>(cols));
}

} // namespace

void UI_Proc_KELMOR_Player_Desktop::setBezierPoint(int layerId, int bankId,
                                                   QMap<QString, QVariant> record)
{
    QtAV::AVPlayer* player = registry().getplayerByID(layerId, bankId);
    if (!player)
        return;

    // The layer's placement keys travel with the warp but are not needed.
    for (const char* unused : {"width", "height", "x", "y"})
        static_cast<void>(record.value(QLatin1String(unused)).toInt());
    const int rows = record.value(QStringLiteral("row")).toInt();
    const int cols = record.value(QStringLiteral("col")).toInt();
    const QVector<QRectF> regions = patchRegionsOf(record.value(QStringLiteral("roiData")).toList());

    if (ScenePlayer* scene = registry().getScenePlayer(bankId, layerId)) {
        const QVariantList screens = record.value(QStringLiteral("pointData")).toList();
        for (const QVariant& screenEntry : screens) {
            const QVariantMap entry = screenEntry.toMap();
            const ScreenKey key(entry.value(QStringLiteral("screenId")).toInt(),
                                entry.value(QStringLiteral("screenType")).toInt(),
                                entry.value(QStringLiteral("clientGuid")).toString());
            const QVector<float> points = controlPointsOf(entry.value(QStringLiteral("data")).toList());

            const auto it = scene->rendererMap.constFind(key);
            if (it == scene->rendererMap.constEnd())
                continue;
            QtAV::VideoRenderer* renderer = it.value();
            if (!renderer) {
                qDebug() << "setBezierPoint: screen" << key.screenId
                         << "has a null render object; warp not set";
                continue;
            }
            renderer->setPatchRoi(regions);
            renderer->setPatchCount(patchCountOf(rows, cols));
            renderer->setPatchInfo(rows, cols, points);
        }
    }

    player->refreshUi();
}
