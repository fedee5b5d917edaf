#include "inpaspaymentprocessingfactory.h"

#include "inpaspaymentprocessing.h"

InpasPaymentProcessingFactory::InpasPaymentProcessingFactory(QObject *parent)
    : QObject(parent)
{}

InpasPaymentProcessingFactory::~InpasPaymentProcessingFactory() = default;

AbstractPaymentProcessing *InpasPaymentProcessingFactory::getObject() const
{
    return new InpasPaymentProcessing(nullptr);
}
