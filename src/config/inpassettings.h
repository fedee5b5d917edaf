#pragma once

#include <QSet>
#include <QString>

class Config;

// The processor's settings from the client's configuration file. Defaults are those of a
// processor whose directory has no file.
struct InpasSettings
{
    qint32 intervalBetweenOperations = 2;
    qint32 notEnoughtBalanceCode = -1;
    QSet<int> returnStatusSbpSuccessCodes;
    QSet<QString> successTextResponses;
    QSet<QString> hostCodesResponseToRetry;

    // Reads the numbers and lists from the file registered as "inpas". The integers take the
    // file's values; the sets only grow, so after several directories each holds the union.
    // Codes that are not 32-bit decimal integers and texts that are blank are dropped.
    void read(const Config &config);
};
