#include "acknowledgement.h"

#include "recordersetup.h"

#include <recordingkeys.h>
#include <recordingline.h>
#include <recordingwriter.h>

#include <QDir>
#include <QFile>

#include <chrono>
#include <unistd.h>

void Acknowledgement::announce()
{
    qputenv(recordingkeys::hostVariable, "posctl");
}

void Acknowledgement::record(const QString &processingDirectory,
                             const QList<ClientWatch::Client> &clients)
{
    if (clients.isEmpty() || !RecorderSetup::isOn(processingDirectory))
        return;
    const auto now = std::chrono::system_clock::now();
    std::string pids = "[";
    for (const ClientWatch::Client &client : clients)
        pids += (pids.size() > 1 ? "," : "") + std::to_string(client.processId);
    RecordingLine line(recordingkeys::acknowledged);
    line.add(recordingkeys::time, RecordingLine::isoTime(now))
        .add(recordingkeys::host, std::string("posctl"))
        .addRaw(recordingkeys::pids, pids + ']');
    RecordingWriter writer(QFile::encodeName(processingDirectory).toStdString(),
                           std::chrono::system_clock::to_time_t(now),
                           "posctl-" + std::to_string(::getpid()));
    writer.append(line.text(),
                  {std::chrono::milliseconds(2000), std::chrono::milliseconds(-1), false});
}
