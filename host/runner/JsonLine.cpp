// Ordered JSON lines: each value is encoded by QJsonDocument (wrapped in a
// one-element array, since Qt 5 cannot write a bare value), the object frame
// is written here so that the key order is ours.
#include "JsonLine.h"

#include <QJsonArray>
#include <QJsonDocument>

JsonLine& JsonLine::add(const QString& key, const QJsonValue& value)
{
    m_fields.append({key, value});
    return *this;
}

JsonLine& JsonLine::append(const JsonLine& other)
{
    m_fields += other.m_fields;
    return *this;
}

bool JsonLine::contains(const QString& key) const
{
    for (const auto& field : m_fields) {
        if (field.first == key)
            return true;
    }
    return false;
}

QJsonValue JsonLine::value(const QString& key) const
{
    for (const auto& field : m_fields) {
        if (field.first == key)
            return field.second;
    }
    return QJsonValue(QJsonValue::Undefined);
}

QByteArray JsonLine::encode(const QJsonValue& value)
{
    const QByteArray wrapped = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    // "[<value>]" -> "<value>"
    return wrapped.mid(1, wrapped.size() - 2);
}

QByteArray JsonLine::toLine() const
{
    QByteArray line("{");
    for (int i = 0; i < m_fields.size(); ++i) {
        if (i > 0)
            line += ", ";
        line += encode(m_fields.at(i).first);
        line += ": ";
        line += encode(m_fields.at(i).second);
    }
    line += "}\n";
    return line;
}
