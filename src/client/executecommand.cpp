#include "plugin/inpaspaymentprocessing.h"

#include "plugin/hostobject.h"
#include <basicexception.h>
#include <externalprocessthread.h>
#include <session.h>

using namespace Qt::Literals::StringLiterals;

namespace {

// The operation code first, then each option in the map's order followed by its value; an
// option whose value is a null variant goes without one.
QStringList commandLine(int operationCode, const InpasPaymentProcessing::Arguments &arguments)
{
    QStringList list{QString::number(operationCode, 10)};
    for (auto it = arguments.cbegin(); it != arguments.cend(); ++it) {
        list.append(it.key());
        if (!it.value().isNull())
            list.append(it.value().toString());
    }
    return list;
}

tr::Tr runFailure(int error)
{
    switch (error) {
    case ExternalProcessThread::FailedToStart:
        return tr::Tr(u"inpasPaymentProcessingStartError"_s,
                      u"Не удалось запустить файл zelnorinpas"_s);
    case ExternalProcessThread::Timedout:
        return tr::Tr(u"inpasPaymentProcessingTimeoutError"_s,
                      u"Истекло время ожидания операции. Процесс принудительно завершен"_s);
    default:
        return tr::Tr(u"inpasPaymentProcessingError"_s, u"Ошибка процесса оплаты"_s);
    }
}

} // namespace

QByteArray InpasPaymentProcessing::executeCommand(int operationCode, const Arguments &arguments,
                                                  std::chrono::seconds timeout)
{
    const QStringList argumentList = commandLine(operationCode, arguments);
    const MaskingLogger::CustomerCodeScope known(logger, arguments.value(u"-d"_s).toString());
    ProgressIndicator *progress = hostObject<Session>().progress();
    // Declared before the runner, so that it outlives the runner, whose timer counts with it.
    int counter = 1;
    ExternalProcessThread runner(u"./zelnorinpas"_s, argumentList, timeout, processingDirectory);
    runner.createTimer([this, &counter, progress] {
        progress->setValue(counter);
        if (counter <= 99)
            ++counter;
        interruption.deliverKept();
    });

    logger.debug(
        u"Рабочий каталог: %1; аргументы: %2",
        {LogValue::host(processingDirectory), LogValue::arguments(operationCode, arguments)});
    progress->setValue(0);

    runner.start();
    // Withdrawn before the runner (declared earlier, so destroyed later) reaps the client.
    const ClientInterruption::Client client(interruption, runner.processId());
    if (!runner.exec())
        throw BasicException(runFailure(runner.error()));

    progress->setValue(100);
    if (runner.exitCode() != 0)
        throw BasicException(tr::Tr(tr::undefined, runner.standardError()));

    // The text is not kept beyond its conversion unless the log wants it: a large answer is
    // already held once by the runner.
    if (!logger.isDebugEnabled())
        return runner.standardOutput().toUtf8();
    const QString output = runner.standardOutput();
    // The host's runner keeps a limited part of the output (64 MiB in the host we know) and
    // says so only in its own warning: an output that could be that long may have been cut.
    constexpr qsizetype hostOutputLimit = 64 * 1024 * 1024;
    const CardMask::Ending ending =
        output.size() * 3 >= hostOutputLimit ? CardMask::Ending::MayBeCut : CardMask::Ending::Whole;
    logger.debug(u"Ответ процессинга: %1", {LogValue::clientOutput(output, ending)});
    return output.toUtf8();
}
