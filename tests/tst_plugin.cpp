// The plug-in as the host sees it: loaded by Qt's plug-in loader from the built module.

#include <abstractpaymentprocessing.h>

#include <QLibrary>
#include <QPluginLoader>
#include <QPointer>
#include <QResource>
#include <QTest>
#include <QtEndian>

#include <memory>

using namespace Qt::Literals::StringLiterals;

class tst_Plugin : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void processorsAreIndependent();
    void resourceIsRegisteredOnLoad();
    void functionsAreExported();

private:
    std::unique_ptr<AbstractPaymentProcessing> create();

    QPluginLoader m_loader{QStringLiteral(INPAS_PLUGIN_PATH)};
    QPointer<QObject> m_factory;
};

void tst_Plugin::initTestCase()
{
    m_factory = m_loader.instance();
    QVERIFY2(m_factory, qPrintable(m_loader.errorString()));
}

std::unique_ptr<AbstractPaymentProcessing> tst_Plugin::create()
{
    AbstractPaymentProcessing *processor = nullptr;
    const bool ok = QMetaObject::invokeMethod(m_factory, "getObject",
                                              Q_RETURN_ARG(AbstractPaymentProcessing *, processor));
    if (!ok)
        return nullptr;
    return std::unique_ptr<AbstractPaymentProcessing>(processor);
}

void tst_Plugin::processorsAreIndependent()
{
    auto first = create();
    auto second = create();
    QVERIFY(first && second);
    QVERIFY(first.get() != second.get());

    auto *firstObject = dynamic_cast<QObject *>(first.get());
    auto *secondObject = dynamic_cast<QObject *>(second.get());
    QVERIFY(firstObject && secondObject);
    QCOMPARE(firstObject->parent(), nullptr);
    QCOMPARE(secondObject->parent(), nullptr);
    // The host finds the payment-processing interface of a plain QObject by its identifier.
    QCOMPARE(qobject_cast<AbstractPaymentProcessing *>(secondObject), second.get());

    first.reset();
    QVERIFY(second->isPaymentEnable(PaymentProcessingRequest::Sale));
    QVERIFY(second->checkOption(EPaymentProcessingOption::Refund));
}

void tst_Plugin::resourceIsRegisteredOnLoad()
{
    const QResource resource(u":/inpas/scan_token.png"_s);
    QVERIFY(resource.isValid());
    // QFile would decompress silently; only the resource itself tells how it is stored.
    QCOMPARE(resource.compressionAlgorithm(), QResource::NoCompression);
    const QByteArray png = resource.uncompressedData();
    QVERIFY(png.startsWith("\x89PNG\r\n\x1a\n"));
    QCOMPARE(qFromBigEndian<quint32>(png.constData() + 16), 453u);
    QCOMPARE(qFromBigEndian<quint32>(png.constData() + 20), 350u);
}

void tst_Plugin::functionsAreExported()
{
    QLibrary library(QStringLiteral(INPAS_PLUGIN_PATH));
    using ResourceFunction = int (*)();
    auto init = reinterpret_cast<ResourceFunction>(library.resolve("_Z20qInitResources_inpasv"));
    auto cleanup =
        reinterpret_cast<ResourceFunction>(library.resolve("_Z23qCleanupResources_inpasv"));
    QVERIFY(init && cleanup);
    QCOMPARE(init(), 1);
    QCOMPARE(cleanup(), 1);
    QCOMPARE(init(), 1); // registered again for the other tests

    // The BER-TLV codec is offered to other programs under its C++ names.
    using Parse = QMap<QString, QByteArray> (*)(const QByteArray &);
    using Generate = QByteArray (*)(const QString &, const QByteArray &);
    using IsComplex = bool (*)(const QString &);
    auto parse = reinterpret_cast<Parse>(library.resolve("_ZN3tlv11parseBerTlvERK10QByteArray"));
    auto generate = reinterpret_cast<Generate>(
        library.resolve("_ZN3tlv17generateBerTlvTagERK7QStringRK10QByteArray"));
    auto isComplex = reinterpret_cast<IsComplex>(library.resolve("_ZN3tlv9isComplexERK7QString"));
    QVERIFY(parse && generate && isComplex);
    QCOMPARE(parse(generate(u"9F02"_s, "\x01\x02")).value(u"9F02"_s), QByteArray("\x01\x02"));
    QVERIFY(isComplex(u"F6"_s));
}

QTEST_GUILESS_MAIN(tst_Plugin)
#include "tst_plugin.moc"
