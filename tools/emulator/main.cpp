// zelnorinpas: an emulator of the Inpas payment client, for rehearsing every path of the till
// without a terminal. It takes the client's command line in its working directory and prints
// the client's JSON answer.

#include "emulatorcommand.h"
#include "emulatorsettings.h"
#include "journal.h"
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

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    struct sigaction action = {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);

    EmulatorCommand command;
    QString error;
    if (!EmulatorCommand::parse(app.arguments().mid(1), command, error)) {
        print(stderr, (error + u'\n').toUtf8());
        return 2;
    }

    const QDir here = QDir::current();
    const EmulatorSettings settings = EmulatorSettings::read(here.filePath(u"zelnorinpas.conf"_s));
    const QString journalPath = here.filePath(QString::fromLatin1(Journal::fileName));
    Journal journal = Journal::load(journalPath);

    Terminal terminal(settings, journal, interrupted);
    const EmulatorAnswer answer = terminal.run(command);
    if (!journal.save(journalPath))
        print(stderr, "Не удалось сохранить журнал операций\n");

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
