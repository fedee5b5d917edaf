#include "processorfixture.h"

#include <QTest>

using namespace Qt::Literals::StringLiterals;

ProcessorFixture::ProcessorFixture(const QByteArray &extraConfig)
{
    QByteArray config = extraConfig;
    if (!config.contains("intervalBetweenOperations"))
        config.prepend("[Client]\nintervalBetweenOperations=0\n");
    client.setConfig(config);
    processor = std::make_unique<InpasPaymentProcessing>();
    processor->setProcessingDirectory(client.directory());
}

void ProcessorFixture::expectRun(const QString &directory, QStringList arguments,
                                 const QByteArray &output)
{
    // The customer's QR code shows in the log as its length only.
    const qsizetype qr = arguments.indexOf(u"-d"_s);
    if (qr > 0 && qr + 1 < arguments.size())
        arguments[qr + 1] = u"<QR %1 bytes>"_s.arg(arguments.at(qr + 1).size());
    QTest::ignoreMessage(QtDebugMsg, qPrintable(u"Рабочий каталог: %1; аргументы: %2"_s.arg(
                                         directory, arguments.join(u' '))));
    QTest::ignoreMessage(QtDebugMsg,
                         qPrintable(u"Ответ процессинга: %1"_s.arg(QString::fromUtf8(output))));
}

void ProcessorFixture::expectAnswerLine(int status, const QString &message, int hostCode,
                                        const QString &cardType, const QString &pan,
                                        const QString &reference, const QString &auth)
{
    QTest::ignoreMessage(
        QtInfoMsg,
        qPrintable(
            u"Операция выполнена. Статус='%1', Сообщение='%2', Тип карты='%3', "
            u"Номер карты='%4' ID операции='%5', Код авторизации='%6', Код ответа='%7'"_s.arg(
                QString::number(status), message, cardType, pan, reference, auth,
                QString::number(hostCode))));
}
