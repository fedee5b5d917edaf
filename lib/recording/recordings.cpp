#include "recordings.h"

#include "recordedtext.h"
#include "recordingkeys.h"
#include "recordinglinereader.h"
#include "recordingwriter.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <cstring>

using namespace Qt::Literals::StringLiterals;

namespace {

namespace k = recordingkeys;

constexpr QChar argumentSeparator = QChar(0x1f);

// An event's name as a line holds it, its quotes left out.
QByteArrayView eventName(const char *event)
{
    return QByteArrayView(event);
}

// "2026-11-23T10:15:00.123+03:00" without QDateTime's general parser, which would cost more than
// the rest of a line's reading.
RecordedTime timeOf(const QJsonValue &value)
{
    const QString text = value.toString();
    const auto number = [&text](qsizetype at, qsizetype length) {
        int n = 0;
        for (qsizetype i = at; i < at + length; ++i) {
            const char16_t c = text.at(i).unicode();
            if (c < u'0' || c > u'9')
                return -1;
            n = n * 10 + (c - u'0');
        }
        return n;
    };
    RecordedTime time;
    if (text.size() != 29 || text.at(10) != u'T' || text.at(19) != u'.') {
        const QDateTime parsed = QDateTime::fromString(text, Qt::ISODateWithMs);
        if (parsed.isValid())
            time = {parsed.toMSecsSinceEpoch(), parsed.offsetFromUtc(), true};
        return time;
    }
    const QDate date(number(0, 4), number(5, 2), number(8, 2));
    const int hours = number(11, 2), minutes = number(14, 2), seconds = number(17, 2);
    const int ms = number(20, 3), offsetHours = number(24, 2), offsetMinutes = number(27, 2);
    if (!date.isValid() || hours < 0 || minutes < 0 || seconds < 0 || ms < 0 || offsetHours < 0 ||
        offsetMinutes < 0)
        return time;
    time.offsetSeconds = (offsetHours * 3600 + offsetMinutes * 60) * (text.at(23) == u'-' ? -1 : 1);
    time.msecs = (date.toJulianDay() - 2440588LL) * 86400000LL +
                 ((hours * 60LL + minutes) * 60 + seconds) * 1000 + ms -
                 time.offsetSeconds * 1000LL;
    time.valid = true;
    return time;
}

// The same few texts in every run of a day (the host's name, the terminal's words) are held
// once.
QString interned(const QString &text)
{
    static QSet<QString> texts;
    if (text.size() > 64)
        return text;
    const auto found = texts.constFind(text);
    return found != texts.cend() ? *found : *texts.insert(text);
}

void readStart(RecordedRun &run, const RecordingLineReader &line)
{
    run.started = timeOf(line.text(k::time));
    run.processId = line.integer(k::pid).value_or(0);
    run.setArguments(line.texts(k::arguments));
    run.host = interned(line.text(k::host));
    run.hostProcessId = line.integer(k::hostPid).value_or(0);
}

QByteArray streamOf(const RecordingLineReader &line, const char *name, const char *escaped)
{
    const QString text = line.text(name);
    // Recordings of the first recorder kept a stream that was not UTF-8 as Latin-1.
    if (line.text((std::string(name) + "Encoding").c_str()) == "latin1"_L1)
        return text.toLatin1();
    return RecordedText::toBytes(text, line.boolean(escaped).value_or(false));
}

void readOutputs(RecordedRun &run, const RecordingLineReader &line, Recordings::Streams streams)
{
    run.hasOutput = true;
    const QByteArrayView summary = line.object(k::answer);
    if (!summary.isEmpty()) {
        RecordingLineReader answer;
        if (answer.read(summary))
            run.answer = RecordedAnswer::from(answer);
    }
    if (streams == Recordings::Streams::Skipped && !summary.isEmpty())
        return;
    const QByteArray out = streamOf(line, k::stdoutText, k::stdoutEscaped);
    // The answer as the plug-in read it: a byte that is not UTF-8 as the replacement character.
    if (summary.isEmpty())
        run.answer =
            RecordedAnswer::from(QJsonDocument::fromJson(QString::fromUtf8(out).toUtf8()).object());
    if (streams == Recordings::Streams::Kept) {
        run.standardOutput = out;
        run.standardError = streamOf(line, k::stderrText, k::stderrEscaped);
    }
}

void readEnd(RecordedRun &run, const RecordingLineReader &line, Recordings::Streams streams)
{
    run.ended = true;
    run.endedAt = timeOf(line.text(k::time));
    run.durationMs = line.integer(k::durationMs).value_or(0);
    if (const auto status = line.integer(k::exitStatus))
        run.exitStatus = int(*status);
    if (const auto signal = line.integer(k::signal))
        run.signal = int(*signal);
    run.startError = line.text(k::startError);
    run.delivered = line.boolean(k::delivered).value_or(true);
    run.approvalSeen = line.boolean(k::approval);
    run.standardOutputBytes = line.integer(k::stdoutBytes).value_or(0);
    run.standardErrorBytes = line.integer(k::stderrBytes).value_or(0);
    // An end line of the first recorder held the outputs itself.
    if (line.has(k::stdoutText))
        readOutputs(run, line, streams);
}

// The line read; an output line, when its streams are not wanted, only as far as they start.
bool parse(QByteArrayView text, Recordings::Streams streams, RecordingLineReader &line,
           QByteArray &prefix)
{
    static const QByteArray outputLine =
        "{\"" + QByteArray(k::event) + "\":\"" + QByteArray(k::output) + '"';
    if (streams == Recordings::Streams::Skipped && text.startsWith(outputLine)) {
        const qsizetype streamsAt = text.indexOf(QByteArrayView(k::outputsStart));
        // Whole, or it is read whole to say it is not.
        if (streamsAt > 0 && (text.endsWith("}\n") || text.endsWith('}'))) {
            prefix = text.first(streamsAt).toByteArray() + '}';
            return line.read(prefix);
        }
    }
    return line.read(text);
}

// Reads the lines of one file into the day, merging each run's lines by its id, in whatever
// order they come.
void readInto(const QString &path, Recordings::Day &day, QHash<QString, qsizetype> &byId,
              Recordings::Streams streams)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (QFileInfo::exists(path))
            day.unreadable.append(path + u": "_s + file.errorString());
        return;
    }
    // A run takes one to two kilobytes of lines.
    day.runs.reserve(day.runs.size() + file.size() / 1024);
    const QString name = QFileInfo(path).fileName();
    static const QRegularExpression idPattern(u"\"id\":\"([^\"\\\\]{1,64})\""_s);
    RecordingLineReader line;
    QByteArray prefix;
    int number = 0;
    // Read a block at a time, never the whole file: a day may be hundreds of megabytes.
    QByteArray block;
    qsizetype at = 0;
    for (;;) {
        qsizetype end = block.indexOf('\n', at);
        if (end < 0) {
            block.remove(0, at);
            at = 0;
            const QByteArray more = file.read(1 << 20);
            if (!more.isEmpty()) {
                block += more;
                continue;
            }
            if (block.isEmpty())
                break;
        }
        const bool torn = end < 0;
        end = torn ? block.size() : end + 1;
        const QByteArrayView text = QByteArrayView(block).sliced(at, end - at);
        at = end;
        ++number;
        const bool ok = !torn && parse(text, streams, line, prefix);
        const QByteArrayView kind = ok ? line.raw(k::event) : QByteArrayView();
        if (kind == eventName(k::acknowledged)) {
            const RecordedTime when = timeOf(line.text(k::time));
            for (const qint64 pid : line.integers(k::pids))
                day.acknowledgements.append({pid, when});
            continue;
        }
        if (kind == eventName(k::settled) && !line.text(k::id).isEmpty()) {
            day.settlements.append({line.text(k::id), timeOf(line.text(k::time)), line.text(k::how),
                                    line.text(k::by), line.text(k::note)});
            continue;
        }
        const QString id = ok ? line.text(k::id) : QString();
        if (!ok || id.isEmpty() ||
            (kind != eventName(k::start) && kind != eventName(k::end) &&
             kind != eventName(k::output))) {
            // Named by its run where what is left of it still says which.
            const QRegularExpressionMatch match = idPattern.match(
                QString::fromUtf8(text.first(std::min<qsizetype>(text.size(), 512))));
            day.problems.append(
                {name, number, torn, match.hasMatch() ? match.captured(1) : QString()});
            continue;
        }
        auto found = byId.constFind(id);
        if (found == byId.cend()) {
            found = byId.insert(id, day.runs.size());
            day.runs.append(RecordedRun{});
            day.runs.last().id = id;
        }
        RecordedRun &run = day.runs[*found];
        if (kind == eventName(k::start))
            readStart(run, line);
        else if (kind == eventName(k::end))
            readEnd(run, line, streams);
        else
            readOutputs(run, line, streams);
        if (torn)
            break;
    }
}

} // namespace

QStringList RecordedRun::arguments() const
{
    return m_arguments.isEmpty() ? QStringList() : m_arguments.split(argumentSeparator);
}

void RecordedRun::setArguments(const QStringList &arguments)
{
    m_arguments = arguments.join(argumentSeparator);
}

QString RecordedRun::operation() const
{
    return m_arguments.section(argumentSeparator, 0, 0);
}

QString RecordedRun::option(const QString &name) const
{
    const QStringList list = arguments();
    for (qsizetype i = 1; i + 1 < list.size(); i += 2)
        if (list.at(i) == name)
            return list.at(i + 1);
    return {};
}

bool RecordedRun::approval() const
{
    if (hasOutput)
        return answer.status == 1;
    return approvalSeen.value_or(false);
}

RecordedAnswer RecordedAnswer::from(const RecordingLineReader &answer)
{
    RecordedAnswer recorded;
    // As the plug-in reads them: a member that is not a whole number as 0.
    recorded.status = answer.integer("Status").value_or(0);
    recorded.hostCode = answer.integer("ResponseCodeHost").value_or(0);
    recorded.text = interned(answer.text("TextResponse"));
    recorded.referenceNumber = answer.text("ReferenceNumber");
    recorded.authorizationCode = answer.text("AuthorizationCode");
    return recorded;
}

RecordedAnswer RecordedAnswer::from(const QJsonObject &answer)
{
    RecordedAnswer recorded;
    if (answer.isEmpty())
        return recorded;
    recorded.status = answer.value("Status"_L1).toInt();
    recorded.hostCode = answer.value("ResponseCodeHost"_L1).toInt();
    recorded.text = interned(answer.value("TextResponse"_L1).toString());
    recorded.referenceNumber = answer.value("ReferenceNumber"_L1).toString();
    recorded.authorizationCode = answer.value("AuthorizationCode"_L1).toString();
    return recorded;
}

QDateTime RecordedTime::toDateTime() const
{
    return valid ? QDateTime::fromMSecsSinceEpoch(msecs, Qt::OffsetFromUTC, offsetSeconds)
                 : QDateTime();
}

QString RecordedRun::ending() const
{
    if (!ended)
        return u"unknown"_s;
    if (!startError.isEmpty())
        return u"could not start"_s;
    if (signal)
        return u"signal %1"_s.arg(*signal);
    return u"exit %1"_s.arg(exitStatus.value_or(-1));
}

QStringList Recordings::Day::problemTexts() const
{
    QStringList texts;
    for (const Problem &problem : problems)
        texts.append(
            u"%1, line %2 cannot be read%3%4"_s.arg(problem.file)
                .arg(problem.line)
                .arg(problem.torn ? u" (it was cut off: torn)"_s : QString(),
                     problem.runId.isEmpty() ? QString() : u" (run %1)"_s.arg(problem.runId)));
    return texts;
}

QString Recordings::folder(const QString &processingDirectory)
{
    return QDir(processingDirectory).filePath(QLatin1StringView(RecordingWriter::folder));
}

QString Recordings::dayPath(const QString &processingDirectory, const QDate &day)
{
    return QDir(folder(processingDirectory)).filePath(day.toString(Qt::ISODate) + u".jsonl"_s);
}

QStringList Recordings::dayFiles(const QString &processingDirectory, const QDate &day)
{
    const QDir dir(folder(processingDirectory));
    QStringList files{dayPath(processingDirectory, day)};
    for (const QString &name : dir.entryList({day.toString(Qt::ISODate) + u".*.jsonl"_s},
                                             QDir::Files | QDir::System, QDir::Name))
        files.append(dir.filePath(name));
    return files;
}

Recordings::Day Recordings::read(const QString &processingDirectory, const QDate &date,
                                 Streams streams)
{
    Day day;
    day.date = date;
    QHash<QString, qsizetype> byId;
    for (const QString &path : dayFiles(processingDirectory, date))
        readInto(path, day, byId, streams);
    // Runs start in the order of their lines, but for those that went into files of their own.
    const auto earlier = [](const RecordedRun &a, const RecordedRun &b) {
        return a.started < b.started;
    };
    if (!std::is_sorted(day.runs.cbegin(), day.runs.cend(), earlier))
        std::stable_sort(day.runs.begin(), day.runs.end(), earlier);
    QList<RecordedRun *> runs;
    runs.reserve(day.runs.size());
    for (RecordedRun &run : day.runs)
        runs.append(&run);
    acknowledge(runs, day.acknowledgements);
    return day;
}

QList<QDate> Recordings::days(const QString &processingDirectory)
{
    QList<QDate> days;
    const QDir dir(folder(processingDirectory));
    // Named YYYY-MM-DD.jsonl, or YYYY-MM-DD.RUN.jsonl for a run's own file.
    for (const QString &name :
         dir.entryList({u"*.jsonl"_s}, QDir::Files | QDir::System, QDir::Name)) {
        const QDate day = QDate::fromString(name.left(10), Qt::ISODate);
        if (day.isValid() && (days.isEmpty() || days.last() != day))
            days.append(day);
    }
    return days;
}

Recordings::Day Recordings::readFile(const QString &path)
{
    Day day;
    QHash<QString, qsizetype> byId;
    readInto(path, day, byId, Streams::Kept);
    return day;
}

Recordings::Next Recordings::runFrom(const QString &path, qint64 offset)
{
    Next next{std::nullopt, offset};
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || !file.seek(offset))
        return next;
    const QByteArray startLine =
        "{\"" + QByteArray(k::event) + "\":\"" + QByteArray(k::start) + '"';
    RecordedRun run;
    QByteArray idMark;
    RecordingLineReader line;
    const auto merge = [&](const QByteArray &text) {
        if (!line.read(text) || line.text(k::id) != run.id)
            return;
        if (line.raw(k::event) == eventName(k::end))
            readEnd(run, line, Streams::Kept);
        else if (line.raw(k::event) == eventName(k::output))
            readOutputs(run, line, Streams::Kept);
    };
    while (!file.atEnd()) {
        const QByteArray text = file.readLine();
        if (!text.startsWith(startLine) || !text.endsWith('\n') || !line.read(text) ||
            line.text(k::id).isEmpty())
            continue;
        run.id = line.text(k::id);
        readStart(run, line);
        next.offset = file.pos();
        idMark = "\"" + QByteArray(k::id) + "\":\"" + run.id.toUtf8() + '"';
        break;
    }
    if (run.id.isEmpty())
        return next;
    while (!file.atEnd() && !(run.ended && run.hasOutput)) {
        const QByteArray text = file.readLine();
        if (text.contains(idMark))
            merge(text);
    }
    // Lines that could not wait for the day's lock went into files of their own.
    const QFileInfo info(path);
    for (const QString &name :
         info.dir().entryList({info.completeBaseName() + u".*.jsonl"_s}, QDir::Files)) {
        QFile spilled(info.dir().filePath(name));
        if (run.ended && run.hasOutput)
            break;
        if (!spilled.open(QIODevice::ReadOnly))
            continue;
        while (!spilled.atEnd()) {
            const QByteArray text = spilled.readLine();
            if (text.contains(idMark))
                merge(text);
        }
    }
    next.run = run;
    return next;
}

void Recordings::acknowledge(QList<RecordedRun *> runs,
                             const QList<std::pair<qint64, RecordedTime>> &acknowledgements)
{
    if (acknowledgements.isEmpty())
        return;
    QHash<qint64, QList<RecordedRun *>> byPid;
    for (RecordedRun *run : runs)
        byPid[run->processId].append(run);
    for (const auto &[pid, when] : acknowledgements) {
        RecordedRun *latest = nullptr;
        for (RecordedRun *run : byPid.value(pid))
            if (run->started <= when && (!latest || latest->started < run->started))
                latest = run;
        if (latest)
            latest->acknowledged = true;
    }
}

std::optional<QDateTime> Recordings::failure(const QString &processingDirectory, QString &why)
{
    const QString path =
        QDir(folder(processingDirectory)).filePath(QLatin1StringView(RecordingWriter::failureFile));
    const QFileInfo info(path);
    if (!info.exists())
        return std::nullopt;
    QFile file(path);
    why = file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).trimmed() : QString();
    return info.lastModified();
}
