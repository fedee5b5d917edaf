#include "posctlhost.h"

#include "acknowledgement.h"
#include "batchinput.h"
#include "directorycheck.h"
#include "exitstatus.h"
#include "formatter.h"
#include "jsonwriter.h"
#include "output.h"
#include "recordersetup.h"
#include "recordingsreport.h"
#include "runledger.h"

#include <QFileInfo>

#include <externalprocessthread.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

void write(FILE *stream, const QString &text)
{
    // Written with its length: a NUL in a field must not cut the rest.
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

void complain(const QString &message)
{
    write(stderr, u"posctl: %1\n"_s.arg(message));
}

// A test's window in the last moments of an operation (docs/testing.md): with
// POSCTL_HOLD_ANSWER=FILE (before the answer is written) or POSCTL_HOLD_ACKNOWLEDGEMENT=FILE
// (after it is written, before the recorder is told), posctl creates FILE and goes on only when
// FILE is gone (or after a minute), so that a test signals it there without guessing when.
void holdForTest(const char *variable)
{
    const QByteArray marker = qgetenv(variable);
    if (marker.isEmpty())
        return;
    if (const int fd = ::open(marker.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600); fd >= 0)
        ::close(fd);
    for (int waited = 0; waited < 60000 && ::access(marker.constData(), F_OK) == 0; waited += 10)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

} // namespace

PosctlHost::PosctlHost(const GlobalOptions &globals, SignalPipe &signals, SignalGuard::Mode mode)
    : m_globals(globals)
    , m_json(globals.json)
    , m_guard(signals, m_watch, mode)
    , m_runner(m_watch)
{
    ProcessMonitor::install(&m_watch);
}

PosctlHost::~PosctlHost()
{
    m_processor.reset();
    ProcessMonitor::install(nullptr);
}

bool PosctlHost::start(QString &error)
{
    const QString path =
        m_globals.pluginPath.isEmpty() ? PaymentPlugin::defaultPath() : m_globals.pluginPath;
    return m_plugin.load(path, error) && newProcessor(error);
}

bool PosctlHost::newProcessor(QString &error)
{
    m_processor.reset();
    m_processor = m_plugin.createProcessor(error);
    if (m_processor && m_globals.directory)
        m_processor->setProcessingDirectory(*m_globals.directory);
    return m_processor != nullptr;
}

int PosctlHost::print(const CommandRunner::Outcome &outcome)
{
    Output out(stdout);
    if (m_json)
        (Formatter::writeAnswerJson(out, outcome.answer), out << u'\n');
    else
        Formatter::writeAnswerText(out, outcome.answer, outcome.context);
    const int error = out.finish();
    if (!outcome.hint.isEmpty())
        complain(outcome.hint);
    return error;
}

int PosctlHost::print(const QString &json, const QString &text)
{
    Output out(stdout);
    out << (m_json ? json + u'\n' : text);
    return out.finish();
}

int PosctlHost::run(const Invocation &invocation, int batchLine)
{
    const CommandTable::Command &spec = *invocation.spec;
    return spec.hostCall ? runOperation(invocation, batchLine) : (this->*spec.handler)(invocation);
}

int PosctlHost::runOperation(const Invocation &invocation, int batchLine)
{
    SignalGuard::Operation operation(m_guard, m_processor.get(),
                                     CommandRunner::processingDirectory(*m_processor),
                                     m_globals.interruptAfterMs);
    const CommandRunner::Outcome outcome = m_runner.run(*m_processor, invocation);
    const QString gist = Formatter::gist(outcome.answer, CustomerCodeForms(invocation.customerQr));
    operation.answered(gist, outcome.exitCode);
    holdForTest("POSCTL_HOLD_ANSWER");
    const QString where =
        batchLine > 0 ? u"the answer of batch line %1"_s.arg(batchLine) : u"the answer"_s;
    if (const int error = print(outcome))
        SignalGuard::answerLost(u"%1 could not be written to standard output (%2)"_s.arg(
                                    where, QString::fromLocal8Bit(std::strerror(error))),
                                gist);
    // Written and flushed: the caller has it.
    holdForTest("POSCTL_HOLD_ACKNOWLEDGEMENT");
    Acknowledgement::record(CommandRunner::processingDirectory(*m_processor),
                            m_watch.operationClients());
    return outcome.exitCode;
}

int PosctlHost::check(const Invocation &invocation)
{
    const DirectoryCheck::Report report = DirectoryCheck::run(
        CommandRunner::processingDirectory(*m_processor), invocation.failedRuns);
    if (invocation.monitoring) {
        const DirectoryCheck::Status status = DirectoryCheck::monitoringStatus(report);
        write(stdout, DirectoryCheck::monitoringLine(report, status) + u'\n');
        return int(status);
    }
    write(stdout, m_json ? DirectoryCheck::json(report) + u'\n' : DirectoryCheck::text(report));
    return report.ok() ? ExitStatus::Success : ExitStatus::Failure;
}

int PosctlHost::recorder(const Invocation &invocation)
{
    const QString directory = CommandRunner::processingDirectory(*m_processor);
    if (invocation.positional.first() == "status"_L1) {
        Output out(stdout);
        RecordingsReport::writeStatus(out, directory, m_json);
        return ExitStatus::Success;
    }
    QString message;
    const bool done = invocation.positional.first() == "on"_L1
                          ? RecorderSetup::turnOn(directory, message)
                          : RecorderSetup::turnOff(directory,
                                                   invocation.force ? RecorderSetup::Force::Yes
                                                                    : RecorderSetup::Force::No,
                                                   message);
    if (!done) {
        complain(message);
        return ExitStatus::Failure;
    }
    write(stdout, message + u'\n');
    return ExitStatus::Success;
}

int PosctlHost::recordings(const Invocation &invocation)
{
    const QString directory = CommandRunner::processingDirectory(*m_processor);
    if (!QFileInfo(Recordings::folder(directory)).isDir()) {
        complain(u"there are no recordings in %1 (%2 is not a folder): the recorder was never on "
                 u"there"_s.arg(directory, Recordings::folder(directory)));
        return ExitStatus::Failure;
    }
    if (invocation.keepDays) {
        QString message;
        const bool pruned = RecordingsReport::prune(directory, *invocation.keepDays, message);
        (pruned ? write(stdout, message + u'\n') : complain(message));
        return pruned ? ExitStatus::Success : ExitStatus::Failure;
    }
    RecordingsReport::Selection selection;
    if (invocation.since || invocation.until) {
        selection.since = invocation.since.value_or(QDate(2000, 1, 1));
        selection.until = invocation.until.value_or(QDate::currentDate());
    } else {
        selection.since = selection.until = invocation.day.value_or(QDate::currentDate());
    }
    selection.openOnly = invocation.open;
    Output out(stdout);
    RecordingsReport::write(out, directory, selection, m_json);
    return ExitStatus::Success;
}

int PosctlHost::settle(const Invocation &invocation)
{
    const QString directory = CommandRunner::processingDirectory(*m_processor);
    QString message;
    const RunLedger::Refusal refused = RunLedger::recordSettling(
        directory, invocation.positional.first(), invocation.settleAs, invocation.note, message);
    if (refused != RunLedger::Refusal::None) {
        complain(message);
        return refused == RunLedger::Refusal::BadWay ? ExitStatus::UsageError : ExitStatus::Failure;
    }
    write(stdout, message + u'\n');
    return ExitStatus::Success;
}

int PosctlHost::scanParams(const Invocation &)
{
    const ScanQrParams params = m_processor->getScanQrParams();
    print(Formatter::scanParamsJson(params), Formatter::scanParamsText(params));
    return ExitStatus::Success;
}

int PosctlHost::options(const Invocation &)
{
    print(Formatter::optionsJson(*m_processor), Formatter::optionsText(*m_processor));
    return ExitStatus::Success;
}

int PosctlHost::setDirectory(const Invocation &invocation)
{
    const QString dir = invocation.positional.first();
    m_processor->setProcessingDirectory(dir);
    write(stdout, u"{\"setDir\":%1}\n"_s.arg(JsonWriter::encode(dir)));
    return ExitStatus::Success;
}

int PosctlHost::replaceProcessor(const Invocation &)
{
    QString error;
    if (!newProcessor(error)) {
        complain(error);
        return ExitStatus::UsageError;
    }
    write(stdout, u"{\"newProcessor\":true}\n"_s);
    return ExitStatus::Success;
}

int PosctlHost::batch(const Invocation &)
{
    m_json = true;
    BatchInput input(m_guard.stopDescriptor());
    int status = ExitStatus::Success;
    int lastLine = 0;
    while (m_guard.stopSignal() == 0) {
        const std::optional<QByteArray> raw = input.next();
        if (!raw)
            break;
        const QString line = QString::fromUtf8(*raw).trimmed();
        if (line.isEmpty() || line.startsWith(u'#'))
            continue;
        const std::optional<QStringList> words = CommandLine::splitWords(line);
        GlobalOptions unused;
        Invocation invocation;
        QString error = u"unterminated quote"_s;
        if (!words ||
            !CommandLine::parse(*words, CommandLine::BatchLine, unused, invocation, error)) {
            complain(u"batch line %1 %2: %3"_s.arg(input.lineNumber())
                         .arg(Formatter::quoted(line), error));
            return ExitStatus::UsageError;
        }
        lastLine = input.lineNumber();
        status = run(invocation, lastLine);
        // A processor that could not be replaced ends the batch.
        if (status == ExitStatus::UsageError)
            return status;
        // Not one more line after an operation whose outcome is unknown: the next might
        // repeat a payment the terminal has made.
        if (status == ExitStatus::UnknownOutcome) {
            reportStoppedBatch(u"because its outcome is unknown"_s, lastLine, input.available());
            return status;
        }
    }
    if (const int signal = m_guard.stopSignal()) {
        reportStoppedBatch(signal == SIGINT ? u"on Ctrl+C"_s : u"on a signal"_s, lastLine,
                           input.available());
        return ExitStatus::SignalBase + signal;
    }
    return status;
}

void PosctlHost::reportStoppedBatch(const QString &why, int lastLine,
                                    QList<QByteArray> notRun) const
{
    QStringList skipped;
    int number = lastLine;
    for (const QByteArray &raw : notRun) {
        ++number;
        const QString line = QString::fromUtf8(raw).trimmed();
        if (!line.isEmpty() && !line.startsWith(u'#'))
            skipped.append(u"line %1 %2"_s.arg(number).arg(Formatter::quoted(line)));
    }
    QString text =
        u"the batch stopped "_s +
        (lastLine > 0 ? u"after line %1 "_s.arg(lastLine) : u"before its first line "_s) + why;
    if (skipped.isEmpty())
        text += u"; no further lines were waiting"_s;
    else if (skipped.size() <= 10)
        text += u"; these did not run: "_s + skipped.join(u", "_s);
    else
        text += u"; these did not run: "_s + skipped.mid(0, 10).join(u", "_s) +
                u", and %1 more"_s.arg(skipped.size() - 10);
    complain(text);
}
