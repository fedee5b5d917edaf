// The plug-in as the host sees it: loaded by Qt's plug-in loader from the built module.

#include <abstractpaymentprocessing.h>
#include <basicpaymentprocessing.h>

#include <QJsonObject>
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
    void metadata();
    void factoryMetaObject();
    void processorsAreIndependent();
    void metaCasts_data();
    void metaCasts();
    void resourceIsRegisteredOnLoad();
    void functionsAreExported();
    void interruptWithoutClientSignalsNothing();

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

void tst_Plugin::metadata()
{
    const QJsonObject meta = m_loader.metaData();
    QCOMPARE(meta.value("IID"_L1).toString(), u"InpasPaymentProcessingRegisterFactory"_s);
    QCOMPARE(meta.value("className"_L1).toString(), u"InpasPaymentProcessingFactory"_s);
    QVERIFY(meta.value("MetaData"_L1).toObject().isEmpty());
}

void tst_Plugin::factoryMetaObject()
{
    const QMetaObject *meta = m_factory->metaObject();
    QCOMPARE(meta->className(), "InpasPaymentProcessingFactory");
    QCOMPARE(meta->superClass(), &QObject::staticMetaObject);
    QCOMPARE(meta->methodCount() - meta->methodOffset(), 1);
    QCOMPARE(meta->propertyCount() - meta->propertyOffset(), 0);
    const QMetaMethod method = meta->method(meta->methodOffset());
    QCOMPARE(method.methodSignature(), QByteArray("getObject()"));
    QCOMPARE(method.typeName(), "AbstractPaymentProcessing*");
    QCOMPARE(method.access(), QMetaMethod::Public);
    QCOMPARE(method.methodType(), QMetaMethod::Method);
    QCOMPARE(m_factory->qt_metacast("InpasPaymentProcessingFactory"), m_factory.data());
    QCOMPARE(m_factory->qt_metacast(AbstractPaymentProcessing_iid), nullptr);
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
    QCOMPARE(firstObject->metaObject()->className(), "InpasPaymentProcessing");

    first.reset();
    QVERIFY(second->isPaymentEnable(PaymentProcessingRequest::Sale));
    QVERIFY(second->checkOption(EPaymentProcessingOption::Refund));
}

void tst_Plugin::metaCasts_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QString>("expected");
    QTest::newRow("own class") << QByteArray("InpasPaymentProcessing") << u"object"_s;
    QTest::newRow("host base") << QByteArray("BasicPaymentProcessing") << u"base"_s;
    QTest::newRow("interface id") << QByteArray(AbstractPaymentProcessing_iid) << u"base"_s;
    QTest::newRow("QObject") << QByteArray("QObject") << u"object"_s;
    QTest::newRow("unknown") << QByteArray("Something") << u"null"_s;
}

void tst_Plugin::metaCasts()
{
    QFETCH(QByteArray, name);
    QFETCH(QString, expected);
    auto processor = create();
    auto *object = dynamic_cast<QObject *>(processor.get());
    auto *base = dynamic_cast<BasicPaymentProcessing *>(processor.get());
    void *cast = object->qt_metacast(name.constData());
    if (expected == "object"_L1)
        QCOMPARE(cast, static_cast<void *>(object));
    else if (expected == "base"_L1)
        QCOMPARE(cast, static_cast<void *>(base));
    else
        QCOMPARE(cast, nullptr);
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
    QCOMPARE(int(png.at(24)), 8); // bit depth
    QCOMPARE(int(png.at(25)), 6); // RGBA
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

void tst_Plugin::interruptWithoutClientSignalsNothing()
{
    // A process id of 0 would signal our own process group, this test included, and QTest
    // fails a test that receives SIGINT.
    auto processor = create();
    QVERIFY(processor->interruptPayment());
    QVERIFY(processor->interruptPayment());
    QTest::qWait(50);
}

QTEST_GUILESS_MAIN(tst_Plugin)
#include "tst_plugin.moc"
