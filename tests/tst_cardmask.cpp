// What the log may show of card data: the rule for any text, the rule for the answer's card
// number, and the card number inside the client's raw JSON. Cases that the log of a whole
// operation shows are in tst_operations.

#include <answer/cardmask.h>

#include <QTest>

using namespace Qt::Literals::StringLiterals;

class tst_CardMask : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void mask_data();
    void mask();
};

void tst_CardMask::mask_data()
{
    QTest::addColumn<QString>("rule");
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("masked");

    const QString text = u"text"_s;
    QTest::newRow("plain") << text << u"4111111111111111"_s << u"************1111"_s;
    QTest::newRow("blanks") << text << u"Карта 4111 1111 1111 1111 MIR"_s
                            << u"Карта **** **** **** 1111 MIR"_s;
    QTest::newRow("hyphens") << text << u"2200-0000-0000-0004"_s << u"****-****-****-0004"_s;
    QTest::newRow("dots") << text << u"4111.1111.1111.1111"_s << u"****.****.****.1111"_s;
    QTest::newRow("19 digits") << text << u"6759649826438453003"_s << u"***************3003"_s;
    QTest::newRow("after another group")
        << text << u"7 4111111111111111"_s << u"7 ************1111"_s;
    QTest::newRow("13 digits that pass") << text << u"ID 0000000000000"_s << u"ID *********0000"_s;
    QTest::newRow("fails Luhn") << text << u"4276123456781234"_s << u"4276123456781234"_s;
    QTest::newRow("group over 19 digits") << text << u"41111111111111111111 4111111111111111"_s
                                          << u"41111111111111111111 ************1111"_s;
    QTest::newRow("two separators split")
        << text << u"4111  1111 1111 1111"_s << u"4111  1111 1111 1111"_s;
    QTest::newRow("already masked") << text << u"************1111"_s << u"************1111"_s;
    QTest::newRow("short numbers")
        << text << u"Сумма 500.00, код 123456"_s << u"Сумма 500.00, код 123456"_s;

    const QString pan = u"pan"_s;
    QTest::newRow("pan") << pan << u"4111111111111111"_s << u"411111******1111"_s;
    QTest::newRow("pan already masked") << pan << u"************1111"_s << u"************1111"_s;
    QTest::newRow("pan masked by the bank")
        << pan << u"411111******1111"_s << u"411111******1111"_s;
    QTest::newRow("empty pan") << pan << u""_s << u""_s;

    const QString members = u"members"_s;
    QTest::newRow("PAN member") << members << uR"({"PAN":"4276123456781234","Status":1})"_s
                                << uR"({"PAN":"427612******1234","Status":1})"_s;
    QTest::newRow("PAN member as a number")
        << members << uR"({"PAN": 4276123456781234})"_s << uR"({"PAN": 427612******1234})"_s;
    QTest::newRow("PAN member written with escapes")
        << members << uR"({"P\u0041N":"42761234\u00356781234"})"_s
        << uR"({"P\u0041N":"427612******1234"})"_s;
    QTest::newRow("PAN as a value is not a member")
        << members << uR"({"TextResponse":"PAN","x":"4276123456781234"})"_s
        << uR"({"TextResponse":"PAN","x":"4276123456781234"})"_s;
    QTest::newRow("not JSON") << members << u"PAN 4276123456781234"_s << u"PAN 4276123456781234"_s;
}

void tst_CardMask::mask()
{
    QFETCH(QString, rule);
    QFETCH(QString, input);
    const QString masked = rule == "text"_L1  ? CardMask::text(input)
                           : rule == "pan"_L1 ? CardMask::pan(input)
                                              : CardMask::panMembers(input);
    QTEST(masked, "masked");
}

QTEST_APPLESS_MAIN(tst_CardMask)
#include "tst_cardmask.moc"
