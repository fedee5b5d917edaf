// zelnorinpas-scribe: the recorder's second half. It writes a run's output line, the client's
// outputs masked by the card rule, after the recorder has handed the host its answer and written
// the run's end line itself, so that loading Qt costs the host nothing. It runs in a session of
// its own, out of reach of whatever is sent to the host's process group; should it never write,
// the run's end stands without its outputs, which check reports as the scribe's failure.
//
// Arguments: the processing directory, the run's start time (seconds since the epoch, which
// names the day's file), the name of the run's own file and the run's id. On its standard input:
// a line with whether each output was cut ("1 0"), then the kept part of the client's standard
// output and error, each as its length on a line of its own and its bytes.

#include <cardmask.h>
#include <outputmask.h>
#include <recordingkeys.h>
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
    bytes = in.read(size);
    return bytes.size() == size;
}

// A stream kept as text with its card data masked: its output by the kind of each field, its
// error by the rule for text, which keeps the words the host shows the cashier as they are.
void keep(QJsonObject &line, const char *name, const QByteArray &bytes, bool cut, bool isOutput)
{
    const CardMask::Ending ending = cut ? CardMask::Ending::MayBeCut : CardMask::Ending::Whole;
    QString text = QString::fromUtf8(bytes);
    const QString key = QLatin1StringView(name);
    if (text.toUtf8() != bytes) {
        text = QString::fromLatin1(bytes);
        line.insert(key + u"Encoding"_s, u"latin1"_s);
    }
    line.insert(key, isOutput ? OutputMask::masked(text, ending) : CardMask::text(text, ending));
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 5)
        return 2;
    QFile in;
    QByteArray cut, output, error;
    if (!in.open(stdin, QIODevice::ReadOnly) || !readLine(in, cut) || !readSized(in, output) ||
        !readSized(in, error))
        return 1;
    namespace k = recordingkeys;
    QJsonObject line{{QLatin1StringView(k::event), QLatin1StringView(k::output)},
                     {QLatin1StringView(k::id), QString::fromUtf8(argv[4])}};
    keep(line, k::stdoutText, output, cut.startsWith('1'), true);
    keep(line, k::stderrText, error, cut.endsWith('1'), false);
    const QByteArray text = QJsonDocument(line).toJson(QJsonDocument::Compact);
    RecordingWriter writer(argv[1], std::time_t(std::atoll(argv[2])), argv[3]);
    return writer.append(text.toStdString()) == RecordingWriter::Where::Nowhere ? 1 : 0;
}
