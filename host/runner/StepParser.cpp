#include "StepParser.h"

#include "JsonValidation.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>

namespace {

bool expandValue(QJsonValue& value, const QMap<QString, QString>& variables, QString& problem)
{
    if (value.isString()) {
        const QString text = value.toString();
        if (!text.contains(QLatin1Char('$')))
            return true;
        QString expanded;
        if (!expandVariables(text, variables, expanded, problem))
            return false;
        value = expanded;
        return true;
    }
    if (value.isArray()) {
        QJsonArray array = value.toArray();
        for (int i = 0; i < array.size(); ++i) {
            QJsonValue element = array.at(i);
            if (!expandValue(element, variables, problem))
                return false;
            array.replace(i, element);
        }
        value = array;
        return true;
    }
    if (value.isObject()) {
        QJsonObject object = value.toObject();
        for (auto it = object.begin(); it != object.end(); ++it) {
            QJsonValue element = it.value();
            if (!expandValue(element, variables, problem))
                return false;
            it.value() = element;
        }
        value = object;
    }
    return true;
}

} // namespace

bool expandVariables(const QString& text, const QMap<QString, QString>& variables, QString& out,
                     QString& problem)
{
    out.clear();
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c != QLatin1Char('$') || i + 1 >= text.size()) {
            out += c;
            continue;
        }
        const QChar next = text.at(i + 1);
        if (next == QLatin1Char('$')) {
            out += QLatin1Char('$');
            ++i;
        } else if (next == QLatin1Char('{')) {
            const int close = text.indexOf(QLatin1Char('}'), i + 2);
            if (close < 0) {
                problem = QStringLiteral("unclosed \"${\" in \"%1\"").arg(text);
                return false;
            }
            const QString name = text.mid(i + 2, close - i - 2);
            if (!variables.contains(name)) {
                problem = QStringLiteral("unknown variable ${%1} (set it with --set %1=VALUE)").arg(name);
                return false;
            }
            out += variables.value(name);
            i = close;
        } else {
            out += c;
        }
    }
    return true;
}

ParseOutcome parseStep(const RawLine& raw, const QMap<QString, QString>& variables, Step& step,
                       QString& problem)
{
    step = Step();
    step.line = raw.number;
    if (raw.tooLong) {
        problem = QStringLiteral("line longer than 1 MiB, dropped");
        return ParseOutcome::Error;
    }
    const QByteArray text = raw.text.trimmed();
    if (text.isEmpty() || text.startsWith('#'))
        return ParseOutcome::Skip;

    // Structure first (duplicate keys, depth, syntax): only clean text
    // reaches Qt's parser.
    if (!validateStepJson(text, problem))
        return ParseOutcome::Error;
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError) {
        problem = QStringLiteral("malformed JSON: %1 at column %2")
                      .arg(error.errorString())
                      .arg(error.offset + 1);
        return ParseOutcome::Error;
    }
    if (!document.isObject()) {
        problem = QStringLiteral("a step must be a JSON object {\"op\": ...}");
        return ParseOutcome::Error;
    }
    QJsonObject body = document.object();
    const QJsonValue op = body.value(QLatin1String("op"));
    if (!op.isString() || op.toString().isEmpty()) {
        problem = QStringLiteral("the step has no \"op\" string");
        return ParseOutcome::Error;
    }
    step.op = op.toString();

    QJsonValue expanded(body);
    if (!expandValue(expanded, variables, problem))
        return ParseOutcome::Error;
    step.body = expanded.toObject();
    return ParseOutcome::Parsed;
}
