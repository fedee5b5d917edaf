#include "inpassettings.h"

#include <settingkeys.h>

#include <config.h>

using namespace Qt::Literals::StringLiterals;

namespace {

void addNormalizedTexts(QSet<QString> &set, const QStringList &items)
{
    for (const QString &item : items)
        if (const std::optional<QString> text = settingkeys::textItem(item))
            set.insert(*text);
}

} // namespace

void InpasSettings::read(const Config &config)
{
    const SettingKey &notEnough = settingkeys::notEnoughtBalanceCode;
    notEnoughtBalanceCode = config.getInt(notEnough.configKey(), notEnough.defaultValue);
    const SettingKey &interval = settingkeys::intervalBetweenOperations;
    intervalBetweenOperations = config.getInt(interval.configKey(), interval.defaultValue);

    const QStringList codes =
        config.getStringList(settingkeys::returnStatusSbpSuccessCodes.configKey(), {});
    for (const QString &item : codes)
        if (const std::optional<int> code = settingkeys::integerItem(item))
            returnStatusSbpSuccessCodes.insert(*code);

    addNormalizedTexts(successTextResponses,
                       config.getStringList(settingkeys::successTextResponses.configKey(), {}));
    addNormalizedTexts(hostCodesResponseToRetry,
                       config.getStringList(settingkeys::hostCodesResponseToRetry.configKey(), {}));
}
