#pragma once

#include "fakeclient.h"

#include <plugin/inpaspaymentprocessing.h>

#include <QLoggingCategory>

#include <memory>

// Silences the processor's info and debug lines, for tests that look only at answers; the
// lines themselves are checked where they are the subject.
struct QuietLog
{
    QuietLog()
    {
        QLoggingCategory::setFilterRules(QStringLiteral("inpas.info=false\ninpas.debug=false"));
    }
    ~QuietLog() { QLoggingCategory::setFilterRules(QString()); }
};

// A processor pointed at a fake client, with no pause between runs unless the configuration
// asks for one. The construction and the directory change log nothing.
struct ProcessorFixture
{
    explicit ProcessorFixture(const QByteArray &extraConfig = {});

    // Expects the two debug lines of one client run whose output, compact JSON, the log shows
    // as it is.
    static void expectRun(const QString &directory, QStringList arguments,
                          const QByteArray &output);
    // Expects the info line of an answer whose fields are as given.
    static void expectAnswerLine(int status, const QString &message, int hostCode = 0,
                                 const QString &cardType = {}, const QString &pan = {},
                                 const QString &reference = {}, const QString &auth = {});

    FakeClient client;
    std::unique_ptr<InpasPaymentProcessing> processor;
};
