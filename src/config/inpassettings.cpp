#include "inpassettings.h"

#include <config.h>

using namespace Qt::Literals::StringLiterals;

namespace {

void addNormalizedTexts(QSet<QString> &set, const QStringList &items)
{
    for (const QString &item : items) {
        const QString text = item.trimmed().toUpper();
        if (!text.isEmpty())
            set.insert(text);
    }
}

} // namespace

void InpasSettings::read(const Config &config)
{
    notEnoughtBalanceCode = config.getInt(u"inpas.ErrorCodes:notEnoughtBalanceCode"_s, -1);
    intervalBetweenOperations = config.getInt(u"inpas.Client:intervalBetweenOperations"_s, 2);

    const QStringList codes =
        config.getStringList(u"inpas.Client:returnStatusSbpSuccessCodes"_s, QString());
    for (const QString &item : codes) {
        bool ok = false;
        const int code = item.toInt(&ok, 10);
        if (ok)
            returnStatusSbpSuccessCodes.insert(code);
    }

    addNormalizedTexts(successTextResponses,
                       config.getStringList(u"inpas.Client:successTextResponses"_s, QString()));
    addNormalizedTexts(hostCodesResponseToRetry,
                       config.getStringList(u"inpas.Client:hostCodesResponseToRetry"_s, QString()));
}
