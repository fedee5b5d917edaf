#include "fakeclient.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <csignal>

using namespace Qt::Literals::StringLiterals;

namespace {

void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        qFatal("cannot write %s", qPrintable(path));
    file.write(content);
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

} // namespace

FakeClient::FakeClient()
{
    setAnswer("{}");
}

FakeClient::~FakeClient()
{
    endProcessesIn(directory());
}

void FakeClient::endProcessesIn(const QString &directory)
{
    const QString here = QFileInfo(directory).canonicalFilePath();
    for (const QString &pid : QDir(u"/proc"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        if (!here.isEmpty() && QFileInfo(u"/proc/%1/cwd"_s.arg(pid)).canonicalFilePath() == here)
            ::kill(pid_t(pid.toInt()), SIGKILL);
    }
}

bool FakeClient::isRunning(qint64 processId)
{
    const QByteArray stat = readFile(u"/proc/%1/stat"_s.arg(processId));
    const qsizetype state = stat.lastIndexOf(')') + 2;
    return state > 1 && state < stat.size() && stat.at(state) != 'Z';
}

qint64 FakeClient::processId(int run) const
{
    return readFile(recordPath(u"pid.%1"_s.arg(run))).trimmed().toLongLong();
}

QString FakeClient::recordPath(const QString &name) const
{
    return m_records.filePath(name);
}

// Every run records its number, start time, working directory and arguments, then runs tail.
void FakeClient::writeScript(const QByteArray &tail)
{
    QByteArray script = R"(#!/bin/sh
R='@records@'
n=$(cat "$R/count" 2>/dev/null || echo 0)
n=$((n+1))
date +%s.%N > "$R/start.$n"
echo $$ > "$R/pid.$n"
pwd > "$R/cwd.$n"
for a in "$@"; do printf '%s\0' "$a"; done > "$R/args.$n"
echo $n > "$R/count"
)";
    script.replace("@records@", m_records.path().toUtf8()).append(tail);
    const QString path = m_dir.filePath(u"zelnorinpas"_s);
    writeFile(path, script);
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

void FakeClient::setAnswer(const QByteArray &answer)
{
    writeFile(recordPath(u"answer"_s), answer);
    writeScript("cat \"$R/answer\"\n");
}

void FakeClient::setBehaviour(const QByteArray &shellCode)
{
    writeScript(shellCode + '\n');
}

void FakeClient::setConfig(const QByteArray &ini)
{
    writeFile(m_dir.filePath(u"zelnorinpas.conf"_s), ini);
}

void FakeClient::removeClient()
{
    QFile::remove(m_dir.filePath(u"zelnorinpas"_s));
}

int FakeClient::runCount() const
{
    return readFile(recordPath(u"count"_s)).trimmed().toInt();
}

QStringList FakeClient::arguments(int run) const
{
    QByteArray raw = readFile(recordPath(u"args.%1"_s.arg(run)));
    QStringList list;
    if (raw.isEmpty())
        return list;
    raw.chop(1); // the last NUL
    for (const QByteArray &item : raw.split('\0'))
        list.append(QString::fromUtf8(item));
    return list;
}

bool FakeClient::waitForRecord(const QString &name) const
{
    for (int waited = 0; waited < 60000; waited += 10) {
        if (QFile::exists(recordPath(name)))
            return true;
        QThread::msleep(10);
    }
    return false;
}

QString FakeClient::workingDirectory(int run) const
{
    return QString::fromUtf8(readFile(recordPath(u"cwd.%1"_s.arg(run))).trimmed());
}

void FakeClient::mark(const QString &name) const
{
    writeFile(recordPath(name), {});
}

QByteArray FakeClient::record(const QString &name) const
{
    return readFile(recordPath(name)).trimmed();
}

double FakeClient::startTime(int run) const
{
    return readFile(recordPath(u"start.%1"_s.arg(run))).trimmed().toDouble();
}
