#pragma once

#include <QByteArrayView>
#include <QString>
#include <QStringList>

#include <optional>

// One line of a recording, read where it lies: a JSON object whose members are found by a single
// pass that allocates nothing, their values decoded only when asked for. A day of a hundred
// thousand runs is some four hundred thousand lines, and a general JSON reader spends most of
// its time building what is thrown away a moment later.
//
// A line that is not one whole JSON object, with nothing but blanks after it, does not read.
class RecordingLineReader
{
public:
    // False when the text is not a JSON object.
    bool read(QByteArrayView text);

    bool has(const char *key) const { return find(key) != nullptr; }
    // A string member as written, without its quotes and its escapes undone: for comparing
    // with a name that has none.
    QByteArrayView raw(const char *key) const;
    QString text(const char *key) const;
    std::optional<qint64> integer(const char *key) const;
    std::optional<bool> boolean(const char *key) const;
    QStringList texts(const char *key) const;
    // An integer, or each integer of an array of them.
    QList<qint64> integers(const char *key) const;
    // A member that is an object, to be read with a reader of its own.
    QByteArrayView object(const char *key) const;

    // The member keys that a line may have at most; a line with more does not read.
    static constexpr int mostMembers = 32;

private:
    enum class Kind : char { String, Number, Bool, Null, Object, Array };
    struct Member
    {
        QByteArrayView key;   // as written, without its quotes
        QByteArrayView value; // as written, strings with their quotes
        Kind kind;
    };
    const Member *find(const char *key) const;

    Member m_members[mostMembers];
    int m_count = 0;
};
