// The host stand-in's process runner, against programs that misbehave in every way we know.

#include <externalprocessthread.h>
#include <processmonitor.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

int openDescriptors()
{
    return int(QDir(u"/proc/self/fd"_s).entryList(QDir::Files | QDir::System).size());
}

} // namespace

class tst_ExternalProcessThread : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void runs_data();
    void runs();
    void argumentsReachTheProgramUnchanged();
    void cannotStart_data();
    void cannotStart();
    void leavesNothingBehind();
    void processIdValidAfterStart();
    void interruptReachesProgramEvenWhenHostIgnoresIt();

private:
    QString script(const QByteArray &body, const QByteArray &interpreter = "/bin/sh");
    QTemporaryDir m_dir;
    int m_scripts = 0;
};

QString tst_ExternalProcessThread::script(const QByteArray &body, const QByteArray &interpreter)
{
    const QString name = u"prog%1"_s.arg(++m_scripts);
    QFile file(m_dir.filePath(name));
    if (!file.open(QIODevice::WriteOnly))
        return {};
    file.write("#!" + interpreter + '\n' + body + '\n');
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return u"./"_s + name;
}

void tst_ExternalProcessThread::runs_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("timeoutMs");
    QTest::addColumn<int>("error"); // -1: the program ran to its end
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArray>("err");
    const auto row = [](const char *name, const QByteArray &body, int timeoutMs, int error,
                        int exitCode, const QByteArray &out = {}, const QByteArray &err = {}) {
        QTest::newRow(name) << body << timeoutMs << error << exitCode << out << err;
    };
    const int crashed = ExternalProcessThread::Crashed;
    const int timedOut = ExternalProcessThread::Timedout;

    row("answer", "printf '{\"Status\":1}'; printf 'note' >&2", 60000, -1, 0, "{\"Status\":1}",
        "note");
    row("non-zero exit", "echo 'Нет связи' >&2; exit 3", 60000, -1, 3, "", "Нет связи\n");
    row("crash", "echo partial; kill -SEGV $$", 60000, crashed, 0, "partial\n");
    // What it wrote before its time was up is kept: time enough to write it on a busy machine.
    row("time-out", "echo started; sleep 60", 3000, timedOut, 0, "started\n");
    row("ignores SIGTERM", "trap '' TERM INT; while :; do sleep 1; done", 300, timedOut, 0);
    row("closes output and runs on", "exec >&- 2>&-; sleep 60", 300, timedOut, 0);
    row("closes output and ends", "exec >&- 2>&-; sleep 0.2; exit 4", 60000, -1, 4);
    row("child keeps the pipes", "sleep 60 & echo done", 60000, -1, 0, "done\n");
    row("no output", "exit 0", 60000, -1, 0);
}

// Whatever the program does, the run is over soon after its end or its time-out: within ten
// seconds, where waiting for what the program left running would take a minute.
void tst_ExternalProcessThread::runs()
{
    QFETCH(QByteArray, body);
    QFETCH(int, timeoutMs);
    QFETCH(int, error);

    QElapsedTimer clock;
    clock.start();
    qint64 pid = 0;
    {
        ExternalProcessThread runner(script(body), {}, std::chrono::milliseconds(timeoutMs),
                                     m_dir.path());
        runner.start();
        pid = runner.processId();
        QCOMPARE(runner.exec(), error == -1);
        QCOMPARE(runner.error(), error);
        QTEST(runner.exitCode(), "exitCode");
        QTEST(runner.standardOutput().toUtf8(), "out");
        QTEST(runner.standardError().toUtf8(), "err");
    }
    const int limitMs = (error == ExternalProcessThread::Timedout ? timeoutMs : 0) + 10000;
    QVERIFY2(clock.elapsed() < limitMs, qPrintable(u"took %1 ms"_s.arg(clock.elapsed())));
    ::kill(-pid, SIGKILL); // whatever the program left running in its group
}

void tst_ExternalProcessThread::argumentsReachTheProgramUnchanged()
{
    const QString program = script("pwd; for a in \"$@\"; do printf '[%s]' \"$a\"; done");
    const QStringList arguments{u"4"_s,   u""_s,     u"two words"_s, u"$HOME"_s,
                                u"'q'"_s, u"; ls"_s, u"кириллица"_s};
    ExternalProcessThread runner(program, arguments, 5s, m_dir.path());
    runner.start();
    QVERIFY(runner.exec());
    QCOMPARE(runner.standardOutput(),
             m_dir.path() + u"\n[4][][two words][$HOME]['q'][; ls][кириллица]"_s);
}

void tst_ExternalProcessThread::cannotStart_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("directory");
    QTest::addColumn<int>("reason"); // StartFailure::Reason
    QTest::addColumn<QString>("detail");
    QTest::newRow("missing program")
        << u"./nothing-here"_s << m_dir.path() << int(StartFailure::NoProgram) << QString();
    QTest::newRow("missing directory") << script("exit 0") << m_dir.filePath(u"absent"_s)
                                       << int(StartFailure::NoDirectory) << QString();
    QTest::newRow("missing interpreter")
        << script("exit 0", "/nonexistent/sh") << m_dir.path() << int(StartFailure::BadInterpreter)
        << u"/nonexistent/sh"_s;
    QFile plain(m_dir.filePath(u"plain"_s));
    QVERIFY(plain.open(QIODevice::WriteOnly));
    plain.write("#!/bin/sh\n");
    plain.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
    QTest::newRow("not executable")
        << u"./plain"_s << m_dir.path() << int(StartFailure::PermissionDenied) << QString();
}

void tst_ExternalProcessThread::cannotStart()
{
    QFETCH(QString, program);
    QFETCH(QString, directory);
    struct Failures : ProcessMonitor
    {
        QList<StartFailure> seen;
        void failedToStart(const QString &, const QString &, const StartFailure &f) override
        {
            seen.append(f);
        }
    } failures;
    ProcessMonitor::install(&failures);
    const int before = openDescriptors();
    {
        ExternalProcessThread runner(program, {}, 5s, directory);
        runner.start();
        QCOMPARE(runner.processId(), 0);
        QVERIFY(!runner.exec());
        QCOMPARE(runner.error(), int(ExternalProcessThread::FailedToStart));
    }
    ProcessMonitor::install(nullptr);
    QCOMPARE(openDescriptors(), before);
    QCOMPARE(failures.seen.size(), 1);
    QTEST(int(failures.seen.first().reason), "reason");
    QTEST(failures.seen.first().detail, "detail");
}

void tst_ExternalProcessThread::leavesNothingBehind()
{
    const QString fifty = script("head -c 52428800 /dev/zero; echo tail >&2");
    const QString hang = script("sleep 30");
    const int before = openDescriptors();
    qint64 pid = 0;
    {
        ExternalProcessThread runner(fifty, {}, 30s, m_dir.path());
        runner.start();
        pid = runner.processId();
        QVERIFY(runner.exec());
        QCOMPARE(runner.standardOutput().size(), 52428800);
        QCOMPARE(runner.standardError(), u"tail\n"_s);
    }
    QCOMPARE(::waitpid(pid_t(pid), nullptr, WNOHANG), -1); // reaped: no zombie of ours
    {
        // Destroyed without exec(): the program is ended and reaped all the same.
        ExternalProcessThread runner(hang, {}, 30s, m_dir.path());
        runner.start();
        pid = runner.processId();
    }
    QCOMPARE(::waitpid(pid_t(pid), nullptr, WNOHANG), -1);
    QCOMPARE(::kill(pid_t(pid), 0), -1);
    QCOMPARE(openDescriptors(), before);
}

void tst_ExternalProcessThread::processIdValidAfterStart()
{
    ExternalProcessThread runner(script("sleep 0.3"), {}, 5s, m_dir.path());
    runner.start();
    const auto pid = pid_t(runner.processId());
    QVERIFY(pid > 0);
    QCOMPARE(::kill(pid, 0), 0);
    QCOMPARE(::getpgid(pid), pid); // a process group of its own
    QVERIFY(runner.exec());
    // Ended but not yet reaped, so its id cannot have been given to another process.
    QCOMPARE(::kill(pid, 0), 0);
}

void tst_ExternalProcessThread::interruptReachesProgramEvenWhenHostIgnoresIt()
{
    const auto previous = ::signal(SIGINT, SIG_IGN);
    const QString ready = m_dir.filePath(u"ready"_s);
    ExternalProcessThread runner(
        script("trap 'echo interrupted; exit 0' INT; touch ready; sleep 5 & wait"), {}, 5s,
        m_dir.path());
    runner.start();
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(ready), 30000);
    ::kill(pid_t(runner.processId()), SIGINT);
    QVERIFY(runner.exec());
    ::kill(-pid_t(runner.processId()), SIGKILL); // the sleep it left behind
    ::signal(SIGINT, previous);
    QCOMPARE(runner.standardOutput(), u"interrupted\n"_s);
}

QTEST_GUILESS_MAIN(tst_ExternalProcessThread)
#include "tst_externalprocessthread.moc"
