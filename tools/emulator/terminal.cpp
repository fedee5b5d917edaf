#include "terminal.h"

#include <operationcodes.h>

#include "slip.h"

#include <QThread>

#include <cstdlib>

using namespace Qt::Literals::StringLiterals;

namespace {

struct Card
{
    const char *type;
    const char *bin;
};

// Test cards by turn, so that a day's slips show more than one.
constexpr Card cards[] = {{"VISA", "4276"}, {"MIR", "2202"}, {"MASTERCARD", "5469"}};

QString receiptRecord(const QString &tag, int number, const QString &text)
{
    return tag + u'^' + QString::number(number) + u'^' + text + u'~';
}

const QString approvedText = u"ОДОБРЕНО"_s;
const QString interruptedText = u"ОПЕРАЦИЯ ПРЕРВАНА"_s;

// The host's answer codes of a refusal, as an acquirer sends them.
enum HostCode { InvalidTransaction = 12, InvalidAmount = 13, RecordNotFound = 25 };

EmulatorAnswer refused(int hostCode, const QString &text)
{
    return {EmulatorAnswer::Answer, QJsonObject{{u"Status"_s, 16},
                                                {u"ResponseCodeHost"_s, hostCode},
                                                {u"TextResponse"_s, text}}};
}

EmulatorAnswer interrupted()
{
    return {EmulatorAnswer::Answer,
            QJsonObject{{u"Status"_s, 53}, {u"TextResponse"_s, interruptedText}}};
}

// Which of the period's totals an operation adds to: sales, refunds or cancels.
int totalOf(const QString &operation)
{
    if (operation.endsWith("sale"_L1))
        return 0;
    return operation.endsWith("refund"_L1) ? 1 : 2;
}

// The terminal's fields wrap rather than overflow: a 12-digit reference number goes from
// 999999999999 to 000000000001.
QString referenceNumber(qint64 n)
{
    return QString::number((n - 1) % 999999999999 + 1).rightJustified(12, u'0');
}

QString operationTitle(const QString &operation)
{
    static const QHash<QString, QString> titles{
        {u"sale"_s, u"ОПЛАТА"_s},
        {u"refund"_s, u"ВОЗВРАТ"_s},
        {u"cancel"_s, u"ОТМЕНА"_s},
        {u"sbp-sale"_s, u"ОПЛАТА СБП"_s},
        {u"sbp-refund"_s, u"ВОЗВРАТ СБП"_s},
    };
    return titles.value(operation, operation);
}

} // namespace

Terminal::Terminal(const EmulatorSettings &settings, Journal &journal,
                   const std::atomic<bool> &interrupted)
    : m_settings(settings)
    , m_journal(journal)
    , m_interrupted(interrupted)
{}

EmulatorAnswer Terminal::busy()
{
    // Status 0, "not performed": an SBP status query asks again, anything else fails.
    return {EmulatorAnswer::Answer,
            QJsonObject{{u"Status"_s, 0}, {u"TextResponse"_s, u"ТЕРМИНАЛ ЗАНЯТ"_s}}};
}

EmulatorAnswer Terminal::run(const EmulatorCommand &command)
{
    if (command.has(u"-f"_s))
        return sbpOperation(command);
    switch (command.code) {
    case operationcodes::Sale:
    case operationcodes::Refund:
    case operationcodes::Cancel:
        return cardOperation(command);
    case operationcodes::Reconciliation:
        return reconciliation(command);
    case operationcodes::ShortReport:
        return report(command, false);
    case operationcodes::FullReport:
        return report(command, true);
    case operationcodes::SlipCopy:
        return slipCopy();
    default:
        return balance();
    }
}

QString Terminal::merchantOf(const EmulatorCommand &command) const
{
    const QString merchant = command.option(u"-t"_s);
    return merchant.isEmpty() ? m_settings.defaultMerchant : merchant;
}

Slip Terminal::header(const QString &merchant) const
{
    const QDateTime now = QDateTime::currentDateTime();
    Slip slip;
    slip.center(m_settings.merchantName)
        .center(m_settings.merchantAddress)
        .pair(u"ТЕРМИНАЛ:"_s, m_settings.terminalId)
        .pair(u"МЕРЧАНТ:"_s, merchant)
        .pair(u"ДАТА: "_s + now.toString(u"dd.MM.yyyy"_s),
              u"ВРЕМЯ: "_s + now.toString(u"hh:mm:ss"_s))
        .rule();
    return slip;
}

bool Terminal::waitForCustomer() const
{
    for (int waited = 0; waited < m_settings.readDelayMs; waited += 10) {
        if (m_interrupted)
            return false;
        QThread::msleep(10);
    }
    return !m_interrupted;
}

std::optional<EmulatorAnswer> Terminal::refusal(const Operation &operation,
                                                const QString &reference) const
{
    if (operation.amount <= 0)
        return refused(InvalidAmount, u"НЕВЕРНАЯ СУММА"_s);
    const bool returning = operation.kind == "refund"_L1 || operation.kind == "cancel"_L1;
    if (returning && !reference.isEmpty()) {
        if (!operation.sale)
            return refused(RecordNotFound, u"ОПЕРАЦИЯ НЕ НАЙДЕНА"_s);
        if (m_journal.cancelled(reference))
            return refused(InvalidTransaction, u"ОПЕРАЦИЯ УЖЕ ОТМЕНЕНА"_s);
        if (operation.amount > operation.sale->amount - m_journal.returned(reference))
            return refused(InvalidAmount, u"СУММА ПРЕВЫШАЕТ ОСТАТОК ОПЛАТЫ"_s);
    }
    // The period's totals of the merchant, with this amount, must still be numbers.
    qint64 sums[3] = {0, 0, 0};
    bool overflow = false;
    for (const JournalEntry &e : m_journal.entries)
        if (!e.settled && e.merchant == operation.merchant)
            overflow |= __builtin_add_overflow(sums[totalOf(e.operation)], e.amount,
                                               &sums[totalOf(e.operation)]);
    qint64 &sum = sums[totalOf(operation.kind)];
    qint64 net = 0;
    overflow |= __builtin_add_overflow(sum, operation.amount, &sum) ||
                __builtin_sub_overflow(sums[0], sums[1], &net) ||
                __builtin_sub_overflow(net, sums[2], &net);
    if (overflow)
        return refused(InvalidAmount, u"НЕВЕРНАЯ СУММА"_s);
    return std::nullopt;
}

EmulatorAnswer Terminal::cardOperation(const EmulatorCommand &command)
{
    static const QHash<int, QString> kinds{{operationcodes::Sale, u"sale"_s},
                                           {operationcodes::Refund, u"refund"_s},
                                           {operationcodes::Cancel, u"cancel"_s}};
    const QString reference = command.option(u"-r"_s);
    const Operation operation{
        kinds.value(command.code), command.option(u"-a"_s).toLongLong(), merchantOf(command),
        command.code == operationcodes::Sale ? nullptr : m_journal.sale(reference)};
    if (const auto refusedAnswer = refusal(operation, reference))
        return *refusedAnswer;
    if (!waitForCustomer())
        return interrupted();
    return finish(operation);
}

EmulatorAnswer Terminal::finish(const Operation &operation)
{
    const qint64 suffix = operation.amount % 100;
    switch (suffix) {
    case 34:
        return {EmulatorAnswer::Answer, QJsonObject{{u"Status"_s, 34}}};
    case 53:
        return {EmulatorAnswer::Answer, QJsonObject{{u"Status"_s, 53}}};
    case 91:
        return {EmulatorAnswer::Hang, {}};
    case 96:
        return {EmulatorAnswer::FailExit, {}};
    case 97:
        return {EmulatorAnswer::NotJson, {}};
    case 98:
        return {EmulatorAnswer::Crash, {}};
    default:
        break;
    }

    // A refund or cancel of a known sale goes back to that sale's card.
    const qint64 n = m_journal.next();
    const QString cardType =
        operation.sale ? operation.sale->cardType : QString::fromLatin1(cards[n % 3].type);
    const QString pan = operation.sale
                            ? operation.sale->pan
                            : u"************"_s + QString::number(1000 + (n % 9000) * 3571 % 9000);
    const QString title = operationTitle(operation.kind);

    if (suffix == 5 || suffix == 51) {
        const QString text = suffix == 5 ? u"ОТКАЗ"_s : u"НЕДОСТАТОЧНО СРЕДСТВ"_s;
        Slip slip = header(operation.merchant);
        slip.center(title)
            .pair(u"СУММА (RUB):"_s, Slip::money(operation.amount))
            .pair(u"КАРТА:"_s, cardType + u' ' + pan)
            .pair(u"КОД ОТВЕТА:"_s, QString::number(suffix).rightJustified(2, u'0'))
            .rule()
            .center(text)
            .center(u"КОПИЯ КЛИЕНТА"_s);
        m_journal.lastSlip = slip.text();
        return {EmulatorAnswer::Answer,
                QJsonObject{{u"Status"_s, 16},
                            {u"ResponseCodeHost"_s, int(suffix)},
                            {u"TextResponse"_s, text},
                            {u"CardType"_s, cardType},
                            {u"PAN"_s, pan},
                            {u"ReceiptData"_s, QString(receiptRecord(u"0xDE"_s, 0, cardType) +
                                                       receiptRecord(u"0xDF"_s, 1, slip.text()))}}};
    }

    const QString authorization = QString::number(100000 + (n % 900000) * 7919 % 900000);
    const QString reference = referenceNumber(n);
    const auto copy = [&](const QString &whose, bool signature) {
        Slip slip = header(operation.merchant);
        slip.center(title)
            .pair(u"СУММА (RUB):"_s, Slip::money(operation.amount))
            .pair(u"КАРТА:"_s, cardType + u' ' + pan)
            .pair(u"КОД АВТОРИЗАЦИИ:"_s, authorization)
            .pair(u"RRN:"_s, reference)
            .rule()
            .center(approvedText);
        if (signature)
            slip.line().line(u"ПОДПИСЬ КАССИРА: ____________________"_s);
        slip.center(whose);
        return slip.text();
    };
    const QString customer = copy(u"КОПИЯ КЛИЕНТА"_s, false);
    const QString merchant = copy(u"КОПИЯ ПРОДАВЦА"_s, true);

    m_journal.entries.append({operation.kind, operation.amount, operation.merchant, authorization,
                              reference, cardType, pan, QDateTime::currentDateTime(), false,
                              operation.sale ? operation.sale->referenceNumber : QString()});
    m_journal.lastSlip = customer;
    return {EmulatorAnswer::Answer,
            QJsonObject{{u"Status"_s, 1},
                        {u"ResponseCodeHost"_s, 0},
                        {u"TextResponse"_s, approvedText},
                        {u"AuthorizationCode"_s, authorization},
                        {u"ReferenceNumber"_s, reference},
                        {u"CardType"_s, cardType},
                        {u"PAN"_s, pan},
                        {u"ReceiptData"_s, QString(receiptRecord(u"0xDE"_s, 0, cardType) +
                                                   receiptRecord(u"0xDF"_s, 1, customer) +
                                                   receiptRecord(u"0xDF"_s, 2, merchant))}}};
}

EmulatorAnswer Terminal::sbpOperation(const EmulatorCommand &command)
{
    const QString function = command.option(u"-f"_s);
    const bool payment = command.code == operationcodes::Sale;
    const bool start = function == (payment ? "paymentSbp"_L1 : "returnSbp"_L1);
    // The payment's status query names the form in "-c", the refund's in "-r".
    const QString formId = command.option(payment && !start ? u"-c"_s : u"-r"_s);
    const QString waiting = payment ? u"ОЖИДАНИЕ ОПЛАТЫ ПО QR-КОДУ"_s : u"ОЖИДАНИЕ ВОЗВРАТА"_s;

    if (formId.isEmpty())
        return {
            EmulatorAnswer::Answer,
            QJsonObject{{u"Status"_s, 16}, {u"TextResponse"_s, u"НЕ ЗАДАН ИДЕНТИФИКАТОР ФОРМЫ"_s}}};

    if (start) {
        const Operation operation{payment ? u"sbp-sale"_s : u"sbp-refund"_s,
                                  command.option(u"-a"_s).toLongLong(), merchantOf(command)};
        if (const auto refusedAnswer = refusal(operation, QString()))
            return *refusedAnswer;
        m_journal.pending.insert(formId, {operation.kind, operation.amount, operation.merchant,
                                          m_settings.pendingSbpQueries});
        return {EmulatorAnswer::Answer, QJsonObject{{u"Status"_s, 0},
                                                    {u"ResponseCodeHost"_s, 0},
                                                    {u"TextResponse"_s, waiting},
                                                    {u"ReferenceNumber"_s, formId}}};
    }

    auto it = m_journal.pending.find(formId);
    if (it == m_journal.pending.end())
        return {EmulatorAnswer::Answer,
                QJsonObject{{u"Status"_s, 16}, {u"TextResponse"_s, u"ОПЕРАЦИЯ НЕ НАЙДЕНА"_s}}};
    // The PIN pad shows the QR code while the customer pays; SIGINT there ends the operation.
    if (!waitForCustomer()) {
        m_journal.pending.erase(it);
        return interrupted();
    }
    if (it->queriesLeft > 0) {
        --it->queriesLeft;
        return {EmulatorAnswer::Answer, QJsonObject{{u"Status"_s, 0},
                                                    {u"ResponseCodeHost"_s, 0},
                                                    {u"TextResponse"_s, waiting}}};
    }
    const PendingSbp pending = *it;
    m_journal.pending.erase(it);
    return finish({pending.operation, pending.amount, pending.merchant});
}

QString Terminal::totals(const QList<JournalEntry> &entries, bool listEach) const
{
    QMap<QString, QList<JournalEntry>> byMerchant;
    for (const JournalEntry &e : entries)
        byMerchant[e.merchant].append(e);
    Slip slip;
    if (entries.isEmpty())
        slip.center(u"НЕТ ОПЕРАЦИЙ"_s);
    for (auto it = byMerchant.cbegin(); it != byMerchant.cend(); ++it) {
        slip.pair(u"МЕРЧАНТ:"_s, it.key());
        qint64 sums[3] = {0, 0, 0};
        qint64 counts[3] = {0, 0, 0};
        for (const JournalEntry &e : it.value()) {
            if (listEach)
                slip.pair(e.time.toString(u"hh:mm"_s) + u' ' + operationTitle(e.operation) +
                              u" *"_s + e.pan.right(4),
                          Slip::money(e.amount));
            sums[totalOf(e.operation)] += e.amount;
            ++counts[totalOf(e.operation)];
        }
        slip.pair(u"ОПЛАТА      %1 шт."_s.arg(counts[0]), Slip::money(sums[0]))
            .pair(u"ВОЗВРАТ     %1 шт."_s.arg(counts[1]), Slip::money(sums[1]))
            .pair(u"ОТМЕНА      %1 шт."_s.arg(counts[2]), Slip::money(sums[2]))
            .pair(u"ИТОГО:"_s, Slip::money(sums[0] - sums[1] - sums[2]))
            .rule();
    }
    return slip.text();
}

// Service slips are not kept for the copy: the copy is of the last operation's slip.
EmulatorAnswer Terminal::serviceAnswer(const QString &text, const QString &slip)
{
    return {EmulatorAnswer::Answer,
            QJsonObject{{u"Status"_s, 1},
                        {u"ResponseCodeHost"_s, 0},
                        {u"TextResponse"_s, text},
                        {u"ReceiptData"_s, receiptRecord(u"0xDF"_s, 1, slip)}}};
}

EmulatorAnswer Terminal::reconciliation(const EmulatorCommand &command)
{
    const QString only = command.option(u"-t"_s);
    QList<JournalEntry> taken;
    for (JournalEntry &e : m_journal.entries) {
        if (!e.settled && (only.isEmpty() || e.merchant == only)) {
            taken.append(e);
            e.settled = true;
        }
    }

    Slip slip = header(only.isEmpty() ? m_settings.defaultMerchant : only);
    slip.center(u"СВЕРКА ИТОГОВ"_s).pair(u"ПЕРИОД:"_s, QString::number(m_journal.period)).rule();
    slip.line(totals(taken, false)).center(u"ИТОГИ СОВПАЛИ"_s);
    if (only.isEmpty())
        ++m_journal.period;
    return serviceAnswer(u"ИТОГИ СОВПАЛИ"_s, slip.text());
}

EmulatorAnswer Terminal::report(const EmulatorCommand &command, bool full)
{
    const QString only = command.option(u"-t"_s);
    QList<JournalEntry> entries;
    for (const JournalEntry &e : std::as_const(m_journal.entries))
        if (!e.settled && (only.isEmpty() || e.merchant == only))
            entries.append(e);
    Slip slip = header(only.isEmpty() ? m_settings.defaultMerchant : only);
    slip.center(full ? u"ПОЛНЫЙ ОТЧЕТ"_s : u"КРАТКИЙ ОТЧЕТ"_s)
        .pair(u"ПЕРИОД:"_s, QString::number(m_journal.period))
        .rule()
        .line(totals(entries, full));
    return serviceAnswer(u"ОТЧЕТ СФОРМИРОВАН"_s, slip.text());
}

EmulatorAnswer Terminal::slipCopy()
{
    if (m_journal.lastSlip.isEmpty())
        return {EmulatorAnswer::Answer,
                QJsonObject{{u"Status"_s, 16}, {u"TextResponse"_s, u"НЕТ СЛИПА ДЛЯ КОПИИ"_s}}};
    Slip mark;
    mark.center(u"*** КОПИЯ ***"_s);
    const QString copy = mark.text() + u'\n' + m_journal.lastSlip;
    return {EmulatorAnswer::Answer,
            QJsonObject{{u"Status"_s, 1},
                        {u"ResponseCodeHost"_s, 0},
                        {u"TextResponse"_s, approvedText},
                        {u"ReceiptData"_s, receiptRecord(u"0xDF"_s, 1, copy)}}};
}

EmulatorAnswer Terminal::balance()
{
    Slip slip = header(m_settings.defaultMerchant);
    slip.center(u"ЗАПРОС БАЛАНСА"_s)
        .pair(u"БАЛАНС (RUB):"_s, QString::number(m_settings.accountBalance, 'f', 2));
    EmulatorAnswer answer = serviceAnswer(u"ЗАПРОС ВЫПОЛНЕН"_s, slip.text());
    answer.json.insert(u"balance"_s, m_settings.accountBalance);
    return answer;
}
