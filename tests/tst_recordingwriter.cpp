// The writer of the recordings: a line is appended whole or not at all, a failure never costs a
// line that was already there and is noted, nothing is written through a link, and a writer in
// a hurry never waits for the lock longer than its budget.

#include <recordingwriter.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

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
const QString dayFile =
    u"recordings/"_s + QString::fromStdString(RecordingWriter::dayOf(day)) + u".jsonl"_s;

QByteArray content(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

mode_t modeOf(const QString &path)
{
    struct stat state = {};
    ::lstat(QFile::encodeName(path).constData(), &state);
    return state.st_mode & 07777;
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
    void linksRefused_data();
    void linksRefused();
    void modesPutRight();
    void hurriedWriterDoesNotWaitForTheLock();
};

void tst_RecordingWriter::initTestCase()
{
    ::signal(SIGXFSZ, SIG_IGN); // as the recorder and the scribe do: a failed write, not a death
}

void tst_RecordingWriter::failures_data()
{
    QTest::addColumn<bool>("sizeUnknown");
    QTest::newRow("the write stops half-way") << false;
    // Without the size, a cut back would empty the whole day.
    QTest::newRow("and the size could not be read") << true;
}

// A write that cannot be made whole leaves the day's file exactly as it was; where the write
// itself failed, the failure is noted in recordings/failed, after any earlier one.
void tst_RecordingWriter::failures()
{
    QFETCH(bool, sizeUnknown);
    QTemporaryDir dir;
    RecordingWriter writer(dir.path().toStdString(), day, "run");
    // Longer than the failure note will grow, so that a limit on the size of files stops the
    // next line and not the note.
    const QByteArray first = "{\"event\":\"start\",\"id\":\"" + QByteArray(300, '1') + "\"}\n";
    QCOMPARE(writer.append(first.trimmed().toStdString()), RecordingWriter::Where::DayFile);
    const QString path = QDir(dir.path()).filePath(dayFile);
    QCOMPARE(content(path), first);
    const QString failed = QDir(dir.path()).filePath(u"recordings/failed"_s);
    QFile earlier(failed);
    QVERIFY(earlier.open(QIODevice::WriteOnly));
    earlier.write("2026-11-18T09:00:00 other cannot write: earlier\n");
    earlier.close();

    // The file may grow by 20 bytes: the line's write stops there.
    const std::string line(200, 'x');
    rlimit previous{};
    ::getrlimit(RLIMIT_FSIZE, &previous);
    const rlimit limit{rlim_t(first.size() + 20), previous.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    failFstat = sizeUnknown;
    const RecordingWriter::Where where = writer.append(line);
    failFstat = false;
    ::setrlimit(RLIMIT_FSIZE, &previous);
    QCOMPARE(where, RecordingWriter::Where::Nowhere);
    QCOMPARE(content(path), first);
    QVERIFY(content(failed).startsWith("2026-11-18T09:00:00 other cannot write: earlier\n"));
    if (!sizeUnknown)
        QVERIFY2(content(failed).contains(" run cannot write "), content(failed).constData());
}

// A last line torn by a power loss is ended before the next one, so that no later line is lost
// with it.
void tst_RecordingWriter::tornLineStaysItsOwn()
{
    QTemporaryDir dir;
    RecordingWriter writer(dir.path().toStdString(), day, "run");
    QCOMPARE(writer.append("{}"), RecordingWriter::Where::DayFile);
    QFile file(QDir(dir.path()).filePath(dayFile));
    QVERIFY(file.open(QIODevice::Append));
    file.write("{\"event\":\"st");
    file.close();
    QCOMPARE(writer.append("{\"next\":1}"), RecordingWriter::Where::DayFile);
    QCOMPARE(content(file.fileName()), QByteArray("{}\n{\"event\":\"st\n{\"next\":1}\n"));
}

void tst_RecordingWriter::linksRefused_data()
{
    QTest::addColumn<QString>("link"); // what is a link to elsewhere
    QTest::newRow("the folder") << u"recordings"_s;
    QTest::newRow("the day's file") << dayFile;
    QTest::newRow("the failure note") << u"recordings/failed"_s;
}

// A link where the folder or one of its files should be is never written through: what it
// points to stays as it was.
void tst_RecordingWriter::linksRefused()
{
    QFETCH(QString, link);
    QTemporaryDir dir;
    QTemporaryDir elsewhere;
    const QDir here(dir.path());
    QVERIFY(here.mkpath(u"recordings"_s) || link == "recordings"_L1);
    if (link == "recordings"_L1)
        QVERIFY(here.rmdir(u"recordings"_s));
    const QString target = QDir(elsewhere.path()).filePath(u"target"_s);
    if (link != "recordings"_L1) {
        QFile file(target);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("theirs\n");
    }
    QVERIFY(QFile::link(link == "recordings"_L1 ? elsewhere.path() : target, here.filePath(link)));
    // The failure note is a link only if the day's file cannot be written.
    if (link == "recordings/failed"_L1)
        QVERIFY(QFile::link(target, here.filePath(dayFile)));

    RecordingWriter writer(dir.path().toStdString(), day, "run");
    QCOMPARE(writer.append("{\"event\":\"start\"}"), RecordingWriter::Where::Nowhere);
    QVERIFY2(QString::fromStdString(writer.error()).contains(u"link"_s), writer.error().c_str());
    QCOMPARE(QDir(elsewhere.path()).entryList(QDir::Files | QDir::NoDotAndDotDot),
             link == "recordings"_L1 ? QStringList() : QStringList{u"target"_s});
    if (link != "recordings"_L1)
        QCOMPARE(content(target), QByteArray("theirs\n"));
}

void tst_RecordingWriter::modesPutRight()
{
    QTemporaryDir dir;
    const QDir here(dir.path());
    QVERIFY(here.mkpath(u"recordings"_s));
    QFile file(here.filePath(dayFile));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();
    ::chmod(QFile::encodeName(here.filePath(u"recordings"_s)).constData(), 0755);
    ::chmod(QFile::encodeName(file.fileName()).constData(), 0644);
    RecordingWriter writer(dir.path().toStdString(), day, "run");
    QCOMPARE(writer.append("{}"), RecordingWriter::Where::DayFile);
    QCOMPARE(modeOf(here.filePath(u"recordings"_s)), mode_t(0700));
    QCOMPARE(modeOf(file.fileName()), mode_t(0600));
}

// Another process holds the day's lock for ten seconds: a hurried writer waits its budget, no
// longer, and puts its line in the run's own file.
void tst_RecordingWriter::hurriedWriterDoesNotWaitForTheLock()
{
    QTemporaryDir dir;
    RecordingWriter writer(dir.path().toStdString(), day, "101500.123-42");
    QCOMPARE(writer.append("{\"first\":1}"), RecordingWriter::Where::DayFile);
    const QString path = QDir(dir.path()).filePath(dayFile);
    int locked[2];
    QCOMPARE(::pipe(locked), 0);
    const pid_t holder = ::fork();
    if (holder == 0) {
        const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY);
        ::flock(fd, LOCK_EX);
        [[maybe_unused]] const ssize_t n = ::write(locked[1], "x", 1);
        ::sleep(10);
        ::_exit(0);
    }
    char byte = 0;
    QCOMPARE(::read(locked[0], &byte, 1), ssize_t(1));
    QElapsedTimer clock;
    clock.start();
    const RecordingWriter::Where where =
        writer.append("{\"second\":2}", RecordingWriter::hurried());
    const qint64 waited = clock.elapsed();
    ::kill(holder, SIGKILL);
    ::waitpid(holder, nullptr, 0);
    ::close(locked[0]);
    ::close(locked[1]);
    QCOMPARE(where, RecordingWriter::Where::RunFile);
    QVERIFY2(waited < 5000, qPrintable(QString::number(waited)));
    QVERIFY(waited >= RecordingWriter::hurried().lock.count());
    QCOMPARE(content(path), QByteArray("{\"first\":1}\n"));
    QCOMPARE(content(QDir(dir.path())
                         .filePath(u"recordings/"_s +
                                   QString::fromStdString(RecordingWriter::dayOf(day)) +
                                   u".101500.123-42.jsonl"_s)),
             QByteArray("{\"second\":2}\n"));
}

QTEST_GUILESS_MAIN(tst_RecordingWriter)
#include "tst_recordingwriter.moc"
