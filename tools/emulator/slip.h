#pragma once

#include <QString>
#include <QStringList>

// A 40-column slip as the terminal's printer lays it out. No line is ever wider: text that
// does not fit wraps at blanks (a word longer than a line is cut into pieces).
class Slip
{
public:
    static constexpr int width = 40;

    Slip &center(const QString &text);
    // The label on the left and the value on the right; when both do not fit on one line,
    // the value goes on a line of its own below, on the right.
    Slip &pair(const QString &label, const QString &value);
    Slip &line(const QString &text = {});
    Slip &rule();
    QString text() const { return m_lines.join(u'\n'); }

    // 150005 minor units read as "1500.05".
    static QString money(qint64 amount);

private:
    static QStringList wrapped(const QString &text);

    QStringList m_lines;
};
