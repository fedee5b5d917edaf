#include "replay.h"

#include <recordings.h>

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <csignal>

using namespace Qt::Literals::StringLiterals;

namespace {

// The run as the recording shows a command: its code, SBP function and amount.
QString identity(const QString &code, const QString &function, const QString &amount)
{
    return u"%1%2 -a %3"_s.arg(code, function.isEmpty() ? QString() : u" -f "_s + function, amount);
}

// Where the replay of a recording is: the number of the next run and where its start line is
// looked for.
struct Position
{
    int next = 0;
    qint64 offset = 0;
};

Position position(const QString &recording)
{
    QFile file(QString::fromLatin1(Replay::stateFile));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QJsonObject state = QJsonDocument::fromJson(file.readAll()).object();
    if (state.value("recording"_L1).toString() != recording)
        return {};
    return {state.value("next"_L1).toInt(), state.value("offset"_L1).toInteger()};
}

void keepPosition(const QString &recording, const Position &at)
{
    QSaveFile file(QString::fromLatin1(Replay::stateFile));
    if (file.open(QIODevice::WriteOnly)) {
        file.write(QJsonDocument(QJsonObject{{u"recording"_s, recording},
                                             {u"next"_s, at.next},
                                             {u"offset"_s, at.offset}})
                       .toJson(QJsonDocument::Compact));
        file.commit();
    }
}

} // namespace

Replay::Answer Replay::next(const QString &recording, double speed, const EmulatorCommand &command,
                            const QStringList &arguments)
{
    Answer answer;
    const QString path = QFileInfo(recording).absoluteFilePath();
    if (!QFileInfo(path).isFile()) {
        answer.refusal = u"воспроизведение: записи %1 нет"_s.arg(path);
        return answer;
    }
    const Position at = position(path);
    const Recordings::Next found = Recordings::runFrom(path, at.offset);
    const QString asked =
        identity(arguments.value(0), command.option(u"-f"_s), command.option(u"-a"_s));
    if (!found.run) {
        answer.refusal = u"воспроизведение записи %1: все %2 запусков уже воспроизведены, а пришёл "
                         u"%3"_s.arg(recording)
                             .arg(at.next)
                             .arg(asked);
        return answer;
    }
    const RecordedRun &run = *found.run;
    const QString expected = identity(run.operation(), run.option(u"-f"_s), run.option(u"-a"_s));
    if (expected != asked) {
        answer.refusal =
            u"воспроизведение записи %1: ожидался запуск %2 от %3 (%4), а пришёл "
            u"%5"_s.arg(recording)
                .arg(at.next + 1)
                .arg(run.started.toDateTime().toString(u"HH:mm:ss"_s), expected, asked);
        return answer;
    }
    keepPosition(path, {at.next + 1, found.offset});
    if (!run.ended) {
        // No end was recorded: its group was killed, at the host's time-out or otherwise.
        answer.hang = true;
        return answer;
    }
    answer.standardOutput = run.standardOutput;
    answer.standardError = run.standardError;
    answer.exitStatus = run.exitStatus.value_or(0);
    answer.signal = run.signal.value_or(0);
    answer.waitMs = qint64(double(run.durationMs) * speed);
    return answer;
}
