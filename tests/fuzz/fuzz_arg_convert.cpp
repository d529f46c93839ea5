// Fuzz target: a JSON value (as a show step's argument would carry it)
// through every argument converter, command records included, and the
// records back to JSON. Converters either accept and return a value or
// refuse with a reason; nothing may crash or hang.
#include "ArgConvert.h"
#include "JsonValidation.h"

#include "AVPlayer.h"
#include "UI_Proc_KELMOR_PlayerTimer_Desktop.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstddef>
#include <cstdint>

namespace {

void convertAll(const QJsonValue& value)
{
    QString why;
    int i = 0;
    qint64 i64 = 0;
    double d = 0;
    float f = 0;
    bool b = false;
    QString s;
    if (!argconv::toInt(value, i, why) && why.isEmpty())
        __builtin_trap();
    why.clear();
    if (!argconv::toInt64(value, i64, why) && why.isEmpty())
        __builtin_trap();
    why.clear();
    argconv::toDouble(value, d, why);
    argconv::toFloat(value, f, why);
    argconv::toBool(value, b, why);
    argconv::toString(value, s, why);
    int bank = 0, layer = 0;
    argconv::toLayerRef(value, bank, layer, why);
    // No layer exists here: references resolve to nothing or are refused.
    QtAV::AVPlayer* player = nullptr;
    UI_Proc_KELMOR_PlayerTimer_Desktop* timer = nullptr;
    argconv::toPlayer(value, player, why);
    argconv::toTimer(value, timer, why);
    argconv::describe(value);

    QMap<QString, QVariant> record;
    why.clear();
    if (argconv::toRecord(value, record, why)) {
        // Back to JSON, as query results are written.
        const QJsonValue back = argconv::variantToJson(QVariant(record));
        if (!back.isObject())
            __builtin_trap();
    } else if (why.isEmpty()) {
        __builtin_trap();
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    static QCoreApplication app(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 64 * 1024)
        return 0;
    const QByteArray text(reinterpret_cast<const char*>(data), static_cast<int>(size));
    // Wrapped in an array so that bare numbers and strings are values too;
    // checked first, as the runner checks every step's text, so that only
    // JSON the runner accepts reaches the converters.
    const QByteArray wrapped = "[" + text + "]";
    QString problem;
    if (!validateStepJson(wrapped, problem))
        return 0;
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(wrapped, &error);
    if (error.error != QJsonParseError::NoError || !doc.isArray())
        return 0;
    for (const QJsonValue& value : doc.array())
        convertAll(value);
    return 0;
}
