#pragma once

#include <QDateTime>
#include <QList>
#include <QMap>
#include <QString>

// One approved operation of the current period.
struct JournalEntry
{
    QString operation; // "sale", "refund", "cancel", "sbp-sale", "sbp-refund"
    qint64 amount = 0;
    QString merchant;
    QString authorizationCode;
    QString referenceNumber;
    QString cardType;
    QString pan;
    QDateTime time;
};

// An SBP payment or refund that is open on the PIN pad.
struct PendingSbp
{
    QString operation; // "sbp-sale" or "sbp-refund"
    qint64 amount = 0;
    QString merchant;
    int queriesLeft = 0;
};

// The emulator's memory between runs: the operations since the last reconciliation, the open
// SBP operations and the last slip. Kept as JSON in the working directory and replaced whole
// on every change, so that a run killed half-way leaves the previous state intact.
class Journal
{
public:
    static constexpr const char *fileName = "zelnorinpas-journal.json";

    static Journal load(const QString &path);
    bool save(const QString &path) const;

    // A number that grows with every operation, for authorisation codes and references.
    int next() { return ++m_sequence; }

    QList<JournalEntry> entries;
    QMap<QString, PendingSbp> pending;
    QString lastSlip;
    int period = 1;

private:
    int m_sequence = 0;
};
