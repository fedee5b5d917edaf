// zelnorinpas-scribe: the recorder's second half. It writes a run's end line with the client's
// outputs masked by the card rule, after the recorder has handed the host its answer, so that
// loading Qt costs the host nothing.
//
// Arguments: the processing directory, the run's start time (seconds since the epoch, which
// names the day's file), the end line without its outputs, and the memory files that hold the
// kept part of the client's standard output and error.

#include <cardmask.h>
#include <outputmask.h>
#include <recordingwriter.h>

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

QByteArray readAll(int fd)
{
    QByteArray bytes;
    if (fd < 0 || ::lseek(fd, 0, SEEK_SET) != 0)
        return bytes;
    char buffer[65536];
    for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;)
        bytes.append(buffer, n);
    return bytes;
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
    if (argc != 6)
        return 2;
    QJsonObject end = QJsonDocument::fromJson(argv[3]).object();
    keep(end, "stdout"_L1, readAll(std::atoi(argv[4])), true);
    keep(end, "stderr"_L1, readAll(std::atoi(argv[5])), false);
    const QByteArray line = QJsonDocument(end).toJson(QJsonDocument::Compact);
    RecordingWriter writer(argv[1], std::time_t(std::atoll(argv[2])));
    return writer.append(line.toStdString()) ? 0 : 1;
}
