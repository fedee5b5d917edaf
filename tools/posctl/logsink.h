#pragma once

#include <QString>

// Where posctl sends the log lines of the plug-in and the host: to stderr with -v, and to a
// file with --log whatever -v says, so that an engineer keeps a record of the day. Every line
// starts with the local time to the millisecond, its level and its category.
class LogSink
{
public:
    // Installs the message handler. On failure (the file cannot be opened for appending)
    // returns false and a sentence for the user in error.
    static bool install(bool verbose, const QString &logFile, QString &error);
};
