#include "OscEventFormat.h"

#include "EventHub.h"
#include "UI_Proc_KELMOR_Player_Desktop.h"

#include <QMetaMethod>
#include <cmath>
#include <nlohmann/json.hpp>

namespace {

char tagFor(int metaType)
{
    switch (metaType) {
    case QMetaType::Int:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
        return 'i';
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return 'h';
    case QMetaType::Float: return 'f';
    case QMetaType::Double: return 'd';
    case QMetaType::Bool: return 'T';
    default: return 's';
    }
}

OscArg argFromJson(const QJsonValue& value, char wanted)
{
    OscArg arg;
    switch (value.type()) {
    case QJsonValue::Bool:
        arg.type = value.toBool() ? 'T' : 'F';
        return arg;
    case QJsonValue::Double: {
        const double x = value.toDouble();
        const bool whole = std::isfinite(x) && std::trunc(x) == x && std::fabs(x) <= 9007199254740992.0;
        if (wanted == 'f' || wanted == 'd' || !whole) {
            arg.type = wanted == 'f' ? 'f' : 'd';
            arg.real = x;
        } else {
            const qint64 n = qint64(x);
            arg.type = (wanted == 'h' || n < INT32_MIN || n > INT32_MAX) ? 'h' : 'i';
            arg.integer = n;
        }
        return arg;
    }
    case QJsonValue::String:
        arg.type = 's';
        arg.text = value.toString().toUtf8();
        return arg;
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        arg.type = 'N';
        return arg;
    case QJsonValue::Array:
    case QJsonValue::Object:
        arg.type = 's';
        arg.text = JsonLine::encode(value);
        return arg;
    }
    arg.type = 'N';
    return arg;
}

/// A host line's field (read with nlohmann's ordered parser, which keeps the
/// printed order of the fields).
OscArg argFromHostField(const nlohmann::ordered_json& value)
{
    OscArg arg;
    if (value.is_boolean()) {
        arg.type = value.get<bool>() ? 'T' : 'F';
    } else if (value.is_number_integer() && !value.is_number_unsigned()) {
        const qint64 n = value.get<qint64>();
        arg.type = (n < INT32_MIN || n > INT32_MAX) ? 'h' : 'i';
        arg.integer = n;
    } else if (value.is_number()) {
        return argFromJson(QJsonValue(value.get<double>()), 0);
    } else if (value.is_string()) {
        arg.type = 's';
        arg.text = QByteArray::fromStdString(value.get<std::string>());
    } else if (value.is_null()) {
        arg.type = 'N';
    } else {
        arg.type = 's';
        arg.text = QByteArray::fromStdString(value.dump());
    }
    return arg;
}

} // namespace

OscEventFormat::OscEventFormat()
{
    const QMetaObject& meta = UI_Proc_KELMOR_Player_Desktop::staticMetaObject;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        if (method.methodType() != QMetaMethod::Signal)
            continue;
        QByteArray tags;
        for (int p = 0; p < method.parameterCount(); ++p)
            tags += tagFor(method.parameterType(p));
        m_types.insert(QString::fromLatin1(method.name()), tags);
    }
}

QByteArray OscEventFormat::eventPath(const QString& name)
{
    QByteArray path("/kelmor/event/");
    const QByteArray raw = name.toUtf8().left(128);
    for (char c : raw) {
        const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_'
                           || c == '.' || c == '-';
        path += plain ? c : '_';
    }
    if (raw.isEmpty())
        path += '_';
    return path;
}

OscMessage OscEventFormat::fromEvent(const ShowEvent& event) const
{
    OscMessage message;
    message.path = eventPath(event.name);
    const QByteArray tags = m_types.value(event.name);
    const auto& fields = event.args.fields();
    for (int i = 0; i < fields.size(); ++i)
        message.args.append(argFromJson(fields.at(i).second, i < tags.size() ? tags.at(i) : char(0)));
    return message;
}

bool OscEventFormat::fromHostLine(const QByteArray& line, OscMessage& out) const
{
    // Only host lines name a "host"; event lines are sent from the event itself.
    if (!line.contains("\"host\""))
        return false;
    const nlohmann::ordered_json object =
        nlohmann::ordered_json::parse(line.constData(), line.constData() + line.size(), nullptr, false);
    if (object.is_discarded() || !object.is_object() || object.contains("event"))
        return false;
    const auto host = object.find("host");
    if (host == object.end() || !host->is_string())
        return false;
    out = OscMessage();
    out.path = eventPath(QString::fromStdString(host->get<std::string>()));
    for (const auto& field : object.items()) {
        if (field.key() == "t" || field.key() == "host")
            continue;
        out.args.append(argFromHostField(field.value()));
    }
    return true;
}
