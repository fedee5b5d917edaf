#pragma once

#include <abstractpaymentprocessing.h>

#include <customercodeforms.h>

#include <QString>

#include <optional>

class Output;

// posctl's output: one JSON line for machines, or text for a person at a terminal. JSON keeps
// every field exactly; text shows every character too, with control characters other than
// line breaks and tabs written visibly (\0, \r, \x1b), and cuts only a very long message.
class Formatter
{
public:
    // What posctl knows of an answer besides the answer itself.
    struct AnswerContext
    {
        std::optional<qint64> amount; // of the request, in minor units
        bool sbpPayment = false;      // an SBP payment: the codes hold other things
        int clientRuns = 0;
        QString clientNote; // how the client ended, when the answer cannot say it
    };

    static constexpr int messageLines = 20;
    static constexpr int messageCharacters = 4000;

    // The answer as one JSON line, or as text for a person; written a piece at a time.
    static void writeAnswerJson(Output &out, const PaymentProcessingAnswer &answer);
    static void writeAnswerText(Output &out, const PaymentProcessingAnswer &answer,
                                const AnswerContext &context);

    // The answer in one line for stderr: result, status, message, reference number and
    // authorisation code, for when it could not be written out whole.
    // The customer's code the operation sent, when there was one, is found by its value.
    static QString gist(const PaymentProcessingAnswer &answer, const CustomerCodeForms &code = {});

    // The text with control characters other than line breaks and tabs written visibly.
    static QString visible(QStringView text);
    // At most the first limit characters, all control characters written visibly, in quotes:
    // for quoting what a user typed in an error message. A customer's code and a card number
    // hold card data and are never quoted (withoutCustomerCodes, CardMask).
    static QString quoted(const QString &text, qsizetype limit = 80,
                          const CustomerCodeForms &code = {});
    // The text with each customer code in it, the value of --customer-qr or a word that looks
    // like one, replaced by its length.
    static QString withoutCustomerCodes(const QString &text);
    // 150005 minor units as "1500.05".
    static QString money(qint64 amount);

    static QString optionsJson(const AbstractPaymentProcessing &processor);
    static QString optionsText(const AbstractPaymentProcessing &processor);

    static QString scanParamsJson(const ScanQrParams &params);
    static QString scanParamsText(const ScanQrParams &params);

    // A text in a box drawn with line characters, as a slip looks on paper.
    static void writeFramed(Output &out, QStringView text);
};
