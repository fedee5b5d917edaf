#include "plugin/inpaspaymentprocessing.h"

using namespace Qt::Literals::StringLiterals;

ScanQrParams InpasPaymentProcessing::getScanQrParams() const
{
    ScanQrParams params;
    params.manualInput = false;
    params.hideInput = false;
    params.title = tr::Tr(u"inpasScanTitle"_s, u"Сканирование QR"_s);
    params.message = tr::Tr(u"inpasScanMessage"_s, u"Отсканируйте QR-код"_s);
    params.errorMessage =
        tr::Tr(u"inpasScanError"_s, u"Ошибка считывания кода,\nповторите сканирование"_s);
    // "hQVDUFY" is the Base64 of the payload's first bytes: tag 85, length 5, "CPV".
    params.patterns = {QRegularExpression(u"hQVDUFY.*"_s)};
    params.imagePath = u":/inpas/scan_token.png"_s;
    params.showOkButton = false;
    params.okButton = tr::Tr(u"markingCodeScanButtonOk"_s, u"Без маркировки"_s);
    params.cancelButtonText = tr::Tr(u"cancelButton"_s, u"Отмена"_s);
    params.repeatOnError = false;
    params.maxAttempts = 6;
    params.timeoutSeconds = 3;
    params.replacements = {};
    params.modal = true;
    params.fullScreen = false;
    params.styleSheet = u"background-color: rgb(255, 53, 53);"_s;
    params.showCancelButton = true;
    params.hint = tr::Tr();
    return params;
}
