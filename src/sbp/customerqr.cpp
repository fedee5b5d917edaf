#include "plugin/inpaspaymentprocessing.h"
#include "tlv/bertlv.h"

#include "plugin/hostobject.h"
#include <valutcollection.h>

using namespace Qt::Literals::StringLiterals;

QString InpasPaymentProcessing::customerQr(const PaymentProcessingRequest &request) const
{
    const Valut valut = hostObject<ValutCollection>().getValut(request.currencyCode);
    if (valut.checkOption(Valut::PassCustomerQrCode))
        return request.customerQrCode;
    return QString();
}

QByteArray InpasPaymentProcessing::generateQrData(const QByteArray &code) const
{
    const QByteArray inner = tlv::generateBerTlvTag(u"D1"_s, code);
    return tlv::generateBerTlvTag(u"F6"_s, inner);
}
