// JsonLine: one output line of the runner, a JSON object whose keys keep the
// order they were added in ("t" first, then "event"/"ok"/"error", ...), so
// that the lines read the same way every time. QJsonObject would sort them.
//
// Threading: a value type; used on the GUI thread.
#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <QPair>
#include <QString>
#include <QVector>

class JsonLine
{
public:
    JsonLine& add(const QString& key, const QJsonValue& value);
    /// Appends every field of `other` (used to merge a step's extra fields).
    JsonLine& append(const JsonLine& other);
    bool contains(const QString& key) const;
    QJsonValue value(const QString& key) const;
    bool isEmpty() const { return m_fields.isEmpty(); }
    const QVector<QPair<QString, QJsonValue>>& fields() const { return m_fields; }

    /// The object as one line of compact JSON, ending in '\n'.
    QByteArray toLine() const;

    /// One JSON value as compact text (strings quoted and escaped).
    static QByteArray encode(const QJsonValue& value);

private:
    QVector<QPair<QString, QJsonValue>> m_fields;
};
