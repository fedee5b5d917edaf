#include "plugin/inpaspaymentprocessing.h"
#include <settingkeys.h>

#include "plugin/hostobject.h"
#include <config.h>

using namespace Qt::Literals::StringLiterals;

const QString InpasPaymentProcessing::defaultProcessingDirectory =
    u"/tillroot/cash/paysystems/inpas"_s;

void InpasPaymentProcessing::setProcessingDirectory(const QString &directory)
{
    processingDirectory = directory.isEmpty() ? defaultProcessingDirectory : directory;

    Config &config = hostObject<Config>();
    config.addConfigFile(processingDirectory + u"/zelnorinpas.conf"_s, u"inpas"_s);

    setOption(processing::ScanTokenOnCancel,
              config.getBool(settingkeys::scanTokenOnCancel.configKey(), true));
    // Interruption, once allowed, stays allowed for the life of the processor.
    if (config.getBool(settingkeys::allowInterruptPayment.configKey(), false))
        setOption(processing::AllowInterruptPayment, true);

    settings.read(config);
}
