#include "jsonwriter.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::Literals::StringLiterals;

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

namespace {

// A text as a JSON string, escaped as QJsonDocument escapes it, without building a document.
QString encodeString(const QString &text)
{
    QString out;
    out.reserve(text.size() + 2);
    out += u'"';
    for (const QChar c : text) {
        switch (c.unicode()) {
        case u'"':
            out += u"\\\""_s;
            break;
        case u'\\':
            out += u"\\\\"_s;
            break;
        case u'\b':
            out += u"\\b"_s;
            break;
        case u'\f':
            out += u"\\f"_s;
            break;
        case u'\n':
            out += u"\\n"_s;
            break;
        case u'\r':
            out += u"\\r"_s;
            break;
        case u'\t':
            out += u"\\t"_s;
            break;
        default:
            if (c.unicode() < 0x20)
                out += u"\\u%1"_s.arg(c.unicode(), 4, 16, QChar(u'0'));
            else
                out += c;
        }
    }
    out += u'"';
    return out;
}

} // namespace

QString JsonWriter::encode(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::String:
        return encodeString(value.toString());
    case QJsonValue::Bool:
        return value.toBool() ? u"true"_s : u"false"_s;
    case QJsonValue::Null:
        return u"null"_s;
    case QJsonValue::Double:
        if (value.toDouble() == double(value.toInteger()))
            return QString::number(value.toInteger());
        break;
    default:
        break;
    }
    // QJsonDocument only writes arrays and objects; wrap the value and strip the brackets.
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

QString JsonWriter::array(const QStringList &values)
{
    return u'[' + values.join(u',') + u']';
}

QString JsonWriter::encode(const QStringList &texts)
{
    QStringList items;
    items.reserve(texts.size());
    for (const QString &text : texts)
        items.append(encodeString(text));
    return array(items);
}
