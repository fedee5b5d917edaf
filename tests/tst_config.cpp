// The host stand-in's configuration: how keys find their values.

#include <config.h>

#include <QTemporaryDir>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

class tst_Config : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void lookups_data();
    void lookups();
    void reRegisteringReadsAfresh();

private:
    QString writeFile(const QString &name, const QByteArray &content);

    QTemporaryDir m_dir;
    Config m_config;
};

QString tst_Config::writeFile(const QString &name, const QByteArray &content)
{
    QFile file(m_dir.filePath(name));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return {};
    file.write(content);
    return file.fileName();
}

void tst_Config::initTestCase()
{
    const QString path = writeFile(u"a.conf"_s, "[Client]\n"
                                                "interval=5\n"
                                                "flag=yes\n"
                                                "bad=maybe\n"
                                                "list=ОДОБРЕНО, APPROVED ,x\n"
                                                "single=one\n"
                                                "empty=\n"
                                                "[ErrorCodes]\n"
                                                "code=-7\n");
    QVERIFY(m_config.addConfigFile(path, u"inpas"_s));
    QVERIFY(!m_config.addConfigFile(m_dir.filePath(u"missing.conf"_s), u"other"_s));
}

void tst_Config::lookups_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("intValue");
    QTest::addColumn<bool>("boolValue");
    QTest::addColumn<QStringList>("list");

    QTest::newRow("int") << u"inpas.Client:interval"_s << 5 << true << QStringList{u"5"_s};
    QTest::newRow("other group") << u"inpas.ErrorCodes:code"_s << -7 << true
                                 << QStringList{u"-7"_s};
    QTest::newRow("bool") << u"inpas.Client:flag"_s << 0 << true << QStringList{u"yes"_s};
    QTest::newRow("malformed gives defaults")
        << u"inpas.Client:bad"_s << 0 << true << QStringList{u"maybe"_s};
    QTest::newRow("list in stored order")
        << u"inpas.Client:list"_s << 0 << true << QStringList{u"ОДОБРЕНО"_s, u"APPROVED"_s, u"x"_s};
    QTest::newRow("single item") << u"inpas.Client:single"_s << 0 << true << QStringList{u"one"_s};
    QTest::newRow("empty value") << u"inpas.Client:empty"_s << 0 << true << QStringList{};
    QTest::newRow("absent key") << u"inpas.Client:nothing"_s << 0 << true << QStringList{};
    QTest::newRow("unknown name") << u"else.Client:interval"_s << 0 << true << QStringList{};
    QTest::newRow("missing file") << u"other.Client:interval"_s << 0 << true << QStringList{};
    QTest::newRow("no name") << u"Client:interval"_s << 0 << true << QStringList{};
}

void tst_Config::lookups()
{
    QFETCH(QString, key);
    QTEST(m_config.getInt(key, 0), "intValue");
    QTEST(m_config.getBool(key, true), "boolValue");
    QTEST(m_config.getStringList(key, QString()), "list");
}

void tst_Config::reRegisteringReadsAfresh()
{
    const QString path = writeFile(u"b.conf"_s, "[Client]\ninterval=1\n");
    m_config.addConfigFile(path, u"b"_s);
    QCOMPARE(m_config.getInt(u"b.Client:interval"_s, 0), 1);
    writeFile(u"b.conf"_s, "[Client]\ninterval=22\n");
    m_config.addConfigFile(path, u"b"_s);
    QCOMPARE(m_config.getInt(u"b.Client:interval"_s, 0), 22);
    QCOMPARE(m_config.getStringList(u"b.Client:absent"_s, u"a, b"_s),
             (QStringList{u"a"_s, u"b"_s}));
}

QTEST_GUILESS_MAIN(tst_Config)
#include "tst_config.moc"
