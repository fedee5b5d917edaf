#pragma once

#include "zelnorhost_global.h"

#include <QMutex>
#include <QSettings>
#include <QStringList>

#include <map>
#include <memory>

// The host's configuration: INI files (QSettings syntax, UTF-8) registered under a name.
// A key is "<name>.<Group>:<key>": after addConfigFile("/p/x.conf", "inpas") the key
// "inpas.Client:interval" is "interval" in the group [Client] of /p/x.conf. A file registered
// again under the same name replaces the earlier one and is read afresh.
class ZELNORHOST_EXPORT Config
{
public:
    Config();
    virtual ~Config();
    Config(const Config &) = delete;
    Config &operator=(const Config &) = delete;

    // Returns whether the file exists; it is registered either way, so that a missing file
    // simply gives every default.
    virtual bool addConfigFile(const QString &path, const QString &name);
    // The value, or the default when the key is absent or is not a whole number.
    virtual int getInt(const QString &key, int defaultValue) const;
    // true/yes/on/1 and false/no/off/0; the default when absent or anything else.
    virtual bool getBool(const QString &key, bool defaultValue) const;
    // A comma-separated value as separate items, trimmed, in stored order. When the key is
    // absent, the default split the same way (an empty default gives an empty list).
    virtual QStringList getStringList(const QString &key, const QString &defaultValue) const;

private:
    friend class ConfigRules; // the stand-in's own view of the stored values
    mutable QMutex m_mutex;
    std::map<QString, std::unique_ptr<QSettings>> m_files;
};
