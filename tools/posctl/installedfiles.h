#pragma once

#include <QString>

// Where posctl finds the files that come with it: beside its own executable (a build tree),
// then in the install's folder for them, relative to the install prefix.
class InstalledFiles
{
public:
    static QString path(const QString &name, const QString &installFolder);
};
