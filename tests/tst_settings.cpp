// Settings read from zelnorinpas.conf through the host's configuration.

#include "fakeclient.h"

#include <config.h>
#include <plugin/inpaspaymentprocessing.h>
#include <singleton.h>

#include <QTest>

using namespace Qt::Literals::StringLiterals;

namespace {

// The host's configuration, remembering which files the processor registered.
class RecordingConfig : public Config
{
public:
    bool addConfigFile(const QString &path, const QString &name) override
    {
        files.append({path, name});
        return Config::addConfigFile(path, name);
    }
    QList<QPair<QString, QString>> files;
};

RecordingConfig *recording = nullptr;

} // namespace

class tst_Settings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void directoryAndFile_data();
    void directoryAndFile();
    void values_data();
    void values();
    void setsGrowOverDirectories();
    void interruptOptionOnlySwitchesOn();
    void scanOnCancelFollowsLatest();
};

void tst_Settings::initTestCase()
{
    QVERIFY(!Singleton<Config>::instance);
    recording = new RecordingConfig;
    Singleton<Config>::instance = recording;
}

void tst_Settings::init()
{
    recording->files.clear();
}

void tst_Settings::directoryAndFile_data()
{
    QTest::addColumn<QString>("argument");
    QTest::addColumn<QString>("directory");
    QTest::addColumn<QString>("file");
    QTest::newRow("empty") << u""_s << u"/tillroot/cash/paysystems/inpas"_s
                           << u"/tillroot/cash/paysystems/inpas/zelnorinpas.conf"_s;
    QTest::newRow("null") << QString() << u"/tillroot/cash/paysystems/inpas"_s
                          << u"/tillroot/cash/paysystems/inpas/zelnorinpas.conf"_s;
    QTest::newRow("trailing slash")
        << u"/opt/pay/"_s << u"/opt/pay/"_s << u"/opt/pay//zelnorinpas.conf"_s;
    QTest::newRow("kept as given")
        << u" rel/dir"_s << u" rel/dir"_s << u" rel/dir/zelnorinpas.conf"_s;
}

void tst_Settings::directoryAndFile()
{
    QFETCH(QString, argument);
    QFETCH(QString, directory);
    QFETCH(QString, file);
    // The constructor reads the default directory's file, through the host's configuration.
    InpasPaymentProcessing processor;
    processor.setProcessingDirectory(argument);
    QCOMPARE(processor.getProcessingDirectory(), directory);
    QCOMPARE(recording->files.size(), 2);
    QCOMPARE(recording->files.first().first, u"/tillroot/cash/paysystems/inpas/zelnorinpas.conf"_s);
    QCOMPARE(recording->files.last().first, file);
    QCOMPARE(recording->files.last().second, u"inpas"_s);
}

void tst_Settings::values_data()
{
    QTest::addColumn<QByteArray>("ini"); // null: no file at all
    QTest::addColumn<QSet<int>>("codes");
    QTest::addColumn<QSet<QString>>("texts");
    QTest::addColumn<QSet<QString>>("hostCodes");
    QTest::addColumn<int>("interval");
    QTest::addColumn<int>("notEnough");
    const auto row = [](const char *name, const QByteArray &ini, const QSet<int> &codes = {},
                        const QSet<QString> &texts = {}, const QSet<QString> &hostCodes = {},
                        int interval = 2, int notEnough = -1) {
        QTest::newRow(name) << ini << codes << texts << hostCodes << interval << notEnough;
    };
    row("no file", QByteArray());
    row("bad codes dropped",
        "[Client]\nreturnStatusSbpSuccessCodes=12, -3, abc, 4294967296, , 2147483647, "
        "-2147483649\n",
        {12, -3, 2147483647});
    row("texts trimmed and upper-cased",
        "[Client]\nsuccessTextResponses=  approved , Одобрено,APPROVED,одобрено ,  ,\n"
        "hostCodesResponseToRetry= 5 ,a1, A1\n",
        {}, {u"APPROVED"_s, u"ОДОБРЕНО"_s}, {u"5"_s, u"A1"_s});
    row("numbers",
        "[Client]\nintervalBetweenOperations=7\n[ErrorCodes]\nnotEnoughtBalanceCode=51\n", {}, {},
        {}, 7, 51);
    row("malformed numbers keep defaults",
        "[Client]\nintervalBetweenOperations=soon\n[ErrorCodes]\nnotEnoughtBalanceCode=\n");
    row("keys in the wrong group are not seen",
        "[ErrorCodes]\nintervalBetweenOperations=9\n[Client]\nnotEnoughtBalanceCode=51\n");
}

void tst_Settings::values()
{
    QFETCH(QByteArray, ini);
    FakeClient client;
    if (!ini.isNull())
        client.setConfig(ini);
    InpasPaymentProcessing processor;
    processor.setProcessingDirectory(client.directory());
    const InpasSettings &s = processor.currentSettings();
    QTEST(s.returnStatusSbpSuccessCodes, "codes");
    QTEST(s.successTextResponses, "texts");
    QTEST(s.hostCodesResponseToRetry, "hostCodes");
    QTEST(s.intervalBetweenOperations, "interval");
    QTEST(s.notEnoughtBalanceCode, "notEnough");
}

void tst_Settings::setsGrowOverDirectories()
{
    FakeClient first;
    first.setConfig("[Client]\nsuccessTextResponses=ОДОБРЕНО\nreturnStatusSbpSuccessCodes=5\n"
                    "intervalBetweenOperations=3\n");
    FakeClient second;
    second.setConfig("[Client]\nsuccessTextResponses=APPROVED\nreturnStatusSbpSuccessCodes=7\n");
    InpasPaymentProcessing processor;
    processor.setProcessingDirectory(first.directory());
    processor.setProcessingDirectory(second.directory());
    const InpasSettings &s = processor.currentSettings();
    QCOMPARE(s.successTextResponses, (QSet<QString>{u"ОДОБРЕНО"_s, u"APPROVED"_s}));
    QCOMPARE(s.returnStatusSbpSuccessCodes, (QSet<int>{5, 7}));
    // Numbers take the latest file's value, its default when absent.
    QCOMPARE(s.intervalBetweenOperations, 2);
    QCOMPARE(processor.getProcessingDirectory(), second.directory());
}

void tst_Settings::interruptOptionOnlySwitchesOn()
{
    // The host's words for yes and no, in any case.
    FakeClient allowed;
    allowed.setConfig("[Client]\nallowInterruptPayment= Yes\n");
    FakeClient forbidden;
    forbidden.setConfig("[Client]\nallowInterruptPayment=no\n");
    InpasPaymentProcessing processor;
    processor.setProcessingDirectory(forbidden.directory());
    QVERIFY(!processor.checkOption(processing::AllowInterruptPayment));
    processor.setProcessingDirectory(allowed.directory());
    QVERIFY(processor.checkOption(processing::AllowInterruptPayment));
    processor.setProcessingDirectory(forbidden.directory());
    QVERIFY(processor.checkOption(processing::AllowInterruptPayment));
}

void tst_Settings::scanOnCancelFollowsLatest()
{
    FakeClient off;
    off.setConfig("[Client]\nscanTokenOnCancel=OFF\n");
    FakeClient malformed;
    malformed.setConfig("[Client]\nscanTokenOnCancel=maybe\n");
    InpasPaymentProcessing processor;
    processor.setProcessingDirectory(off.directory());
    QVERIFY(!processor.checkOption(processing::ScanTokenOnCancel));
    // A value that is neither yes nor no gives the default.
    processor.setProcessingDirectory(malformed.directory());
    QVERIFY(processor.checkOption(processing::ScanTokenOnCancel));
    // Through the host's base, as the host calls it.
    static_cast<AbstractPaymentProcessing &>(processor).setProcessingDirectory(off.directory());
    QVERIFY(!processor.checkOption(processing::ScanTokenOnCancel));
}

QTEST_GUILESS_MAIN(tst_Settings)
#include "tst_settings.moc"
