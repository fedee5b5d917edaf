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

int position(const QString &recording)
{
    QFile file(QString::fromLatin1(Replay::stateFile));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QJsonObject state = QJsonDocument::fromJson(file.readAll()).object();
    return state.value("recording"_L1).toString() == recording ? state.value("next"_L1).toInt() : 0;
}

void keepPosition(const QString &recording, int next)
{
    QSaveFile file(QString::fromLatin1(Replay::stateFile));
    if (file.open(QIODevice::WriteOnly)) {
        file.write(QJsonDocument(QJsonObject{{u"recording"_s, recording}, {u"next"_s, next}})
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
    const Recordings::Day day = Recordings::readFile(path);
    const int next = position(path);
    const QString asked =
        identity(arguments.value(0), command.option(u"-f"_s), command.option(u"-a"_s));
    if (next >= day.runs.size()) {
        answer.refusal = u"воспроизведение записи %1: все %2 запусков уже воспроизведены, а пришёл "
                         u"%3"_s.arg(recording)
                             .arg(day.runs.size())
                             .arg(asked);
        return answer;
    }
    const RecordedRun &run = day.runs.at(next);
    const QString expected = identity(run.operation(), run.option(u"-f"_s), run.option(u"-a"_s));
    if (expected != asked) {
        answer.refusal = u"воспроизведение записи %1: ожидался запуск %2 от %3 (%4), а пришёл "
                         u"%5"_s.arg(recording)
                             .arg(next + 1)
                             .arg(run.started.toString(u"HH:mm:ss"_s), expected, asked);
        return answer;
    }
    keepPosition(path, next + 1);
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
