// zelnorinpas: an emulator of the Inpas payment client, for rehearsing every path of the till
// without a terminal. It takes the client's command line in its working directory and prints
// the client's JSON answer.

#include "devicelock.h"
#include "emulatorcommand.h"
#include "emulatorsettings.h"
#include "journal.h"
#include "replay.h"
#include "terminal.h"

#include <QCoreApplication>
#include <QDir>
#include <QJsonDocument>
#include <QThread>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/resource.h>

using namespace Qt::Literals::StringLiterals;

namespace {

std::atomic<bool> interrupted{false};

void onInterrupt(int)
{
    interrupted = true;
}

void print(FILE *stream, const QByteArray &bytes)
{
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

// The terminal refuses to work: a Russian line on stderr, as the real client writes, which the
// plug-in shows the cashier.
int refuse(const QString &reason, int status)
{
    print(stderr, (u"Терминал: "_s + reason + u'\n').toUtf8());
    return status;
}

const char usage[] = R"(Usage: zelnorinpas CODE [-a AMOUNT] [-c TEXT] [-d TEXT] [-e N] [-f FUNCTION]
                   [-o N] [-r TEXT] [-t MERCHANT]

An emulator of the Inpas payment client: run in a processing directory, it answers the
client's command line like a terminal with a PIN pad and a bank, and prints the client's JSON
answer. Every option is followed by one argument, which may be empty.

Operation codes: 1 sale, 2 refund, 3 cancel, 4 reconciliation, 11 short report,
12 slip copy, 14 full report, 15 balance. -f paymentSbp, paymentStatusSbp (code 1),
returnSbp, returnStatusSbp (code 2): SBP operations, form identifier in -r (-c for
paymentStatusSbp).

Amounts are whole numbers in minor units (150000 is 1500.00). Their last two digits choose
the outcome: 05 refused, 51 not enough money, 34 no connection, 53 interrupted, 91 hangs,
96 exit status 1, 97 not JSON, 98 crash; anything else is approved.

The journal (zelnorinpas-journal.json) and the settings ([Emulator] in zelnorinpas.conf) are
in the working directory. One operation runs at a time per directory; others wait.

Exit status: 0 answered, 1 the operation was not performed (message on stderr),
2 bad command line or unreadable journal.
)";

// A run of a recorded day, played back as it was recorded.
int replay(const EmulatorSettings &settings, const EmulatorCommand &command,
           const QStringList &arguments)
{
    const Replay::Answer answer =
        Replay::next(settings.replay, settings.replaySpeed, command, arguments);
    if (!answer.refusal.isEmpty())
        return refuse(answer.refusal, 2);
    while (answer.hang)
        QThread::sleep(1);
    QThread::msleep(quint64(answer.waitMs));
    print(stdout, answer.standardOutput);
    print(stderr, answer.standardError);
    if (answer.signal != 0) {
        const rlimit noCore{0, 0};
        ::setrlimit(RLIMIT_CORE, &noCore);
        ::signal(answer.signal, SIG_DFL);
        ::raise(answer.signal);
    }
    return answer.exitStatus;
}

} // namespace

int main(int argc, char *argv[])
{
    // First of all: the host may ask the terminal to interrupt as soon as the client runs.
    struct sigaction action = {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    QCoreApplication app(argc, argv);
    // A file that may not grow (a full disk, a size limit) must fail the write, not the process.
    ::signal(SIGXFSZ, SIG_IGN);

    const QStringList arguments = app.arguments().mid(1);
    if (arguments.size() == 1 &&
        (arguments.first() == "--help"_L1 || arguments.first() == "-h"_L1)) {
        print(stdout, usage);
        return 0;
    }
    EmulatorCommand command;
    QString error;
    if (!EmulatorCommand::parse(arguments, command, error)) {
        print(stderr, (error + u'\n').toUtf8());
        return 2;
    }

    const QDir here = QDir::current();
    const EmulatorSettings settings = EmulatorSettings::read(here.filePath(u"zelnorinpas.conf"_s));
    DeviceLock device;
    switch (device.acquire(here.path(), std::chrono::milliseconds(settings.busyTimeoutMs),
                           interrupted)) {
    case DeviceLock::Acquired:
        break;
    case DeviceLock::Busy:
        print(stdout, QJsonDocument(Terminal::busy().json).toJson(QJsonDocument::Compact) + '\n');
        return 0;
    case DeviceLock::Interrupted:
        print(stdout, R"({"Status":53,"TextResponse":"ОПЕРАЦИЯ ПРЕРВАНА"})"
                      "\n");
        return 0;
    case DeviceLock::Failed:
        return refuse(u"нет доступа к файлу блокировки %1 в рабочем каталоге, операция не "
                      u"выполнена"_s.arg(QLatin1StringView(DeviceLock::fileName)),
                      1);
    }

    if (!settings.replay.isEmpty())
        return replay(settings, command, arguments);

    const QString journalPath = here.filePath(QString::fromLatin1(Journal::fileName));
    Journal journal;
    if (!Journal::load(journalPath, journal, error))
        return refuse(error + u"; операции невозможны, пока журнал не восстановлен"_s, 2);

    Terminal terminal(settings, journal, interrupted);
    const EmulatorAnswer answer = terminal.run(command);
    // Nothing is answered that the journal does not hold.
    if (!journal.save(journalPath, error))
        return refuse(error + u", операция не выполнена"_s, 1);

    switch (answer.kind) {
    case EmulatorAnswer::Answer:
        print(stdout, QJsonDocument(answer.json).toJson(QJsonDocument::Compact) + '\n');
        return 0;
    case EmulatorAnswer::Hang:
        for (;;)
            QThread::sleep(1);
    case EmulatorAnswer::FailExit:
        print(stderr, u"Нет связи с пин-падом\n"_s.toUtf8());
        return 1;
    case EmulatorAnswer::NotJson:
        print(stdout, u"ОШИБКА ОБМЕНА С ХОСТОМ\n"_s.toUtf8());
        return 0;
    case EmulatorAnswer::Crash: {
        const rlimit noCore{0, 0}; // a crash on purpose should not leave a core file behind
        ::setrlimit(RLIMIT_CORE, &noCore);
        std::abort();
    }
    }
    return 0;
}
