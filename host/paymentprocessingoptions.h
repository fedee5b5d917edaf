#pragma once

#include <QtGlobal>

// Capabilities that a processor announces to the host. The payment options are single-bit
// flags; the processing options are small numbers.
namespace EPaymentProcessingOption {
enum Option : quint32 {
    Refund = 0x4,
    Cancel = 0x8,
    CustomerQrCode = 0x2000,
    PaymentByQrCodeOnPinPad = 0x8000,
    CancelByQrCodeOnPinPad = 0x80000,
};
} // namespace EPaymentProcessingOption

namespace processing {
enum Option : qint32 {
    AllowInterruptPayment = 0,
    ScanTokenOnCancel = 1,
    ShowProgress = 7,
};
} // namespace processing
