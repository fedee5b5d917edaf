#include "journal.h"

#include <cardmask.h>

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <limits>

using namespace Qt::Literals::StringLiterals;

namespace {

// A whole number of at least 0 that fits 64 bits, or -1.
qint64 counter(const QJsonObject &object, QLatin1StringView key, qint64 absent)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined())
        return absent;
    const qint64 number = value.toInteger(-1);
    return number >= 0 && value.isDouble() ? number : -1;
}

} // namespace

bool Journal::load(const QString &path, Journal &journal, QString &error)
{
    journal = Journal();
    if (!QFileInfo::exists(path) && !QFileInfo(path).isSymLink())
        return true;
    QFile file(path);
    if (QFileInfo(path).isDir() || !file.open(QIODevice::ReadOnly)) {
        error = u"журнал операций %1 не читается"_s.arg(path);
        return false;
    }
    QJsonParseError parse{};
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parse);
    const QJsonObject root = document.object();
    journal.m_sequence = counter(root, "sequence"_L1, 0);
    journal.period = counter(root, "period"_L1, 1);
    if (!document.isObject() || journal.m_sequence < 0 || journal.period < 1) {
        error = u"журнал операций %1 повреждён"_s.arg(path);
        return false;
    }
    journal.lastSlip = root.value("lastSlip"_L1).toString();
    for (const QJsonValue &v : root.value("entries"_L1).toArray()) {
        const QJsonObject o = v.toObject();
        journal.entries.append({o.value("operation"_L1).toString(),
                                o.value("amount"_L1).toInteger(), o.value("merchant"_L1).toString(),
                                o.value("authorizationCode"_L1).toString(),
                                o.value("referenceNumber"_L1).toString(),
                                o.value("cardType"_L1).toString(), o.value("pan"_L1).toString(),
                                QDateTime::fromString(o.value("time"_L1).toString(), Qt::ISODate),
                                o.value("settled"_L1).toBool(), o.value("refersTo"_L1).toString()});
    }
    const QJsonObject pending = root.value("pending"_L1).toObject();
    for (auto it = pending.begin(); it != pending.end(); ++it) {
        const QJsonObject o = it.value().toObject();
        journal.pending.insert(
            it.key(), {o.value("operation"_L1).toString(), o.value("amount"_L1).toInteger(),
                       o.value("merchant"_L1).toString(), o.value("queriesLeft"_L1).toInt()});
    }
    return true;
}

bool Journal::save(const QString &path, QString &error) const
{
    QJsonArray entryList;
    for (const JournalEntry &e : entries) {
        entryList.append(QJsonObject{{u"operation"_s, e.operation},
                                     {u"amount"_s, e.amount},
                                     {u"merchant"_s, e.merchant},
                                     {u"authorizationCode"_s, e.authorizationCode},
                                     {u"referenceNumber"_s, e.referenceNumber},
                                     {u"cardType"_s, e.cardType},
                                     {u"pan"_s, CardMask::pan(e.pan)},
                                     {u"time"_s, e.time.toString(Qt::ISODate)},
                                     {u"settled"_s, e.settled},
                                     {u"refersTo"_s, e.refersTo}});
    }
    QJsonObject pendingObject;
    for (auto it = pending.cbegin(); it != pending.cend(); ++it) {
        pendingObject.insert(it.key(), QJsonObject{{u"operation"_s, it->operation},
                                                   {u"amount"_s, it->amount},
                                                   {u"merchant"_s, it->merchant},
                                                   {u"queriesLeft"_s, it->queriesLeft}});
    }
    const QJsonObject root{{u"sequence"_s, m_sequence},
                           {u"period"_s, period},
                           {u"lastSlip"_s, CardMask::text(lastSlip)},
                           {u"entries"_s, entryList},
                           {u"pending"_s, pendingObject}};
    // Unbuffered, so that a failed write is seen before the commit: Qt 6.4 commits a buffered
    // file whose flush failed, and the journal would be replaced by an empty one.
    const QByteArray data = QJsonDocument(root).toJson();
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) &&
        file.write(data) == data.size() && file.commit())
        return true;
    error = u"не удалось сохранить журнал операций %1: %2"_s.arg(path, file.errorString());
    return false;
}

qint64 Journal::next()
{
    m_sequence = m_sequence == std::numeric_limits<qint64>::max() ? 1 : m_sequence + 1;
    return m_sequence;
}

const JournalEntry *Journal::sale(const QString &referenceNumber) const
{
    for (const JournalEntry &e : entries)
        if (e.operation == "sale"_L1 && e.referenceNumber == referenceNumber)
            return &e;
    return nullptr;
}

qint64 Journal::returned(const QString &referenceNumber) const
{
    qint64 sum = 0;
    for (const JournalEntry &e : entries)
        if (e.refersTo == referenceNumber)
            sum += e.amount;
    return sum;
}

bool Journal::cancelled(const QString &referenceNumber) const
{
    for (const JournalEntry &e : entries)
        if (e.refersTo == referenceNumber && e.operation == "cancel"_L1)
            return true;
    return false;
}
