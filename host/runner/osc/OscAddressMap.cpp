#include "OscAddressMap.h"

#include "JsonLine.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <climits>
#include <cmath>

namespace {

constexpr qint64 kMaxExactInteger = qint64(1) << 53; // what a JSON number holds exactly
constexpr int kMaxIntervalMs = 3600000;

enum class Kind { Int, Int64, Number, Bool };

struct Param
{
    const char* name;
    Kind kind;
    bool optional;
};

const char* kindName(Kind kind)
{
    switch (kind) {
    case Kind::Int:
    case Kind::Int64: return "an integer";
    case Kind::Number: return "a number";
    case Kind::Bool: return "a boolean (T/F or a number)";
    }
    return "?";
}

/// Reads the arguments of `message` as `params`; on failure sets `problem`.
bool readArgs(const OscMessage& message, const QList<Param>& params, QList<QJsonValue>& values,
              QString& problem)
{
    const QString where = describeOscPath(message.path);
    int required = 0;
    for (const Param& p : params)
        required += p.optional ? 0 : 1;
    const int given = message.args.size();
    if (given < required || given > params.size()) {
        if (params.isEmpty()) {
            problem = QStringLiteral("%1 takes no arguments, got %2").arg(where).arg(given);
            return false;
        }
        QStringList names;
        for (const Param& p : params)
            names << (p.optional ? QStringLiteral("[%1]").arg(QLatin1String(p.name)) : QLatin1String(p.name));
        const QString count = required == params.size()
                                  ? QString::number(required)
                                  : QStringLiteral("%1 to %2").arg(required).arg(params.size());
        problem = QStringLiteral("%1 takes %2 argument%3 (%4), got %5")
                      .arg(where, count, params.size() == 1 ? QString() : QStringLiteral("s"),
                           names.join(QLatin1Char(' ')))
                      .arg(given);
        return false;
    }
    for (int i = 0; i < given; ++i) {
        const OscArg& arg = message.args.at(i);
        const Param& param = params.at(i);
        const QString bad = QStringLiteral("%1: argument %2 (%3) must be %4")
                                .arg(where)
                                .arg(i + 1)
                                .arg(QLatin1String(param.name), QLatin1String(kindName(param.kind)));
        switch (param.kind) {
        case Kind::Int:
        case Kind::Int64: {
            qint64 n = 0;
            if (arg.isInteger()) {
                n = arg.integer;
            } else if (arg.isReal() && std::isfinite(arg.real) && std::trunc(arg.real) == arg.real
                       && std::fabs(arg.real) <= double(kMaxExactInteger)) {
                n = qint64(arg.real);
            } else {
                problem = bad + QStringLiteral(", got type '%1'%2")
                                    .arg(QLatin1Char(arg.type))
                                    .arg(arg.isReal() ? QStringLiteral(" %1").arg(arg.real, 0, 'g', 17) : QString());
                return false;
            }
            const bool fits = param.kind == Kind::Int ? (n >= INT_MIN && n <= INT_MAX)
                                                      : (n >= -kMaxExactInteger && n <= kMaxExactInteger);
            if (!fits) {
                problem = bad + QStringLiteral(" in range, got %1").arg(n);
                return false;
            }
            values.append(QJsonValue(double(n)));
            break;
        }
        case Kind::Number: {
            const double x = arg.isInteger() ? double(arg.integer) : arg.real;
            if (!arg.isNumber() || !std::isfinite(x)) {
                problem = bad + QStringLiteral(", got type '%1'").arg(QLatin1Char(arg.type));
                return false;
            }
            values.append(QJsonValue(x));
            break;
        }
        case Kind::Bool: {
            if (arg.isBool()) {
                values.append(QJsonValue(arg.type == 'T'));
            } else if (arg.isInteger()) {
                values.append(QJsonValue(arg.integer != 0));
            } else if (arg.isReal() && !std::isnan(arg.real)) {
                values.append(QJsonValue(arg.real != 0.0));
            } else {
                problem = bad + QStringLiteral(", got type '%1'").arg(QLatin1Char(arg.type));
                return false;
            }
            break;
        }
        }
    }
    return true;
}

/// A bank or layer id in an address: decimal, within int range.
bool readId(const QByteArray& text, int& out)
{
    if (text.isEmpty() || text.size() > 11)
        return false;
    for (int i = 0; i < text.size(); ++i) {
        const char c = text.at(i);
        if (!(c >= '0' && c <= '9') && !(i == 0 && c == '-' && text.size() > 1))
            return false;
    }
    bool ok = false;
    const qlonglong n = text.toLongLong(&ok);
    if (!ok || n < INT_MIN || n > INT_MAX)
        return false;
    out = int(n);
    return true;
}

QByteArray stepText(const QString& op, const QJsonArray& args)
{
    JsonLine line;
    line.add(QStringLiteral("op"), op);
    line.add(QStringLiteral("args"), args);
    return line.toLine().trimmed();
}

OscRoute refused(const QString& problem)
{
    OscRoute route;
    route.kind = OscRoute::Kind::Refused;
    route.problem = problem;
    return route;
}

OscRoute step(const QByteArray& text)
{
    OscRoute route;
    route.kind = OscRoute::Kind::Step;
    route.step = text;
    return route;
}

OscRoute layerRoute(const OscMessage& message, int bank, int layer, const QByteArray& verb)
{
    const QJsonObject ref{{QStringLiteral("bank"), bank}, {QStringLiteral("layer"), layer}};
    QList<QJsonValue> v;
    QString problem;
    auto read = [&](const QList<Param>& params) { return readArgs(message, params, v, problem); };

    if (verb == "play" || verb == "pause" || verb == "stop") {
        if (!read({}))
            return refused(problem);
        return step(stepText(QString::fromLatin1(verb), {ref}));
    }
    if (verb == "ready") {
        if (!read({{"ms", Kind::Int64, true}, {"paused", Kind::Bool, true}}))
            return refused(problem);
        return step(stepText(QStringLiteral("playReady"),
                             {ref, v.value(0, QJsonValue(0)), v.value(1, QJsonValue(true))}));
    }
    if (verb == "seek") {
        if (!read({{"ms", Kind::Int64, false}}))
            return refused(problem);
        return step(stepText(QStringLiteral("setPosition"), {bank, layer, v.at(0)}));
    }
    if (verb == "volume") {
        if (!read({{"percent", Kind::Number, false}}))
            return refused(problem);
        const QJsonObject record{{QStringLiteral("effectType"), 7603}, {QStringLiteral("volume"), v.at(0)}};
        return step(stepText(QStringLiteral("setVolumeState"), {layer, bank, record}));
    }
    if (verb == "fadein" || verb == "fadeout") {
        if (!read({{"ms", Kind::Int, false}}))
            return refused(problem);
        return step(stepText(QStringLiteral("setFadeInOut"), {ref, verb == "fadeout", v.at(0)}));
    }
    if (verb == "repeat") {
        if (!read({{"count", Kind::Int, false}}))
            return refused(problem);
        return step(stepText(QStringLiteral("setRepeat"), {ref, v.at(0)}));
    }
    if (verb == "opacity") {
        if (!read({{"opacity", Kind::Number, false}}))
            return refused(problem);
        const QJsonObject record{{QStringLiteral("bankId"), bank}, {QStringLiteral("opacity"), v.at(0)}};
        return step(stepText(QStringLiteral("setEffectsObj"), {layer, record}));
    }
    if (verb == "visible") {
        if (!read({{"visible", Kind::Bool, false}}))
            return refused(problem);
        return step(stepText(QStringLiteral("setWidgetRenderVisible"), {ref, v.at(0)}));
    }
    return refused(QStringLiteral("unknown address %1").arg(describeOscPath(message.path)));
}

OscRoute bankRoute(const OscMessage& message, int bank, const QByteArray& verb)
{
    QList<QJsonValue> v;
    QString problem;
    JsonLine line;
    if (verb == "ready") {
        if (!readArgs(message, {{"ms", Kind::Int64, true}}, v, problem))
            return refused(problem);
        line.add(QStringLiteral("op"), QStringLiteral("readyBank"));
        line.add(QStringLiteral("bank"), bank);
        line.add(QStringLiteral("ms"), v.value(0, QJsonValue(0)));
        return step(line.toLine().trimmed());
    }
    if (verb == "play" || verb == "stop") {
        if (!readArgs(message, {}, v, problem))
            return refused(problem);
        line.add(QStringLiteral("op"), verb == "play" ? QStringLiteral("playBank") : QStringLiteral("stopBank"));
        line.add(QStringLiteral("bank"), bank);
        return step(line.toLine().trimmed());
    }
    return refused(QStringLiteral("unknown address %1").arg(describeOscPath(message.path)));
}

OscRoute subscription(const OscMessage& message, bool subscribe)
{
    QList<QJsonValue> v;
    QString problem;
    const QList<Param> params = subscribe ? QList<Param>{{"port", Kind::Int, true}, {"intervalMs", Kind::Int, true}}
                                          : QList<Param>{{"port", Kind::Int, true}};
    if (!readArgs(message, params, v, problem))
        return refused(problem);
    OscRoute route;
    route.kind = subscribe ? OscRoute::Kind::Subscribe : OscRoute::Kind::Unsubscribe;
    route.port = v.value(0, QJsonValue(0)).toInt();
    route.intervalMs = v.value(1, QJsonValue(-1)).toInt();
    if (route.port < 0 || route.port > 65535)
        return refused(QStringLiteral("%1: port %2 out of range (0 to 65535; 0: the sender's own)")
                           .arg(describeOscPath(message.path))
                           .arg(route.port));
    if (subscribe && v.size() > 1 && (route.intervalMs < 0 || route.intervalMs > kMaxIntervalMs))
        return refused(QStringLiteral("%1: intervalMs %2 out of range (0 to %3)")
                           .arg(describeOscPath(message.path))
                           .arg(route.intervalMs)
                           .arg(kMaxIntervalMs));
    return route;
}

} // namespace

QString describeOscPath(const QByteArray& path)
{
    QString text = QString::fromUtf8(path.left(128));
    if (path.size() > 128)
        text += QStringLiteral("...");
    return text;
}

OscRoute routeOscMessage(const OscMessage& message)
{
    const QList<QByteArray> parts = message.path.split('/');
    // "/kelmor/x" splits into "", "kelmor", "x".
    const QString unknown = QStringLiteral("unknown address %1").arg(describeOscPath(message.path));
    if (parts.size() < 3 || !parts.at(0).isEmpty() || parts.at(1) != "kelmor")
        return refused(unknown);

    const QByteArray& area = parts.at(2);
    if (parts.size() == 3 && area == "step") {
        if (message.args.size() != 1 || !message.args.at(0).isString())
            return refused(QStringLiteral("%1 takes 1 string (a JSON show step), got types '%2'")
                               .arg(describeOscPath(message.path), QString::fromLatin1(message.types())));
        return step(message.args.at(0).text);
    }
    if (parts.size() == 3 && (area == "subscribe" || area == "unsubscribe"))
        return subscription(message, area == "subscribe");

    int bank = 0;
    int layer = 0;
    if (area == "layer" && parts.size() == 6 && readId(parts.at(3), bank) && readId(parts.at(4), layer))
        return layerRoute(message, bank, layer, parts.at(5));
    if (area == "bank" && parts.size() == 5 && readId(parts.at(3), bank))
        return bankRoute(message, bank, parts.at(4));
    return refused(unknown);
}
