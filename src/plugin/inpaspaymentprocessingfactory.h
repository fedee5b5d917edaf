#pragma once

#include <abstractpaymentprocessing.h>

#include <QObject>

// The plug-in's root object. The host calls getObject() through the meta-object once for
// every processor it wants.
class InpasPaymentProcessingFactory : public QObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "InpasPaymentProcessingRegisterFactory")

public:
    explicit InpasPaymentProcessingFactory(QObject *parent = nullptr);
    ~InpasPaymentProcessingFactory() override;

    // A new, fully configured processor with no parent. The caller owns it and deletes it
    // through the interface; the factory keeps nothing of it.
    Q_INVOKABLE AbstractPaymentProcessing *getObject() const;
};
