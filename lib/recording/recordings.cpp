#include "recordings.h"

#include "recordedtext.h"
#include "recordingkeys.h"
#include "recordingwriter.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

#include <algorithm>
#include <cstring>

using namespace Qt::Literals::StringLiterals;

namespace {

namespace k = recordingkeys;

constexpr QChar argumentSeparator = QChar(0x1f);

QLatin1StringView key(const char *name)
{
    return QLatin1StringView(name);
}

// "2026-11-23T10:15:00.123+03:00" without QDateTime's general parser, which would cost more than
// the rest of a line's reading.
QDateTime timeOf(const QJsonValue &value)
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
    if (text.size() != 29 || text.at(10) != u'T' || text.at(19) != u'.')
        return QDateTime::fromString(text, Qt::ISODateWithMs);
    const QDate date(number(0, 4), number(5, 2), number(8, 2));
    const int hours = number(11, 2), minutes = number(14, 2), seconds = number(17, 2);
    const int ms = number(20, 3), offsetHours = number(24, 2), offsetMinutes = number(27, 2);
    if (!date.isValid() || hours < 0 || minutes < 0 || seconds < 0 || ms < 0 || offsetHours < 0 ||
        offsetMinutes < 0)
        return QDateTime::fromString(text, Qt::ISODateWithMs);
    const int offset = (offsetHours * 3600 + offsetMinutes * 60) * (text.at(23) == u'-' ? -1 : 1);
    const qint64 msecs = date.toJulianDay() * 86400000LL - 2440588LL * 86400000LL +
                         ((hours * 60LL + minutes) * 60 + seconds) * 1000 + ms - offset * 1000LL;
    return QDateTime::fromMSecsSinceEpoch(msecs);
}

void readStart(RecordedRun &run, const QJsonObject &line)
{
    run.started = timeOf(line.value(key(k::time)));
    run.processId = line.value(key(k::pid)).toInteger();
    QStringList arguments;
    for (const QJsonValue &argument : line.value(key(k::arguments)).toArray())
        arguments.append(argument.toString());
    run.setArguments(arguments);
    run.host = line.value(key(k::host)).toString();
    run.hostProcessId = line.value(key(k::hostPid)).toInteger();
}

QByteArray streamOf(const QJsonObject &line, const char *name, const char *escaped)
{
    const QString text = line.value(key(name)).toString();
    // Recordings of the first recorder kept a stream that was not UTF-8 as Latin-1.
    if (line.value(key(name) + "Encoding"_L1).toString() == "latin1"_L1)
        return text.toLatin1();
    return RecordedText::toBytes(text, line.value(key(escaped)).toBool());
}

void readOutputs(RecordedRun &run, const QJsonObject &line, Recordings::Streams streams)
{
    run.hasOutput = true;
    if (line.contains(key(k::answer)))
        run.answer = line.value(key(k::answer)).toObject();
    if (streams == Recordings::Streams::Skipped && line.contains(key(k::answer)))
        return;
    const QByteArray out = streamOf(line, k::stdoutText, k::stdoutEscaped);
    // The answer as the plug-in read it: a byte that is not UTF-8 as the replacement character.
    if (!line.contains(key(k::answer)))
        run.answer = QJsonDocument::fromJson(QString::fromUtf8(out).toUtf8()).object();
    if (streams == Recordings::Streams::Kept) {
        run.standardOutput = out;
        run.standardError = streamOf(line, k::stderrText, k::stderrEscaped);
    }
}

void readEnd(RecordedRun &run, const QJsonObject &line, Recordings::Streams streams)
{
    run.ended = true;
    run.endedAt = timeOf(line.value(key(k::time)));
    run.durationMs = line.value(key(k::durationMs)).toInteger();
    if (line.contains(key(k::exitStatus)))
        run.exitStatus = line.value(key(k::exitStatus)).toInt();
    if (line.contains(key(k::signal)))
        run.signal = line.value(key(k::signal)).toInt();
    run.startError = line.value(key(k::startError)).toString();
    run.delivered = line.value(key(k::delivered)).toBool(true);
    if (line.contains(key(k::approval)))
        run.approvalSeen = line.value(key(k::approval)).toBool();
    run.standardOutputBytes = line.value(key(k::stdoutBytes)).toInteger();
    run.standardErrorBytes = line.value(key(k::stderrBytes)).toInteger();
    // An end line of the first recorder held the outputs itself.
    if (line.contains(key(k::stdoutText)))
        readOutputs(run, line, streams);
}

// The line as JSON; an output line, when its streams are not wanted, only as far as they start.
QJsonObject parse(QByteArrayView text, Recordings::Streams streams, bool &ok)
{
    QByteArray json = text.toByteArray();
    static const QByteArray outputLine =
        "{\"" + QByteArray(k::event) + "\":\"" + QByteArray(k::output) + '"';
    if (streams == Recordings::Streams::Skipped && text.startsWith(outputLine)) {
        const qsizetype streamsAt = text.indexOf(QByteArrayView(k::outputsStart));
        const bool whole = text.endsWith("}\n") || text.endsWith('}');
        if (streamsAt > 0 && whole)
            json = text.first(streamsAt).toByteArray() + '}';
    }
    QJsonParseError error{};
    const QJsonObject line = QJsonDocument::fromJson(json, &error).object();
    ok = error.error == QJsonParseError::NoError;
    return line;
}

// Reads the lines of one file into the day, merging each run's lines by its id, in whatever
// order they come.
void readInto(const QString &path, Recordings::Day &day, QHash<QString, qsizetype> &byId,
              Recordings::Streams streams)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    const qint64 size = file.size();
    QByteArray buffer;
    const uchar *mapped = size > 0 ? file.map(0, size) : nullptr;
    if (!mapped && size > 0)
        buffer = file.readAll();
    const QByteArrayView all = mapped ? QByteArrayView(mapped, size) : QByteArrayView(buffer);
    const QString name = QFileInfo(path).fileName();
    static const QRegularExpression idPattern(u"\"id\":\"([^\"\\\\]{1,64})\""_s);
    int number = 0;
    for (qsizetype at = 0; at < all.size();) {
        qsizetype end = all.indexOf('\n', at);
        const bool torn = end < 0;
        end = torn ? all.size() : end + 1;
        const QByteArrayView text = all.sliced(at, end - at);
        at = end;
        ++number;
        bool ok = !torn;
        const QJsonObject line = ok ? parse(text, streams, ok) : QJsonObject();
        const QString kind = line.value(key(k::event)).toString();
        if (ok && kind == key(k::acknowledged)) {
            const QDateTime when = timeOf(line.value(key(k::time)));
            for (const QJsonValue &pid : line.value(key(k::pids)).toArray())
                day.acknowledgements.append({pid.toInteger(), when});
            continue;
        }
        const QString id = line.value(key(k::id)).toString();
        if (!ok || id.isEmpty() ||
            (kind != key(k::start) && kind != key(k::end) && kind != key(k::output))) {
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
        if (kind == key(k::start))
            readStart(run, line);
        else if (kind == key(k::end))
            readEnd(run, line, streams);
        else
            readOutputs(run, line, streams);
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
        return answer.value("Status"_L1).toInt() == 1;
    return approvalSeen.value_or(false);
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
    std::stable_sort(
        day.runs.begin(), day.runs.end(),
        [](const RecordedRun &a, const RecordedRun &b) { return a.started < b.started; });
    QList<RecordedRun *> runs;
    for (RecordedRun &run : day.runs)
        runs.append(&run);
    acknowledge(runs, day.acknowledgements);
    return day;
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
    const auto merge = [&](const QByteArray &text) {
        bool ok = false;
        const QJsonObject line = parse(text, Streams::Kept, ok);
        const QString kind = line.value(key(k::event)).toString();
        if (!ok || line.value(key(k::id)).toString() != run.id)
            return;
        if (kind == key(k::end))
            readEnd(run, line, Streams::Kept);
        else if (kind == key(k::output))
            readOutputs(run, line, Streams::Kept);
    };
    while (!file.atEnd()) {
        const QByteArray text = file.readLine();
        if (!text.startsWith(startLine) || !text.endsWith('\n'))
            continue;
        bool ok = false;
        const QJsonObject line = parse(text, Streams::Kept, ok);
        if (!ok || line.value(key(k::id)).toString().isEmpty())
            continue;
        run.id = line.value(key(k::id)).toString();
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
                             const QList<std::pair<qint64, QDateTime>> &acknowledgements)
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
