#include "jsonwriter.h"

#include <QJsonArray>
#include <QJsonDocument>

JsonWriter &JsonWriter::add(const QString &key, const QJsonValue &value)
{
    return addRaw(key, encode(value));
}

JsonWriter &JsonWriter::addRaw(const QString &key, const QString &json)
{
    if (!m_body.isEmpty())
        m_body += u',';
    m_body += encode(key) + u':' + json;
    return *this;
}

QString JsonWriter::encode(const QJsonValue &value)
{
    // QJsonDocument only writes arrays and objects; wrap the value and strip the brackets.
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

QString JsonWriter::array(const QStringList &values)
{
    return u'[' + values.join(u',') + u']';
}
