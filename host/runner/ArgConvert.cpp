#include "ArgConvert.h"

#include "JsonLine.h"

#include "AVPlayer.h"
#include "ScenePlayer.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointF>
#include <QSet>
#include <cfloat>
#include <climits>
#include <cmath>

namespace argconv {
namespace {

constexpr double kMaxExactInteger = 9007199254740992.0; // 2^53

/// Record keys the module reads as int: a number there must be an integer
/// in range, or the module would silently read 0 or a wrapped value.
const QSet<QString>& intRecordKeys()
{
    static const QSet<QString> keys = {
        QStringLiteral("bankId"),        QStringLiteral("layerId"),
        QStringLiteral("groupID"),       QStringLiteral("screenId"),
        QStringLiteral("screenType"),    QStringLiteral("frameX"),
        QStringLiteral("frameY"),        QStringLiteral("rendererX"),
        QStringLiteral("rendererY"),     QStringLiteral("crossWidth"),
        QStringLiteral("crossHeight"),   QStringLiteral("originalWidth"),
        QStringLiteral("originalHeight"), QStringLiteral("actualWidth"),
        QStringLiteral("actualHeight"),  QStringLiteral("relativeX"),
        QStringLiteral("relativeY"),     QStringLiteral("row"),
        QStringLiteral("col"),           QStringLiteral("effectType"),
        QStringLiteral("soundTrack"),
    };
    return keys;
}

/// Record keys the module reads as qint64.
const QSet<QString>& int64RecordKeys()
{
    static const QSet<QString> keys = {QStringLiteral("timeLenMsec")};
    return keys;
}

QString kindOf(const QJsonValue& value)
{
    switch (value.type()) {
    case QJsonValue::Null: return QStringLiteral("null");
    case QJsonValue::Bool: return QStringLiteral("a boolean");
    case QJsonValue::Double: return QStringLiteral("the number ") + describe(value);
    case QJsonValue::String: return QStringLiteral("a string");
    case QJsonValue::Array: return QStringLiteral("an array");
    case QJsonValue::Object: return QStringLiteral("an object");
    case QJsonValue::Undefined: break;
    }
    return QStringLiteral("nothing");
}

bool isPointObject(const QJsonObject& object)
{
    return object.size() == 2 && object.value(QLatin1String("x")).isDouble()
        && object.value(QLatin1String("y")).isDouble();
}

QVariant numberToVariant(double d)
{
    if (std::isfinite(d) && std::floor(d) == d) {
        if (d >= INT_MIN && d <= INT_MAX)
            return QVariant(static_cast<int>(d));
        if (std::fabs(d) <= kMaxExactInteger)
            return QVariant(static_cast<qlonglong>(d));
    }
    return QVariant(d);
}

bool convertValue(const QString& key, const QJsonValue& value, QVariant& out, QString& why,
                  int depth);

bool convertObject(const QJsonObject& object, QVariantMap& out, QString& why, int depth)
{
    for (auto it = object.begin(); it != object.end(); ++it) {
        const QString& key = it.key();
        QString inner;
        if (intRecordKeys().contains(key)) {
            int checked = 0;
            if (!toInt(it.value(), checked, inner)) {
                why = QStringLiteral("record key \"%1\": %2").arg(key, inner);
                return false;
            }
        } else if (int64RecordKeys().contains(key)) {
            qint64 checked = 0;
            if (!toInt64(it.value(), checked, inner)) {
                why = QStringLiteral("record key \"%1\": %2").arg(key, inner);
                return false;
            }
        }
        QVariant converted;
        if (!convertValue(key, it.value(), converted, why, depth + 1))
            return false;
        out.insert(key, converted);
    }
    return true;
}

bool convertValue(const QString& key, const QJsonValue& value, QVariant& out, QString& why,
                  int depth)
{
    Q_UNUSED(key)
    if (depth > 64) {
        why = QStringLiteral("record nested too deeply");
        return false;
    }
    switch (value.type()) {
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        out = QVariant();
        return true;
    case QJsonValue::Bool:
        out = value.toBool();
        return true;
    case QJsonValue::Double: {
        const double d = value.toDouble();
        if (!std::isfinite(d)) {
            why = QStringLiteral("record holds a number out of range");
            return false;
        }
        out = numberToVariant(d);
        return true;
    }
    case QJsonValue::String:
        out = value.toString();
        return true;
    case QJsonValue::Array: {
        QVariantList list;
        const QJsonArray array = value.toArray();
        list.reserve(array.size());
        for (const QJsonValue& element : array) {
            QVariant converted;
            if (!convertValue(QString(), element, converted, why, depth + 1))
                return false;
            list.append(converted);
        }
        out = list;
        return true;
    }
    case QJsonValue::Object: {
        const QJsonObject object = value.toObject();
        if (isPointObject(object)) {
            out = QPointF(object.value(QLatin1String("x")).toDouble(),
                          object.value(QLatin1String("y")).toDouble());
            return true;
        }
        QVariantMap map;
        if (!convertObject(object, map, why, depth))
            return false;
        out = map;
        return true;
    }
    }
    return true;
}

} // namespace

QString describe(const QJsonValue& value)
{
    if (!value.isDouble())
        return QString::fromUtf8(JsonLine::encode(value));
    const double d = value.toDouble();
    if (std::isfinite(d) && std::floor(d) == d && std::fabs(d) < 1e18)
        return QString::number(static_cast<qlonglong>(d));
    return QString::number(d, 'g', 17);
}

bool toInt(const QJsonValue& value, int& out, QString& why)
{
    if (!value.isDouble()) {
        why = QStringLiteral("expected an integer, got %1").arg(kindOf(value));
        return false;
    }
    const double d = value.toDouble();
    if (!std::isfinite(d) || std::floor(d) != d) {
        why = QStringLiteral("expected an integer, got %1").arg(describe(value));
        return false;
    }
    if (d < INT_MIN || d > INT_MAX) {
        why = QStringLiteral("%1 is out of int range").arg(describe(value));
        return false;
    }
    out = static_cast<int>(d);
    return true;
}

bool toInt64(const QJsonValue& value, qint64& out, QString& why)
{
    if (!value.isDouble()) {
        why = QStringLiteral("expected an integer, got %1").arg(kindOf(value));
        return false;
    }
    const double d = value.toDouble();
    if (!std::isfinite(d) || std::floor(d) != d) {
        why = QStringLiteral("expected an integer, got %1").arg(describe(value));
        return false;
    }
    if (std::fabs(d) > kMaxExactInteger) {
        why = QStringLiteral("%1 is out of range (at most 2^53)").arg(describe(value));
        return false;
    }
    out = static_cast<qint64>(d);
    return true;
}

bool toDouble(const QJsonValue& value, double& out, QString& why)
{
    if (!value.isDouble() || !std::isfinite(value.toDouble())) {
        why = QStringLiteral("expected a number, got %1").arg(kindOf(value));
        return false;
    }
    out = value.toDouble();
    return true;
}

bool toFloat(const QJsonValue& value, float& out, QString& why)
{
    double d = 0.0;
    if (!toDouble(value, d, why))
        return false;
    if (std::fabs(d) > FLT_MAX) {
        why = QStringLiteral("%1 is out of float range").arg(describe(value));
        return false;
    }
    out = static_cast<float>(d);
    return true;
}

bool toBool(const QJsonValue& value, bool& out, QString& why)
{
    if (!value.isBool()) {
        why = QStringLiteral("expected true or false, got %1").arg(kindOf(value));
        return false;
    }
    out = value.toBool();
    return true;
}

bool toString(const QJsonValue& value, QString& out, QString& why)
{
    if (!value.isString()) {
        why = QStringLiteral("expected a string, got %1").arg(kindOf(value));
        return false;
    }
    out = value.toString();
    return true;
}

bool toRecord(const QJsonValue& value, QMap<QString, QVariant>& out, QString& why)
{
    if (!value.isObject()) {
        why = QStringLiteral("expected a record (JSON object), got %1").arg(kindOf(value));
        return false;
    }
    QVariantMap map;
    if (!convertObject(value.toObject(), map, why, 0))
        return false;
    out = map;
    return true;
}

bool toLayerRef(const QJsonValue& value, int& bankId, int& layerId, QString& why)
{
    const QJsonObject ref = value.toObject();
    if (!value.isObject() || ref.size() != 2 || !ref.contains(QLatin1String("bank"))
        || !ref.contains(QLatin1String("layer"))) {
        why = QStringLiteral("expected a layer {\"bank\": b, \"layer\": l}, got %1").arg(kindOf(value));
        return false;
    }
    QString inner;
    if (!toInt(ref.value(QLatin1String("bank")), bankId, inner)) {
        why = QStringLiteral("bank: ") + inner;
        return false;
    }
    if (!toInt(ref.value(QLatin1String("layer")), layerId, inner)) {
        why = QStringLiteral("layer: ") + inner;
        return false;
    }
    return true;
}

bool toPlayer(const QJsonValue& value, QtAV::AVPlayer*& out, QString& why)
{
    if (value.isNull()) {
        out = nullptr;
        return true;
    }
    int bankId = 0;
    int layerId = 0;
    if (!toLayerRef(value, bankId, layerId, why))
        return false;
    out = UI_Proc_KELMOR_PlayersManage_Desktop::getInstance().getplayerByID(layerId, bankId);
    if (!out) {
        why = QStringLiteral("no layer %1 in bank %2").arg(layerId).arg(bankId);
        return false;
    }
    return true;
}

bool toTimer(const QJsonValue& value, UI_Proc_KELMOR_PlayerTimer_Desktop*& out, QString& why)
{
    int bankId = 0;
    int layerId = 0;
    if (!toLayerRef(value, bankId, layerId, why))
        return false;
    ScenePlayer* scene =
        UI_Proc_KELMOR_PlayersManage_Desktop::getInstance().getScenePlayer(bankId, layerId);
    if (!scene || !scene->playerTimer) {
        why = QStringLiteral("no timer for layer %1 in bank %2").arg(layerId).arg(bankId);
        return false;
    }
    out = scene->playerTimer;
    return true;
}

QJsonValue playerToJson(const QObject* object)
{
    if (!object)
        return QJsonValue(QJsonValue::Null);
    auto* player = qobject_cast<QtAV::AVPlayer*>(const_cast<QObject*>(object));
    auto& registry = UI_Proc_KELMOR_PlayersManage_Desktop::getInstance();
    ScenePlayer* scene = player ? registry.getScenePlayer(player) : nullptr;
    if (!scene)
        return QJsonObject{{QStringLiteral("unfiled"), true}};
    return QJsonObject{{QStringLiteral("bank"), registry.getBankIdRelyPlayer(player)},
                       {QStringLiteral("layer"), scene->layerId}};
}

QJsonValue playerToJson(const QtAV::AVPlayer* player)
{
    return playerToJson(static_cast<const QObject*>(player));
}

QJsonValue scenePlayerToJson(const ScenePlayer* scene)
{
    if (!scene)
        return QJsonValue(QJsonValue::Null);
    QJsonArray screens;
    for (auto it = scene->rendererMap.cbegin(); it != scene->rendererMap.cend(); ++it) {
        if (it.value())
            screens.append(it.key().screenId);
    }
    return QJsonObject{{QStringLiteral("layerId"), scene->layerId},
                       {QStringLiteral("groupId"), scene->groupId},
                       {QStringLiteral("screens"), screens},
                       {QStringLiteral("player"), playerToJson(scene->player)}};
}

QJsonValue variantToJson(const QVariant& value)
{
    if (value.userType() == QMetaType::QPointF || value.userType() == QMetaType::QPoint) {
        const QPointF p = value.toPointF();
        return QJsonObject{{QStringLiteral("x"), p.x()}, {QStringLiteral("y"), p.y()}};
    }
    if (value.userType() == QMetaType::QVariantMap) {
        QJsonObject object;
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            object.insert(it.key(), variantToJson(it.value()));
        return object;
    }
    if (value.userType() == QMetaType::QVariantList) {
        QJsonArray array;
        for (const QVariant& element : value.toList())
            array.append(variantToJson(element));
        return array;
    }
    return QJsonValue::fromVariant(value);
}

} // namespace argconv
