// setRegionOfInterest: which rectangle of the source picture one render
// object of a layer shows, scaled from the host's design coordinates into
// the original picture by the service's scale ratio.
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "player_internal.h"

#include "ScenePlayer.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"
#include "VideoRenderer.h"

#include <QDebug>
#include <climits>
#include <cmath>

using namespace kelmor;

namespace {

/// Truncates toward zero. A value with no int truncation (NaN, an infinity
/// from a zero-size ratio, or out of range) gives INT_MIN, the value the x86
/// conversion instruction itself yields for such input; that is noted for
/// the command's report, under `axis`.
int truncateToInt(double value, const char* axis)
{
    if (std::isnan(value) || value <= static_cast<double>(INT_MIN) - 1.0
        || value >= static_cast<double>(INT_MAX) + 1.0) {
        SaturationReport::note(QStringLiteral("region of interest %1 %2 has no int value; %3 used")
                                   .arg(QLatin1String(axis)).arg(value).arg(INT_MIN));
        return INT_MIN;
    }
    return static_cast<int>(value);
}

} // namespace

void UI_Proc_KELMOR_Player_Desktop::setRegionOfInterest(QMap<QString, QVariant> record,
                                                        int x, int y, int width, int height)
{
    SaturationReport saturation("setRegionOfInterest");
    const int layerId = record.value(QStringLiteral("layerId")).toInt();
    const int bankId = record.value(QStringLiteral("bankId")).toInt();
    const ScreenKey key = screenKeyOf(record);

    ScenePlayer* scene = registry().getScenePlayer(bankId, layerId);
    if (!scene)
        return;
    // The inserting look-up: a screen number without a render object gets a
    // null entry, which the resize step cleans up later.
    QtAV::VideoRenderer* renderer = scene->rendererMap[key];
    if (!renderer)
        return;

    double sx = 1.0;
    double sy = 1.0;
    if (scaleRatio.size() >= 2) {
        sx = scaleRatio.at(0);
        sy = scaleRatio.at(1);
    } else if (scaleRatio.size() == 1) {
        // Only setScalOriginalRatio writes the ratio, always as a pair.
        sx = scaleRatio.at(0);
        qDebug() << "setRegionOfInterest: scale ratio has one element; vertical ratio taken as 1";
    }

    // Position is truncated to whole units, the size is kept exact.
    const double roiX = truncateToInt(x * sx, "x");
    const double roiY = truncateToInt(y * sy, "y");
    renderer->setRegionOfInterest(roiX, roiY, width * sx, height * sy);
}
