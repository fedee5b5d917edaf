#include "slip.h"

QStringList Slip::wrapped(const QString &text)
{
    QStringList lines;
    for (const QString &paragraph : text.split(u'\n')) {
        // A line that fits keeps its own spacing (the totals are laid out in columns).
        if (paragraph.size() <= width) {
            lines.append(paragraph);
            continue;
        }
        QString current;
        for (QString word : paragraph.split(u' ', Qt::SkipEmptyParts)) {
            if (!current.isEmpty() && current.size() + 1 + word.size() <= width) {
                current += u' ' + word;
                continue;
            }
            if (!current.isEmpty())
                lines.append(current);
            while (word.size() > width) {
                lines.append(word.left(width));
                word.remove(0, width);
            }
            current = word;
        }
        lines.append(current);
    }
    return lines;
}

Slip &Slip::center(const QString &text)
{
    for (const QString &part : wrapped(text))
        m_lines.append(QString((width - part.size()) / 2, u' ') + part);
    return *this;
}

Slip &Slip::pair(const QString &label, const QString &value)
{
    if (label.size() + 1 + value.size() <= width) {
        m_lines.append(label + QString(width - label.size() - value.size(), u' ') + value);
        return *this;
    }
    m_lines.append(wrapped(label));
    for (const QString &part : wrapped(value))
        m_lines.append(part.rightJustified(width));
    return *this;
}

Slip &Slip::line(const QString &text)
{
    m_lines.append(wrapped(text));
    return *this;
}

Slip &Slip::rule()
{
    m_lines.append(QString(width, u'-'));
    return *this;
}

QString Slip::money(qint64 amount)
{
    const QString sign = amount < 0 ? QStringLiteral("-") : QString();
    const quint64 magnitude = amount < 0 ? quint64(0) - quint64(amount) : quint64(amount);
    return sign + QString::number(magnitude / 100) + u'.' +
           QString::number(magnitude % 100).rightJustified(2, u'0');
}
