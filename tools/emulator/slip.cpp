#include "slip.h"

Slip &Slip::center(const QString &text)
{
    const qsizetype pad = std::max<qsizetype>(0, (width - text.size()) / 2);
    m_lines.append(QString(QString(pad, u' ') + text).left(width));
    return *this;
}

Slip &Slip::pair(const QString &label, const QString &value)
{
    const qsizetype gap = std::max<qsizetype>(1, width - label.size() - value.size());
    m_lines.append(label + QString(gap, u' ') + value);
    return *this;
}

Slip &Slip::line(const QString &text)
{
    for (const QString &part : text.split(u'\n'))
        m_lines.append(part.left(width));
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
