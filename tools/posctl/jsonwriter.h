#pragma once

#include <QJsonValue>
#include <QString>
#include <QStringList>

// Writes one compact JSON object with its keys in the order they are added (QJsonObject would
// sort them, and people read these lines).
class JsonWriter
{
public:
    JsonWriter &add(const QString &key, const QJsonValue &value);
    JsonWriter &addRaw(const QString &key, const QString &json);
    QString toString() const { return u'{' + m_body + u'}'; }

    static QString encode(const QJsonValue &value);
    static QString encode(const QStringList &texts);
    // A JSON array of values that are JSON already.
    static QString array(const QStringList &values);

private:
    QString m_body;
};
