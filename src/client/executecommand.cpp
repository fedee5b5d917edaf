#include "answer/panmask.h"
#include "plugin/inpaspaymentprocessing.h"

#include <basicexception.h>
#include <externalprocessthread.h>
#include <log4qt/logger.h>
#include <session.h>
#include <singleton.h>

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

// Publishes the running client's id for interruptPayment() and withdraws it before the runner
// (declared earlier, so destroyed later) reaps the ended client.
class InpasPaymentProcessing::ClientIdScope
{
public:
    ClientIdScope(InpasPaymentProcessing &processor, qint64 pid)
        : m_processor(processor)
    {
        m_processor.setClientProcessId(pid);
    }
    ~ClientIdScope() { m_processor.setClientProcessId(0); }
    ClientIdScope(const ClientIdScope &) = delete;
    ClientIdScope &operator=(const ClientIdScope &) = delete;

private:
    InpasPaymentProcessing &m_processor;
};

QByteArray InpasPaymentProcessing::executeCommand(int operationCode, const Arguments &arguments,
                                                  std::chrono::seconds timeout)
{
    const QStringList argumentList = commandLine(operationCode, arguments);
    ProgressIndicator *progress = hostInstance<Session>().progress();
    // Declared before the runner, so that it outlives the runner's thread that counts with it.
    int counter = 1;
    ExternalProcessThread runner(u"./zelnorinpas"_s, argumentList, timeout, processingDirectory);
    runner.createTimer([&counter, progress] {
        progress->setValue(counter);
        if (counter <= 99)
            ++counter;
    });

    logger->debug(
        u"Рабочий каталог: %1; аргументы: %2"_s.arg(processingDirectory, argumentList.join(u' ')));
    progress->setValue(0);

    runner.start();
    const ClientIdScope clientId(*this, runner.processId());
    if (!runner.exec())
        throw BasicException(runFailure(runner.error()));

    progress->setValue(100);
    if (runner.exitCode() != 0)
        throw BasicException(tr::Tr(tr::undefined, runner.standardError()));

    const QString output = runner.standardOutput();
    logger->debug(u"Ответ процессинга: %1"_s.arg(maskCardNumbers(output)));
    return output.toUtf8();
}
