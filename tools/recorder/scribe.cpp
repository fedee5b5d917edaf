// zelnorinpas-scribe: the recorder's second half. It writes a run's end line with the client's
// outputs masked by the card rule, after the recorder has handed the host its answer, so that
// loading Qt costs the host nothing.
//
// Arguments: the processing directory and the run's start time (seconds since the epoch, which
// names the day's file). On its standard input, once the run has ended: the end line without
// its outputs, then the kept part of the client's standard output and error, each as its length
// on a line of its own and its bytes. Nothing on its input, or less than that, writes nothing.

#include <cardmask.h>
#include <outputmask.h>
#include <recordingwriter.h>

#include <QByteArray>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>
#include <cstdlib>

using namespace Qt::Literals::StringLiterals;

namespace {

// The next part of the hand-over: a line, or a length and as many bytes.
bool readLine(QFile &in, QByteArray &line)
{
    line = in.readLine();
    if (!line.endsWith('\n'))
        return false;
    line.chop(1);
    return true;
}

bool readSized(QFile &in, QByteArray &bytes)
{
    QByteArray length;
    if (!readLine(in, length))
        return false;
    bool ok = false;
    const qint64 size = length.toLongLong(&ok);
    if (!ok || size < 0)
        return false;
    bytes.clear();
    // A pipe gives what it has: read until the whole part is there, or the input ends.
    while (bytes.size() < size) {
        const QByteArray part = in.read(size - bytes.size());
        if (part.isEmpty())
            return false;
        bytes += part;
    }
    return true;
}

// A stream kept as text with its card data masked: its output by the kind of each field, its
// error by the rule for text, which keeps the words the host shows the cashier as they are.
void keep(QJsonObject &end, QLatin1StringView name, const QByteArray &bytes, bool isOutput)
{
    const bool cut = end.value(name + "Cut"_L1).toBool();
    const CardMask::Ending ending = cut ? CardMask::Ending::MayBeCut : CardMask::Ending::Whole;
    QString text = QString::fromUtf8(bytes);
    if (text.toUtf8() != bytes) {
        text = QString::fromLatin1(bytes);
        end.insert(name + "Encoding"_L1, u"latin1"_s);
    }
    end.insert(name, isOutput ? OutputMask::masked(text, ending) : CardMask::text(text, ending));
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 3)
        return 2;
    QFile in;
    QByteArray prefix, output, error;
    if (!in.open(stdin, QIODevice::ReadOnly) || !readLine(in, prefix) || !readSized(in, output) ||
        !readSized(in, error))
        return 1; // the recorder was ended before the run was: its start stands alone
    QJsonObject end = QJsonDocument::fromJson(prefix).object();
    keep(end, "stdout"_L1, output, true);
    keep(end, "stderr"_L1, error, false);
    const QByteArray line = QJsonDocument(end).toJson(QJsonDocument::Compact);
    RecordingWriter writer(argv[1], std::time_t(std::atoll(argv[2])));
    return writer.append(line.toStdString()) ? 0 : 1;
}
