#include "StepFields.h"

#include "ArgConvert.h"

StepFields::StepFields(const Step& step, const QStringList& allowedKeys) : m_body(step.body)
{
    for (auto it = m_body.begin(); it != m_body.end(); ++it) {
        if (it.key() != QLatin1String("op") && !allowedKeys.contains(it.key())) {
            m_problem = QStringLiteral("unknown key \"%1\" (%2 takes: %3)")
                            .arg(it.key(), step.op, allowedKeys.join(QStringLiteral(", ")));
            return;
        }
    }
}

void StepFields::fail(const char* key, const QString& why)
{
    if (m_problem.isEmpty())
        m_problem = QStringLiteral("\"%1\": %2").arg(QLatin1String(key), why);
}

int StepFields::integer(const char* key, int fallback, int low, int high, bool required)
{
    const QJsonValue value = m_body.value(QLatin1String(key));
    if (value.isUndefined()) {
        if (required)
            fail(key, QStringLiteral("missing"));
        return fallback;
    }
    int out = fallback;
    QString why;
    if (!argconv::toInt(value, out, why)) {
        fail(key, why);
        return fallback;
    }
    if (out < low || out > high) {
        fail(key, QStringLiteral("%1 is outside %2..%3").arg(out).arg(low).arg(high));
        return fallback;
    }
    return out;
}

QString StepFields::string(const char* key, const QString& fallback, bool required)
{
    const QJsonValue value = m_body.value(QLatin1String(key));
    if (value.isUndefined()) {
        if (required)
            fail(key, QStringLiteral("missing"));
        return fallback;
    }
    QString out;
    QString why;
    if (!argconv::toString(value, out, why)) {
        fail(key, why);
        return fallback;
    }
    return out;
}

bool StepFields::boolean(const char* key, bool fallback)
{
    const QJsonValue value = m_body.value(QLatin1String(key));
    if (value.isUndefined())
        return fallback;
    bool out = fallback;
    QString why;
    if (!argconv::toBool(value, out, why))
        fail(key, why);
    return out;
}

QJsonObject StepFields::object(const char* key)
{
    const QJsonValue value = m_body.value(QLatin1String(key));
    if (value.isUndefined())
        return QJsonObject();
    if (!value.isObject())
        fail(key, QStringLiteral("expected an object"));
    return value.toObject();
}
