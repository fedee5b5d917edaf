// How long the plug-in's own work takes around a client run: parsing answers and receipts,
// the BER-TLV codec, and one run of a trivial client.

#include <answer/receiptrecord.h>
#include <plugin/inpaspaymentprocessing.h>
#include <tlv/bertlv.h>

#include <QFile>
#include <QLoggingCategory>
#include <QRegExp>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

QString receipt(int records)
{
    QString text;
    const QString slip = QString(40, u'x') + u'\n';
    for (int i = 0; i < records; ++i)
        text += u"0xDF^1^"_s + slip.repeated(30) + u'~';
    return text;
}

} // namespace

class BenchInpas : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QLoggingCategory::setFilterRules(u"inpas.*=false"_s); }
    void receiptScanner();
    void receiptPatternBadInput();
    void receiptScannerBadInput();
    void processAnswer();
    void parseBerTlv();
    void clientRun();
};

void BenchInpas::receiptScanner()
{
    const QString text = receipt(20);
    QBENCHMARK
    {
        scanReceiptRecords(text);
    }
}

// The pattern the scanner replaces, on a long tag with no second separator.
void BenchInpas::receiptPatternBadInput()
{
    const QString text = QString(5000, u'a') + u"^b"_s;
    QRegExp pattern(u"([^\\^]+)\\^([^\\^]*)\\^([^~]*)~"_s);
    QBENCHMARK
    {
        pattern.indexIn(text, 0);
    }
}

void BenchInpas::receiptScannerBadInput()
{
    const QString text = QString(5000, u'a') + u"^b"_s;
    QBENCHMARK
    {
        scanReceiptRecords(text);
    }
}

void BenchInpas::processAnswer()
{
    InpasPaymentProcessing processor;
    const QByteArray output =
        QByteArray(R"({"Status":1,"TextResponse":"ОДОБРЕНО","CardType":"VISA",)"
                   R"("PAN":"************1234","ReceiptData":")") +
        receipt(2).replace(u'\n', u"\\n"_s).toUtf8() + "\"}";
    QBENCHMARK
    {
        processor.processAnswer(output, nullptr);
    }
}

void BenchInpas::parseBerTlv()
{
    QByteArray data;
    for (int i = 0; i < 100; ++i)
        data += tlv::generateBerTlvTag(u"DF%1"_s.arg(i % 64 + 0x40, 2, 16), QByteArray(200, 'v'));
    QBENCHMARK
    {
        tlv::parseBerTlv(data);
    }
}

void BenchInpas::clientRun()
{
    QTemporaryDir dir;
    QFile client(dir.filePath(u"zelnorinpas"_s));
    QVERIFY(client.open(QIODevice::WriteOnly));
    client.write("#!/bin/sh\necho '{\"Status\":1}'\n");
    client.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    client.close();
    InpasPaymentProcessing processor;
    processor.setProcessingDirectory(dir.path());
    QBENCHMARK
    {
        processor.executeCommand(15, {}, 10s);
    }
}

QTEST_GUILESS_MAIN(BenchInpas)
#include "bench_inpas.moc"
