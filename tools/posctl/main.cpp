// posctl: a command-line POS host for the Inpas payment plug-in. It loads the plug-in as the
// host does and makes one host call per command.

#include "acknowledgement.h"
#include "commandline.h"
#include "commandtable.h"
#include "exitstatus.h"
#include "logsink.h"
#include "posctlhost.h"

#include <hostinstance.h>
#include <valutcollection.h>

#include <signalpipe.h>

#include <QCoreApplication>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

int fail(const QString &message)
{
    const QByteArray bytes = u"posctl: %1\n"_s.arg(message).toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    return ExitStatus::UsageError;
}

const char helpHead[] = R"(Usage: posctl [OPTIONS] COMMAND [ARGS] [REQUEST OPTIONS]
  or:  posctl [OPTIONS] batch < commands.txt

A command-line POS host for the Inpas payment plug-in: it loads the plug-in as the till's host
does, takes a processor from its factory and makes one host call per command.

)";

const char helpTail[] = R"(
Options:
  --plugin PATH        the plug-in library (default: beside posctl, then the installed one)
  --dir DIR            the processing directory (the client and zelnorinpas.conf);
                       the plug-in's default is /tillroot/cash/paysystems/inpas
  --json               print one JSON object on stdout
  -v, --verbose        show the log of the plug-in and the host on stderr, with times
  --log FILE           append every log line, with its time, to FILE (whatever -v says)
  --interrupt-after MS
                       call interruptPayment() MS milliseconds after the operation starts
  -h, --help           show this help
  --version            show the version

Ctrl+C (or any other signal that would end posctl) during an operation asks the terminal to
interrupt it; posctl then waits up to 10 s for the answer and writes it. A second one, or no
answer in 10 s, makes posctl report that the outcome is unknown, with the client still running,
and exit with 4. A signal once the terminal has answered ends posctl after the answer is
written, with its status. In a batch, Ctrl+C stops the batch after its current line and lists
the lines that did not run. With the recorder on, posctl acknowledges every answer it has
written, so that check can name one it never did.

Exit status: 0 success, 1 failure, 3 not enough balance, 2 usage error, no plug-in or no
standard output, 4 outcome unknown to the caller (posctl stopped waiting for a running
operation, could not write the answer, or the client did not end by itself: its gist is on
stderr), 128+N stopped by signal N before any work was done.
)";

// Standard input, output and error that were closed when posctl started are opened on
// /dev/null before anything else is opened, so that nothing of posctl's own (the signal pipe, a
// log file) is ever given their numbers and written to as if it were the output. Returns whether
// standard output was closed.
bool openClosedStandardDescriptors()
{
    bool outputClosed = false;
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (::fcntl(fd, F_GETFD) != -1 || errno != EBADF)
            continue;
        outputClosed |= fd == STDOUT_FILENO;
        // The lowest free number: this one, since those below it are open by now.
        const int opened = ::open("/dev/null", fd == STDIN_FILENO ? O_RDONLY : O_WRONLY);
        if (opened != fd && opened >= 0)
            ::close(opened);
    }
    return outputClosed;
}

} // namespace

int main(int argc, char *argv[])
{
    // No core of a process that holds the client's answers, card data and all, in its memory.
    ::prctl(PR_SET_DUMPABLE, 0);
    const bool outputClosed = openClosedStandardDescriptors();
    // Then at once, so that no signal can end posctl unseen once a client may run, and none can
    // after the answer either: the handlers stay until the process has exited.
    SignalPipe signals(SignalPipe::endingSignals(), SignalPipe::Restore::Never);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"posctl"_s);
    QCoreApplication::setApplicationVersion(QStringLiteral(INPAS_VERSION));

    GlobalOptions globals;
    Invocation invocation;
    QString error;
    if (!CommandLine::parse(app.arguments().mid(1), CommandLine::TopLevel, globals, invocation,
                            error))
        return fail(error);
    if (globals.help) {
        std::fputs(helpHead, stdout);
        std::fputs(CommandTable::help().toUtf8().constData(), stdout);
        std::fputs(helpTail, stdout);
        return ExitStatus::Success;
    }
    if (globals.version) {
        std::printf("posctl %s\n", INPAS_VERSION);
        return ExitStatus::Success;
    }
    if (!LogSink::install(globals.verbose, globals.logFile, error))
        return fail(error);

    // The till's currencies: 1 passes a scanned customer code on to the terminal, 2 does not.
    auto &valuts = hostInstance<ValutCollection>();
    valuts.addValut(Valut(1, u"Банковская карта"_s, Valut::BankCard | Valut::PassCustomerQrCode));
    valuts.addValut(Valut(2, u"Банковская карта без QR"_s, Valut::BankCard));

    if (!signals.isValid())
        return fail(
            u"cannot set up the handling of signals (%1), and a payment client is never "
            u"run unguarded"_s.arg(QString::fromLocal8Bit(std::strerror(signals.errorNumber()))));

    Acknowledgement::announce();
    const bool batch = invocation.spec->handler == &PosctlHost::batch;
    if (outputClosed && (batch || invocation.spec->hostCall))
        return fail(u"standard output is closed, so a terminal's answer could be written nowhere; "
                    u"posctl runs no payment client without one"_s);
    PosctlHost host(globals, signals, batch ? SignalGuard::Batch : SignalGuard::SingleCommand);
    if (!host.start(error))
        return fail(error);
    return host.run(invocation);
}
