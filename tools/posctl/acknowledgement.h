#pragma once

#include "clientwatch.h"

#include <QList>
#include <QString>

// posctl's word to the recorder that it has an operation's answer: once the answer is written
// to standard output and flushed, a line in the day's recording names the process ids of the
// operation's clients. A run that posctl started and never acknowledged is one whose answer
// the caller may not have (posctl killed, the power lost, the output closed), whatever reached
// posctl's pipe, and check names it. posctl tells the recorder that it acknowledges by the
// environment it gives every client (announce()).
class Acknowledgement
{
public:
    static void announce();
    // Only where the recorder is on; a line lost to a power cut reads as no acknowledgement,
    // which check names, so it is not waited for on disk.
    static void record(const QString &processingDirectory,
                       const QList<ClientWatch::Client> &clients);
};
