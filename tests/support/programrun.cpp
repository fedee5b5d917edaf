#include "programrun.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>

using namespace Qt::Literals::StringLiterals;

QJsonObject ProgramRun::json() const
{
    return QJsonDocument::fromJson(out).object();
}

QString ProgramRun::message() const
{
    return json().value("message"_L1).toObject().value("text"_L1).toString();
}

QString ProgramRun::slips() const
{
    QStringList all;
    for (const QJsonValue &slip : json().value("slips"_L1).toArray())
        all.append(slip.toString());
    return all.join(u'\n');
}

ProgramRun ProgramRun::run(const QString &program, const QStringList &arguments,
                           const QString &workingDirectory, const QByteArray &input)
{
    QProcess process;
    if (!workingDirectory.isEmpty())
        process.setWorkingDirectory(workingDirectory);
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(60000))
        process.kill();
    process.waitForFinished();
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            process.readAllStandardOutput(), process.readAllStandardError()};
}
