#include "plugin/inpaspaymentprocessing.h"

#include <basicexception.h>

using namespace Qt::Literals::StringLiterals;

PaymentProcessingAnswer InpasPaymentProcessing::waitAndExecuteOperation(int operationCode,
                                                                        const Arguments &arguments,
                                                                        bool *retry)
{
    waitBeforeNextOperation(settings.intervalBetweenOperations);
    const MaskingLogger::CustomerCodeScope known(logger, arguments.value(u"-d"_s).toString());

    PaymentProcessingAnswer answer;
    try {
        const QByteArray output = executeCommand(operationCode, arguments, clientTimeout);
        answer = processAnswer(output, retry);
    } catch (const BasicException &failure) {
        answer = PaymentProcessingAnswer();
        answer.result = PaymentProcessingAnswer::Failure;
        answer.message = failure.tr();
        if (retry)
            *retry = false;
        answer.status = -1;
    }
    setLastOperationTime();
    return answer;
}
