#pragma once

#include <zelnorhost_global.h>

#include <QVariant>

#include <optional>

class Config;

// The rules by which the stand-in's Config reads its files, for tools that judge a file as the
// host would read it (posctl check). The till's host library has no such thing.
class ZELNORHOST_EXPORT ConfigRules
{
public:
    // The stored value as read from the file, invalid when the key is absent.
    static QVariant storedValue(const Config &config, const QString &key);
    // How getInt() and getBool() read a stored value: nullopt when they give the default.
    static std::optional<int> toInt(const QVariant &value);
    static std::optional<bool> toBool(const QVariant &value);
};
