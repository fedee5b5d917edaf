#include "recordingsreport.h"

#include <operationcodes.h>

#include "formatter.h"
#include "jsonwriter.h"
#include "output.h"
#include "recordersetup.h"
#include "runledger.h"
#include "runningclients.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QSet>
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

// Every day's runs, read again after a moment when the outputs of a run that has just ended
// are still on their way.
RunLedger recordedRuns(const QString &directory)
{
    RunLedger ledger = RunLedger::read(directory);
    const QList<Recordings::Day> &days = ledger.days();
    if (!days.isEmpty() &&
        std::any_of(days.last().runs.cbegin(), days.last().runs.cend(),
                    [](const RecordedRun &run) { return outputsOnTheirWay(run); })) {
        QThread::msleep(scribeGraceMs);
        ledger = RunLedger::read(directory);
    }
    return ledger;
}

// Whether the last runs, as many as count, all failed: the terminal or its line may be down.
// SBP status queries are left out: "not yet paid" is their daily bread.
QList<const RecordedRun *> lastFailures(const RunLedger &ledger, int count)
{
    QList<const RecordedRun *> failed;
    const QList<Recordings::Day> &days = ledger.days();
    for (qsizetype d = days.size() - 1; d >= 0 && failed.size() < count; --d) {
        const QList<RecordedRun> &runs = days.at(d).runs;
        for (qsizetype r = runs.size() - 1; r >= 0 && failed.size() < count; --r) {
            const RecordedRun &run = runs.at(r);
            const operationcodes::Operation *operation =
                operationcodes::find(run.operation().toInt(), run.option(u"-f"_s).toStdString());
            if ((operation && !operation->function.empty() && !operation->takesAmount) ||
                !run.ended)
                continue;
            if (run.approval() || run.answer.status == 1)
                return {};
            failed.append(&run);
        }
    }
    return failed.size() == count ? failed : QList<const RecordedRun *>{};
}

} // namespace

namespace {

QString settlingText(const RunLedger::Entry &entry)
{
    if (entry.settled)
        return u"settled as %1 by %2"_s.arg(RunLedger::howName(entry.settled->how),
                                            entry.settled->by);
    switch (entry.need) {
    case RunLedger::Need::UnseenApproval:
        return u"OPEN: an approval the host never took"_s;
    case RunLedger::Need::UnknownOutcome:
        return u"OPEN: outcome unknown"_s;
    case RunLedger::Need::Nothing:
        break;
    }
    return entry.settles.isEmpty() ? QString() : u"settles run %1"_s.arg(entry.settles);
}

bool isOpen(const RunLedger::Entry &entry)
{
    return entry.need != RunLedger::Need::Nothing && !entry.settled;
}

// The approved operations of a day, counted and summed as recorded.
struct Summary
{
    struct Line
    {
        const char *name;
        const char *key; // in JSON
        int count = 0;
        qint64 sum = 0;
    };
    Line lines[5] = {{"sales", "sales"},
                     {"refunds", "refunds"},
                     {"cancels", "cancels"},
                     {"SBP payments", "sbpPayments"},
                     {"SBP refunds", "sbpRefunds"}};
    qint64 lastSbpAmount = 0; // a status query names no amount: its payment's

    void add(const RecordedRun &run)
    {
        const operationcodes::Operation *operation =
            operationcodes::find(run.operation().toInt(), run.option(u"-f"_s).toStdString());
        if (!operation)
            return;
        bool ok = false;
        qint64 amount = run.option(u"-a"_s).toLongLong(&ok);
        const bool sbp = !operation->function.empty();
        if (sbp && operation->takesAmount)
            lastSbpAmount = ok ? amount : 0;
        if (!ok)
            amount = lastSbpAmount;
        if (!run.approval())
            return;
        int line = -1;
        switch (operation->code) {
        case operationcodes::Sale:
            line = sbp ? 3 : 0;
            break;
        case operationcodes::Refund:
            line = sbp ? 4 : 1;
            break;
        case operationcodes::Cancel:
            line = 2;
            break;
        default:
            break;
        }
        if (line >= 0) {
            ++lines[line].count;
            lines[line].sum += amount;
        }
    }
    QString text() const
    {
        QStringList parts;
        for (const Line &line : lines)
            parts.append(u"%1 %2 (%3)"_s.arg(QLatin1StringView(line.name))
                             .arg(line.count)
                             .arg(Formatter::money(line.sum)));
        return u"approved as recorded: "_s + parts.join(u", "_s);
    }
    QString json() const
    {
        JsonWriter object;
        for (const Line &line : lines)
            object.addRaw(
                QString::fromLatin1(line.key),
                JsonWriter().add(u"count"_s, line.count).add(u"sum"_s, line.sum).toString());
        return object.toString();
    }
};

QString runJson(const RunLedger::Entry &entry)
{
    const RecordedRun &run = *entry.run;
    const RecordedAnswer &answer = run.answer;
    bool ok = false;
    const qint64 amount = run.option(u"-a"_s).toLongLong(&ok);
    JsonWriter item;
    item.add(u"id"_s, run.id)
        .add(u"time"_s, run.started.toDateTime().toString(Qt::ISODateWithMs))
        .add(u"operation"_s, operationName(run))
        .add(u"amount"_s, ok ? QJsonValue(amount) : QJsonValue())
        .addRaw(u"arguments"_s, JsonWriter::encode(run.arguments()))
        .add(u"ended"_s, run.ended)
        .add(u"ending"_s, run.ended ? run.ending() : QString())
        .add(u"durationMs"_s, run.ended ? QJsonValue(run.durationMs) : QJsonValue())
        .add(u"delivered"_s, run.delivered)
        .add(u"acknowledged"_s, run.acknowledged)
        .add(u"approval"_s, run.approval())
        .add(u"result"_s, resultOf(run))
        .add(u"status"_s, answer.status ? QJsonValue(*answer.status) : QJsonValue())
        .add(u"text"_s, answer.text)
        .add(u"referenceNumber"_s, answer.referenceNumber)
        .add(u"authorizationCode"_s, answer.authorizationCode)
        .add(u"open"_s, isOpen(entry))
        .add(u"need"_s, entry.need == RunLedger::Need::UnseenApproval   ? u"unseenApproval"_s
                        : entry.need == RunLedger::Need::UnknownOutcome ? u"unknownOutcome"_s
                                                                        : QString())
        .addRaw(u"settled"_s,
                entry.settled
                    ? JsonWriter()
                          .add(u"how"_s, RunLedger::howName(entry.settled->how))
                          .add(u"by"_s, entry.settled->by)
                          .add(u"at"_s, entry.settled->at.toDateTime().toString(Qt::ISODate))
                          .add(u"note"_s, entry.settled->note)
                          .toString()
                    : u"null"_s)
        .add(u"settles"_s, entry.settles);
    return item.toString();
}

} // namespace

void RecordingsReport::write(Output &out, const QString &directory, const Selection &selection,
                             bool json)
{
    const RunLedger ledger = RunLedger::read(directory);
    const bool oneDay = selection.since == selection.until;
    if (json)
        out << u"{\"directory\":"_s << JsonWriter::encode(directory)
            << (oneDay ? QString()
                       : u",\"since\":%1,\"until\":%2,\"days\":["_s.arg(
                             JsonWriter::encode(selection.since.toString(Qt::ISODate)),
                             JsonWriter::encode(selection.until.toString(Qt::ISODate))));
    bool firstDay = true;
    // The days in range that hold recordings; one day asked for is listed even when empty.
    QList<const Recordings::Day *> selected;
    for (const Recordings::Day &day : ledger.days())
        if (day.date >= selection.since && day.date <= selection.until)
            selected.append(&day);
    Recordings::Day empty;
    empty.date = selection.since;
    if (oneDay && selected.isEmpty())
        selected.append(&empty);
    for (const Recordings::Day *day : std::as_const(selected)) {
        const Recordings::Day &runs = *day;
        const QDate date = day->date;
        // Counted first, then written a run at a time: a day may hold a hundred thousand.
        Summary totals;
        qsizetype shown = 0;
        for (const RecordedRun &run : runs.runs) {
            totals.add(run);
            shown += !selection.openOnly || isOpen(ledger.entry(runs, run));
        }
        const QStringList problems = runs.problemTexts() + runs.unreadable;
        if (json)
            out << (oneDay     ? u","_s
                    : firstDay ? u"{"_s
                               : u",{"_s)
                << u"\"day\":"_s << JsonWriter::encode(date.toString(Qt::ISODate))
                << u",\"runs\":["_s;
        else
            out << u"recordings of %1 in %2: %3 run%4%5\n"_s
                       .arg(date.toString(Qt::ISODate), directory)
                       .arg(shown)
                       .arg(shown == 1 ? QString() : u"s"_s,
                            selection.openOnly ? u" that need a person"_s : QString());
        bool firstRun = true;
        for (const RecordedRun &run : runs.runs) {
            const RunLedger::Entry entry = ledger.entry(runs, run);
            if (selection.openOnly && !isOpen(entry))
                continue;
            if (json) {
                out << (firstRun ? QString() : u","_s) << runJson(entry);
                firstRun = false;
                continue;
            }
            const QString reference = run.answer.referenceNumber;
            const QString authorization = run.answer.authorizationCode;
            const QString settling = settlingText(entry);
            out << u"  %1  %2%3%4  %5  %6%7  run %8\n"_s.arg(
                summary(run).leftJustified(36), resultOf(run),
                reference.isEmpty() ? QString() : u", reference number "_s + reference,
                authorization.isEmpty() ? QString() : u", authorization code "_s + authorization,
                run.ended ? u"%1 ms"_s.arg(run.durationMs) : u"-"_s, delivery(run),
                settling.isEmpty() ? QString() : u"  "_s + settling, run.id);
        }
        if (json) {
            out << u"],\"summary\":"_s << totals.json() << u",\"problems\":"_s
                << JsonWriter::encode(QJsonArray::fromStringList(problems))
                << (oneDay ? QString() : u"}"_s);
        } else {
            out << u"  "_s << totals.text() << u'\n';
            for (const QString &problem : problems)
                out << u"  note: "_s << problem << u'\n';
        }
        firstDay = false;
    }
    if (json)
        out << (oneDay ? u"}\n"_s : u"]}\n"_s);
}

void RecordingsReport::writeStatus(Output &out, const QString &directory, bool json)
{
    const QDir dir(directory);
    const bool on = RecorderSetup::isOn(directory);
    const QString client =
        dir.filePath(QLatin1StringView(on ? RecorderSetup::realClient : RecorderSetup::client));
    const bool scribe =
        QFileInfo(dir.filePath(QLatin1StringView(RecorderSetup::scribe))).isExecutable();
    qint64 bytes = 0;
    int files = 0;
    const QDir folder(Recordings::folder(directory));
    for (const QFileInfo &file : folder.entryInfoList({u"*.jsonl"_s}, QDir::Files)) {
        bytes += file.size();
        ++files;
    }
    const RunLedger ledger = RunLedger::read(directory);
    int open = 0;
    const RecordedRun *last = nullptr;
    for (const Recordings::Day &day : ledger.days()) {
        for (const RecordedRun &run : day.runs) {
            open += isOpen(ledger.entry(day, run));
            last = &run;
        }
    }
    const QString lastText = last ? summary(*last) + u", "_s + resultOf(*last) : QString();
    if (json) {
        out << JsonWriter()
                   .add(u"directory"_s, directory)
                   .add(u"on"_s, on)
                   .add(u"client"_s, client)
                   .add(u"scribe"_s, scribe)
                   .add(u"recordingFiles"_s, files)
                   .add(u"recordingBytes"_s, bytes)
                   .add(u"lastRun"_s, last ? last->id : QString())
                   .add(u"lastRunText"_s, lastText)
                   .add(u"openRuns"_s, open)
                   .toString()
            << u'\n';
        return;
    }
    out << u"the recorder is %1 in %2\n"_s.arg(on ? u"on"_s : u"off"_s, directory)
        << u"  client:     %1\n"_s.arg(client)
        << (on ? u"  scribe:     %1\n"_s.arg(scribe ? u"in place"_s : u"MISSING"_s) : QString())
        << u"  recordings: %1 file%2, %3 KiB in %4\n"_s.arg(files)
               .arg(files == 1 ? QString() : u"s"_s)
               .arg((bytes + 1023) / 1024)
               .arg(folder.path())
        << u"  last run:   %1\n"_s.arg(last ? lastText + u" (run "_s + last->id + u')' : u"none"_s)
        << u"  open runs:  %1%2\n"_s.arg(open).arg(open ? u" (posctl check names them)"_s
                                                        : QString());
}

bool RecordingsReport::prune(const QString &directory, int keepDays, QString &message)
{
    const RunLedger ledger = RunLedger::read(directory);
    const QDate cutoff = QDate::currentDate().addDays(1 - keepDays);
    QSet<QDate> kept;
    for (const Recordings::Day &day : ledger.days())
        if (day.date >= cutoff || !day.unreadable.isEmpty() || !day.problems.isEmpty())
            kept.insert(day.date);
    for (const Recordings::Day &day : ledger.days())
        for (const RecordedRun &run : day.runs)
            if (isOpen(ledger.entry(day, run)))
                kept.insert(day.date);
    // A settling stays with the run it settles.
    for (bool grew = true; grew;) {
        grew = false;
        for (const Recordings::Day &day : ledger.days()) {
            if (kept.contains(day.date))
                continue;
            for (const Recordings::Day::Settlement &s : day.settlements) {
                QDate runDay;
                if (ledger.run(s.runId, &runDay) && kept.contains(runDay)) {
                    kept.insert(day.date);
                    grew = true;
                    break;
                }
            }
        }
    }
    QStringList removed, keptOld;
    for (const Recordings::Day &day : ledger.days()) {
        if (kept.contains(day.date)) {
            if (day.date < cutoff)
                keptOld.append(day.date.toString(Qt::ISODate));
            continue;
        }
        for (const QString &path : Recordings::dayFiles(directory, day.date)) {
            if (QFileInfo::exists(path) && !QFile::remove(path)) {
                message = u"cannot remove %1; nothing more was removed"_s.arg(path);
                return false;
            }
        }
        removed.append(day.date.toString(Qt::ISODate));
    }
    message = removed.isEmpty()
                  ? u"nothing to prune in %1"_s.arg(Recordings::folder(directory))
                  : u"removed the recordings of %1 day%2: %3"_s.arg(removed.size())
                        .arg(removed.size() == 1 ? QString() : u"s"_s, removed.join(u", "_s));
    if (!keptOld.isEmpty())
        message += u"; kept %1, which hold%2 runs that need a person or their settling"_s.arg(
            keptOld.join(u", "_s), keptOld.size() == 1 ? u"s"_s : QString());
    return true;
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

void RecordingsReport::addFindings(const QString &directory, Findings &findings, int failedRuns)
{
    using Kind = Finding::Kind;
    const bool on = RecorderSetup::isOn(directory);
    const QString folder = Recordings::folder(directory);
    if (!on && !QFileInfo(folder).isDir())
        return;
    if (on) {
        findings.append(Finding::of(
            Kind::RecorderOn, u"the recorder is on: every run is recorded in %1"_s.arg(folder)));
        addSetupFindings(directory, findings);
        addFolderFindings(directory, findings);
    }
    // What cannot be read cannot be said to be well.
    if (QFileInfo(folder).isDir() &&
        ::access(QFile::encodeName(folder).constData(), R_OK | X_OK) != 0) {
        Finding finding = Finding::of(
            Kind::RecordingsUnreadable,
            u"the recordings in %1 cannot be read (%2): nothing can be said of the runs they "
            u"hold"_s.arg(folder, QString::fromLocal8Bit(std::strerror(errno))));
        finding.advice = u"run check as the user the till runs as, or as root"_s;
        findings.append(finding);
        return;
    }
    const QList<RunningClients::Client> clients = RunningClients::in(directory);
    const RunLedger ledger = recordedRuns(directory);
    for (const Recordings::Day &recorded : ledger.days()) {
        for (const QString &unreadable : recorded.unreadable) {
            Finding finding =
                Finding::of(Kind::RecordingsUnreadable,
                            u"%1 cannot be read: its runs are not looked at"_s.arg(unreadable));
            finding.day = recorded.date.toString(Qt::ISODate);
            findings.append(finding);
        }
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
    }
    int open = 0;
    for (const Recordings::Day &recorded : ledger.days()) {
        for (const RecordedRun &run : recorded.runs) {
            const RunLedger::Entry entry = ledger.entry(recorded, run);
            const QString day = entry.day.toString(Qt::ISODate);
            const bool outputsMissing = run.ended && !run.hasOutput;
            // Only a run that needs a person is looked at further: one still at work does not.
            if ((entry.need == RunLedger::Need::Nothing && !outputsMissing) || hostStillRuns(run) ||
                running(run, clients))
                continue;
            if (entry.need != RunLedger::Need::Nothing && entry.settled) {
                const RunLedger::Settling &settled = *entry.settled;
                const bool automatic = settled.how == RunLedger::How::ByCancel ||
                                       settled.how == RunLedger::How::ByRefund;
                const QString how =
                    automatic ? u"by the approved %1 of run %2"_s.arg(
                                    settled.how == RunLedger::How::ByCancel ? u"cancel"_s
                                                                            : u"SBP refund"_s,
                                    settled.by)
                              : u"as %1 by %2"_s.arg(RunLedger::howName(settled.how), settled.by);
                findings.append(
                    runFinding(Kind::SettledRun,
                               u"%1 %2 (run %3) was settled %4 on %5%6"_s.arg(
                                   day, summary(run), run.id, how,
                                   settled.at.toDateTime().toString(Qt::ISODate),
                                   settled.note.isEmpty() ? QString() : u": "_s + settled.note),
                               run, entry.day));
            } else if (entry.need == RunLedger::Need::UnseenApproval) {
                ++open;
                Finding finding =
                    runFinding(Kind::UnseenApproval,
                               u"an approval never reached the host: %1 %2, reference number %3, "
                               u"authorization code %4 (run %5): %6"_s.arg(
                                   day, summary(run), run.answer.referenceNumber,
                                   run.answer.authorizationCode, run.id, entry.why),
                               run, entry.day);
                const bool sbp = !run.option(u"-f"_s).isEmpty(); // only SBP runs have one
                finding.advice =
                    u"for the approval of %1: print the terminal's last slip with posctl --dir %2 "
                    u"copy; if the till has no sale for it, %3, which settles it; if the till has "
                    u"the "
                    u"sale, settle it with posctl --dir %2 settle %4 --as kept"_s.arg(
                        summary(run), directory,
                        sbp ? u"refund it with posctl --dir %1 sbp-refund %2 --rrn %3"_s.arg(
                                  directory, run.option(u"-a"_s), finding.referenceNumber)
                            : u"cancel it with posctl --dir %1 cancel %2 --rrn %3"_s.arg(
                                  directory, run.option(u"-a"_s), finding.referenceNumber),
                        run.id);
                findings.append(finding);
            } else if (entry.need == RunLedger::Need::UnknownOutcome) {
                ++open;
                Finding finding = runFinding(
                    Kind::UnknownOutcome,
                    u"a run's outcome is unknown: %1 %2 %3 (run %4)"_s.arg(
                        day, summary(run),
                        run.ended ? u"was ended by signal %1 before it answered"_s.arg(
                                        run.signal.value_or(0))
                                  : u"started and no end was recorded (its process group was "
                                    u"killed, or the power was lost)"_s,
                        run.id),
                    run, entry.day);
                finding.advice =
                    u"for the run of %1: print the terminal's last slip with posctl "
                    u"--dir %2 copy, or look at the terminal's journal, to learn how it "
                    u"ended; then settle it with posctl --dir %2 settle %3 --as "
                    u"cancelled|kept|not-charged"_s.arg(summary(run), directory, run.id);
                findings.append(finding);
            }
            if (outputsMissing)
                findings.append(runFinding(
                    Kind::OutputsMissing,
                    u"the recorder's scribe did not keep what the client wrote in %1 %2 (run %3): "
                    u"its end is recorded, its outputs are not"_s.arg(day, summary(run), run.id),
                    run, entry.day));
        }
    }
    if (!on && open > 0)
        findings.append(Finding::of(
            Kind::RecorderOffOverOpenRuns,
            u"the recorder is off, and its recordings hold %1 run%2 that need%3 a person"_s
                .arg(open)
                .arg(open == 1 ? QString() : u"s"_s, open == 1 ? u"s"_s : QString())));
    if (const QList<const RecordedRun *> failed = lastFailures(ledger, failedRuns);
        !failed.isEmpty()) {
        const RecordedRun &last = *failed.first();
        findings.append(Finding::of(
            Kind::RepeatedFailures,
            u"the last %1 runs of the client all failed; the last at %2: %3"_s.arg(failed.size())
                .arg(last.started.toDateTime().toString(Qt::ISODate),
                     last.answer.text.isEmpty() ? last.ending() : last.answer.text)));
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
