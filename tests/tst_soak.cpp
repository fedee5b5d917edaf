// Two thousand operations through one processor leave descriptors, threads and memory where
// the first hundred left them.

#include "processorfixture.h"

#include <QDir>
#include <QFile>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

namespace {

// AddressSanitizer keeps freed memory back and its own books grow: there LeakSanitizer, which
// runs in that build, answers for leaks instead of the resident size.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool residentSizeMeaningful = false;
#else
constexpr bool residentSizeMeaningful = true;
#endif

struct Usage
{
    qsizetype descriptors = 0;
    int threads = 0;
    qint64 residentKb = 0;
};

Usage usage()
{
    Usage u;
    u.descriptors = QDir(u"/proc/self/fd"_s).entryList(QDir::Files | QDir::System).size();
    QFile status(u"/proc/self/status"_s);
    if (status.open(QIODevice::ReadOnly)) {
        for (const QByteArray &line : status.readAll().split('\n')) {
            if (line.startsWith("Threads:"))
                u.threads = line.mid(8).trimmed().toInt();
            else if (line.startsWith("VmRSS:"))
                u.residentKb = line.mid(6).trimmed().split(' ').first().toLongLong();
        }
    }
    return u;
}

} // namespace

class tst_Soak : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void resourcesStayFlat();
};

void tst_Soak::resourcesStayFlat()
{
    ProcessorFixture f;
    // A trivial client: no records, just the answer.
    QFile client(f.client.directory() + u"/zelnorinpas"_s);
    QVERIFY(client.open(QIODevice::WriteOnly | QIODevice::Truncate));
    client.write("#!/bin/sh\necho '{\"Status\":1,\"TextResponse\":\"OK\",\"ReceiptData\":"
                 "\"0xDF^1^slip~\"}'\n");
    client.close();
    const QuietLog quiet;

    Usage first;
    for (int i = 1; i <= 2000; ++i) {
        QCOMPARE(f.processor->balance(QString()).result, 0);
        if (i == 100)
            first = usage();
    }
    const Usage last = usage();
    QCOMPARE(last.descriptors, first.descriptors);
    QCOMPARE(last.threads, first.threads);
    QVERIFY2(
        !residentSizeMeaningful || last.residentKb - first.residentKb < 1024,
        qPrintable(
            u"%1 kB after 100, %2 kB after 2000"_s.arg(first.residentKb).arg(last.residentKb)));
}

QTEST_GUILESS_MAIN(tst_Soak)
#include "tst_soak.moc"
