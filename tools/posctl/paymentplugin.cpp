#include "paymentplugin.h"

#include "installedfiles.h"

#include <QFileInfo>
#include <QJsonObject>

using namespace Qt::Literals::StringLiterals;

QString PaymentPlugin::defaultPath()
{
    return InstalledFiles::path(QStringLiteral(INPAS_PLUGIN_FILE_NAME),
                                QStringLiteral(INPAS_INSTALL_PLUGINDIR));
}

bool PaymentPlugin::load(const QString &path, QString &error)
{
    const QFileInfo info(path);
    if (!info.exists()) {
        error = u"plug-in not found: %1"_s.arg(path);
        return false;
    }
    m_loader.setFileName(info.absoluteFilePath());
    const QJsonObject metaData = m_loader.metaData();
    if (metaData.isEmpty()) {
        m_loader.load();
        error = u"%1 is not a Qt plug-in: %2"_s.arg(path, m_loader.errorString());
        return false;
    }
    const QString iid = metaData.value("IID"_L1).toString();
    if (iid != QLatin1StringView(expectedIid)) {
        error =
            u"%1 is not an Inpas payment plug-in: its interface is \"%2\", expected \"%3\""_s.arg(
                path, iid, QLatin1StringView(expectedIid));
        return false;
    }
    m_factory = m_loader.instance();
    if (!m_factory) {
        error = u"cannot load the plug-in %1: %2"_s.arg(path, m_loader.errorString());
        return false;
    }
    return true;
}

std::unique_ptr<AbstractPaymentProcessing> PaymentPlugin::createProcessor(QString &error) const
{
    AbstractPaymentProcessing *processor = nullptr;
    const bool invoked =
        QMetaObject::invokeMethod(m_factory, "getObject", Qt::DirectConnection,
                                  Q_RETURN_ARG(AbstractPaymentProcessing *, processor));
    if (!invoked || !processor) {
        error = u"the plug-in's factory %1 gave no processor"_s.arg(
            QString::fromLatin1(m_factory->metaObject()->className()));
        return nullptr;
    }
    return std::unique_ptr<AbstractPaymentProcessing>(processor);
}
