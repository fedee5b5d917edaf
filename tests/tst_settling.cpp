// Runs that need a person, from recordings written here line by line: settled by a person or
// by a later cancel or SBP refund, looked for on every day, and check's blind spots, each a
// finding.

#include "programrun.h"
#include "words.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

struct Run
{
    QString id;
    QByteArray arguments; // JSON array
    int status;           // the answer's Status; 1 approves
    QByteArray reference;
    bool acknowledged; // the host took the answer
};

// A run's lines as the recorder and its scribe write them; pids that no process has, one a run.
QByteArray lines(const Run &run)
{
    const QByteArray id = run.id.toUtf8();
    const QByteArray time = id.left(23) + "+00:00";
    const QByteArray pid = "39990" + id.mid(24);
    QByteArray text = "{\"event\":\"start\",\"id\":\"" + id + "\",\"time\":\"" + time +
                      "\",\"pid\":" + pid + ",\"arguments\":" + run.arguments +
                      ",\"host\":\"posctl\",\"hostPid\":3999991}\n";
    text += "{\"event\":\"end\",\"id\":\"" + id + "\",\"time\":\"" + time +
            "\",\"durationMs\":700,\"exitStatus\":0,\"delivered\":true,\"approval\":" +
            (run.status == 1 ? "true" : "false") + ",\"stdoutBytes\":10,\"stderrBytes\":0}\n";
    text += "{\"event\":\"output\",\"id\":\"" + id + "\",\"answer\":{\"ReferenceNumber\":\"" +
            run.reference + "\",\"Status\":" + QByteArray::number(run.status) +
            ",\"TextResponse\":\"ТЕКСТ\"},\"stdout\":\"\",\"stderr\":\"\"}\n";
    if (run.acknowledged)
        text += "{\"event\":\"acknowledged\",\"time\":\"" + time +
                "\",\"host\":\"posctl\",\"pids\":[" + pid + "]}\n";
    return text;
}

const QDate today = QDate::currentDate();
QString at(const QDate &day, const char *time, int pid)
{
    return day.toString(Qt::ISODate) + u'T' + QLatin1StringView(time) + u"-"_s +
           QString::number(pid);
}

const QByteArray saleArguments = R"(["1","-a","30000","-r",""])";

class Recordings
{
public:
    Recordings()
    {
        QVERIFY(QDir(m_dir.path()).mkdir(u"recordings"_s));
        QFile client(QDir(m_dir.path()).filePath(u"zelnorinpas"_s));
        QVERIFY(client.open(QIODevice::WriteOnly));
        client.write("#!/bin/sh\n");
        client.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    }
    QString directory() const { return m_dir.path(); }
    void add(const QDate &day, const QByteArray &text) const
    {
        QFile file(
            QDir(m_dir.path()).filePath(u"recordings/%1.jsonl"_s.arg(day.toString(Qt::ISODate))));
        QVERIFY(file.open(QIODevice::Append));
        file.write(text);
    }
    ProgramRun posctl(const QStringList &arguments) const
    {
        return ProgramRun::run(QStringLiteral(POSCTL_PATH),
                               QStringList{u"--json"_s, u"--dir"_s, m_dir.path()} + arguments);
    }
    QStringList kinds() const
    {
        QStringList names;
        for (const QJsonValue &f : posctl({u"check"_s}).json().value("findings"_L1).toArray())
            names.append(f.toObject().value("kind"_L1).toString());
        return names;
    }

private:
    QTemporaryDir m_dir;
};

} // namespace

class tst_Settling : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void settling_data();
    void settling();
    void blindSpots_data();
    void blindSpots();
    void prune();
};

void tst_Settling::settling_data()
{
    QTest::addColumn<QByteArray>("later");   // lines after the unseen approval, today
    QTest::addColumn<QStringList>("settle"); // posctl settle's arguments after the run, if any
    QTest::addColumn<int>("settleExit");
    QTest::addColumn<int>("checkExit");
    QTest::addColumn<QString>("kind"); // the run's finding

    const QString sale = at(today.addDays(-9), "10:00:00.000", 11);
    const auto reversal = [&](const QByteArray &arguments, const char *reference) -> QByteArray {
        return lines({at(today, "11:00:00.000", 12), arguments, 1, "000000000002", true}) +
               QByteArray(reference);
    };
    QTest::newRow("open on an earlier day")
        << QByteArray() << QStringList() << 0 << 1 << u"unseenApproval"_s;
    for (const char *way : {"cancelled", "kept", "not-charged"})
        QTest::newRow(qPrintable(u"settled as "_s + QLatin1StringView(way)))
            << QByteArray() << QStringList{u"--as"_s, QLatin1StringView(way)} << 0 << 0
            << u"settledRun"_s;
    QTest::newRow("settled by a later cancel")
        << reversal(R"(["3","-a","30000","-r","000000000001"])", "") << QStringList() << 0 << 0
        << u"settledRun"_s;
    // The refund names the payment with -c; its approval comes with a status query.
    QTest::newRow("settled by a later SBP refund")
        << lines({at(today, "10:30:00.000", 13),
                  R"(["2","-a","30000","-c","000000000001","-f","returnSbp","-r","F1"])", 0, "",
                  true}) +
               reversal(R"(["2","-a","30000","-c","","-f","returnStatusSbp","-r","F1"])", "")
        << QStringList() << 0 << 0 << u"settledRun"_s;
    QTest::newRow("a cancel of another amount settles nothing")
        << reversal(R"(["3","-a","100","-r","000000000001"])", "") << QStringList() << 0 << 1
        << u"unseenApproval"_s;
    QTest::newRow("a refused cancel settles nothing")
        << lines({at(today, "11:00:00.000", 12), R"(["3","-a","30000","-r","000000000001"])", 0, "",
                  true})
        << QStringList() << 0 << 1 << u"unseenApproval"_s;
    QTest::newRow("settled twice: the second refused")
        << QByteArray(
               "{\"event\":\"settled\",\"id\":\"" + sale.toUtf8() +
               "\",\"time\":\"2026-11-24T10:00:00.000+00:00\",\"how\":\"kept\",\"by\":\"x\"}\n")
        << QStringList{u"--as"_s, u"cancelled"_s} << 1 << 0 << u"settledRun"_s;
    QTest::newRow("a torn settling line leaves it open")
        << QByteArray("{\"event\":\"settled\",\"id\":\"" + sale.toUtf8() + "\",\"how\":\"ke")
        << QStringList() << 0 << 1 << u"unseenApproval"_s;
    QTest::newRow("a way nobody knows")
        << QByteArray() << QStringList{u"--as"_s, u"maybe"_s} << 2 << 1 << u"unseenApproval"_s;
}

void tst_Settling::settling()
{
    QFETCH(QByteArray, later);
    QFETCH(QStringList, settle);
    const Recordings recordings;
    const QString sale = at(today.addDays(-9), "10:00:00.000", 11);
    recordings.add(today.addDays(-9), lines({sale, saleArguments, 1, "000000000001", false}));
    // A day between, so that the sale's day is neither today nor yesterday's neighbour.
    recordings.add(today.addDays(-5),
                   lines({at(today.addDays(-5), "10:00:00.000", 14), R"(["15"])", 1, "", true}));
    recordings.add(today, later);
    if (!settle.isEmpty())
        QTEST(recordings.posctl(QStringList{u"settle"_s, sale} + settle).exitCode, "settleExit");
    const ProgramRun check = recordings.posctl({u"check"_s});
    QTEST(check.exitCode, "checkExit");
    QFETCH(QString, kind);
    QString found;
    for (const QJsonValue &f : check.json().value("findings"_L1).toArray())
        if (f.toObject().value("run"_L1).toString() == sale)
            found = f.toObject().value("kind"_L1).toString();
    QCOMPARE(found, kind);
    // recordings of the sale's day alone shows it settled by what came days after.
    const QJsonArray runs =
        recordings.posctl({u"recordings"_s, u"--day"_s, today.addDays(-9).toString(Qt::ISODate)})
            .json()
            .value("runs"_L1)
            .toArray();
    QCOMPARE(runs.first().toObject().value("open"_L1).toBool(), kind == "unseenApproval"_L1);
}

void tst_Settling::blindSpots_data()
{
    QTest::addColumn<QByteArray>("today");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("monitoring"); // check --monitoring's exit status
    QByteArray failures;
    for (int i = 0; i < 5; ++i)
        failures += lines({at(today, "09:00:0%1.000", 20 + i).arg(i), saleArguments, 16, "", true});
    QTest::newRow("the recorder off over an open run")
        << lines({at(today, "10:00:00.000", 11), saleArguments, 1, "000000000001", false})
        << u"recorderOffOverOpenRuns"_s << 2;
    QTest::newRow("five failures in a row") << failures << u"repeatedFailures"_s << 1;
    QTest::newRow("a run that needs nothing")
        << lines({at(today, "10:00:00.000", 11), saleArguments, 1, "000000000001", true})
        << QString() << 0;
}

void tst_Settling::blindSpots()
{
    QFETCH(QByteArray, today);
    const Recordings recordings;
    recordings.add(::today, today);
    QFETCH(QString, kind);
    if (!kind.isEmpty())
        QVERIFY2(recordings.kinds().contains(kind), qPrintable(recordings.kinds().join(u' ')));
    QTEST(recordings.posctl({u"check"_s, u"--monitoring"_s}).exitCode, "monitoring");
    // Nothing to read is no answer at all.
    const ProgramRun nowhere = ProgramRun::run(QStringLiteral(POSCTL_PATH),
                                               {u"--dir"_s, u"/nonexistent"_s, u"recordings"_s});
    QCOMPARE(nowhere.exitCode, 1);
    QCOMPARE(ProgramRun::run(QStringLiteral(POSCTL_PATH),
                             {u"--dir"_s, u"/nonexistent"_s, u"check"_s, u"--monitoring"_s})
                 .exitCode,
             3);
    if (::geteuid() != 0) {
        QVERIFY(QFile::setPermissions(QDir(recordings.directory()).filePath(u"recordings"_s),
                                      QFile::WriteOwner));
        QVERIFY(recordings.kinds().contains(u"recordingsUnreadable"_s));
        QCOMPARE(recordings.posctl({u"check"_s, u"--monitoring"_s}).exitCode, 3);
    }
}

// Old days go, but one with an open run stays, and so does a settling of a run that stays.
void tst_Settling::prune()
{
    const Recordings recordings;
    const QDate old = today.addDays(-40);
    const QString open = at(old, "10:00:00.000", 11);
    recordings.add(old, lines({open, saleArguments, 1, "000000000001", false}));
    recordings.add(old.addDays(1), lines({at(old.addDays(1), "10:00:00.000", 12), saleArguments, 1,
                                          "000000000003", true}));
    const ProgramRun pruned =
        recordings.posctl({u"recordings"_s, u"prune"_s, u"--keep-days"_s, u"30"_s});
    QCOMPARE(pruned.exitCode, 0);
    const QStringList files =
        QDir(QDir(recordings.directory()).filePath(u"recordings"_s)).entryList(QDir::Files);
    QCOMPARE(files, QStringList{old.toString(Qt::ISODate) + u".jsonl"_s});
    QVERIFY(recordings.kinds().contains(u"unseenApproval"_s));
}

QTEST_GUILESS_MAIN(tst_Settling)
#include "tst_settling.moc"
