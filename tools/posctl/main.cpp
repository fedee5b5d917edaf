// posctl: a command-line POS host for the Inpas payment plug-in. It loads the plug-in as the
// host does and makes one host call per command.

#include "commandline.h"
#include "commandrunner.h"
#include "interrupter.h"
#include "jsonwriter.h"
#include "paymentplugin.h"

#include <singleton.h>
#include <valutcollection.h>

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>
#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int usageError = 2;

bool verboseLog = false;

void write(FILE *stream, const QString &text)
{
    std::fputs(text.toUtf8().constData(), stream);
    std::fflush(stream);
}

int fail(const QString &message)
{
    write(stderr, u"posctl: %1\n"_s.arg(message));
    return usageError;
}

void messageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (!verboseLog && type != QtCriticalMsg && type != QtFatalMsg)
        return;
    static const char *const levels[] = {"DEBUG", "WARN ", "ERROR", "FATAL", "INFO "};
    const char *level = type >= 0 && type <= QtInfoMsg ? levels[type] : "?    ";
    write(stderr, u"%1 %2: %3\n"_s.arg(
                      QLatin1StringView(level),
                      QLatin1StringView(context.category ? context.category : "default"), message));
}

const char helpText[] = R"(Usage: posctl [OPTIONS] COMMAND [ARGS] [REQUEST OPTIONS]
       posctl [OPTIONS] batch < commands.txt

A command-line POS host for the Inpas payment plug-in: it loads the plug-in as the till's host
does, takes a processor from its factory and makes one host call per command.

Payments (AMOUNT is a whole number in the host's unit, passed unchanged; write a negative
amount after --, as in: posctl sale -- -500):
  sale AMOUNT          card sale                          payment, type 1
  refund AMOUNT        card refund                        payment, type 2 (--type 3: the other kind)
  cancel AMOUNT        cancel a card sale                 cancel, type 1
  sbp-pay AMOUNT       SBP payment, QR code on the PIN pad  paymentByQRCodeOnPinPad, type 1
  sbp-refund AMOUNT    SBP refund on the PIN pad          cancelByQRCodeOnPinPad, type 3

Service:
  reconcile            reconciliation of totals ("Сверка итогов"); with --merchant M for one entity
  report               full report; with --merchant M for one legal entity
  short-report         short report
  copy                 copy of the last slip
  balance              account balance

Information:
  scan-params          the parameters of the host's QR-scanning dialog
  options              the options the processor announces and the request types it accepts
  batch                read commands from stdin, one a line, and run them on one processor;
                       each prints one JSON line. Extra lines: set-dir DIR, new-processor.
                       Blank lines and lines starting with # are skipped.

Request options (sale, refund, cancel, sbp-pay, sbp-refund):
  --type N             request type (overrides the command's)
  --merchant M         merchant (legal entity) identifier
  --rrn R              reference number of the operation referred to
  --auth A             authorisation code of the operation referred to
  --customer-qr CODE   the customer's scanned QR code
  --currency N         currency code: 1 passes the customer code on (default), 2 does not
  --form-text T, --form-number N, --form-seq N, --form-time yyyy-MM-ddThh:mm:ss
                       parts of the SBP form identifier (time: now by default)

Options:
  --plugin PATH        the plug-in library (default: beside posctl, then the installed one)
  --dir DIR            the processing directory (the client and zelnorinpas.conf)
  --json               print one JSON object on stdout
  -v, --verbose        show the plug-in's log on stderr
  --interrupt-after MS call interruptPayment() MS milliseconds after the operation starts
  -h, --help           show this help
  --version            show the version

Ctrl+C during an operation interrupts it on the terminal; a second Ctrl+C ends posctl.

Exit status: 0 success, 1 failure, 3 not enough balance, 2 usage error or no plug-in.
)";

class Host
{
public:
    explicit Host(const GlobalOptions &globals)
        : m_globals(globals)
        , m_runner(m_interrupter, globals.interruptAfterMs)
    {}

    bool start(QString &error)
    {
        if (!m_plugin.load(m_globals.pluginPath.isEmpty() ? PaymentPlugin::defaultPath()
                                                          : m_globals.pluginPath,
                           error))
            return false;
        return newProcessor(error);
    }

    bool newProcessor(QString &error)
    {
        m_processor.reset();
        m_processor = m_plugin.createProcessor(error);
        if (m_processor && m_globals.directory)
            m_processor->setProcessingDirectory(*m_globals.directory);
        return m_processor != nullptr;
    }

    int runOne(const Invocation &invocation)
    {
        const CommandRunner::Outcome outcome = m_runner.run(*m_processor, invocation);
        write(stdout, (m_globals.json ? outcome.json + u'\n' : outcome.text));
        return outcome.exitCode;
    }

    int runBatch()
    {
        QTextStream in(stdin);
        int status = 0;
        while (!in.atEnd()) {
            const QString line = in.readLine().trimmed();
            if (line.isEmpty() || line.startsWith(u'#'))
                continue;
            const std::optional<QStringList> words = CommandLine::splitWords(line);
            GlobalOptions unused;
            Invocation invocation;
            QString error = u"unterminated quote"_s;
            if (!words ||
                !CommandLine::parse(*words, CommandLine::BatchLine, unused, invocation, error))
                return fail(u"batch line \"%1\": %2"_s.arg(line, error));

            if (invocation.command == "set-dir"_L1) {
                const QString dir = invocation.positional.first();
                m_processor->setProcessingDirectory(dir);
                write(stdout, u"{\"setDir\":%1}\n"_s.arg(JsonWriter::encode(dir)));
                status = 0;
            } else if (invocation.command == "new-processor"_L1) {
                if (!newProcessor(error))
                    return fail(error);
                write(stdout, u"{\"newProcessor\":true}\n"_s);
                status = 0;
            } else {
                const CommandRunner::Outcome outcome = m_runner.run(*m_processor, invocation);
                write(stdout, outcome.json + u'\n');
                status = outcome.exitCode;
            }
        }
        return status;
    }

private:
    GlobalOptions m_globals;
    Interrupter m_interrupter;
    CommandRunner m_runner;
    PaymentPlugin m_plugin;
    std::unique_ptr<AbstractPaymentProcessing> m_processor;
};

} // namespace

int main(int argc, char *argv[])
{
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
        write(stdout, QString::fromUtf8(helpText));
        return 0;
    }
    if (globals.version) {
        write(stdout, u"posctl %1\n"_s.arg(QCoreApplication::applicationVersion()));
        return 0;
    }

    verboseLog = globals.verbose;
    qInstallMessageHandler(messageHandler);

    // The till's currencies: 1 passes a scanned customer code on to the terminal, 2 does not.
    auto &valuts = hostInstance<ValutCollection>();
    valuts.addValut(Valut(1, u"Банковская карта"_s, Valut::BankCard | Valut::PassCustomerQrCode));
    valuts.addValut(Valut(2, u"Банковская карта без QR"_s, Valut::BankCard));

    Host host(globals);
    if (!host.start(error))
        return fail(error);
    if (invocation.command == "batch"_L1)
        return host.runBatch();
    return host.runOne(invocation);
}
