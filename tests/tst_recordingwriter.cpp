// The recorder's writer of a day's file: a line is appended whole or not at all, and a failure
// never costs a line that was already there.

#include <recordingwriter.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace Qt::Literals::StringLiterals;

// The writer's fstat(), through the linker's --wrap: fails while failFstat is set.
namespace {
bool failFstat = false;
}
extern "C" int __real_fstat(int fd, struct stat *state);
extern "C" int __wrap_fstat(int fd, struct stat *state)
{
    if (failFstat) {
        errno = EIO;
        return -1;
    }
    return __real_fstat(fd, state);
}

namespace {

const std::time_t day = 1795000000; // 2026-11-18

QByteArray content(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class tst_RecordingWriter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void failures_data();
    void failures();
    void tornLineStaysItsOwn();
};

void tst_RecordingWriter::initTestCase()
{
    ::signal(SIGXFSZ, SIG_IGN); // as the recorder and the scribe do: a failed write, not a death
}

void tst_RecordingWriter::failures_data()
{
    QTest::addColumn<QString>("how");
    QTest::newRow("the write stops half-way") << u"write"_s;
    // Without the size, a cut back would empty the whole day.
    QTest::newRow("and the size could not be read") << u"fstat"_s;
}

// A write that cannot be made whole leaves the day's file exactly as it was, and the failure is
// noted in recordings/failed.
void tst_RecordingWriter::failures()
{
    QFETCH(QString, how);
    QTemporaryDir dir;
    RecordingWriter writer(dir.path().toStdString(), day);
    const QByteArray first = "{\"event\":\"start\",\"id\":\"1\"}\n";
    QVERIFY(writer.append(first.trimmed().toStdString()));
    const QString path = QString::fromStdString(writer.path());
    QCOMPARE(content(path), first);

    // The file may grow by 20 bytes: the line's write stops there.
    const std::string line(200, 'x');
    rlimit previous{};
    ::getrlimit(RLIMIT_FSIZE, &previous);
    const rlimit limit{rlim_t(first.size() + 20), previous.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    failFstat = how == "fstat"_L1;
    const bool appended = writer.append(line);
    failFstat = false;
    ::setrlimit(RLIMIT_FSIZE, &previous);
    QVERIFY(!appended);
    QCOMPARE(content(path), first);
    QVERIFY(QFile::exists(QDir(dir.path()).filePath(u"recordings/failed"_s)));
}

// A last line torn by a power loss is ended before the next one, so that no later line is lost
// with it.
void tst_RecordingWriter::tornLineStaysItsOwn()
{
    QTemporaryDir dir;
    RecordingWriter writer(dir.path().toStdString(), day);
    QVERIFY(writer.append("{}"));
    const QString path = QString::fromStdString(writer.path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::Append));
    file.write("{\"event\":\"st");
    file.close();
    QVERIFY(writer.append("{\"next\":1}"));
    QCOMPARE(content(path), QByteArray("{}\n{\"event\":\"st\n{\"next\":1}\n"));
}

QTEST_GUILESS_MAIN(tst_RecordingWriter)
#include "tst_recordingwriter.moc"
