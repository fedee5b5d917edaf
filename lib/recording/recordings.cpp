#include "recordings.h"

#include "recordingkeys.h"
#include "recordingwriter.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

QLatin1StringView key(const char *name)
{
    return QLatin1StringView(name);
}

// A recorded stream: text with its card data masked, or Latin-1 when the client's bytes were
// not UTF-8.
QByteArray streamOf(const QJsonObject &line, const char *name)
{
    const QString text = line.value(key(name)).toString();
    return line.value(key(name) + "Encoding"_L1).toString() == "latin1"_L1 ? text.toLatin1()
                                                                           : text.toUtf8();
}

void readEnd(RecordedRun &run, const QJsonObject &line)
{
    namespace k = recordingkeys;
    run.ended = true;
    run.endedAt = QDateTime::fromString(line.value(key(k::time)).toString(), Qt::ISODateWithMs);
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
}

void readOutput(RecordedRun &run, const QJsonObject &line)
{
    run.hasOutput = true;
    run.standardOutput = streamOf(line, recordingkeys::stdoutText);
    run.standardError = streamOf(line, recordingkeys::stderrText);
}

// Reads the lines of one file into the day, merging each run's lines by its id, in whatever
// order they come.
void readInto(const QString &path, Recordings::Day &day, QHash<QString, qsizetype> &byId)
{
    namespace k = recordingkeys;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    const QString name = QFileInfo(path).fileName();
    int number = 0;
    while (!file.atEnd()) {
        const QByteArray text = file.readLine();
        ++number;
        QJsonParseError error{};
        const QJsonObject line = QJsonDocument::fromJson(text, &error).object();
        const QString kind = line.value(key(k::event)).toString();
        if (kind == key(k::acknowledged)) {
            const QDateTime when =
                QDateTime::fromString(line.value(key(k::time)).toString(), Qt::ISODateWithMs);
            for (const QJsonValue &pid : line.value(key(k::pids)).toArray())
                day.acknowledgements.append({pid.toInteger(), when});
            continue;
        }
        const QString id = line.value(key(k::id)).toString();
        if (error.error != QJsonParseError::NoError || id.isEmpty() ||
            (kind != key(k::start) && kind != key(k::end) && kind != key(k::output))) {
            day.problems.append(u"%1, line %2 cannot be read%3"_s.arg(name).arg(number).arg(
                text.endsWith('\n') ? QString() : u" (it was cut off: torn)"_s));
            continue;
        }
        auto found = byId.constFind(id);
        if (found == byId.cend()) {
            found = byId.insert(id, day.runs.size());
            day.runs.append(RecordedRun{});
            day.runs.last().id = id;
        }
        RecordedRun &run = day.runs[*found];
        if (kind == key(k::start)) {
            run.started =
                QDateTime::fromString(line.value(key(k::time)).toString(), Qt::ISODateWithMs);
            run.processId = line.value(key(k::pid)).toInteger();
            run.arguments.clear();
            for (const QJsonValue &argument : line.value(key(k::arguments)).toArray())
                run.arguments.append(argument.toString());
            run.host = line.value(key(k::host)).toString();
            run.hostProcessId = line.value(key(k::hostPid)).toInteger();
        } else if (kind == key(k::end)) {
            readEnd(run, line);
            // An end line of the earlier recorder held the outputs itself.
            if (line.contains(key(k::stdoutText)))
                readOutput(run, line);
        } else {
            readOutput(run, line);
        }
    }
}

} // namespace

QString RecordedRun::option(const QString &name) const
{
    for (qsizetype i = 1; i + 1 < arguments.size(); i += 2)
        if (arguments.at(i) == name)
            return arguments.at(i + 1);
    return {};
}

QJsonObject RecordedRun::answer() const
{
    return QJsonDocument::fromJson(standardOutput).object();
}

bool RecordedRun::approval() const
{
    if (hasOutput)
        return answer().value("Status"_L1).toInt() == 1;
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

Recordings::Day Recordings::read(const QString &processingDirectory, const QDate &date)
{
    Day day;
    day.date = date;
    QHash<QString, qsizetype> byId;
    for (const QString &path : dayFiles(processingDirectory, date))
        readInto(path, day, byId);
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
    readInto(path, day, byId);
    return day;
}

void Recordings::acknowledge(QList<RecordedRun *> runs,
                             const QList<std::pair<qint64, QDateTime>> &acknowledgements)
{
    for (const auto &[pid, when] : acknowledgements) {
        RecordedRun *latest = nullptr;
        for (RecordedRun *run : runs)
            if (run->processId == pid && run->started <= when &&
                (!latest || latest->started < run->started))
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
