#include "receiptrecord.h"

// A match that starts at s runs to the first "^" after s, the next "^" and then the first "~"
// after that, so it is unique when it exists. If none starts at the first position that is
// not "^", none starts later either: every later start sees fewer separators and terminators.
// Hence the leftmost match is found with three forward searches and no backtracking.
QList<ReceiptRecord> scanReceiptRecords(const QString &data)
{
    QList<ReceiptRecord> records;
    const qsizetype size = data.size();
    qsizetype pos = 0;
    while (pos < size) {
        while (pos < size && data.at(pos) == u'^')
            ++pos;
        if (pos >= size)
            break;
        const qsizetype first = data.indexOf(u'^', pos);
        if (first < 0)
            break;
        const qsizetype second = data.indexOf(u'^', first + 1);
        if (second < 0)
            break;
        const qsizetype end = data.indexOf(u'~', second + 1);
        if (end < 0)
            break;
        records.append(ReceiptRecord{data.sliced(pos, first - pos),
                                     data.sliced(first + 1, second - first - 1),
                                     data.sliced(second + 1, end - second - 1)});
        pos = end + 1;
    }
    return records;
}
