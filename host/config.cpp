#include "config.h"

#include "standin/configrules.h"

#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

namespace {

QStringList splitList(const QString &text)
{
    QStringList items;
    if (text.isEmpty())
        return items;
    for (const QString &item : text.split(u','))
        items.append(item.trimmed());
    return items;
}

} // namespace

Config::Config() = default;
Config::~Config() = default;

bool Config::addConfigFile(const QString &path, const QString &name)
{
    auto settings = std::make_unique<QSettings>(path, QSettings::IniFormat);
    const QMutexLocker lock(&m_mutex);
    m_files[name] = std::move(settings);
    return QFileInfo::exists(path);
}

QVariant ConfigRules::storedValue(const Config &config, const QString &key)
{
    const qsizetype dot = key.indexOf(u'.');
    if (dot <= 0)
        return {};
    QString path = key.mid(dot + 1);
    const qsizetype colon = path.indexOf(u':');
    if (colon >= 0)
        path[colon] = u'/';

    const QMutexLocker lock(&config.m_mutex);
    const auto file = config.m_files.find(key.left(dot));
    if (file == config.m_files.end())
        return {};
    return file->second->value(path);
}

std::optional<int> ConfigRules::toInt(const QVariant &v)
{
    if (v.userType() != QMetaType::QString)
        return std::nullopt;
    bool ok = false;
    const int number = v.toString().trimmed().toInt(&ok);
    return ok ? std::optional<int>(number) : std::nullopt;
}

std::optional<bool> ConfigRules::toBool(const QVariant &v)
{
    if (v.userType() != QMetaType::QString)
        return std::nullopt;
    const QString text = v.toString().trimmed().toLower();
    if (text == "true"_L1 || text == "yes"_L1 || text == "on"_L1 || text == "1"_L1)
        return true;
    if (text == "false"_L1 || text == "no"_L1 || text == "off"_L1 || text == "0"_L1)
        return false;
    return std::nullopt;
}

int Config::getInt(const QString &key, int defaultValue) const
{
    return ConfigRules::toInt(ConfigRules::storedValue(*this, key)).value_or(defaultValue);
}

bool Config::getBool(const QString &key, bool defaultValue) const
{
    return ConfigRules::toBool(ConfigRules::storedValue(*this, key)).value_or(defaultValue);
}

QStringList Config::getStringList(const QString &key, const QString &defaultValue) const
{
    const QVariant v = ConfigRules::storedValue(*this, key);
    if (!v.isValid())
        return splitList(defaultValue);
    if (v.userType() == QMetaType::QStringList)
        return v.toStringList();
    return splitList(v.toString());
}
