#pragma once

#include <QString>
#include <QStringList>

// A 40-column slip as the terminal's printer lays it out.
class Slip
{
public:
    static constexpr int width = 40;

    Slip &center(const QString &text);
    Slip &pair(const QString &label, const QString &value);
    // One line, or several when the text has line breaks; each cut to the width.
    Slip &line(const QString &text = {});
    Slip &rule();
    QString text() const { return m_lines.join(u'\n'); }

    // 150005 minor units read as "1500.05".
    static QString money(qint64 amount);

private:
    QStringList m_lines;
};
