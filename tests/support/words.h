#pragma once

#include <QStringList>

// A command line written as one text, words split at blanks; '' stands for an empty word.
inline QStringList words(const char *text)
{
    QStringList list = QString::fromUtf8(text).split(u' ', Qt::SkipEmptyParts);
    for (QString &word : list)
        if (word == QLatin1StringView("''"))
            word.clear();
    return list;
}
