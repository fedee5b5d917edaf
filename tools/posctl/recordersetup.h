#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <optional>

// Puts the recorder in front of a processing directory's payment client, and takes it away
// again. With the recorder on, the directory holds the recorder as zelnorinpas, the client as
// zelnorinpas.real and the recorder's scribe as zelnorinpas-scribe, and what was put where is
// noted in zelnorinpas.recorded: the client's size, time and hash, and the recorder's hash, so
// that a client missing or replaced since, or a recorder that a new client was copied over, is
// told apart from a recorder at work.
class RecorderSetup
{
public:
    static constexpr const char *client = "zelnorinpas";
    static constexpr const char *realClient = "zelnorinpas.real";
    static constexpr const char *scribe = "zelnorinpas-scribe";
    static constexpr const char *noteFile = "zelnorinpas.recorded";

    // A program as the note holds it.
    struct Program
    {
        qint64 size = 0;
        QDateTime modified;
        QByteArray sha256; // hex
        bool operator==(const Program &other) const { return sha256 == other.sha256; }
        bool operator!=(const Program &other) const { return !(*this == other); }
    };
    struct Note
    {
        QDateTime on;
        Program client;
        Program recorder;
    };

    static bool isOn(const QString &directory);
    // What was noted when the recorder was put on, if it was.
    static std::optional<Note> note(const QString &directory);
    static std::optional<Program> program(const QString &path);
    // Each returns a sentence for the user, and false when it refused or failed; a failure
    // leaves the directory as it was.
    static bool turnOn(const QString &directory, QString &message);
    // The client goes back exactly as it was (the same file); recordings stay, and an empty
    // recordings folder goes. When ./zelnorinpas is no longer the recorder (a new client was
    // copied over it), it refuses to put the older client back unless forced.
    enum class Force { No, Yes };
    static bool turnOff(const QString &directory, Force force, QString &message);
};
