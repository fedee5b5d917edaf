#pragma once

#include <processmonitor.h>

#include "finding.h"
#include "runningclients.h"

#include <QList>
#include <QString>
#include <QStringList>

// A processing directory looked at as the plug-in will use it: whether the payment client can
// be started there, whether one still runs there, whether zelnorinpas.conf parses, and which
// settings are in effect.
class DirectoryCheck
{
public:
    struct Setting
    {
        QString key;       // "Group/name"
        QStringList value; // one item, or a list's items
        bool isList = false;
        bool isDefault = false;
    };
    struct Report
    {
        QString directory;
        Findings findings;
        QList<Setting> settings;
        QList<RunningClients::Client> clients; // still running in the directory
        bool ok() const;
    };

    // failedRuns: how many failed client runs in a row are worth a warning.
    static Report run(const QString &directory, int failedRuns = 5);

    // The states of monitoring systems (Nagios, Icinga, Zabbix agents): also posctl check
    // --monitoring's exit status.
    enum class Status { Ok = 0, Warning = 1, Critical = 2, Unknown = 3 };
    // Unknown when check could not look at what it must (the directory, the recordings).
    static Status monitoringStatus(const Report &report);
    // "INPAS CRITICAL - 1 unseen approval (run ..., reference number ...); ..." in one line.
    static QString monitoringLine(const Report &report, Status status);
    static QString text(const Report &report);
    static QString json(const Report &report);

    // Why the client could not be started, and what to do about it.
    static QString startHint(const QString &directory, const StartFailure &failure);
};
