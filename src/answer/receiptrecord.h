#pragma once

#include <QList>
#include <QString>

// One record of the client's "ReceiptData": TAG^FIELD^TEXT~.
struct ReceiptRecord
{
    QString tag;
    QString field;
    QString text;

    bool operator==(const ReceiptRecord &o) const
    {
        return tag == o.tag && field == o.field && text == o.text;
    }
};

// The records of a receipt text, in order: exactly the successive matches of the pattern
// ([^^]+)\^([^^]*)\^([^~]*)~ searched from the start and after each match, found in linear
// time. Whatever stands between records and is not "^" becomes part of the next tag; a "^"
// there is skipped; a tail without a complete record is ignored.
QList<ReceiptRecord> scanReceiptRecords(const QString &data);
