// The whole answer path: a processor whose settings come from the first bytes of the input
// parses the rest as the client's output, with every log line formatted and masked. What the
// masking itself must hold is fuzz_cardmask's.
//
// Input: one byte for the not-enough-balance code, a byte n and n bytes of success texts, a
// byte m and m bytes of host codes to retry, then the client's output.

#include <plugin/inpaspaymentprocessing.h>

#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdlib>
#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {

void discard(QtMsgType, const QMessageLogContext &, const QString &) {}

QByteArray take(const uint8_t *&data, size_t &size, size_t count)
{
    count = std::min(count, size);
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(count));
    data += count;
    size -= count;
    return bytes;
}

uint8_t takeByte(const uint8_t *&data, size_t &size)
{
    const QByteArray byte = take(data, size, 1);
    return byte.isEmpty() ? 0 : uint8_t(byte.at(0));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QTemporaryDir directory;
    static const bool ready = [] {
        qInstallMessageHandler(discard);
        QLoggingCategory::setFilterRules(u"*.debug=true"_s);
        return true;
    }();
    Q_UNUSED(ready);

    const int notEnough = static_cast<int8_t>(takeByte(data, size));
    const QByteArray texts = take(data, size, takeByte(data, size));
    const QByteArray codes = take(data, size, takeByte(data, size));
    const QByteArray output = take(data, size, size);

    QFile config(directory.filePath(u"zelnorinpas.conf"_s));
    if (!config.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return 0;
    config.write("[Client]\nsuccessTextResponses=" + texts + "\nhostCodesResponseToRetry=" + codes +
                 "\n[ErrorCodes]\nnotEnoughtBalanceCode=" + QByteArray::number(notEnough) + '\n');
    config.close();

    // A new processor for every input: the settings' lists only grow.
    const auto processor = std::make_unique<InpasPaymentProcessing>();
    processor->setProcessingDirectory(directory.path());
    bool retry = false;
    const PaymentProcessingAnswer answer = processor->processAnswer(output, &retry);
    if (answer.result != 0 && answer.result != 1 && answer.result != 3)
        std::abort();
    if (retry && answer.status != 0)
        std::abort();
    return 0;
}
