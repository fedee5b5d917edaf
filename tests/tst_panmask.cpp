// Full card numbers never reach the log.

#include <answer/panmask.h>

#include <QTest>

using namespace Qt::Literals::StringLiterals;

class tst_PanMask : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void mask_data();
    void mask();
};

void tst_PanMask::mask_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("masked");
    QTest::newRow("plain") << u"4111111111111111"_s << u"************1111"_s;
    QTest::newRow("in JSON") << u"{\"PAN\":\"5500005555555559\",\"Status\":1}"_s
                             << u"{\"PAN\":\"************5559\",\"Status\":1}"_s;
    QTest::newRow("grouped") << u"Карта 4111 1111 1111 1111 MIR"_s
                             << u"Карта **** **** **** 1111 MIR"_s;
    QTest::newRow("hyphens") << u"2200-0000-0000-0004"_s << u"****-****-****-0004"_s;
    QTest::newRow("19 digits") << u"6759649826438453003"_s << u"***************3003"_s;
    QTest::newRow("already masked") << u"************1111"_s << u"************1111"_s;
    QTest::newRow("fails Luhn") << u"4111111111111112"_s << u"4111111111111112"_s;
    QTest::newRow("too short") << u"000012345678"_s << u"000012345678"_s;
    QTest::newRow("too long") << u"41111111111111111111"_s << u"41111111111111111111"_s;
    QTest::newRow("other numbers")
        << u"Сумма 500.00, код 123456"_s << u"Сумма 500.00, код 123456"_s;
    QTest::newRow("empty") << u""_s << u""_s;
}

void tst_PanMask::mask()
{
    QFETCH(QString, text);
    QTEST(maskCardNumbers(text), "masked");
}

QTEST_APPLESS_MAIN(tst_PanMask)
#include "tst_panmask.moc"
