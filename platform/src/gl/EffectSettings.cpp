// Parsing of layer and screen effect records, and the soft-edge ramp.
// See EffectSettings.h for the keys and rules.
#include "gl/EffectSettings.h"

#include <QDebug>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace kelmor {
namespace gl {

namespace {

/// A numeric key: where it goes and its allowed range.
struct NumberKey
{
    const char* key;
    float* target;
    double min, max;
};

bool isIdentityKey(const QString& key)
{
    return key == QLatin1String("bankId") || key == QLatin1String("layerId") || key == QLatin1String("screenId")
        || key == QLatin1String("screenType") || key == QLatin1String("clientGuid");
}

void logIgnored(const QString& key, const QString& why, const char* kind)
{
    qDebug().noquote() << QStringLiteral("effects: %1 ignored: %2 (%3 record)").arg(key, why, QLatin1String(kind));
}

QString describe(const QVariant& value)
{
    if (!value.isValid())
        return QStringLiteral("no value");
    return QStringLiteral("%1 \"%2\"").arg(QLatin1String(value.typeName()), value.toString());
}

/// Stores `value` into `k.target` when it is a finite number, clamped to the
/// key's range; logs what it ignores or clamps.
void readNumber(const NumberKey& k, const QVariant& value, const char* kind)
{
    bool ok = false;
    const double v = value.canConvert<double>() ? value.toDouble(&ok) : 0.0;
    const QString key = QLatin1String(k.key);
    if (!ok) {
        logIgnored(key, QStringLiteral("not a number: %1").arg(describe(value)), kind);
        return;
    }
    if (!std::isfinite(v)) {
        logIgnored(key, QStringLiteral("not finite: %1").arg(v), kind);
        return;
    }
    const double clamped = std::min(std::max(v, k.min), k.max);
    if (clamped != v)
        qDebug().noquote() << QStringLiteral("effects: %1 clamped: %2 -> %3 (%4 record)")
                                  .arg(key).arg(v).arg(clamped).arg(QLatin1String(kind));
    *k.target = float(clamped);
}

/// Reads a boolean; false when `value` is not one (and logs it).
bool readBool(const QString& key, const QVariant& value, bool* target, const char* kind)
{
    if (value.type() == QVariant::Bool) {
        *target = value.toBool();
        return true;
    }
    if (value.type() == QVariant::String || value.type() == QVariant::ByteArray) {
        const QString s = value.toString().trimmed().toLower();
        static const QStringList yes{"true", "yes", "on", "1"}, no{"false", "no", "off", "0"};
        if (yes.contains(s) || no.contains(s)) {
            *target = yes.contains(s);
            return true;
        }
        logIgnored(key, QStringLiteral("not a boolean: %1").arg(describe(value)), kind);
        return false;
    }
    bool ok = false;
    const double v = value.canConvert<double>() ? value.toDouble(&ok) : 0.0;
    if (!ok || !std::isfinite(v)) {
        logIgnored(key, QStringLiteral("not a boolean: %1").arg(describe(value)), kind);
        return false;
    }
    *target = v != 0.0;
    return true;
}

/// Walks a record: numeric keys go through readNumber, `boolKey` (if any)
/// through readBool, identity keys are skipped, everything else is logged.
void parseRecord(const QMap<QString, QVariant>& record, const NumberKey* keys, int keyCount,
                 const char* boolKey, bool* boolTarget, const char* kind)
{
    for (auto it = record.constBegin(); it != record.constEnd(); ++it) {
        const NumberKey* match = std::find_if(keys, keys + keyCount,
                                              [&](const NumberKey& k) { return it.key() == QLatin1String(k.key); });
        if (match != keys + keyCount)
            readNumber(*match, it.value(), kind);
        else if (boolKey && it.key() == QLatin1String(boolKey))
            readBool(it.key(), it.value(), boolTarget, kind);
        else if (!isIdentityKey(it.key()))
            logIgnored(it.key(), QStringLiteral("unknown key"), kind);
    }
}

float sanitised(float value, float fallback)
{
    if (!std::isfinite(value))
        return fallback;
    return std::min(std::max(value, 0.1f), 10.0f);
}

} // namespace

bool LayerEffects::isNeutral() const
{
    return opacity == 1.0f && brightness == 0.0f && contrast == 1.0f && saturation == 1.0f && gamma == 1.0f;
}

bool ScreenEffects::hasBlend() const
{
    return blendLeft > 0.0f || blendRight > 0.0f || blendTop > 0.0f || blendBottom > 0.0f;
}

bool ScreenEffects::isNeutral() const
{
    return !hasBlend() && brightness == 0.0f && contrast == 1.0f && !testPattern;
}

LayerEffects parseLayerEffects(const QMap<QString, QVariant>& record)
{
    LayerEffects e;
    const NumberKey keys[] = {
        {"opacity", &e.opacity, 0.0, 1.0},       {"brightness", &e.brightness, -1.0, 1.0},
        {"contrast", &e.contrast, 0.0, 4.0},     {"saturation", &e.saturation, 0.0, 4.0},
        {"gamma", &e.gamma, 0.1, 10.0},
    };
    parseRecord(record, keys, int(std::size(keys)), nullptr, nullptr, "layer");
    return e;
}

ScreenEffects parseScreenEffects(const QMap<QString, QVariant>& record)
{
    ScreenEffects e;
    const NumberKey keys[] = {
        {"blendLeft", &e.blendLeft, 0.0, 1e6},     {"blendRight", &e.blendRight, 0.0, 1e6},
        {"blendTop", &e.blendTop, 0.0, 1e6},       {"blendBottom", &e.blendBottom, 0.0, 1e6},
        {"blendCurve", &e.blendCurve, 0.1, 10.0},  {"blendGamma", &e.blendGamma, 0.1, 10.0},
        {"brightness", &e.brightness, -1.0, 1.0},  {"contrast", &e.contrast, 0.0, 4.0},
    };
    parseRecord(record, keys, int(std::size(keys)), "testPattern", &e.testPattern, "screen");
    return e;
}

float edgeBlendFactor(float t, float curve, float gamma)
{
    if (!(t > 0.0f))
        return 0.0f;
    if (t >= 1.0f)
        return 1.0f;
    const double c = sanitised(curve, 2.0f);
    const double g = sanitised(gamma, 2.2f);
    const double f = t < 0.5f ? 0.5 * std::pow(2.0 * t, c) : 1.0 - 0.5 * std::pow(2.0 * (1.0 - t), c);
    return float(std::pow(f, 1.0 / g));
}

QVector<float> edgeBlendTable(float curve, float gamma)
{
    QVector<float> table(256);
    for (int k = 0; k < 256; ++k)
        table[k] = edgeBlendFactor(float(k) / 255.0f, curve, gamma);
    return table;
}

} // namespace gl
} // namespace kelmor
