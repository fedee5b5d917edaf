#pragma once

#include <abstractpaymentprocessing.h>

#include <QPluginLoader>
#include <QString>

#include <memory>

// The payment plug-in, loaded as the host loads it: Qt's plug-in loader, the IID check, the
// root object and its getObject() reached through the meta-object.
class PaymentPlugin
{
public:
    static constexpr const char *expectedIid = "InpasPaymentProcessingRegisterFactory";

    // Where posctl looks when --plugin is not given: beside the executable, then in the
    // install's plug-in folder.
    static QString defaultPath();

    // On failure returns false and a sentence for the user in error.
    bool load(const QString &path, QString &error);
    std::unique_ptr<AbstractPaymentProcessing> createProcessor(QString &error) const;

private:
    QPluginLoader m_loader;
    QObject *m_factory = nullptr; // owned by the plug-in loader machinery
};
