#pragma once

#include <abstractpaymentprocessing.h>

#include <QString>

// posctl's output: one JSON line for machines, or text for a person at a terminal.
class Formatter
{
public:
    static QString answerJson(const PaymentProcessingAnswer &answer);
    static QString answerText(const PaymentProcessingAnswer &answer);

    static QString optionsJson(const AbstractPaymentProcessing &processor);
    static QString optionsText(const AbstractPaymentProcessing &processor);

    static QString scanParamsJson(const ScanQrParams &params);
    static QString scanParamsText(const ScanQrParams &params);

    // A text in a box drawn with line characters, as a slip looks on paper.
    static QString framed(const QString &text);
};
