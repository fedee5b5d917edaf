#include "installedfiles.h"

#include <QCoreApplication>
#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

QString InstalledFiles::path(const QString &name, const QString &installFolder)
{
    const QString dir = QCoreApplication::applicationDirPath();
    const QString beside = dir + u'/' + name;
    if (QFileInfo::exists(beside))
        return beside;
    return QFileInfo(dir + u"/../"_s + installFolder + u'/' + name).absoluteFilePath();
}
