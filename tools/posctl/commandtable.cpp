#include "commandtable.h"

#include "commandline.h"
#include "commandrunner.h"
#include "posctlhost.h"

#include <abstractpaymentprocessing.h>

using namespace Qt::Literals::StringLiterals;

namespace {

using C = CommandTable;
using O = CommandTable::Option;
using P = CommandTable::Place;

constexpr C::Options requestOptions = O::Type | O::Merchant | O::Rrn | O::Auth | O::CustomerQr |
                                      O::Currency | O::FormText | O::FormNumber | O::FormSequence |
                                      O::FormTime;
constexpr C::Places everywhere = P::CommandLine | P::Batch;

PaymentProcessingRequest request(const Invocation &invocation, PaymentProcessingRequest::Type type)
{
    return CommandRunner::request(invocation, type);
}

PaymentProcessingAnswer sale(AbstractPaymentProcessing &p, const Invocation &i)
{
    return p.payment(request(i, PaymentProcessingRequest::Sale));
}

PaymentProcessingAnswer refund(AbstractPaymentProcessing &p, const Invocation &i)
{
    return p.payment(request(i, PaymentProcessingRequest::Refund));
}

PaymentProcessingAnswer cancel(AbstractPaymentProcessing &p, const Invocation &i)
{
    return p.cancel(request(i, PaymentProcessingRequest::Sale));
}

PaymentProcessingAnswer sbpPay(AbstractPaymentProcessing &p, const Invocation &i)
{
    return p.paymentByQRCodeOnPinPad(request(i, PaymentProcessingRequest::Sale));
}

PaymentProcessingAnswer sbpRefund(AbstractPaymentProcessing &p, const Invocation &i)
{
    return p.cancelByQRCodeOnPinPad(request(i, PaymentProcessingRequest::Return));
}

PaymentProcessingAnswer reconcile(AbstractPaymentProcessing &p, const Invocation &i)
{
    return i.merchant ? p.checkTotalsByMerchantId(*i.merchant) : p.checkTotals(0);
}

PaymentProcessingAnswer report(AbstractPaymentProcessing &p, const Invocation &i)
{
    return i.merchant ? p.printReportByMerchantId(*i.merchant) : p.printReport();
}

PaymentProcessingAnswer shortReport(AbstractPaymentProcessing &p, const Invocation &)
{
    return p.printShortReport();
}

PaymentProcessingAnswer copy(AbstractPaymentProcessing &p, const Invocation &)
{
    return p.printCopy(0);
}

PaymentProcessingAnswer balance(AbstractPaymentProcessing &p, const Invocation &)
{
    return p.balance(QString());
}

constexpr int helpColumn = 23;

QString helpLine(const QString &head, const QString &help)
{
    QString text = u"  "_s + head;
    text += text.size() < helpColumn - 1 ? QString(helpColumn - text.size(), u' ')
                                         : u'\n' + QString(helpColumn, u' ');
    return text + QString(help).replace(u'\n', u'\n' + QString(helpColumn, u' ')) + u'\n';
}

} // namespace

const QList<CommandTable::Command> &CommandTable::commands()
{
    using A = Argument;
    using S = Section;
    using G = Progress;
    static const QList<Command> table{
        {"sale"_L1, A::Amount, requestOptions, everywhere, S::Payment, G::CardOrService, sale,
         nullptr, "card sale (payment, type 1)"},
        {"refund"_L1, A::Amount, requestOptions, everywhere, S::Payment, G::CardOrService, refund,
         nullptr, "card refund (payment, type 2; --type 3 for the other kind)"},
        {"cancel"_L1, A::Amount, requestOptions, everywhere, S::Payment, G::CardOrService, cancel,
         nullptr, "cancellation of a card sale (cancel, type 1)"},
        {"sbp-pay"_L1, A::Amount, requestOptions, everywhere, S::Payment, G::Sbp, sbpPay, nullptr,
         "SBP payment with the QR code on the PIN pad\n(paymentByQRCodeOnPinPad, type 1)",
         C::Codes::SbpPayment},
        {"sbp-refund"_L1, A::Amount, requestOptions, everywhere, S::Payment, G::Sbp, sbpRefund,
         nullptr, "SBP refund on the PIN pad (cancelByQRCodeOnPinPad, type 3)"},
        {"reconcile"_L1, A::None, O::Merchant, everywhere, S::Service, G::CardOrService, reconcile,
         nullptr,
         "reconciliation of totals (\"Сверка итогов\"); with --merchant M for one\n"
         "legal entity"},
        {"report"_L1, A::None, O::Merchant, everywhere, S::Service, G::CardOrService, report,
         nullptr, "full report; with --merchant M for one legal entity"},
        {"short-report"_L1,
         A::None,
         {},
         everywhere,
         S::Service,
         G::CardOrService,
         shortReport,
         nullptr,
         "short report"},
        {"copy"_L1,
         A::None,
         {},
         everywhere,
         S::Service,
         G::CardOrService,
         copy,
         nullptr,
         "copy of the last slip"},
        {"balance"_L1,
         A::None,
         {},
         everywhere,
         S::Service,
         G::CardOrService,
         balance,
         nullptr,
         "account balance"},
        {"check"_L1, A::None, O::Monitoring | O::FailedRuns, P::CommandLine, S::Information,
         G::None, nullptr, &PosctlHost::check,
         "look at the processing directory as the plug-in will: the client, one\n"
         "still running, the configuration file, the settings in effect, and\n"
         "with the recorder on, any approval that never reached the host (exit 1\n"
         "on a problem)"},
        {"recorder"_L1, A::RecorderAction, O::Force, P::CommandLine, S::Information, G::None,
         nullptr, &PosctlHost::recorder,
         "put the recorder in front of the payment client, or take it away:\n"
         "it keeps every run with the terminal in recordings/; status says\n"
         "whether it is on, and what it holds"},
        {"settle"_L1, A::Run, O::As | O::Note, P::CommandLine, S::Information, G::None, nullptr,
         &PosctlHost::settle,
         "record that a person settled a run check named: --as cancelled (reversed\n"
         "on the terminal), kept (the till has the sale) or not-charged"},
        {"recordings"_L1, A::Maintenance, O::Day | O::Since | O::Until | O::Open | O::KeepDays,
         P::CommandLine, S::Information, G::None, nullptr, &PosctlHost::recordings,
         "the runs the recorder kept on a day (--day, today by default) or\n"
         "days (--since, --until): time, operation, amount, result, delivered,\n"
         "settled; --open: only runs that need a person. recordings prune\n"
         "--keep-days N removes older days that hold no open run"},
        {"scan-params"_L1,
         A::None,
         {},
         everywhere,
         S::Information,
         G::None,
         nullptr,
         &PosctlHost::scanParams,
         "the parameters of the host's QR-scanning dialog"},
        {"options"_L1,
         A::None,
         {},
         everywhere,
         S::Information,
         G::None,
         nullptr,
         &PosctlHost::options,
         "the options the processor announces and the request types it accepts"},
        {"batch"_L1,
         A::None,
         {},
         P::CommandLine,
         S::Information,
         G::None,
         nullptr,
         &PosctlHost::batch,
         "read commands from stdin, one a line, and run them on one processor;\n"
         "each prints one JSON line. Extra lines: set-dir DIR, new-processor.\n"
         "Blank lines and lines starting with # are skipped."},
        {"set-dir"_L1,
         A::Directory,
         {},
         P::Batch,
         S::BatchOnly,
         G::None,
         nullptr,
         &PosctlHost::setDirectory,
         "call setProcessingDirectory(DIR)"},
        {"new-processor"_L1,
         A::None,
         {},
         P::Batch,
         S::BatchOnly,
         G::None,
         nullptr,
         &PosctlHost::replaceProcessor,
         "take a new processor from the factory"},
        {"help"_L1,
         A::None,
         {},
         P::CommandLine,
         S::Information,
         G::None,
         nullptr,
         nullptr,
         "this text"},
    };
    return table;
}

const QList<CommandTable::OptionRow> &CommandTable::options()
{
    using V = Value;
    static const QList<OptionRow> table{
        {"--type"_L1, O::Type, V::Number, "N"_L1, "request type (overrides the command's)"},
        {"--merchant"_L1, O::Merchant, V::Text, "M"_L1, "merchant (legal entity) identifier"},
        {"--rrn"_L1, O::Rrn, V::Text, "R"_L1, "reference number of the operation referred to"},
        {"--auth"_L1, O::Auth, V::Text, "A"_L1, "authorisation code of the operation referred to"},
        {"--customer-qr"_L1, O::CustomerQr, V::Text, "CODE"_L1,
         "the customer's scanned QR code (Latin-1 text)"},
        {"--currency"_L1, O::Currency, V::Number, "N"_L1,
         "currency code: 1 passes the customer code on (default), 2 does not"},
        {"--form-text"_L1, O::FormText, V::Text, "T"_L1, "first part of the SBP form identifier"},
        {"--form-number"_L1, O::FormNumber, V::Number, "N"_L1,
         "second part of the SBP form identifier"},
        {"--form-seq"_L1, O::FormSequence, V::Number, "N"_L1,
         "third part of the SBP form identifier"},
        {"--form-time"_L1, O::FormTime, V::Time, "TIME"_L1,
         "last part of the SBP form identifier, as yyyy-MM-ddThh:mm:ss (now by\ndefault)"},
        {"--day"_L1, O::Day, V::Day, "DAY"_L1, "the day to list, as yyyy-MM-dd"},
        {"--as"_L1, O::As, V::Text, "HOW"_L1, "cancelled, kept or not-charged"},
        {"--note"_L1, O::Note, V::Text, "TEXT"_L1, "why, for whoever reads the recordings"},
        {"--monitoring"_L1,
         O::Monitoring,
         V::None,
         {},
         "one status line; exit 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN"},
        {"--failed-runs"_L1, O::FailedRuns, V::Number, "N"_L1,
         "warn when the last N client runs all failed (default 5)"},
        {"--since"_L1, O::Since, V::Day, "DAY"_L1, "the first day to list, as yyyy-MM-dd"},
        {"--until"_L1, O::Until, V::Day, "DAY"_L1, "the last day to list (today by default)"},
        {"--open"_L1, O::Open, V::None, {}, "only the runs that need a person"},
        {"--keep-days"_L1, O::KeepDays, V::Number, "N"_L1,
         "prune: keep the last N days (and any day with an open run)"},
        {"--force"_L1, O::Force, V::None, {}, "take the recorder away even over a newer client"},
    };
    return table;
}

const CommandTable::Command *CommandTable::command(QStringView name)
{
    for (const Command &row : commands())
        if (row.name == name)
            return &row;
    return nullptr;
}

const CommandTable::OptionRow *CommandTable::option(QStringView name)
{
    for (const OptionRow &row : options())
        if (row.name == name)
            return &row;
    return nullptr;
}

QString CommandTable::help()
{
    const auto section = [](Section which) {
        QString text;
        for (const Command &row : commands()) {
            if (row.section != which)
                continue;
            QString head = row.name;
            if (row.argument == Argument::Amount)
                head += u" AMOUNT"_s;
            else if (row.argument == Argument::RecorderAction)
                head += u" on|off|status"_s;
            else if (row.argument == Argument::Run)
                head += u" RUN"_s;
            else if (row.argument == Argument::Maintenance)
                head += u" [prune]"_s;
            else if (row.argument == Argument::Directory)
                head += u" DIR"_s;
            text += helpLine(head, QString::fromUtf8(row.help));
        }
        return text;
    };
    QStringList payments;
    for (const Command &row : commands())
        if (row.section == Section::Payment)
            payments.append(row.name);

    QString request, other;
    for (const OptionRow &row : options()) {
        QStringList takers;
        bool everyPayment = true;
        for (const Command &command : commands()) {
            if (command.options.testFlag(row.option)) {
                if (command.section != Section::Payment)
                    takers.append(command.name);
            } else if (command.section == Section::Payment) {
                everyPayment = false;
            }
        }
        QString head = row.name;
        if (!row.valueName.isEmpty())
            head += u' ' + row.valueName;
        if (everyPayment) {
            QString help = QString::fromUtf8(row.help);
            if (!takers.isEmpty())
                help += u"\n(also "_s + takers.join(u", "_s) + u')';
            request += helpLine(head, help);
        } else {
            other += helpLine(head, takers.join(u", "_s) + u": "_s + QString::fromUtf8(row.help));
        }
    }
    return u"Payments. AMOUNT is a whole number in minor units, passed to the terminal unchanged: "
           u"150000 is\n1500.00. Write an amount below 0 after --, as in: posctl sale -- -500\n"_s +
           section(Section::Payment) + u"\nService:\n"_s + section(Section::Service) +
           u"\nInformation:\n"_s + section(Section::Information) + u"\nRequest options ("_s +
           payments.join(u", "_s) + u"):\n"_s + request + u"\nOptions of one command:\n"_s + other;
}
