#include "recordingsreport.h"

#include <operationcodes.h>

#include "formatter.h"
#include "jsonwriter.h"
#include "output.h"
#include "recordersetup.h"
#include "runningclients.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QThread>

#include <cerrno>
#include <cstring>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

// The recorder's scribe writes a run's outputs a moment after the run's end: how long check
// waits for those of a run that has just ended before it says they are missing.
constexpr int scribeGraceMs = 500;

QString operationName(const RecordedRun &run)
{
    const QString function = run.option(u"-f"_s);
    bool ok = false;
    const int code = run.operation().toInt(&ok, 10);
    const operationcodes::Operation *operation =
        ok ? operationcodes::find(code, function.toStdString()) : nullptr;
    if (operation)
        return QString::fromLatin1(operation->name);
    return function.isEmpty() ? u"operation "_s + run.operation() : function;
}

QString amountOf(const RecordedRun &run)
{
    bool ok = false;
    const qint64 amount = run.option(u"-a"_s).toLongLong(&ok);
    return ok ? Formatter::money(amount) : QString();
}

QString resultOf(const RecordedRun &run)
{
    if (!run.ended)
        return u"outcome unknown (no end was recorded)"_s;
    const RecordedAnswer &answer = run.answer;
    if (run.exitStatus != 0 || answer.isEmpty())
        return run.ending();
    const int status = answer.status.value_or(0);
    const QString text = answer.text;
    return (status == 1 ? u"approved"_s : u"status %1"_s.arg(status)) +
           (text.isEmpty() ? QString() : u" "_s + text);
}

QString summary(const RecordedRun &run)
{
    const QString amount = amountOf(run);
    return run.started.toDateTime().toString(u"HH:mm:ss"_s) + u' ' + operationName(run) +
           (amount.isEmpty() ? QString() : u' ' + amount);
}

// Whether the run's answer reached its host, as far as the recording tells.
QString delivery(const RecordedRun &run)
{
    if (!run.ended)
        return {};
    if (!run.host.isEmpty())
        return run.acknowledged ? u"acknowledged by %1"_s.arg(run.host)
                                : u"NOT ACKNOWLEDGED by %1"_s.arg(run.host);
    return run.delivered ? u"delivered"_s : u"NOT DELIVERED to the host"_s;
}

bool running(const RecordedRun &run, const QList<RunningClients::Client> &clients)
{
    for (const RunningClients::Client &client : clients)
        if (client.processId == run.processId)
            return true;
    return false;
}

// Whether the host that started a run is still at it: the posctl that will acknowledge it.
bool hostStillRuns(const RecordedRun &run)
{
    if (run.host.isEmpty() || run.hostProcessId <= 0)
        return false;
    static QHash<qint64, bool> known;
    const auto found = known.constFind(run.hostProcessId);
    if (found != known.cend())
        return *found;
    const bool runs = QFileInfo(u"/proc/%1/exe"_s.arg(run.hostProcessId))
                          .canonicalFilePath()
                          .endsWith(u"/"_s + run.host);
    known.insert(run.hostProcessId, runs);
    return runs;
}

// Whether a run has just ended and its outputs are still on their way from the scribe.
bool outputsOnTheirWay(const RecordedRun &run)
{
    return run.ended && !run.hasOutput && run.endedAt.valid &&
           QDateTime::currentMSecsSinceEpoch() - run.endedAt.msecs < 5000;
}

// The runs of today and yesterday, acknowledgements matched across both, read again after a
// moment when the outputs of a run that has just ended are still on their way.
QList<Recordings::Day> recentDays(const QString &directory)
{
    QList<Recordings::Day> days;
    const QDate today = QDate::currentDate();
    for (int attempt = 0;; ++attempt) {
        days = {Recordings::read(directory, today.addDays(-1)), Recordings::read(directory, today)};
        QList<RecordedRun *> runs;
        for (Recordings::Day &day : days)
            for (RecordedRun &run : day.runs)
                runs.append(&run);
        Recordings::acknowledge(runs, days.first().acknowledgements + days.last().acknowledgements);
        if (attempt > 0 || std::none_of(runs.cbegin(), runs.cend(), [](const RecordedRun *run) {
                return outputsOnTheirWay(*run);
            }))
            break;
        QThread::msleep(scribeGraceMs);
    }
    return days;
}

// Why a run whose output holds an approval did not give its host that approval, or an empty
// text when it did.
QString approvalNotTaken(const RecordedRun &run)
{
    if (run.signal)
        return u"the client was ended by signal %1 after it printed the approval"_s.arg(
            *run.signal);
    if (run.exitStatus.value_or(0) != 0)
        return u"the client exited with status %1 after it printed the approval, so the host "
               u"took it for a failure"_s.arg(*run.exitStatus);
    if (!run.host.isEmpty() && !run.acknowledged)
        return u"%1 never acknowledged it (killed, stopped, the power lost, or its output "
               u"closed)"_s.arg(run.host);
    if (run.host.isEmpty() && !run.delivered)
        return u"it did not reach the host (the host was gone, or stopped reading)"_s;
    return {};
}

} // namespace

void RecordingsReport::writeText(Output &out, const QString &directory, const QDate &day,
                                 const Recordings::Day &runs)
{
    out << u"recordings of %1 in %2: %3 run%4\n"_s.arg(day.toString(Qt::ISODate), directory)
               .arg(runs.runs.size())
               .arg(runs.runs.size() == 1 ? QString() : u"s"_s);
    for (const RecordedRun &run : runs.runs) {
        const QString reference = run.answer.referenceNumber;
        out << u"  %1  %2%3  %4  %5\n"_s.arg(
            summary(run).leftJustified(36), resultOf(run),
            reference.isEmpty() ? QString() : u", reference number "_s + reference,
            run.ended ? u"%1 ms"_s.arg(run.durationMs) : u"-"_s, delivery(run));
    }
    for (const QString &problem : runs.problemTexts())
        out << u"  note: "_s << problem << u'\n';
}

void RecordingsReport::writeJson(Output &out, const QString &directory, const QDate &day,
                                 const Recordings::Day &runs)
{
    // Written a run at a time: a day may hold a hundred thousand.
    out << u"{\"directory\":"_s << JsonWriter::encode(directory) << u",\"day\":"_s
        << JsonWriter::encode(day.toString(Qt::ISODate)) << u",\"runs\":["_s;
    bool first = true;
    for (const RecordedRun &run : runs.runs) {
        const RecordedAnswer &answer = run.answer;
        JsonWriter item;
        item.add(u"id"_s, run.id)
            .add(u"time"_s, run.started.toDateTime().toString(Qt::ISODateWithMs))
            .add(u"operation"_s, operationName(run))
            .addRaw(u"arguments"_s, JsonWriter::encode(run.arguments()))
            .add(u"ended"_s, run.ended);
        if (run.ended)
            item.add(u"ending"_s, run.ending())
                .add(u"durationMs"_s, run.durationMs)
                .add(u"delivered"_s, run.delivered)
                .add(u"status"_s, answer.status ? QJsonValue(*answer.status) : QJsonValue())
                .add(u"text"_s, answer.text)
                .add(u"referenceNumber"_s, answer.referenceNumber);
        out << (first ? QString() : u","_s) << item.toString();
        first = false;
    }
    out << u"],\"problems\":"_s
        << JsonWriter::encode(QJsonArray::fromStringList(runs.problemTexts())) << u"}\n"_s;
}

namespace {

// What stops the recorder from keeping its recordings: the folder that is not one of its own, or
// that can take nothing (read-only, full, not ours to write).
void addFolderFindings(const QString &directory, Findings &findings)
{
    using Kind = Finding::Kind;
    const QString folder = Recordings::folder(directory);
    const QFileInfo info(folder);
    if (info.isSymLink() || (info.exists() && !info.isDir())) {
        findings.append(Finding::of(Kind::RecordingsNotAFolder,
                                    u"%1 is %2, and the recorder writes nothing through it: every "
                                    u"run goes unrecorded"_s.arg(folder, info.isSymLink()
                                                                             ? u"a link"_s
                                                                             : u"not a folder"_s)));
        return;
    }
    const QString writable = info.exists() ? folder : directory;
    struct statvfs space = {};
    const QByteArray path = QFile::encodeName(writable);
    QString why;
    if (::access(path.constData(), W_OK | X_OK) != 0)
        why = QString::fromLocal8Bit(std::strerror(errno));
    else if (::statvfs(path.constData(), &space) == 0 && (space.f_flag & ST_RDONLY))
        why = u"it is on a file system mounted read-only"_s;
    else if (::statvfs(path.constData(), &space) == 0 && space.f_bavail == 0)
        why = u"its disk is full"_s;
    if (!why.isEmpty())
        findings.append(Finding::of(
            Kind::RecordingsUnwritable,
            u"the recorder cannot write in %1 (%2): runs go unrecorded"_s.arg(writable, why)));
}

// The client and the recorder as they were put in place, and as they are now.
void addSetupFindings(const QString &directory, Findings &findings)
{
    using Kind = Finding::Kind;
    const QDir dir(directory);
    const QString realPath = dir.filePath(QLatin1StringView(RecorderSetup::realClient));
    const QString clientPath = dir.filePath(QLatin1StringView(RecorderSetup::client));
    const std::optional<RecorderSetup::Note> note = RecorderSetup::note(directory);
    if (!QFileInfo(realPath).isExecutable()) {
        Finding finding = Finding::of(
            Kind::RecordedClientMissing,
            u"the recorder is on, but the payment client %1 it runs is missing or not executable: "
            u"every payment fails"_s.arg(realPath));
        finding.advice =
            u"put the payment client back as %1, or, if a new client was installed "
            u"as %2, remove %3 and the recorder's files"_s.arg(
                realPath, clientPath, dir.filePath(QLatin1StringView(RecorderSetup::noteFile)));
        findings.append(finding);
    } else if (note && RecorderSetup::program(realPath) != note->client) {
        findings.append(Finding::of(
            Kind::RecordedClientChanged,
            u"the payment client %1 is not the one the recorder was put in front of on %2: it has "
            u"changed since"_s.arg(realPath, note->on.toString(Qt::ISODate))));
    }
    if (note && RecorderSetup::program(clientPath) != note->recorder) {
        Finding finding = Finding::of(
            Kind::RecorderReplaced,
            u"%1 is no longer the recorder (a new client copied over it?): runs are not recorded "
            u"since"_s.arg(clientPath));
        finding.advice = u"to keep the new client, remove %1 and %2; recorder off would put the "
                         u"older client back"_s.arg(
                             realPath, dir.filePath(QLatin1StringView(RecorderSetup::noteFile)));
        findings.append(finding);
    }
    const QString scribePath = dir.filePath(QLatin1StringView(RecorderSetup::scribe));
    if (!QFileInfo(scribePath).isExecutable())
        findings.append(Finding::of(
            Kind::ScribeMissing,
            u"the recorder is on, but %1 is missing or not executable: runs are recorded without "
            u"what the client wrote"_s.arg(scribePath)));
}

Finding runFinding(Finding::Kind kind, const QString &text, const RecordedRun &run,
                   const QDate &day)
{
    Finding finding = Finding::of(kind, text);
    finding.run = run.id;
    finding.day = day.toString(Qt::ISODate);
    finding.operation = operationName(run);
    bool ok = false;
    const qint64 amount = run.option(u"-a"_s).toLongLong(&ok);
    if (ok)
        finding.amount = amount;
    finding.referenceNumber = run.answer.referenceNumber;
    finding.authorizationCode = run.answer.authorizationCode;
    finding.processId = run.processId;
    return finding;
}

} // namespace

void RecordingsReport::addFindings(const QString &directory, Findings &findings)
{
    using Kind = Finding::Kind;
    if (!RecorderSetup::isOn(directory))
        return;
    findings.append(Finding::of(
        Kind::RecorderOn,
        u"the recorder is on: every run is recorded in %1"_s.arg(Recordings::folder(directory))));
    addSetupFindings(directory, findings);
    addFolderFindings(directory, findings);
    const QList<RunningClients::Client> clients = RunningClients::in(directory);
    for (const Recordings::Day &recorded : recentDays(directory)) {
        const QString day = recorded.date.toString(Qt::ISODate);
        for (const Recordings::Day::Problem &problem : recorded.problems) {
            Finding finding =
                Finding::of(Kind::LineUnreadable,
                            u"%1, line %2 cannot be read%3%4"_s.arg(problem.file)
                                .arg(problem.line)
                                .arg(problem.torn ? u" (it was cut off: torn)"_s : QString(),
                                     problem.runId.isEmpty()
                                         ? QString()
                                         : u"; it belongs to run %1, which may need a person"_s.arg(
                                               problem.runId)));
            finding.file = problem.file;
            finding.line = problem.line;
            finding.run = problem.runId;
            finding.day = day;
            findings.append(finding);
        }
        for (const RecordedRun &run : recorded.runs) {
            const QString notTaken = run.approval() ? approvalNotTaken(run) : QString();
            const bool unknown = !run.ended || !run.endedByItself();
            const bool outputsMissing = run.ended && !run.hasOutput;
            // Only a run that needs a person is looked at further: one still at work does not.
            if ((notTaken.isEmpty() && !unknown && !outputsMissing) || hostStillRuns(run) ||
                running(run, clients))
                continue;
            if (!notTaken.isEmpty()) {
                Finding finding =
                    runFinding(Kind::UnseenApproval,
                               u"an approval never reached the host: %1 %2, reference number %3, "
                               u"authorization code %4 (run %5): %6"_s.arg(
                                   day, summary(run), run.answer.referenceNumber,
                                   run.answer.authorizationCode, run.id, notTaken),
                               run, recorded.date);
                finding.advice =
                    u"for the approval of %1: print the terminal's last slip with "
                    u"posctl --dir %2 copy; if the till has no sale for it, cancel it "
                    u"with posctl --dir %2 cancel %3 --rrn %4"_s.arg(
                        summary(run), directory, run.option(u"-a"_s), finding.referenceNumber);
                findings.append(finding);
            } else if (unknown) {
                Finding finding = runFinding(
                    Kind::UnknownOutcome,
                    u"a run's outcome is unknown: %1 %2 %3 (run %4)"_s.arg(
                        day, summary(run),
                        run.ended ? u"was ended by signal %1 before it answered"_s.arg(
                                        run.signal.value_or(0))
                                  : u"started and no end was recorded (its process group was "
                                    u"killed, or the power was lost)"_s,
                        run.id),
                    run, recorded.date);
                finding.advice = u"for the run of %1: print the terminal's last slip with posctl "
                                 u"--dir %2 copy, or look at the terminal's journal, to learn how "
                                 u"it ended"_s.arg(summary(run), directory);
                findings.append(finding);
            }
            if (outputsMissing)
                findings.append(runFinding(
                    Kind::OutputsMissing,
                    u"the recorder's scribe did not keep what the client wrote in %1 %2 (run %3): "
                    u"its end is recorded, its outputs are not"_s.arg(day, summary(run), run.id),
                    run, recorded.date));
        }
    }
    // Each failure stays until a person has dealt with it: the next run's success does not undo
    // it.
    QString why;
    if (const std::optional<QDateTime> failed = Recordings::failure(directory, why)) {
        Finding finding =
            Finding::of(Kind::RecordingFailed,
                        u"the recorder could not write its recording at %1%2; the payments went on "
                        u"unrecorded"_s.arg(failed->toString(Qt::ISODate),
                                            why.isEmpty() ? QString() : u" ("_s + why + u')'));
        finding.file = Recordings::folder(directory) + u"/failed"_s;
        findings.append(finding);
    }
}
