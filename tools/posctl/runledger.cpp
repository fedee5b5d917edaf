#include "runledger.h"

#include <operationcodes.h>
#include <recordingkeys.h>
#include <recordingline.h>
#include <recordingwriter.h>

#include <QFile>

#include <chrono>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

struct HowRow
{
    RunLedger::How how;
    const char *name;
    bool personal; // a person's way, given with posctl settle --as
};

constexpr HowRow hows[] = {
    {RunLedger::How::Cancelled, "cancelled", true},
    {RunLedger::How::Kept, "kept", true},
    {RunLedger::How::NotCharged, "not-charged", true},
    {RunLedger::How::ByCancel, "by-cancel", false},
    {RunLedger::How::ByRefund, "by-sbp-refund", false},
};

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

bool isFunction(const QString &function, std::string_view name)
{
    return function == QLatin1StringView(name.data(), qsizetype(name.size()));
}

} // namespace

// The way a later run settles an earlier one, and the reference number it names, if it is a run
// that can: an approved cancel names it with -r; an SBP refund with -c on its first run, whose
// approval may come with a status query that names only the refund's form identifier (-r).
std::optional<RunLedger::How> RunLedger::reversal(const RecordedRun &run, QString &reference)
{
    const QString function = run.option(u"-f"_s);
    if (run.operation() == QString::number(operationcodes::Refund) &&
        isFunction(function, operationcodes::returnSbp))
        m_refundOf.insert(run.option(u"-r"_s), run.option(u"-c"_s));
    if (!run.approval())
        return std::nullopt;
    if (run.operation() == QString::number(operationcodes::Cancel) && function.isEmpty()) {
        reference = run.option(u"-r"_s);
        return How::ByCancel;
    }
    if (run.operation() != QString::number(operationcodes::Refund))
        return std::nullopt;
    if (isFunction(function, operationcodes::returnSbp))
        reference = run.option(u"-c"_s);
    else if (isFunction(function, operationcodes::returnStatusSbp))
        reference = m_refundOf.value(run.option(u"-r"_s));
    else
        return std::nullopt;
    return How::ByRefund;
}

namespace {} // namespace

RunLedger RunLedger::read(const QString &directory)
{
    RunLedger ledger;
    for (const QDate &date : Recordings::days(directory)) {
        // Every day, whatever a reader shows: a run is settled by a later day's settling, or by a
        // cancel days after it.
        ledger.m_days.append(Recordings::read(directory, date));
    }
    // A run just before midnight may be acknowledged just after it.
    for (qsizetype d = 1; d < ledger.m_days.size(); ++d) {
        Recordings::Day &earlier = ledger.m_days[d - 1];
        if (earlier.date.addDays(1) != ledger.m_days[d].date)
            continue;
        QList<RecordedRun *> runs;
        for (RecordedRun &run : earlier.runs)
            runs.append(&run);
        Recordings::acknowledge(runs, ledger.m_days[d].acknowledgements);
    }
    ledger.settle();
    return ledger;
}

void RunLedger::settle()
{
    for (const Recordings::Day &day : std::as_const(m_days)) {
        for (const Recordings::Day::Settlement &s : day.settlements) {
            const std::optional<How> how = howFromName(s.how);
            if (how && !m_settled.contains(s.runId))
                m_settled.insert(s.runId, {*how, s.by, s.note, s.at});
        }
    }
    // The open runs by their reference number, then the later runs that name one.
    QHash<QString, QList<const RecordedRun *>> open;
    for (const Recordings::Day &day : std::as_const(m_days))
        for (const RecordedRun &run : day.runs)
            if (!run.answer.referenceNumber.isEmpty() && !m_settled.contains(run.id) &&
                needOf(run) != Need::Nothing)
                open[run.answer.referenceNumber].append(&run);
    if (open.isEmpty())
        return;
    for (const Recordings::Day &day : std::as_const(m_days)) {
        for (const RecordedRun &later : day.runs) {
            QString reference;
            const std::optional<How> how = reversal(later, reference);
            if (!how || reference.isEmpty())
                continue;
            const auto found = open.find(reference);
            if (found == open.end())
                continue;
            QList<const RecordedRun *> &named = *found;
            const QString amount = later.option(u"-a"_s);
            for (qsizetype i = 0; i < named.size(); ++i) {
                const RecordedRun *run = named.at(i);
                const QString runAmount = run->option(u"-a"_s);
                if (!(run->started < later.started) ||
                    (!amount.isEmpty() && !runAmount.isEmpty() && amount != runAmount))
                    continue;
                m_settled.insert(run->id, {*how, later.id, QString(), later.started});
                m_settles.insert(later.id, run->id);
                named.removeAt(i);
                break;
            }
        }
    }
}

RunLedger::Need RunLedger::needOf(const RecordedRun &run, QString *why) const
{
    if (run.approval()) {
        const QString notTaken = approvalNotTaken(run);
        if (why)
            *why = notTaken;
        if (!notTaken.isEmpty())
            return Need::UnseenApproval;
    }
    return !run.ended || !run.endedByItself() ? Need::UnknownOutcome : Need::Nothing;
}

RunLedger::Entry RunLedger::entry(const Recordings::Day &day, const RecordedRun &run) const
{
    Entry entry;
    entry.day = day.date;
    entry.run = &run;
    entry.need = needOf(run, &entry.why);
    entry.settled = settlingOf(run.id);
    entry.settles = m_settles.value(run.id);
    return entry;
}

const RecordedRun *RunLedger::run(const QString &id, QDate *day) const
{
    if (m_index.isEmpty())
        for (qsizetype d = 0; d < m_days.size(); ++d)
            for (qsizetype r = 0; r < m_days[d].runs.size(); ++r)
                m_index.insert(m_days[d].runs[r].id, {d, r});
    const auto found = m_index.constFind(id);
    if (found == m_index.cend())
        return nullptr;
    if (day)
        *day = m_days.at(found->first).date;
    return &m_days.at(found->first).runs.at(found->second);
}

std::optional<RunLedger::Settling> RunLedger::settlingOf(const QString &id) const
{
    const auto found = m_settled.constFind(id);
    return found == m_settled.cend() ? std::nullopt : std::optional<Settling>(*found);
}

QString RunLedger::user()
{
    const passwd *entry = ::getpwuid(::getuid());
    const QString name =
        entry ? QString::fromLocal8Bit(entry->pw_name) : QString::number(::getuid());
    const QString behind = qEnvironmentVariable("SUDO_USER");
    return behind.isEmpty() || behind == name ? name : name + u" (sudo by "_s + behind + u')';
}

RunLedger::Refusal RunLedger::recordSettling(const QString &directory, const QString &runId,
                                             const QString &way, const QString &note,
                                             QString &message)
{
    if (!personalWays().contains(way)) {
        message = u"settle --as takes %1, not \"%2\""_s.arg(personalWays().join(u", "_s), way);
        return Refusal::BadWay;
    }
    const RunLedger ledger = read(directory);
    QDate day;
    const RecordedRun *run = ledger.run(runId, &day);
    if (!run) {
        message = u"there is no run %1 in the recordings of %2"_s.arg(runId, directory);
        return Refusal::NoSuchRun;
    }
    if (const std::optional<Settling> settled = ledger.settlingOf(runId)) {
        message = u"run %1 was settled already, as %2 by %3 on %4"_s.arg(
            runId, howName(settled->how), settled->by,
            settled->at.toDateTime().toString(Qt::ISODate));
        return Refusal::AlreadySettled;
    }
    if (ledger.needOf(*run) == Need::Nothing) {
        message = u"run %1 needs no settling: it ended by itself and its host took its "
                  u"answer"_s.arg(runId);
        return Refusal::NeedsNothing;
    }
    const auto now = std::chrono::system_clock::now();
    RecordingLine line(recordingkeys::settled);
    line.add(recordingkeys::id, runId.toStdString())
        .add(recordingkeys::time, RecordingLine::isoTime(now))
        .add(recordingkeys::how, way.toStdString())
        .add(recordingkeys::by, user().toStdString());
    if (!note.isEmpty())
        line.add(recordingkeys::note, note.toStdString());
    RecordingWriter writer(QFile::encodeName(directory).toStdString(),
                           std::chrono::system_clock::to_time_t(now),
                           "settle-" + std::to_string(::getpid()));
    if (writer.append(line.text()) == RecordingWriter::Where::Nowhere) {
        message = u"the settling of run %1 could not be recorded: %2"_s.arg(
            runId, QString::fromStdString(writer.error()));
        return Refusal::Unwritable;
    }
    // Root settling in a till user's recordings: the day's file stays the recordings' owner's,
    // or the recorder could no longer append to it.
    struct stat folder = {};
    const QByteArray dayFile =
        QFile::encodeName(Recordings::dayPath(directory, QDate::currentDate()));
    if (::geteuid() == 0 &&
        ::stat(QFile::encodeName(Recordings::folder(directory)).constData(), &folder) == 0)
        (void)::chown(dayFile.constData(), folder.st_uid, folder.st_gid);
    message =
        u"run %1 (%2) is settled as %3 by %4"_s.arg(runId, day.toString(Qt::ISODate), way, user());
    return Refusal::None;
}

QString RunLedger::howName(How how)
{
    for (const HowRow &row : hows)
        if (row.how == how)
            return QLatin1StringView(row.name);
    return {};
}

std::optional<RunLedger::How> RunLedger::howFromName(const QString &name)
{
    for (const HowRow &row : hows)
        if (name == QLatin1StringView(row.name))
            return row.how;
    return std::nullopt;
}

QStringList RunLedger::personalWays()
{
    QStringList ways;
    for (const HowRow &row : hows)
        if (row.personal)
            ways.append(QLatin1StringView(row.name));
    return ways;
}
