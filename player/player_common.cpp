// Helpers shared by the service's source files.
#include "player_internal.h"

#include "AVPlayer.h"
#include "NoxOpenGLRender.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QDebug>
#include <cstring>

namespace kelmor {

UI_Proc_KELMOR_PlayersManage_Desktop& registry()
{
    return UI_Proc_KELMOR_PlayersManage_Desktop::getInstance();
}

bool rendererNamed(const QtAV::VideoRenderer* renderer, const char* name)
{
    if (!renderer)
        return false;
    const char* own = QtAV::VideoRenderer::name(renderer->id());
    return own && std::strcmp(own, name) == 0;
}

QList<QtAV::NoxOpenGLRender*> renderObjectsOf(const QtAV::AVPlayer* player)
{
    QList<QtAV::NoxOpenGLRender*> result;
    if (!player)
        return result;
    for (QtAV::VideoRenderer* output : player->videoOutputs()) {
        if (rendererNamed(output, kNoxGL))
            if (auto* render = dynamic_cast<QtAV::NoxOpenGLRender*>(output))
                result.append(render);
    }
    return result;
}

bool isClockMedia(const QString& type)
{
    return type == QLatin1String("video") || type == QLatin1String("audio");
}

bool ignoreNullPlayer(const QtAV::AVPlayer* player, const char* command)
{
    if (player)
        return false;
    qDebug() << command << "ignored: null player";
    return true;
}

ScreenKey screenKeyOf(const QMap<QString, QVariant>& record)
{
    return ScreenKey(record.value(QStringLiteral("screenId")).toInt(),
                     record.value(QStringLiteral("screenType")).toInt(),
                     record.value(QStringLiteral("clientGuid")).toString());
}

QMap<QString, QVariant> screenRecordOf(const ScreenKey& key)
{
    QMap<QString, QVariant> record;
    record.insert(QStringLiteral("screenId"), key.screenId);
    record.insert(QStringLiteral("screenType"), key.screenType);
    record.insert(QStringLiteral("clientGuid"), key.clientGuid);
    return record;
}

} // namespace kelmor

// ---- Renderer geometry ----
namespace kelmor {
namespace {

using GeometryReader = void (*)(RendererGeometry&, const QVariant&);

struct GeometryField
{
    const char* key;
    GeometryReader read;
};

// One entry per geometry key, with the conversion the key is read with.
const GeometryField kGeometryFields[] = {
    {"bankId", [](RendererGeometry& g, const QVariant& v) { g.bankId = v.toInt(); }},
    {"layerId", [](RendererGeometry& g, const QVariant& v) { g.layerId = v.toInt(); }},
    {"screenId", [](RendererGeometry& g, const QVariant& v) { g.screen.screenId = v.toInt(); }},
    {"screenType", [](RendererGeometry& g, const QVariant& v) { g.screen.screenType = v.toInt(); }},
    {"clientGuid", [](RendererGeometry& g, const QVariant& v) { g.screen.clientGuid = v.toString(); }},
    {"frameX", [](RendererGeometry& g, const QVariant& v) { g.frameX = v.toInt(); }},
    {"frameY", [](RendererGeometry& g, const QVariant& v) { g.frameY = v.toInt(); }},
    {"rendererX", [](RendererGeometry& g, const QVariant& v) { g.rendererX = v.toInt(); }},
    {"rendererY", [](RendererGeometry& g, const QVariant& v) { g.rendererY = v.toInt(); }},
    {"crossWidth", [](RendererGeometry& g, const QVariant& v) { g.crossWidth = v.toInt(); }},
    {"crossHeight", [](RendererGeometry& g, const QVariant& v) { g.crossHeight = v.toInt(); }},
    {"originalWidth", [](RendererGeometry& g, const QVariant& v) { g.originalWidth = v.toInt(); }},
    {"originalHeight", [](RendererGeometry& g, const QVariant& v) { g.originalHeight = v.toInt(); }},
    {"actualWidth", [](RendererGeometry& g, const QVariant& v) { g.actualWidth = v.toInt(); }},
    {"actualHeight", [](RendererGeometry& g, const QVariant& v) { g.actualHeight = v.toInt(); }},
    {"relativeX", [](RendererGeometry& g, const QVariant& v) { g.relativeX = v.toInt(); }},
    {"relativeY", [](RendererGeometry& g, const QVariant& v) { g.relativeY = v.toInt(); }},
    {"layerRotation", [](RendererGeometry& g, const QVariant& v) { g.layerRotation = v.toFloat(); }},
    {"isScal", [](RendererGeometry& g, const QVariant& v) { g.isScal = v.toBool(); }},
    {"isRotation", [](RendererGeometry& g, const QVariant& v) { g.isRotation = v.toBool(); }},
    {"isFill", [](RendererGeometry& g, const QVariant& v) { g.isFill = v.toBool(); }},
    {"isOutArea", [](RendererGeometry& g, const QVariant& v) { g.isOutArea = v.toBool(); }},
    {"isBezier", [](RendererGeometry& g, const QVariant& v) { g.isBezier = v.toBool(); }},
};

} // namespace

RendererGeometry readRendererGeometry(const QMap<QString, QVariant>& record,
                                      std::initializer_list<const char*> keysInOrder)
{
    RendererGeometry geometry;
    for (const char* key : keysInOrder) {
        const GeometryField* field = nullptr;
        for (const GeometryField& candidate : kGeometryFields) {
            if (std::strcmp(candidate.key, key) == 0) {
                field = &candidate;
                break;
            }
        }
        if (!field) {
            qDebug() << "readRendererGeometry: not a geometry key:" << key;
            continue;
        }
        field->read(geometry, record.value(QLatin1String(key)));
    }
    return geometry;
}

QtAV::NoxOpenGLRender* asRenderObject(QtAV::VideoRenderer* renderer)
{
    return dynamic_cast<QtAV::NoxOpenGLRender*>(renderer);
}

} // namespace kelmor

// ---- Playback control ----
#include "ScenePlayer.h"

#include <cmath>
#include <limits>

namespace kelmor {

UI_Proc_KELMOR_PlayerTimer_Desktop* timedItemTimer(QtAV::AVPlayer* player)
{
    if (!player || isClockMedia(player->getMediaType()))
        return nullptr;
    ScenePlayer* scene = registry().getScenePlayer(player);
    return scene ? scene->playerTimer : nullptr;
}

bool isNdiMedia(const QtAV::AVPlayer* player)
{
    return player && player->getMediaType() == QLatin1String("ndi");
}

qint64 truncatedMsec(float value)
{
    if (std::isnan(value))
        return 0;
    constexpr float kTwoTo63 = 9223372036854775808.0f; // exact as a float
    if (value >= kTwoTo63)
        return std::numeric_limits<qint64>::max();
    if (value < -kTwoTo63)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(value);
}

} // namespace kelmor
