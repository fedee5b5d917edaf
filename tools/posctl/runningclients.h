#pragma once

#include <QList>
#include <QString>
#include <QStringList>

// The programs of a processing directory that are running now, as the system lists them
// (/proc): a payment client that a host left behind keeps the terminal, and nothing else
// would tell.
class RunningClients
{
public:
    struct Client
    {
        qint64 processId = 0;
        QStringList arguments;  // the customer's QR code (-d) replaced by its length
        qint64 seconds = 0;     // how long it has run
        bool holdsLock = false; // the emulator's terminal lock, zelnorinpas.lock
        qint64 groupId = 0;     // its process group, which a kill of the whole run names
        qint64 parentId = 0;
        qint64 recordedId = 0; // the real client the recorder runs, when this is the recorder
    };

    // Every process whose working directory is the directory and whose program, or the script
    // it runs, lies in it; the recorder and the client it runs are one entry.
    static QList<Client> in(const QString &directory);
};
