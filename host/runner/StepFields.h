// StepFields: reads the named fields of a host step ({"op": "wait", "ms":
// 500}) with the same converters as module arguments. Keys a step does not
// know are an error (a misspelt "timeoutMs" must not silently default).
// The first problem wins; check ok() after reading.
//
// Threading: any.
#pragma once

#include "StepParser.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <climits>

class StepFields
{
public:
    StepFields(const Step& step, const QStringList& allowedKeys);

    bool ok() const { return m_problem.isEmpty(); }
    const QString& problem() const { return m_problem; }
    bool has(const char* key) const { return m_body.contains(QLatin1String(key)); }

    /// An integer in [low, high]; `fallback` when absent, an error when
    /// `required` and absent.
    int integer(const char* key, int fallback, int low = INT_MIN, int high = INT_MAX,
                bool required = false);
    QString string(const char* key, const QString& fallback = QString(), bool required = false);
    bool boolean(const char* key, bool fallback);
    QJsonObject object(const char* key);

private:
    void fail(const char* key, const QString& why);

    QJsonObject m_body;
    QString m_problem;
};
