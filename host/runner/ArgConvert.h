// Conversions between the JSON of a show step and the C++ values of the
// module's operations: one converter per argument kind, shared by every
// operation and by the host steps' fields. Each returns false and says why
// (`why`, a short phrase for the error line) when the value does not fit.
//
// Threading: GUI thread (player and timer look-ups go through the registry).
#pragma once

#include <QJsonValue>
#include <QMap>
#include <QString>
#include <QVariant>

class QObject;
class ScenePlayer;
class UI_Proc_KELMOR_PlayerTimer_Desktop;
namespace QtAV { class AVPlayer; }

namespace argconv {

/// An integral JSON number within the 32-bit int range.
bool toInt(const QJsonValue& value, int& out, QString& why);
/// An integral JSON number that a double holds exactly (|n| <= 2^53).
bool toInt64(const QJsonValue& value, qint64& out, QString& why);
/// A finite JSON number.
bool toDouble(const QJsonValue& value, double& out, QString& why);
/// A finite JSON number within the float range.
bool toFloat(const QJsonValue& value, float& out, QString& why);
bool toBool(const QJsonValue& value, bool& out, QString& why);
bool toString(const QJsonValue& value, QString& out, QString& why);

/// A JSON object as a command record: numbers become int where they are
/// integral and fit (else qint64, else double), arrays lists, objects maps,
/// and an object of exactly {"x": number, "y": number} a point (QPointF),
/// which is how corner keys such as "lTPoint" are written. Keys the module
/// reads as integers (ids and geometry) must hold integers in range.
bool toRecord(const QJsonValue& value, QMap<QString, QVariant>& out, QString& why);

/// A layer reference {"bank": b, "layer": l} resolved to the layer's media
/// player through the registry; JSON null passes a null player.
bool toPlayer(const QJsonValue& value, QtAV::AVPlayer*& out, QString& why);
/// A layer reference resolved to the layer's timed-item timer.
bool toTimer(const QJsonValue& value, UI_Proc_KELMOR_PlayerTimer_Desktop*& out, QString& why);

/// Reads {"bank": b, "layer": l}.
bool toLayerRef(const QJsonValue& value, int& bankId, int& layerId, QString& why);

// Results of queries.
/// A player (or any object the registry files as one) as its layer
/// reference {"bank", "layer"}; null when null; {"unfiled": true} when the
/// registry does not know it.
QJsonValue playerToJson(const QObject* player);
QJsonValue playerToJson(const QtAV::AVPlayer* player);
/// A scene player as {"layerId", "groupId", "screens": [ids], "player": ref}.
QJsonValue scenePlayerToJson(const ScenePlayer* scene);
/// A module value (record, list, number, string, point) as JSON.
QJsonValue variantToJson(const QVariant& value);

/// A number as it appears in an error line (integers without exponent).
QString describe(const QJsonValue& value);

} // namespace argconv
