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
//
// The line holds, before the outputs themselves, the answer's few members that readers want
// (its status, reference number, authorisation code and text), so that a reader of a large day
// need not read the outputs to know what each run came to.

#include <cardmask.h>
#include <outputmask.h>
#include <recordedtext.h>
#include <recordingkeys.h>
#include <recordingline.h>
#include <recordingwriter.h>

#include <QByteArray>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdlib>

using namespace Qt::Literals::StringLiterals;

namespace {

namespace k = recordingkeys;

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

// A stream as the recording keeps it: decoded run by run, card data masked (the output by the
// kind of each field, the error by the rule for text), and escaped where it was not UTF-8.
struct Kept
{
    QString text; // masked, as the line holds it
    bool escaped = false;
    QString masked; // masked, stand-ins and all
};

Kept keep(const QByteArray &bytes, bool cut, bool isOutput)
{
    const CardMask::Ending ending = cut ? CardMask::Ending::MayBeCut : CardMask::Ending::Whole;
    bool clean = true;
    const QString text = RecordedText::fromBytes(bytes, &clean);
    Kept kept;
    kept.masked = isOutput ? OutputMask::masked(text, ending) : CardMask::text(text, ending);
    kept.text = RecordedText::forLine(kept.masked, clean);
    kept.escaped = !clean;
    return kept;
}

// The members of the answer that readers want, from the masked output as the plug-in reads it
// (a byte that is not UTF-8 as the replacement character).
QByteArray summary(QString masked)
{
    for (QChar &c : masked)
        if (RecordedText::isStandIn(c.unicode()))
            c = QChar(0xfffd);
    const QJsonObject answer = QJsonDocument::fromJson(masked.toUtf8()).object();
    if (answer.isEmpty())
        return {};
    QJsonObject picked;
    for (const char *name : k::answerMembers)
        if (answer.contains(QLatin1StringView(name)))
            picked.insert(QLatin1StringView(name), answer.value(QLatin1StringView(name)));
    return QJsonDocument(picked).toJson(QJsonDocument::Compact);
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
    const Kept out = keep(output, cut.startsWith('1'), true);
    const Kept err = keep(error, cut.endsWith('1'), false);
    RecordingLine line(k::output);
    line.add(k::id, std::string(argv[4]));
    if (const QByteArray answer = summary(out.masked); !answer.isEmpty())
        line.addRaw(k::answer, answer.toStdString());
    if (out.escaped)
        line.add(k::stdoutEscaped, true);
    if (err.escaped)
        line.add(k::stderrEscaped, true);
    // The outputs last: a reader that wants only the rest stops before them.
    line.add(k::stdoutText, out.text.toStdString()).add(k::stderrText, err.text.toStdString());
    RecordingWriter writer(argv[1], std::time_t(std::atoll(argv[2])), argv[3]);
    return writer.append(line.text()) == RecordingWriter::Where::Nowhere ? 1 : 0;
}
