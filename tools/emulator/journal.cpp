#include "journal.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

using namespace Qt::Literals::StringLiterals;

Journal Journal::load(const QString &path)
{
    Journal journal;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return journal;
    const QJsonObject root = QJsonDocument::fromJson(file.readAll()).object();
    journal.m_sequence = root.value("sequence"_L1).toInt();
    journal.period = std::max(1, root.value("period"_L1).toInt(1));
    journal.lastSlip = root.value("lastSlip"_L1).toString();
    for (const QJsonValue &v : root.value("entries"_L1).toArray()) {
        const QJsonObject o = v.toObject();
        journal.entries.append({o.value("operation"_L1).toString(),
                                o.value("amount"_L1).toInteger(), o.value("merchant"_L1).toString(),
                                o.value("authorizationCode"_L1).toString(),
                                o.value("referenceNumber"_L1).toString(),
                                o.value("cardType"_L1).toString(), o.value("pan"_L1).toString(),
                                QDateTime::fromString(o.value("time"_L1).toString(), Qt::ISODate)});
    }
    const QJsonObject pending = root.value("pending"_L1).toObject();
    for (auto it = pending.begin(); it != pending.end(); ++it) {
        const QJsonObject o = it.value().toObject();
        journal.pending.insert(
            it.key(), {o.value("operation"_L1).toString(), o.value("amount"_L1).toInteger(),
                       o.value("merchant"_L1).toString(), o.value("queriesLeft"_L1).toInt()});
    }
    return journal;
}

bool Journal::save(const QString &path) const
{
    QJsonArray entryList;
    for (const JournalEntry &e : entries) {
        entryList.append(QJsonObject{{u"operation"_s, e.operation},
                                     {u"amount"_s, e.amount},
                                     {u"merchant"_s, e.merchant},
                                     {u"authorizationCode"_s, e.authorizationCode},
                                     {u"referenceNumber"_s, e.referenceNumber},
                                     {u"cardType"_s, e.cardType},
                                     {u"pan"_s, e.pan},
                                     {u"time"_s, e.time.toString(Qt::ISODate)}});
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
                           {u"lastSlip"_s, lastSlip},
                           {u"entries"_s, entryList},
                           {u"pending"_s, pendingObject}};
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(QJsonDocument(root).toJson());
    return file.commit();
}
