#include "plugin/inpaspaymentprocessing.h"

#include <operationcodes.h>

using namespace Qt::Literals::StringLiterals;

namespace {

InpasPaymentProcessing::Arguments merchantArguments(const QString &merchantId)
{
    return {{u"-t"_s, merchantId}};
}

} // namespace

// The mode of checkTotals, the number of printCopy and the account of balance do not reach
// the client: it reconciles everything, copies the slip it chooses and reports the balance.

PaymentProcessingAnswer InpasPaymentProcessing::checkTotals(int)
{
    const ClientInterruption::Operation operation(interruption);
    logger.info(u"Сверка итогов");
    return waitAndExecuteOperation(operationcodes::Reconciliation, {}, nullptr);
}

PaymentProcessingAnswer InpasPaymentProcessing::checkTotalsByMerchantId(const QString &merchantId)
{
    const ClientInterruption::Operation operation(interruption);
    logger.info(u"Сверка итогов для юр. лица(merchantId = %1)", {LogValue::host(merchantId)});
    return waitAndExecuteOperation(operationcodes::Reconciliation, merchantArguments(merchantId),
                                   nullptr);
}

PaymentProcessingAnswer InpasPaymentProcessing::printCopy(int)
{
    const ClientInterruption::Operation operation(interruption);
    logger.info(u"Печать копии слипа");
    return waitAndExecuteOperation(operationcodes::SlipCopy, {}, nullptr);
}

PaymentProcessingAnswer InpasPaymentProcessing::printReport()
{
    const ClientInterruption::Operation operation(interruption);
    logger.info(u"Печать полного отчета");
    return waitAndExecuteOperation(operationcodes::FullReport, {}, nullptr);
}

PaymentProcessingAnswer InpasPaymentProcessing::printReportByMerchantId(const QString &merchantId)
{
    const ClientInterruption::Operation operation(interruption);
    logger.info(u"Печать полного отчета для юр. лица(merchantId = %1)",
                {LogValue::host(merchantId)});
    return waitAndExecuteOperation(operationcodes::FullReport, merchantArguments(merchantId),
                                   nullptr);
}

PaymentProcessingAnswer InpasPaymentProcessing::printShortReport()
{
    const ClientInterruption::Operation operation(interruption);
    logger.info(u"Печать краткого отчета");
    return waitAndExecuteOperation(operationcodes::ShortReport, {}, nullptr);
}

PaymentProcessingAnswer InpasPaymentProcessing::balance(const QString &)
{
    const ClientInterruption::Operation operation(interruption);
    logger.info(u"Запрос состояния счета");
    return waitAndExecuteOperation(operationcodes::Balance, {}, nullptr);
}
