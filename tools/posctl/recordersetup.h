#pragma once

#include <QString>

// Puts the recorder in front of a processing directory's payment client, and takes it away
// again. With the recorder on, the directory holds the recorder as zelnorinpas, the client as
// zelnorinpas.real and the recorder's scribe as zelnorinpas-scribe.
class RecorderSetup
{
public:
    static constexpr const char *client = "zelnorinpas";
    static constexpr const char *realClient = "zelnorinpas.real";
    static constexpr const char *scribe = "zelnorinpas-scribe";

    static bool isOn(const QString &directory);
    // Each returns a sentence for the user, and false when it refused or failed; a failure
    // leaves the directory as it was.
    static bool turnOn(const QString &directory, QString &message);
    // The client goes back exactly as it was (the same file); recordings stay, and an empty
    // recordings folder goes.
    static bool turnOff(const QString &directory, QString &message);
};
