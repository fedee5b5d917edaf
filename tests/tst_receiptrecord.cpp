// The receipt scanner gives exactly the regular expression's matches, in linear time.

#include <answer/receiptrecord.h>

#include <QRandomGenerator>
#include <QRegExp>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

namespace {

// The pattern as the client's documentation gives it, searched the way it prescribes.
QList<ReceiptRecord> byPattern(const QString &data)
{
    QRegExp pattern(u"([^\\^]+)\\^([^\\^]*)\\^([^~]*)~"_s);
    QList<ReceiptRecord> records;
    int pos = 0;
    while ((pos = pattern.indexIn(data, pos)) != -1) {
        records.append({pattern.cap(1), pattern.cap(2), pattern.cap(3)});
        pos += pattern.matchedLength();
    }
    return records;
}

} // namespace

class tst_ReceiptRecord : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void examples_data();
    void examples();
    void agreesWithPattern();
};

void tst_ReceiptRecord::examples_data()
{
    QTest::addColumn<QString>("data");
    QTest::addColumn<QStringList>("tags");
    QTest::addColumn<QStringList>("texts");

    QTest::newRow("two slips") << u"0xDF^1^Slip one~0xDA^1^Slip two~"_s
                               << QStringList{u"0xDF"_s, u"0xDA"_s}
                               << QStringList{u"Slip one"_s, u"Slip two"_s};
    QTest::newRow("empty fields") << u"0xDF^^~"_s << QStringList{u"0xDF"_s} << QStringList{u""_s};
    QTest::newRow("text with carets and lines")
        << u"0xDF^1^a^b\nc~"_s << QStringList{u"0xDF"_s} << QStringList{u"a^b\nc"_s};
    QTest::newRow("line break joins the tag")
        << u"0xDF^1^one~\n0xDF^1^two~"_s << QStringList{u"0xDF"_s, u"\n0xDF"_s}
        << QStringList{u"one"_s, u"two"_s};
    QTest::newRow("carets between records skipped")
        << u"^^0xDE^^VISA~"_s << QStringList{u"0xDE"_s} << QStringList{u"VISA"_s};
    QTest::newRow("tilde in the tag")
        << u"a~b^1^t~"_s << QStringList{u"a~b"_s} << QStringList{u"t"_s};
    QTest::newRow("unterminated tail")
        << u"0xDF^1^one~0xDF^1^two"_s << QStringList{u"0xDF"_s} << QStringList{u"one"_s};
    QTest::newRow("empty") << u""_s << QStringList{} << QStringList{};
    QTest::newRow("one caret only") << u"0xDF^text~"_s << QStringList{} << QStringList{};
}

void tst_ReceiptRecord::examples()
{
    QFETCH(QString, data);
    QStringList tags, texts;
    for (const ReceiptRecord &record : scanReceiptRecords(data)) {
        tags.append(record.tag);
        texts.append(record.text);
    }
    QTEST(tags, "tags");
    QTEST(texts, "texts");
    QCOMPARE(scanReceiptRecords(data), byPattern(data));
}

void tst_ReceiptRecord::agreesWithPattern()
{
    // Short texts over a small alphabet reach every arrangement of separators.
    const QString alphabet = u"^^~~ab\n "_s;
    QRandomGenerator random(1234);
    for (int i = 0; i < 20000; ++i) {
        QString data;
        const int size = random.bounded(0, 24);
        for (int k = 0; k < size; ++k)
            data.append(alphabet.at(random.bounded(alphabet.size())));
        const auto ours = scanReceiptRecords(data);
        const auto theirs = byPattern(data);
        if (ours != theirs)
            QFAIL(qPrintable(u"differs on \"%1\""_s.arg(data)));
    }
}

QTEST_APPLESS_MAIN(tst_ReceiptRecord)
#include "tst_receiptrecord.moc"
