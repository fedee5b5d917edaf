#pragma once

#include <recordings.h>

#include <QDate>
#include <QHash>
#include <QList>
#include <QString>

#include <optional>

// The recorded runs of a processing directory over its days, with what each needs: a run whose
// approval never reached its host, or whose outcome is unknown, is open until it is settled, by a
// person (posctl settle) or by a later approved cancel or SBP refund that names its reference
// number. Settling is a line of its own in the recordings; nothing earlier is ever changed.
class RunLedger
{
public:
    // How a run was settled.
    enum class How {
        Cancelled,  // reversed on the terminal
        Kept,       // the till has the sale
        NotCharged, // the customer was not charged
        ByCancel,   // a later approved cancel names its reference number
        ByRefund,   // a later approved SBP refund names it
    };
    struct Settling
    {
        How how = How::Kept;
        QString by; // the user, or the run that settled it
        QString note;
        RecordedTime at;
    };
    // What a run needs of a person.
    enum class Need { Nothing, UnseenApproval, UnknownOutcome };

    struct Entry
    {
        QDate day;
        const RecordedRun *run = nullptr;
        Need need = Need::Nothing;
        QString why; // for an unseen approval: why the host does not have it
        std::optional<Settling> settled;
        QString settles; // the run this one settled, when it did
    };

    // Every day of the recordings, in order; acknowledgements are matched across neighbouring
    // days, settlings and the cancels and refunds that settle a run across all of them.
    static RunLedger read(const QString &directory);

    const QList<Recordings::Day> &days() const { return m_days; }
    // What a run of a day needs and how it was settled; made when asked, so that a big day
    // holds nothing more than its runs.
    Entry entry(const Recordings::Day &day, const RecordedRun &run) const;
    // Null when no run of that id was read.
    const RecordedRun *run(const QString &id, QDate *day = nullptr) const;
    std::optional<Settling> settlingOf(const QString &id) const;
    Need needOf(const RecordedRun &run, QString *why = nullptr) const;

    // Why a settling was not recorded.
    enum class Refusal { None, BadWay, NoSuchRun, AlreadySettled, NeedsNothing, Unwritable };
    // Records, durably, that the user settled the run this way (a personal way); message says
    // what was done, or why not.
    static Refusal recordSettling(const QString &directory, const QString &runId,
                                  const QString &way, const QString &note, QString &message);
    // Who runs posctl: the user, and who they are behind sudo.
    static QString user();

    static QString howName(How how);
    static std::optional<How> howFromName(const QString &name);
    // The three ways a person settles a run, for help and errors.
    static QStringList personalWays();

private:
    void settle();
    std::optional<How> reversal(const RecordedRun &run, QString &reference);

    QList<Recordings::Day> m_days;
    mutable QHash<QString, std::pair<qsizetype, qsizetype>> m_index; // run id: day, run; lazily
    QHash<QString, Settling> m_settled;
    QHash<QString, QString> m_settles;  // the settling run's id: the run it settled
    QHash<QString, QString> m_refundOf; // an SBP refund's form identifier: the reference it names
};
