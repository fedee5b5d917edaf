// zelnorinpas-scribe: the recorder's second half. It writes a run's output line, the client's
// outputs masked by the card rule, after the recorder has handed the host its answer and written
// the run's end line itself, so that loading Qt costs the host nothing. It runs in a session of
// its own, out of reach of whatever is sent to the host's process group; should it never write,
// the run's end stands without its outputs, which check reports as the scribe's failure.
//
//   zelnorinpas-scribe DIRECTORY DAY RUN ID     one run, handed over on standard input; then it
//                                               stays as the directory's service (ScribeService)
//                                               unless another one serves it already
//
// DIRECTORY is the processing directory, DAY the run's start time (seconds since the epoch,
// which names the day's file), RUN the name of the run's own file, ID the run's id. The
// hand-over is a line with whether each output was cut ("1 0"), then the kept part of the
// client's standard output and error and the customer's code the client was sent (empty when
// none), each as its length on a line of its own and its bytes.
//
// The line holds, before the outputs themselves, the answer's few members that readers want
// (its status, reference number, authorisation code and text), so that a reader of a large day
// need not read the outputs to know what each run came to.

#include "scribeservice.h"

#include <QByteArray>
#include <QFile>

#include <cstdlib>
#include <sys/prctl.h>

int main(int argc, char *argv[])
{
    // No core of a process that holds a client's outputs before they are masked.
    ::prctl(PR_SET_DUMPABLE, 0);
    if (argc != 5)
        return 2;
    QFile in;
    if (!in.open(stdin, QIODevice::ReadOnly))
        return 1;
    const QString directory = QFile::decodeName(argv[1]);
    const bool written = ScribeService::writeOutput(directory, std::time_t(std::atoll(argv[2])),
                                                    argv[3], argv[4], in.readAll());
    in.close();
    ScribeService::serve(directory);
    return written ? 0 : 1;
}
