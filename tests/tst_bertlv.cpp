// The BER-TLV codec exported for other users of the library.

#include <tlv/bertlv.h>

#include <QTest>

using namespace Qt::Literals::StringLiterals;

using TlvMap = QMap<QString, QByteArray>;

class tst_BerTlv : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parse_data();
    void parse();
    void brokenInput_data();
    void brokenInput();
    void isComplex_data();
    void isComplex();
    void generate_data();
    void generate();
    void nesting();
};

void tst_BerTlv::parse_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<TlvMap>("expected");

    QTest::newRow("empty") << QByteArray() << TlvMap{};
    QTest::newRow("one element") << QByteArray::fromHex("5A021234")
                                 << TlvMap{{u"5A"_s, QByteArray::fromHex("1234")}};
    QTest::newRow("two-byte tag") << QByteArray::fromHex("9F0206000000000100")
                                  << TlvMap{{u"9F02"_s, QByteArray::fromHex("000000000100")}};
    QTest::newRow("three-byte tag")
        << QByteArray::fromHex("DF810101AA") << TlvMap{{u"DF8101"_s, QByteArray::fromHex("AA")}};
    QTest::newRow("padded tag, empty value")
        << QByteArray::fromHex("0A00") << TlvMap{{u"0A"_s, QByteArray()}};
    QTest::newRow("zero tag is an element")
        << QByteArray::fromHex("0000") << TlvMap{{u"00"_s, QByteArray()}};
    QTest::newRow("long form 81") << QByteArray::fromHex("C18180") + QByteArray(128, 'x')
                                  << TlvMap{{u"C1"_s, QByteArray(128, 'x')}};
    QTest::newRow("long form 82") << QByteArray::fromHex("C1820100") + QByteArray(256, 'y')
                                  << TlvMap{{u"C1"_s, QByteArray(256, 'y')}};
    QTest::newRow("long form with leading zeros") << QByteArray::fromHex("C184000000020102")
                                                  << TlvMap{{u"C1"_s, QByteArray::fromHex("0102")}};
    QTest::newRow("long-form length ending the input")
        << QByteArray::fromHex("5A0111C18100")
        << TlvMap{{u"5A"_s, QByteArray::fromHex("11")}, {u"C1"_s, QByteArray()}};
    QTest::newRow("80 means length 0")
        << QByteArray::fromHex("C1805A0111")
        << TlvMap{{u"C1"_s, QByteArray()}, {u"5A"_s, QByteArray::fromHex("11")}};
    QTest::newRow("second value wins")
        << QByteArray::fromHex("5A01015A0102") << TlvMap{{u"5A"_s, QByteArray::fromHex("02")}};
    QTest::newRow("constructed kept whole")
        << QByteArray::fromHex("70035A0111") << TlvMap{{u"70"_s, QByteArray::fromHex("5A0111")}};
    QTest::newRow("nine length bytes keep the low bits")
        << QByteArray::fromHex("C189FF00000000000000015A")
        << TlvMap{{u"C1"_s, QByteArray::fromHex("5A")}};
}

void tst_BerTlv::parse()
{
    QFETCH(QByteArray, input);
    QTEST(tlv::parseBerTlv(input), "expected");
}

void tst_BerTlv::brokenInput_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<TlvMap>("expected");
    // A complete element 5A 01 11, then one that does not lie wholly inside the input.
    const TlvMap first{{u"5A"_s, QByteArray::fromHex("11")}};
    QTest::newRow("tag without length") << QByteArray::fromHex("5A01115A") << first;
    QTest::newRow("multi-byte tag cut") << QByteArray::fromHex("5A01119F") << first;
    QTest::newRow("continuation cut") << QByteArray::fromHex("5A0111DF81") << first;
    QTest::newRow("length missing") << QByteArray::fromHex("5A0111C1") << first;
    QTest::newRow("length bytes cut") << QByteArray::fromHex("5A0111C18201") << first;
    QTest::newRow("value cut") << QByteArray::fromHex("5A0111C1050102") << first;
    QTest::newRow("long value cut") << QByteArray::fromHex("5A0111C181FF00") << first;
    QTest::newRow("negative length") << QByteArray::fromHex("5A0111C184FFFFFFFF00") << first;
    QTest::newRow("huge length") << QByteArray::fromHex("5A0111C1847FFFFFFF00") << first;
    QTest::newRow("too many length bytes") << QByteArray::fromHex("5A0111C1FF") << first;
    QTest::newRow("lone zero length byte cut") << QByteArray::fromHex("00") << TlvMap{};
}

void tst_BerTlv::brokenInput()
{
    parse();
}

void tst_BerTlv::isComplex_data()
{
    QTest::addColumn<QString>("tag");
    QTest::addColumn<bool>("complex");
    QTest::newRow("F6") << u"F6"_s << true;
    QTest::newRow("70") << u"70"_s << true;
    QTest::newRow("6F") << u"6F"_s << true;
    QTest::newRow("BF0C by BF") << u"BF0C"_s << true;
    QTest::newRow("lower case") << u"bf0c"_s << true;
    QTest::newRow("D1") << u"D1"_s << false;
    QTest::newRow("9F02") << u"9F02"_s << false;
    QTest::newRow("DF01") << u"DF01"_s << false;
    QTest::newRow("5A") << u"5A"_s << false;
    QTest::newRow("empty") << u""_s << false;
    QTest::newRow("one character") << u"F"_s << false;
    QTest::newRow("not hexadecimal") << u"ZZ"_s << false;
}

void tst_BerTlv::isComplex()
{
    QFETCH(QString, tag);
    QTEST(tlv::isComplex(tag), "complex");
}

void tst_BerTlv::generate_data()
{
    QTest::addColumn<QString>("tag");
    QTest::addColumn<int>("size");
    QTest::addColumn<QByteArray>("head");

    QTest::newRow("empty value") << u"D1"_s << 0 << QByteArray::fromHex("D100");
    QTest::newRow("3 bytes") << u"D1"_s << 3 << QByteArray::fromHex("D103");
    QTest::newRow("127 bytes") << u"D1"_s << 127 << QByteArray::fromHex("D17F");
    QTest::newRow("128 bytes") << u"D1"_s << 128 << QByteArray::fromHex("D18180");
    QTest::newRow("255 bytes") << u"D1"_s << 255 << QByteArray::fromHex("D181FF");
    QTest::newRow("256 bytes") << u"D1"_s << 256 << QByteArray::fromHex("D1820100");
    QTest::newRow("300 bytes") << u"D1"_s << 300 << QByteArray::fromHex("D182012C");
    QTest::newRow("65535 bytes") << u"D1"_s << 65535 << QByteArray::fromHex("D182FFFF");
    QTest::newRow("70000 bytes") << u"D1"_s << 70000 << QByteArray::fromHex("D1830111 70");
    QTest::newRow("16777216 bytes") << u"D1"_s << 16777216 << QByteArray::fromHex("D18401000000");
    QTest::newRow("two-byte tag") << u"9F02"_s << 6 << QByteArray::fromHex("9F0206");
    QTest::newRow("lower-case tag") << u"df8101"_s << 1 << QByteArray::fromHex("DF810101");
}

void tst_BerTlv::generate()
{
    QFETCH(QString, tag);
    QFETCH(int, size);
    QFETCH(QByteArray, head);
    const QByteArray value(size, '\x5a');
    const QByteArray element = tlv::generateBerTlvTag(tag, value);
    QCOMPARE(element.left(head.size()), head);
    QCOMPARE(element.size(), head.size() + size);
    QVERIFY(element.endsWith(value));
}

void tst_BerTlv::nesting()
{
    const QByteArray inner = tlv::generateBerTlvTag(u"D1"_s, "abc");
    const QByteArray outer = tlv::generateBerTlvTag(u"F6"_s, inner);
    QCOMPARE(outer, QByteArray::fromHex("F605D103") + "abc");
    const TlvMap map = tlv::parseBerTlv(outer);
    QVERIFY(tlv::isComplex(map.firstKey()));
    QCOMPARE(tlv::parseBerTlv(map.value(u"F6"_s)), (TlvMap{{u"D1"_s, "abc"}}));
}

QTEST_APPLESS_MAIN(tst_BerTlv)
#include "tst_bertlv.moc"
