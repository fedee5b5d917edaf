#include "recordings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::Literals::StringLiterals;

namespace {

// A recorded stream: text with its card data masked, or Latin-1 when the client's bytes were
// not UTF-8.
QByteArray streamOf(const QJsonObject &end, QLatin1StringView name)
{
    const QString text = end.value(name).toString();
    return end.value(name + "Encoding"_L1).toString() == "latin1"_L1 ? text.toLatin1()
                                                                     : text.toUtf8();
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

bool RecordedRun::unseenApproval() const
{
    return ended && !delivered && exitStatus == 0 && answer().value("Status"_L1).toInt() == 1;
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
    return QDir(processingDirectory).filePath(u"recordings"_s);
}

QString Recordings::dayPath(const QString &processingDirectory, const QDate &day)
{
    return QDir(folder(processingDirectory)).filePath(day.toString(u"yyyy-MM-dd"_s) + u".jsonl"_s);
}

Recordings::Day Recordings::read(const QString &path)
{
    Day day;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return day;
    QHash<QString, qsizetype> byId;
    int number = 0;
    while (!file.atEnd()) {
        const QByteArray line = file.readLine();
        ++number;
        QJsonParseError error{};
        const QJsonObject event = QJsonDocument::fromJson(line, &error).object();
        const QString kind = event.value("event"_L1).toString();
        const QString id = event.value("id"_L1).toString();
        if (error.error != QJsonParseError::NoError || id.isEmpty() ||
            (kind != "start"_L1 && kind != "end"_L1)) {
            day.problems.append(u"%1, line %2 cannot be read%3"_s.arg(path).arg(number).arg(
                line.endsWith('\n') ? QString() : u" (it was cut off: torn)"_s));
            continue;
        }
        if (kind == "start"_L1) {
            RecordedRun run;
            run.id = id;
            run.started =
                QDateTime::fromString(event.value("time"_L1).toString(), Qt::ISODateWithMs);
            run.processId = event.value("pid"_L1).toInteger();
            for (const QJsonValue &argument : event.value("arguments"_L1).toArray())
                run.arguments.append(argument.toString());
            byId.insert(id, day.runs.size());
            day.runs.append(run);
            continue;
        }
        const auto found = byId.constFind(id);
        if (found == byId.cend()) {
            day.problems.append(
                u"%1, line %2 ends a run that did not start there"_s.arg(path).arg(number));
            continue;
        }
        RecordedRun &run = day.runs[*found];
        run.ended = true;
        run.durationMs = event.value("durationMs"_L1).toInteger();
        if (event.contains("exitStatus"_L1))
            run.exitStatus = event.value("exitStatus"_L1).toInt();
        if (event.contains("signal"_L1))
            run.signal = event.value("signal"_L1).toInt();
        run.startError = event.value("startError"_L1).toString();
        run.delivered = event.value("delivered"_L1).toBool(true);
        run.standardOutput = streamOf(event, "stdout"_L1);
        run.standardError = streamOf(event, "stderr"_L1);
    }
    return day;
}

std::optional<QDateTime> Recordings::failure(const QString &processingDirectory, QString &why)
{
    const QString path = QDir(folder(processingDirectory)).filePath(u"failed"_s);
    const QFileInfo info(path);
    if (!info.exists())
        return std::nullopt;
    QFile file(path);
    why = file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).trimmed() : QString();
    return info.lastModified();
}
