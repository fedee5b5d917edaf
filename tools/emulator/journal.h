#pragma once

#include <QDateTime>
#include <QList>
#include <QMap>
#include <QString>

// One approved operation. Entries stay after a reconciliation, marked settled, so that a
// refund or cancel of an earlier day's sale still finds it.
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
    bool settled = false;
    QString refersTo; // a refund's or cancel's sale, by its reference number
};

// An SBP payment or refund that is open on the PIN pad.
struct PendingSbp
{
    QString operation; // "sbp-sale" or "sbp-refund"
    qint64 amount = 0;
    QString merchant;
    int queriesLeft = 0;
};

// The emulator's memory between runs: the approved operations, the open SBP operations and
// the last slip. Kept as JSON in the working directory and replaced whole on every change, so
// that a run killed half-way leaves the previous state intact. A file of ours, so what it keeps
// of card data is what the card rule lets through (CardMask), whatever the journal was given.
class Journal
{
public:
    static constexpr const char *fileName = "zelnorinpas-journal.json";

    // A missing file is a new day. A file that cannot be read or is not a journal is never
    // taken for one: false, and in error why.
    static bool load(const QString &path, Journal &journal, QString &error);
    bool save(const QString &path, QString &error) const;

    // The operation's number: from 1 up to the largest 64-bit number, then 1 again.
    qint64 next();

    // The card sale with that reference number, or null.
    const JournalEntry *sale(const QString &referenceNumber) const;
    // How much of that sale has been refunded or cancelled, and whether it was cancelled.
    qint64 returned(const QString &referenceNumber) const;
    bool cancelled(const QString &referenceNumber) const;

    QList<JournalEntry> entries;
    QMap<QString, PendingSbp> pending;
    QString lastSlip;
    qint64 period = 1;

private:
    qint64 m_sequence = 0;
};
