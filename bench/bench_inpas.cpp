// make bench: what each step of the plug-in costs, measured against the bare minimum for the
// same work in the same run. Prints one Markdown table; every figure is the median of several
// repetitions. Not a test: the goals are targets to read, not assertions.

#include <answer/receiptrecord.h>
#include <plugin/inpaspaymentprocessing.h>
#include <tlv/bertlv.h>

#include <cardmask.h>
#include <outputmask.h>

#include <externalprocessthread.h>
#include <processmonitor.h>
#include <log4qt/logmanager.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QProcess>
#include <QRegExp>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTime>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <random>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char **environ;

using namespace Qt::Literals::StringLiterals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int repetitions = 7;

// The median over repetitions of the time of one call, in nanoseconds.
double median(const std::function<void()> &work, int callsPerRepetition, int repeats = repetitions)
{
    std::vector<double> times;
    for (int r = 0; r < repeats; ++r) {
        const auto start = Clock::now();
        for (int i = 0; i < callsPerRepetition; ++i)
            work();
        times.push_back(std::chrono::duration<double, std::nano>(Clock::now() - start).count() /
                        callsPerRepetition);
    }
    std::nth_element(times.begin(), times.begin() + repeats / 2, times.end());
    return times[size_t(repeats / 2)];
}

struct Row
{
    QString what;
    QString against;
    QString measured;
    QString goal;
    bool met;
};
std::vector<Row> rows;

void add(const QString &what, const QString &against, const QString &measured, const QString &goal,
         bool met)
{
    rows.push_back({what, against, measured, goal, met});
    std::fprintf(stderr, "bench: %s: %s\n", qPrintable(what), qPrintable(measured));
}

QString ratio(double value)
{
    return QString::number(value, 'f', 2) + u" x"_s;
}

void writeFile(const QString &path, const QByteArray &content, bool executable = false)
{
    QFile file(path);
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    file.write(content);
    file.close();
    if (executable)
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

// A processing directory with a client that prints one short approval.
struct TrivialTill
{
    TrivialTill()
    {
        writeFile(dir.filePath(u"zelnorinpas"_s), "#!/bin/sh\necho '{\"Status\":1}'\n", true);
        writeFile(dir.filePath(u"zelnorinpas.conf"_s), "[Client]\nintervalBetweenOperations=0\n");
    }
    QTemporaryDir dir;
};

// The bare minimum for one client run as the host makes it: posix_spawn of ./zelnorinpas in
// the directory, its standard output read through a pipe, waitpid. In milliseconds.
double timedRun(const QByteArray &directory)
{
    const auto start = Clock::now();
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0)
        return 0;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, directory.constData());
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    char program[] = "./zelnorinpas";
    char *argv[] = {program, nullptr};
    pid_t pid = 0;
    posix_spawn(&pid, program, &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    static char buffer[65536];
    while (::read(out[0], buffer, sizeof buffer) > 0) {
    }
    ::close(out[0]);
    ::waitpid(pid, nullptr, 0);
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// The recorder and its scribe in front of the directory's client, zelnorinpas.real, as
// posctl recorder on puts them.
void putRecorder(const QTemporaryDir &directory)
{
    for (const auto &[from, to] : {std::pair{"zelnorinpas-recorder", "zelnorinpas"},
                                   std::pair{"zelnorinpas-scribe", "zelnorinpas-scribe"}}) {
        QFile::copy(QStringLiteral(RECORDER_DIR) + u'/' + QLatin1StringView(from),
                    directory.filePath(QLatin1StringView(to)));
        QFile::setPermissions(directory.filePath(QLatin1StringView(to)),
                              QFile::ReadOwner | QFile::ExeOwner);
    }
}

// The peak memory of ./zelnorinpas itself over one run in the directory, read from its
// high-water mark while it runs: what wait4() reports of a spawned program includes its
// parent's peak, which is the bench's.
double ownPeakOfRun(const QByteArray &directory)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, directory.constData());
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    char program[] = "./zelnorinpas";
    char *argv[] = {program, nullptr};
    pid_t pid = 0;
    posix_spawn(&pid, program, &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    double peak = 0;
    while (::waitpid(pid, nullptr, WNOHANG) == 0) {
        QFile status(u"/proc/%1/status"_s.arg(pid));
        if (status.open(QIODevice::ReadOnly)) {
            for (const QByteArray &line : status.readAll().split('\n'))
                if (line.startsWith("VmHWM:"))
                    peak = std::max(peak,
                                    line.mid(6).trimmed().split(' ').value(0).toDouble() * 1024.0);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return peak;
}

void operation()
{
    const TrivialTill till;
    InpasPaymentProcessing processor;
    processor.setProcessingDirectory(till.dir.path());
    const QByteArray directory = QFile::encodeName(till.dir.path());
    const double ours = median([&] { processor.balance(QString()); }, 200);
    const double bare = median([&] { timedRun(directory); }, 200);
    add(u"one operation through the processor (interval 0, trivial client)"_s,
        u"posix_spawn + waitpid of the same client, its stdout read through a pipe"_s,
        ratio(ours / bare) +
            u" (%1 ms against %2 ms)"_s.arg(ours / 1e6, 0, 'f', 2).arg(bare / 1e6, 0, 'f', 2),
        u"at most 1.15 x"_s, ours / bare <= 1.15);
}

QString slipText()
{
    return u"         ООО \"ТЕСТОВЫЙ МАГАЗИН\"\n       г. Москва, ул. Примерная, 1\n"
           u"ТЕРМИНАЛ:                       00012345\nДАТА: 23.11.2026         ВРЕМЯ: 09:29:34\n"
           u"----------------------------------------\n                  ОПЛАТА\n"
           u"СУММА (RUB):                     1500.00\nКАРТА:              MIR ************4571\n"
           u"КОД АВТОРИЗАЦИИ:                  107919\nRRN:                        000000000001\n"
           u"----------------------------------------\n                 ОДОБРЕНО\n"_s;
}

QByteArray approvedAnswer(const QString &receipt)
{
    return QJsonDocument(QJsonObject{{u"Status"_s, 1},
                                     {u"ResponseCodeHost"_s, 0},
                                     {u"TextResponse"_s, u"ОДОБРЕНО"_s},
                                     {u"AuthorizationCode"_s, u"107919"_s},
                                     {u"ReferenceNumber"_s, u"000000000001"_s},
                                     {u"CardType"_s, u"MIR"_s},
                                     {u"PAN"_s, u"************4571"_s},
                                     {u"ReceiptData"_s, receipt}})
        .toJson(QJsonDocument::Compact);
}

void answerParsing()
{
    InpasPaymentProcessing processor;
    const QByteArray output =
        approvedAnswer(u"0xDE^0^MIR~0xDF^1^"_s + slipText() + u"КОПИЯ КЛИЕНТА~0xDF^2^"_s +
                       slipText() + u"КОПИЯ ПРОДАВЦА~"_s);
    const double ours = median([&] { processor.processAnswer(output, nullptr); }, 20000);
    const double bare = median([&] { QJsonDocument::fromJson(output); }, 20000);
    add(u"answer parsing of a typical approved answer with two slips"_s,
        u"parsing the same JSON with QJsonDocument alone"_s,
        ratio(ours / bare) +
            u" (%1 µs against %2 µs)"_s.arg(ours / 1e3, 0, 'f', 1).arg(bare / 1e3, 0, 'f', 1),
        u"at most 1.5 x"_s, ours / bare <= 1.5);
}

QString receipt(qsizetype bytes, bool pathological)
{
    if (pathological)
        return QString(bytes, u'a') + u"^b"_s; // a tag with no second separator
    const QString record = u"0xDF^1^"_s + slipText() + u'~';
    return record.repeated(bytes / record.size() + 1).left(bytes);
}

int byPattern(QRegExp &pattern, const QString &data)
{
    int count = 0;
    for (int pos = 0; (pos = pattern.indexIn(data, pos)) != -1; pos += pattern.matchedLength())
        ++count;
    return count;
}

int byPattern(const QRegularExpression &pattern, const QString &data)
{
    int count = 0;
    for (auto it = pattern.globalMatch(data); it.hasNext(); it.next())
        ++count;
    return count;
}

void receiptScanning()
{
    const QString pattern = u"([^\\^]+)\\^([^\\^]*)\\^([^~]*)~"_s;
    for (const bool pathological : {false, true}) {
        const QString kind = pathological ? u"pathological"_s : u"real"_s;
        const QString text = receipt(64 * 1024, pathological);
        QRegExp regExp(pattern);
        const QRegularExpression regularExpression(pattern);
        const double ours = median([&] { scanReceiptRecords(text); }, 20);
        // The old pattern is quadratic on the pathological text: three runs of it are enough.
        const double old = median([&] { byPattern(regExp, text); }, 1, 3);
        const double pcre = median([&] { byPattern(regularExpression, text); }, 1, 3);
        add(u"receipt scanning, 64 KB of %1 text"_s.arg(kind),
            u"the pattern with QRegExp (QRegularExpression)"_s,
            u"%1 x faster (%2 x)"_s.arg(old / ours, 0, 'f', 0).arg(pcre / ours, 0, 'f', 0),
            u"at least 10 x faster than QRegExp"_s, old / ours >= 10);

        std::vector<double> perByte;
        QStringList shown;
        for (const qsizetype size : {1024, 16 * 1024, 256 * 1024, 4 * 1024 * 1024}) {
            const QString sized = receipt(size, pathological);
            const int calls = int(std::max<qsizetype>(1, 4 * 1024 * 1024 / size));
            perByte.push_back(median([&] { scanReceiptRecords(sized); }, calls) / double(size));
            shown.append(QString::number(perByte.back(), 'f', 2));
        }
        const double spread = *std::max_element(perByte.begin(), perByte.end()) /
                              *std::min_element(perByte.begin(), perByte.end());
        add(u"receipt scanning of %1 text, time per byte at 1 KB, 16 KB, 256 KB, 4 MB"_s.arg(kind),
            u"the smallest of the four"_s,
            u"%1 ns per byte; largest %2 x the smallest"_s.arg(shown.join(u", "_s))
                .arg(spread, 0, 'f', 2),
            u"flat (at most 2 x)"_s, spread <= 2.0);
    }
}

void berTlvParsing()
{
    // 10,000 elements with three-byte tags and 100-byte values: about 1 MB.
    QByteArray data;
    std::vector<std::pair<qsizetype, qsizetype>> values;
    for (int i = 0; i < 10000; ++i) {
        const QByteArray tag = QByteArray::fromHex("DF") + char(0x80 | (i >> 7)) + char(i & 0x7F);
        const QByteArray element = tlv::generateBerTlvTag(
            QString::fromLatin1(tag.toHex().toUpper()), QByteArray(100, 'v'));
        values.emplace_back(data.size() + element.size() - 100, 100);
        data += element;
    }
    const double ours = median([&] { tlv::parseBerTlv(data); }, 100);
    const double bare = median(
        [&] {
            QList<QByteArray> copies;
            copies.reserve(qsizetype(values.size()));
            for (const auto &[offset, size] : values)
                copies.append(data.sliced(offset, size));
        },
        100);
    add(u"parseBerTlv over %1 KB of 10,000 elements"_s.arg(data.size() / 1024),
        u"copying the same values into a QList<QByteArray>"_s,
        ratio(ours / bare) +
            u" (%1 ms against %2 ms)"_s.arg(ours / 1e6, 0, 'f', 2).arg(bare / 1e6, 0, 'f', 2),
        u"at most 3 x"_s, ours / bare <= 3.0);
}

// The client's output as the log shows it, against reading the same output at all.
void logMasking()
{
    QString slips;
    while (approvedAnswer(slips).size() < 64 * 1024)
        slips += u"0xDF^1^"_s + slipText() + u"КАРТА 4111 1111 1111 1111~"_s;
    const QByteArray bytes = approvedAnswer(slips);
    const QString output = QString::fromUtf8(bytes);
    const double masked = median([&] { OutputMask::masked(output, CardMask::Ending::Whole); }, 200);
    const double parsed = median([&] { QJsonDocument::fromJson(bytes); }, 200);
    add(u"masking a %1 KB answer for the log (decoded, masked by field, written compact)"_s.arg(
            bytes.size() / 1024),
        u"parsing the same output with QJsonDocument"_s,
        ratio(masked / parsed) +
            u" (%1 µs against %2 µs)"_s.arg(masked / 1e3, 0, 'f', 0).arg(parsed / 1e3, 0, 'f', 0),
        u"at most 1.5 x"_s, masked / parsed <= 1.5);

    // The same slips in a member nobody named, read strictly.
    QString unknown = output;
    unknown.replace(u"\"ReceiptData\""_s, u"\"Receipt\""_s);
    const double strict =
        median([&] { OutputMask::masked(unknown, CardMask::Ending::Whole); }, 200);
    add(u"masking the same answer with its slips in a member nobody named (strict reading)"_s,
        u"masking it with the slips where they belong (the rule by kind)"_s,
        ratio(strict / masked) +
            u" (%1 µs against %2 µs)"_s.arg(strict / 1e3, 0, 'f', 0).arg(masked / 1e3, 0, 'f', 0),
        u"at most 1.2 x"_s, strict / masked <= 1.2);
}

// How often the card rule stars a slip line that holds no card number, on generated lines of
// the kinds that slips are made of, each as a slip prints it. The 13-digit kinds cannot be told
// from a 13-digit card by the check digit: one in ten passes it, and is starred.
void falsePositives()
{
    std::mt19937 random(20261123);
    const auto digits = [&](int count) -> QString {
        QString text;
        for (int i = 0; i < count; ++i)
            text += QChar(char16_t(u'0' + random() % 10));
        return text;
    };
    const auto number = [&](uint below) { return uint(random() % below); };
    const auto nonZero = [&](int count) -> QString {
        return QChar(char16_t(u'1' + number(9))) + digits(count - 1);
    };
    const auto two = [&](uint from, uint below) {
        return u"%1"_s.arg(from + number(below - from), 2, 10, QChar(u'0'));
    };
    const auto date = [&]() -> QString {
        return two(1, 29) + u'.' + two(1, 13) + u".20"_s + two(20, 30);
    };
    const auto time = [&]() -> QString {
        return two(0, 24) + u':' + two(0, 60) + u':' + two(0, 60);
    };
    const auto amount = [&]() -> QString { return u"%1.%2"_s.arg(number(100000)).arg(digits(2)); };
    const auto ean13 = [&]() -> QString {
        QString code = digits(12);
        int sum = 0;
        for (int i = 0; i < 12; ++i)
            sum += code.at(i).digitValue() * (i % 2 ? 3 : 1);
        return code + QChar(char16_t(u'0' + (10 - sum % 10) % 10));
    };
    struct Kind
    {
        QString what;
        std::function<QString()> line;
        bool thirteenDigits = false; // the check digit cannot tell it from a card's
    };
    const Kind kinds[] = {
        {u"a date and a 12-digit reference number"_s,
         [&]() -> QString { return date() + u' ' + digits(12); }},
        {u"an amount and a 12-digit reference number"_s,
         [&]() -> QString { return amount() + u' ' + digits(12); }},
        {u"an authorisation code and a reference number"_s,
         [&]() -> QString { return digits(6) + u' ' + digits(12); }},
        {u"a date, a time and a terminal id"_s,
         [&]() -> QString { return date() + u' ' + time() + u' ' + digits(8); }},
        {u"a merchant id of 15 digits with leading zeros"_s,
         [&]() -> QString { return u"МЕРЧАНТ: 0000000"_s + digits(8); }},
        {u"a merchant id of 15 digits without leading zeros"_s,
         [&]() -> QString { return u"МЕРЧАНТ: "_s + nonZero(15); }},
        {u"a fiscal drive number (ФН, 16 digits)"_s,
         [&]() -> QString { return u"ФН: 92"_s + digits(14); }},
        {u"a fiscal drive number after №"_s,
         [&]() -> QString { return u"ФН № 92"_s + digits(14); }},
        {u"a fiscal document number and its sign (ФД, ФП)"_s,
         [&]() -> QString { return u"ФД: "_s + digits(6) + u" ФП: "_s + digits(10); }},
        {u"a till's serial number (ЗН ККТ, 16 digits)"_s,
         [&]() -> QString { return u"ЗН ККТ: "_s + nonZero(16); }},
        {u"a till's registration number (РН ККТ, 16 digits)"_s,
         [&]() -> QString { return u"РН ККТ: "_s + digits(16); }},
        {u"a taxpayer number (ИНН, 12 digits)"_s,
         [&]() -> QString { return u"ИНН: "_s + digits(12); }},
        {u"a time stamp YYYYMMDDhhmmss"_s,
         [&]() -> QString {
             return u"20"_s + two(20, 30) + two(1, 13) + two(1, 29) + two(0, 24) + two(0, 60) +
                    two(0, 60);
         }},
        {u"an operation id of 20 digits"_s, [&]() -> QString { return u"ID "_s + nonZero(20); }},
        {u"an EAN-13 barcode"_s, ean13, true},
        {u"a 13-digit reference number"_s, [&]() -> QString { return digits(13); }, true},
    };
    constexpr int lines = 100000;
    for (const Kind &kind : kinds) {
        int starred = 0;
        for (int i = 0; i < lines; ++i) {
            const QString text = kind.line();
            starred += CardMask::text(text) != text;
        }
        const double rate = 100.0 * starred / lines;
        add(u"false positives: %1"_s.arg(kind.what), u"%1 generated lines"_s.arg(lines),
            u"%1 %"_s.arg(rate, 0, 'f', 2),
            kind.thirteenDigits ? u"- (the check digit cannot tell)"_s : u"at most 1 %"_s,
            kind.thirteenDigits || rate <= 1.0);
    }
    // The strict reading keeps dates and times and short numbers as they are.
    int starred = 0;
    for (int i = 0; i < lines; ++i) {
        const QString text = date() + u' ' + time() + u" amount "_s + amount() + u" rc "_s +
                             digits(2) + u" auth "_s + digits(6);
        starred += CardMask::text(text, CardMask::Ending::Whole, CardMask::Reading::Strict) != text;
    }
    add(u"false positives of the strict reading: dates, times, amounts and codes"_s,
        u"%1 generated lines"_s.arg(lines), u"%1 %"_s.arg(100.0 * starred / lines, 0, 'f', 2),
        u"0 %"_s, starred == 0);
}

// When each client starts, as the host's process runner sees it.
class StartTimes : public ProcessMonitor
{
public:
    void started(qint64, const QString &, const QString &, std::chrono::milliseconds) override
    {
        times.push_back(Clock::now());
    }
    std::vector<Clock::time_point> times;
};

void pacing()
{
    const TrivialTill till;
    writeFile(till.dir.filePath(u"zelnorinpas.conf"_s), "[Client]\nintervalBetweenOperations=1\n");
    InpasPaymentProcessing processor;
    processor.setProcessingDirectory(till.dir.path());
    StartTimes starts;
    ProcessMonitor::install(&starts);
    std::vector<double> lateMs;
    processor.balance(QString());
    for (int i = 0; i < 5; ++i) {
        const auto stamped = Clock::now(); // a moment after the previous run was stamped
        processor.balance(QString());
        lateMs.push_back(std::chrono::duration<double, std::milli>(starts.times.back() - stamped -
                                                                   std::chrono::seconds(1))
                             .count());
    }
    ProcessMonitor::install(nullptr);
    std::sort(lateMs.begin(), lateMs.end());
    add(u"pacing: start of the next client after an interval of 1 s"_s, u"the interval itself"_s,
        u"late by %1 ms (median of 5; at most %2 ms)"_s.arg(lateMs[2], 0, 'f', 2)
            .arg(lateMs.back(), 0, 'f', 2),
        u"late by at most 5 ms"_s, lateMs.back() <= 5.0);
}

// posctl's peak resident memory and time on an approved answer with one slip of that size.
std::pair<double, double> posctlOnBigAnswer(const QTemporaryDir &till, const char *mode)
{
    const QByteArray posctl = QFile::encodeName(QStringLiteral(POSCTL_PATH));
    const QByteArray directory = QFile::encodeName(till.path());
    std::vector<QByteArray> words{posctl, "--dir", directory, "sale", "100"};
    if (mode)
        words.insert(words.begin() + 1, mode);
    std::vector<char *> argv;
    for (QByteArray &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const auto start = Clock::now();
    pid_t pid = 0;
    posix_spawn(&pid, posctl.constData(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    rusage usage{};
    ::wait4(pid, &status, 0, &usage);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return {double(usage.ru_maxrss) * 1024.0, seconds};
}

// Writes an approved answer with one slip of 50 MB into the directory, beside a client that
// prints it. Done by a child process: the benchmark's own memory must stay small, because a
// spawned program's peak as wait4() reports it starts from its parent's at the spawn.
void writeBigAnswer(const QString &directory)
{
    QString slip;
    while (slip.size() < 50 * 1024 * 1024)
        slip += slipText();
    writeFile(directory + u"/answer.json"_s, approvedAnswer(u"0xDF^1^"_s + slip + u'~'));
}

void peakMemory(const QString &self)
{
    QTemporaryDir till;
    writeFile(till.filePath(u"zelnorinpas"_s), "#!/bin/sh\ncat answer.json\n", true);
    writeFile(till.filePath(u"zelnorinpas.conf"_s), "[Client]\nintervalBetweenOperations=0\n");
    QByteArray program = QFile::encodeName(self);
    QByteArray option = "--write-big-answer";
    QByteArray directory = QFile::encodeName(till.path());
    char *argv[] = {program.data(), option.data(), directory.data(), nullptr};
    pid_t pid = 0;
    posix_spawn(&pid, program.constData(), nullptr, nullptr, argv, environ);
    ::waitpid(pid, nullptr, 0);
    const double size = double(QFileInfo(till.filePath(u"answer.json"_s)).size());

    for (const char *mode : {static_cast<const char *>(nullptr), "--json"}) {
        const auto [peak, seconds] = posctlOnBigAnswer(till, mode);
        add(u"peak memory of posctl%1 on a %2 MB approved answer (one slip)"_s
                .arg(mode ? u" --json"_s : QString())
                .arg(qint64(size) / (1024 * 1024)),
            u"the answer's size"_s,
            ratio(peak / size) +
                u" (%1 MB, %2 s)"_s.arg(peak / (1024 * 1024), 0, 'f', 0).arg(seconds, 0, 'f', 1),
            u"at most 6 x"_s, peak / size <= 6.0);
    }

    // The same answer through the recorder, as the host runs it: posctl's whole run with and
    // without the recorder in front of the client; and the recorder's own memory, run alone.
    QTemporaryDir recorded;
    writeFile(recorded.filePath(u"zelnorinpas.real"_s), "#!/bin/sh\ncat answer.json\n", true);
    writeFile(recorded.filePath(u"zelnorinpas.conf"_s), "[Client]\nintervalBetweenOperations=0\n");
    ::link(QFile::encodeName(till.filePath(u"answer.json"_s)).constData(),
           QFile::encodeName(recorded.filePath(u"answer.json"_s)).constData());
    putRecorder(recorded);
    std::vector<double> direct, through;
    for (int i = 0; i < 3; ++i) {
        direct.push_back(posctlOnBigAnswer(till, "--json").second);
        through.push_back(posctlOnBigAnswer(recorded, "--json").second);
        std::this_thread::sleep_for(std::chrono::seconds(1)); // the scribe of a 61 MB run
    }
    std::sort(direct.begin(), direct.end());
    std::sort(through.begin(), through.end());
    const double piped = timedRun(QFile::encodeName(recorded.path()));
    const double recorderPeak = ownPeakOfRun(QFile::encodeName(recorded.path()));
    add(u"a %1 MB answer through the recorder"_s.arg(qint64(size) / (1024 * 1024)),
        u"posctl --json sale on the same answer without it (medians of 3)"_s,
        ratio(through[1] / direct[1]) +
            u" the time (%1 s against %2 s); the recorder alone: %3 ms, %4 MB peak"_s
                .arg(through[1], 0, 'f', 2)
                .arg(direct[1], 0, 'f', 2)
                .arg(piped, 0, 'f', 0)
                .arg(recorderPeak / (1024 * 1024), 0, 'f', 1),
        u"at most 1.2 x, a few MB"_s, through[1] / direct[1] <= 1.2 && recorderPeak < 8e6);

    // The log's cost on the same answer: runs with and without -v taken in turn, since one
    // run of a second or two varies by a third on a shared machine.
    std::vector<double> plainTimes, verboseTimes;
    double plainPeak = 0;
    double verbosePeak = 0;
    for (int i = 0; i < 5; ++i) {
        const auto [peak, seconds] = posctlOnBigAnswer(till, nullptr);
        const auto [verbose, verboseSeconds] = posctlOnBigAnswer(till, "-v");
        plainTimes.push_back(seconds);
        verboseTimes.push_back(verboseSeconds);
        plainPeak = std::max(plainPeak, peak);
        verbosePeak = std::max(verbosePeak, verbose);
    }
    std::sort(plainTimes.begin(), plainTimes.end());
    std::sort(verboseTimes.begin(), verboseTimes.end());
    const double plain = plainTimes[2];
    const double verbose = verboseTimes[2];
    add(u"posctl -v (every log line formatted, the output masked) on a %1 MB answer"_s.arg(
            qint64(size) / (1024 * 1024)),
        u"the same run without -v (medians of 5 each)"_s,
        ratio(verbose / plain) + u" the time (%1 s against %2 s); peak memory %3 MB against "
                                 u"%4 MB"_s.arg(verbose, 0, 'f', 2)
                                     .arg(plain, 0, 'f', 2)
                                     .arg(verbosePeak / (1024 * 1024), 0, 'f', 0)
                                     .arg(plainPeak / (1024 * 1024), 0, 'f', 0),
        u"at most 1.5 x the time"_s, verbose / plain <= 1.5);
}

// A processing directory under base with a client, and the same with the recorder in front.
struct RecordedTill
{
    RecordedTill(const QString &base, const QByteArray &client)
        : plain(base + u"/bench-XXXXXX"_s)
        , recorded(base + u"/bench-XXXXXX"_s)
    {
        writeFile(plain.filePath(u"zelnorinpas"_s), client, true);
        writeFile(recorded.filePath(u"zelnorinpas.real"_s), client, true);
        putRecorder(recorded);
    }
    QTemporaryDir plain;
    QTemporaryDir recorded;
};

// The median of runs taken in turn with and without the recorder, each after a pause in which
// the scribe of the run before has done its work, as it has between two payments.
std::pair<double, double> recorderRuns(const RecordedTill &till, int runs)
{
    std::vector<double> plain, recorded;
    for (int i = 0; i < runs; ++i) {
        plain.push_back(timedRun(QFile::encodeName(till.plain.path())));
        recorded.push_back(timedRun(QFile::encodeName(till.recorded.path())));
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
    }
    for (auto *times : {&plain, &recorded})
        std::nth_element(times->begin(), times->begin() + runs / 2, times->end());
    return {plain[size_t(runs / 2)], recorded[size_t(runs / 2)]};
}

void recorder()
{
    const QByteArray trivial = "#!/bin/sh\necho '{\"Status\":1}'\n";
    // On tmpfs a flush to disk costs nothing: what is left is the recorder's own cost.
    const RecordedTill inMemory(u"/dev/shm"_s, trivial);
    const auto [plain, recorded] = recorderRuns(inMemory, 101);
    add(u"one run of a trivial client through the recorder, recording to memory (tmpfs)"_s,
        u"the same client run directly (medians of 101)"_s,
        u"%1 ms added (%2 ms against %3 ms)"_s.arg(recorded - plain, 0, 'f', 2)
            .arg(recorded, 0, 'f', 2)
            .arg(plain, 0, 'f', 2),
        u"at most 1 ms added"_s, recorded - plain <= 1.0);
    const RecordedTill onDisk(QDir::currentPath(), trivial);
    const auto [plainOnDisk, recordedOnDisk] = recorderRuns(onDisk, 31);
    add(u"the same recording to disk: the start line's flush before the client starts"_s,
        u"the run recording to memory"_s,
        u"%1 ms more (%2 ms in all on %3)"_s
            .arg(recordedOnDisk - plainOnDisk - (recorded - plain), 0, 'f', 2)
            .arg(recordedOnDisk, 0, 'f', 2)
            .arg(QDir::currentPath()),
        u"-"_s, true);
}

// A program run to its end in a directory, with its arguments and input: how long it took, and
// its own peak memory, read from its high-water mark while it runs.
std::pair<double, double> measuredRun(const QStringList &command, const QString &directory,
                                      const QByteArray &input = {})
{
    QProcess process;
    process.setWorkingDirectory(directory);
    process.setStandardOutputFile(QProcess::nullDevice());
    const auto start = Clock::now();
    process.start(command.first(), command.mid(1));
    process.write(input);
    process.closeWriteChannel();
    double peak = 0;
    while (!process.waitForFinished(2)) {
        QFile status(u"/proc/%1/status"_s.arg(process.processId()));
        if (status.open(QIODevice::ReadOnly))
            for (const QByteArray &line : status.readAll().split('\n'))
                if (line.startsWith("VmHWM:"))
                    peak = std::max(peak,
                                    line.mid(6).trimmed().split(' ').value(0).toDouble() * 1024.0);
    }
    return {std::chrono::duration<double>(Clock::now() - start).count(), peak};
}

// A processing directory of the emulator under base, without pauses; with the recorder on when
// asked.
struct EmulatorTill
{
    EmulatorTill(const QString &base, bool recorded)
        : dir(base + u"/bench-XXXXXX"_s)
    {
        const QString emulator = QStringLiteral(EMULATOR_DIR);
        QFile::copy(emulator + u"/zelnorinpas"_s, dir.filePath(u"zelnorinpas"_s));
        QFile config(emulator + u"/zelnorinpas.conf"_s);
        config.open(QIODevice::ReadOnly);
        writeFile(
            dir.filePath(u"zelnorinpas.conf"_s),
            config.readAll().replace("intervalBetweenOperations=1", "intervalBetweenOperations=0"));
        if (recorded)
            QProcess::execute(QStringLiteral(POSCTL_PATH),
                              {u"--dir"_s, dir.path(), u"recorder"_s, u"on"_s});
    }
    QTemporaryDir dir;
};

// 40 balance queries back to back through posctl batch, with and without the recorder, on the
// disk and in memory: runs taken in turn, medians of 7.
void recorderInABatch()
{
    QByteArray lines;
    for (int i = 0; i < 40; ++i)
        lines += "balance\n";
    for (const QString &base : {QDir::currentPath(), u"/dev/shm"_s}) {
        const EmulatorTill plain(base, false);
        const EmulatorTill recorded(base, true);
        std::vector<double> without, with;
        for (int i = 0; i < 7; ++i) {
            for (const auto &[till, times] :
                 {std::pair{&plain, &without}, std::pair{&recorded, &with}})
                times->push_back(measuredRun({QStringLiteral(POSCTL_PATH), u"--dir"_s,
                                              till->dir.path(), u"batch"_s},
                                             till->dir.path(), lines)
                                     .first);
            std::this_thread::sleep_for(std::chrono::milliseconds(300)); // the last scribes
        }
        std::sort(without.begin(), without.end());
        std::sort(with.begin(), with.end());
        add(u"40 balance queries through posctl batch with the recorder, on %1"_s.arg(base),
            u"the same without it (medians of 7)"_s,
            ratio(with[3] / without[3]) +
                u" (%1 s against %2 s)"_s.arg(with[3], 0, 'f', 2).arg(without[3], 0, 'f', 2),
            u"at most 1.1 x"_s, with[3] / without[3] <= 1.1);
    }
}

// A day of runs as the recorder writes them, each with its start, end, outputs and posctl's
// acknowledgement; the answers and slips of the size a sale has.
void writeDay(const QString &path, int runs, std::vector<qint64> *offsets)
{
    QFile file(path);
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    const QString day = QDate::currentDate().toString(Qt::ISODate);
    // Two slips' text, on one line and without quotes: it is written as a string in a string.
    const QByteArray slip =
        QString(slipText() + slipText()).replace(u'\n', u' ').remove(u'"').toUtf8();
    for (int i = 0; i < runs; ++i) {
        if (offsets)
            offsets->push_back(file.pos());
        const int ms = i * 800; // a run every 0.8 s from midnight
        const QByteArray time =
            QTime::fromMSecsSinceStartOfDay(ms % 86400000).toString(u"HH:mm:ss.zzz"_s).toLatin1();
        const QByteArray id = day.toLatin1() + 'T' + time + '-' + QByteArray::number(10000 + i);
        const QByteArray stamp = day.toLatin1() + 'T' + time + "+00:00";
        const QByteArray amount = QByteArray::number(100 * (i % 5000 + 1));
        const QByteArray rrn = QByteArray::number(i).rightJustified(12, '0');
        file.write("{\"event\":\"start\",\"id\":\"" + id + "\",\"time\":\"" + stamp +
                   "\",\"pid\":" + QByteArray::number(10000 + i) +
                   ",\"arguments\":[\"1\",\"-a\",\"" + amount +
                   "\",\"-c\",\"\",\"-e\",\"0\",\"-o\",\"0\",\"-r\",\"\",\"-t\",\"M1\"],\"host\":"
                   "\"posctl\",\"hostPid\":1}\n");
        file.write("{\"event\":\"end\",\"id\":\"" + id + "\",\"time\":\"" + stamp +
                   "\",\"durationMs\":700,\"exitStatus\":0,\"delivered\":true,\"approval\":true,"
                   "\"stdoutBytes\":1900,\"stderrBytes\":0}\n");
        const QByteArray answer = "{\"Status\":1,\"TextResponse\":\"ОДОБРЕНО\","
                                  "\"AuthorizationCode\":\"123456\",\"ReferenceNumber\":\"" +
                                  rrn + "\"}";
        file.write("{\"event\":\"output\",\"id\":\"" + id + "\",\"answer\":" + answer +
                   ",\"stdout\":\"{\\\"Status\\\":1,\\\"ReferenceNumber\\\":\\\"" + rrn +
                   "\\\",\\\"ReceiptData\\\":\\\"0xDF^1^" + slip + "~\\\"}\",\"stderr\":\"\"}\n");
        file.write("{\"event\":\"acknowledged\",\"time\":\"" + stamp +
                   "\",\"host\":\"posctl\",\"pids\":[" + QByteArray::number(10000 + i) + "]}\n");
    }
}

// check, recordings and the emulator's replay on a day of 100,000 runs.
void bigDay()
{
    const EmulatorTill till(QDir::currentPath(), true);
    const QString folder = till.dir.filePath(u"recordings"_s);
    QDir().mkpath(folder);
    const QString day = folder + u'/' + QDate::currentDate().toString(Qt::ISODate) + u".jsonl"_s;
    std::vector<qint64> offsets;
    writeDay(day, 100000, &offsets);
    const double megabytes = double(QFileInfo(day).size()) / (1024 * 1024);
    for (const char *command : {"check", "recordings"}) {
        const auto [seconds, peak] = measuredRun(
            {QStringLiteral(POSCTL_PATH), u"--dir"_s, till.dir.path(), QLatin1StringView(command)},
            till.dir.path());
        add(u"posctl %1 on a day of 100,000 runs (%2 MB)"_s.arg(QLatin1StringView(command))
                .arg(megabytes, 0, 'f', 0),
            u"-"_s,
            u"%1 s, %2 MB peak"_s.arg(seconds, 0, 'f', 2).arg(peak / (1024 * 1024), 0, 'f', 0),
            u"at most 2 s and 100 MB"_s, seconds <= 2.0 && peak <= 100 * 1024 * 1024);
    }

    // Replayed: 20 runs from the day's start, then 20 from its end.
    const EmulatorTill replaying(QDir::currentPath(), false);
    QFile config(replaying.dir.filePath(u"zelnorinpas.conf"_s));
    config.open(QIODevice::Append);
    config.write("[Emulator]\nreplaySpeed=0\nreplay=" + day.toUtf8() + '\n');
    config.close();
    const auto replayTwenty = [&](int first) {
        writeFile(replaying.dir.filePath(u"zelnorinpas-replay.json"_s),
                  QJsonDocument(QJsonObject{{u"recording"_s, day},
                                            {u"next"_s, first},
                                            {u"offset"_s, offsets[size_t(first)]}})
                      .toJson(QJsonDocument::Compact));
        QByteArray lines;
        for (int i = first; i < first + 20; ++i)
            lines += "sale " + QByteArray::number(100 * (i % 5000 + 1)) + '\n';
        return measuredRun(
                   {QStringLiteral(POSCTL_PATH), u"--dir"_s, replaying.dir.path(), u"batch"_s},
                   replaying.dir.path(), lines)
                   .first /
               20;
    };
    const double early = replayTwenty(0);
    const double late = replayTwenty(99980);
    add(u"a replayed run at the end of a day of 100,000 runs"_s,
        u"one at its start (20 runs each)"_s,
        ratio(late / early) + u" (%1 ms against %2 ms a run)"_s.arg(late * 1000, 0, 'f', 1)
                                  .arg(early * 1000, 0, 'f', 1),
        u"at most 1.5 x: linear in the day"_s, late / early <= 1.5);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QLoggingCategory::setFilterRules(u"inpas*=false\nzelnorhost*=false"_s);
    if (app.arguments().value(1) == "--write-big-answer"_L1) {
        writeBigAnswer(app.arguments().value(2));
        return 0;
    }
    const QStringList only = app.arguments().mid(1);
    // Memory first, while the benchmark itself is still small (see writeBigAnswer()).
    const std::vector<std::pair<QString, std::function<void()>>> all{
        {u"memory"_s, [&] { peakMemory(app.applicationFilePath()); }},
        {u"operation"_s, operation},
        {u"parsing"_s, answerParsing},
        {u"receipts"_s, receiptScanning},
        {u"tlv"_s, berTlvParsing},
        {u"masking"_s, logMasking},
        {u"falsepositives"_s, falsePositives},
        {u"pacing"_s, pacing},
        {u"recorder"_s, recorder},
        {u"batch"_s, recorderInABatch},
        {u"bigday"_s, bigDay}};
    for (const auto &[name, run] : all)
        if (only.isEmpty() || only.contains(name))
            run();

    std::printf("| what | against | measured | goal | met |\n|---|---|---|---|---|\n");
    for (const Row &row : rows)
        std::printf("| %s | %s | %s | %s | %s |\n", qPrintable(row.what), qPrintable(row.against),
                    qPrintable(row.measured), qPrintable(row.goal), row.met ? "yes" : "no");
    return 0;
}
