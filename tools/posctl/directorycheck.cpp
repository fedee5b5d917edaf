#include "directorycheck.h"

#include "jsonwriter.h"
#include "recordingsreport.h"

#include <config.h>
#include <configrules.h>
#include <settingkeys.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

const QString clientName = u"zelnorinpas"_s;
const QString configName = u"zelnorinpas.conf"_s;
const QString emulatorGroup = u"Emulator"_s;

int distance(const QString &a, const QString &b)
{
    QList<int> row(b.size() + 1);
    for (qsizetype j = 0; j <= b.size(); ++j)
        row[j] = int(j);
    for (qsizetype i = 1; i <= a.size(); ++i) {
        int diagonal = row[0];
        row[0] = int(i);
        for (qsizetype j = 1; j <= b.size(); ++j) {
            const int above = row[j];
            const bool same = a.at(i - 1).toLower() == b.at(j - 1).toLower();
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (same ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

const SettingKey *findKey(const QString &name, const QString &group = {})
{
    for (const SettingKey &key : settingkeys::all)
        if (name == QLatin1StringView(key.name) &&
            (group.isEmpty() || group == QLatin1StringView(key.group)))
            return &key;
    return nullptr;
}

QString nearestKey(const QString &name)
{
    const SettingKey *best = nullptr;
    int bestDistance = 0;
    for (const SettingKey &key : settingkeys::all) {
        const int d = distance(name, QLatin1StringView(key.name));
        if (!best || d < bestDistance) {
            best = &key;
            bestDistance = d;
        }
    }
    return best && bestDistance <= std::max<qsizetype>(2, name.size() / 4)
               ? QString::fromLatin1(best->name)
               : QString();
}

Findings clientFindings(const QString &directory)
{
    using Kind = Finding::Kind;
    const QFileInfo dir(directory);
    if (!dir.exists())
        return {
            Finding::of(Kind::NoDirectory, u"the directory %1 does not exist"_s.arg(directory))};
    if (!dir.isDir())
        return {Finding::of(Kind::NotADirectory, u"%1 is not a directory"_s.arg(directory))};
    const QString path = QDir(directory).filePath(clientName);
    const QFileInfo client(path);
    if (!client.exists())
        return {Finding::of(Kind::NoClient, u"there is no payment client %1"_s.arg(path))};
    if (!client.isFile())
        return {Finding::of(Kind::ClientNotAFile, u"%1 is not a file"_s.arg(path))};
    if (!client.isExecutable())
        return {Finding::of(Kind::ClientNotExecutable,
                            u"%1 is not executable (chmod +x %1)"_s.arg(path))};
    const QString interpreter = StartFailure::interpreterOf(path);
    if (!interpreter.isEmpty() && !QFileInfo(interpreter).isExecutable())
        return {Finding::of(
            Kind::InterpreterMissing,
            u"%1 is a script whose interpreter %2 is missing"_s.arg(path, interpreter))};
    return {};
}

// The lines of zelnorinpas.conf: syntax, groups and keys. Returns the line of each known key.
QHash<QString, int> scanConfig(const QByteArray &content, Findings &findings)
{
    using Kind = Finding::Kind;
    QHash<QString, int> lines;
    QString group;
    const QList<QByteArray> rows = content.split('\n');
    for (qsizetype i = 0; i < rows.size(); ++i) {
        const QString line = QString::fromUtf8(rows.at(i)).trimmed();
        const auto found = [&](Kind kind, const QString &what) {
            Finding finding =
                Finding::of(kind, u"%1, line %2: %3"_s.arg(configName).arg(i + 1).arg(what));
            finding.file = configName;
            finding.line = int(i + 1);
            findings.append(finding);
        };
        if (line.isEmpty() || line.startsWith(u';') || line.startsWith(u'#'))
            continue;
        if (line.startsWith(u'[')) {
            if (!line.endsWith(u']')) {
                found(Kind::NotASetting, u"a group must end with \"]\": %1"_s.arg(line));
                continue;
            }
            group = line.mid(1, line.size() - 2).trimmed();
            if (group != "Client"_L1 && group != "ErrorCodes"_L1 && group != emulatorGroup)
                found(Kind::GroupNotRead, u"the plug-in reads no group [%1] (its groups are "
                                          u"[Client] and [ErrorCodes])"_s.arg(group));
            continue;
        }
        const qsizetype equals = line.indexOf(u'=');
        if (equals <= 0) {
            found(Kind::NotASetting,
                  u"not a setting (key=value), a [group] or a comment: %1"_s.arg(line.left(80)));
            continue;
        }
        const QString key = line.left(equals).trimmed();
        if (group == emulatorGroup)
            continue; // the emulator's own settings
        if (const SettingKey *known = findKey(key, group)) {
            lines.insert(known->configKey(), int(i + 1));
        } else if (const SettingKey *elsewhere = findKey(key)) {
            found(Kind::KeyInWrongGroup, u"%1 belongs in [%2], not in [%3]"_s.arg(
                                             key, QLatin1StringView(elsewhere->group), group));
        } else {
            const QString nearest = nearestKey(key);
            found(Kind::KeyNotRead,
                  u"the plug-in does not read %1"_s.arg(key) +
                      (nearest.isEmpty() ? QString() : u"; did you mean %1?"_s.arg(nearest)));
        }
    }
    return lines;
}

QString duration(qint64 seconds)
{
    if (seconds < 60)
        return u"%1 s"_s.arg(seconds);
    if (seconds < 3600)
        return u"%1 min %2 s"_s.arg(seconds / 60).arg(seconds % 60);
    return u"%1 h %2 min"_s.arg(seconds / 3600).arg(seconds % 3600 / 60);
}

// A client left running keeps the terminal: what it is, and how to end it without losing how
// its operation ended.
void reportClients(DirectoryCheck::Report &report)
{
    report.clients = RunningClients::in(report.directory);
    for (const RunningClients::Client &client : std::as_const(report.clients)) {
        Finding finding = Finding::of(
            Finding::Kind::ClientStillRunning,
            u"a payment client still runs here: process %1%2, for %3%4: %5"_s.arg(client.processId)
                .arg(client.recordedId ? u" (the recorder, running the client as process %1)"_s.arg(
                                             client.recordedId)
                                       : QString(),
                     duration(client.seconds),
                     client.holdsLock ? u", holding the terminal lock zelnorinpas.lock"_s
                                      : QString(),
                     client.arguments.join(u' ')));
        finding.processId = client.processId;
        finding.advice =
            u"process %1 may still be waiting at the terminal or finishing a payment: look at the "
            u"terminal's screen. To end it safely, ask it to interrupt (kill -INT %1) and let it "
            u"answer; only if it does not end, end its process group (kill -TERM -- -%2). Then "
            u"print the terminal's last slip (posctl --dir %3 copy) to learn how its operation "
            u"ended before you repeat it"_s.arg(client.processId)
                .arg(client.groupId > 0 ? client.groupId : client.processId)
                .arg(report.directory);
        report.findings.append(finding);
    }
}

} // namespace

bool DirectoryCheck::Report::ok() const
{
    return std::none_of(findings.cbegin(), findings.cend(),
                        [](const Finding &finding) { return finding.isProblem(); });
}

DirectoryCheck::Status DirectoryCheck::monitoringStatus(const Report &report)
{
    using Kind = Finding::Kind;
    Status status = Status::Ok;
    for (const Finding &finding : report.findings) {
        if (finding.kind == Kind::NoDirectory || finding.kind == Kind::NotADirectory ||
            finding.kind == Kind::RecordingsUnreadable)
            return Status::Unknown;
        if (finding.severity == Finding::Severity::Critical)
            status = Status::Critical;
        else if (finding.severity == Finding::Severity::Warning && status == Status::Ok)
            status = Status::Warning;
    }
    return status;
}

QString DirectoryCheck::monitoringLine(const Report &report, Status status)
{
    static const char *const names[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    QStringList problems;
    int open = 0;
    for (const Finding &finding : report.findings) {
        if (!finding.isProblem())
            continue;
        open += finding.kind == Finding::Kind::UnseenApproval ||
                finding.kind == Finding::Kind::UnknownOutcome;
        problems.append(
            Finding::kindName(finding.kind) +
            (finding.run.isEmpty() ? QString() : u" run "_s + finding.run) +
            (finding.referenceNumber.isEmpty() ? QString() : u" rrn "_s + finding.referenceNumber));
    }
    return u"INPAS %1 - %2: %3 | open_runs=%4 problems=%5"_s
        .arg(QLatin1StringView(names[int(status)]), report.directory,
             problems.isEmpty() ? u"all is well"_s : problems.join(u"; "_s))
        .arg(open)
        .arg(problems.size());
}

DirectoryCheck::Report DirectoryCheck::run(const QString &directory, int failedRuns)
{
    using Kind = Finding::Kind;
    Report report;
    report.directory = directory;
    report.findings = clientFindings(directory);
    reportClients(report);
    RecordingsReport::addFindings(directory, report.findings, failedRuns);

    const QString configPath = QDir(directory).filePath(configName);
    QHash<QString, int> keyLines;
    QFile file(configPath);
    Findings configuration;
    if (!QFileInfo::exists(configPath))
        configuration.append(
            Finding::of(Kind::NoConfiguration,
                        u"there is no %1: every setting has its default"_s.arg(configPath)));
    else if (!file.open(QIODevice::ReadOnly))
        configuration.append(
            Finding::of(Kind::ConfigurationUnreadable,
                        u"%1 cannot be read: %2"_s.arg(configPath, file.errorString())));
    else
        keyLines = scanConfig(file.readAll(), configuration);

    // Read through the host's configuration, as the plug-in reads it.
    Config config;
    config.addConfigFile(configPath, u"inpas"_s);
    for (const SettingKey &key : settingkeys::all) {
        const QString configKey = key.configKey();
        const QVariant stored = ConfigRules::storedValue(config, configKey);
        const int line = keyLines.value(configKey);
        const auto found = [&](Kind kind, const QString &what) {
            Finding finding = Finding::of(
                kind, (line > 0 ? u"%1, line %2: "_s.arg(configName).arg(line) : QString()) + what);
            finding.file = line > 0 ? configName : QString();
            finding.line = line;
            configuration.append(finding);
        };
        const QString name = QLatin1StringView(key.name);
        const QString shown = stored.toStringList().join(u", "_s);
        Setting setting{QLatin1StringView(key.group) + u'/' + name, {}, false, !stored.isValid()};
        switch (key.kind) {
        case SettingKind::Boolean: {
            const std::optional<bool> value = ConfigRules::toBool(stored);
            if (stored.isValid() && !value) {
                found(Kind::ValueNotRead, u"%1=%2 is neither true nor false; the plug-in uses the "
                                          u"default"_s.arg(name, shown));
                setting.isDefault = true;
            }
            setting.value = {value.value_or(key.defaultValue != 0) ? u"true"_s : u"false"_s};
            break;
        }
        case SettingKind::Integer: {
            const std::optional<int> value = ConfigRules::toInt(stored);
            if (stored.isValid() && !value) {
                found(Kind::ValueNotRead,
                      u"%1=%2 is not a whole number; the plug-in uses the default"_s.arg(name,
                                                                                         shown));
                setting.isDefault = true;
            } else if (value && *value < 0 &&
                       key.name == settingkeys::intervalBetweenOperations.name) {
                found(Kind::IntervalBelowZero,
                      u"%1=%2 is below 0: no pause is kept between client runs"_s.arg(name, shown));
            }
            setting.value = {QString::number(value.value_or(key.defaultValue))};
            break;
        }
        case SettingKind::IntegerList: {
            setting.isList = true;
            for (const QString &item : config.getStringList(configKey, {})) {
                if (const std::optional<int> code = settingkeys::integerItem(item))
                    setting.value.append(QString::number(*code));
                else
                    found(Kind::ItemDropped, u"%1: \"%2\" is not a 32-bit whole number and is "
                                             u"dropped"_s.arg(name, item));
            }
            break;
        }
        case SettingKind::TextList: {
            setting.isList = true;
            for (const QString &item : config.getStringList(configKey, {}))
                if (const std::optional<QString> text = settingkeys::textItem(item);
                    text && !setting.value.contains(*text))
                    setting.value.append(*text);
            break;
        }
        }
        report.settings.append(setting);
    }
    // The file's findings in the order of its lines, after those of the client.
    std::stable_sort(configuration.begin(), configuration.end(),
                     [](const Finding &a, const Finding &b) { return a.line < b.line; });
    report.findings += configuration;
    return report;
}

QString DirectoryCheck::text(const Report &report)
{
    QString out = u"processing directory %1\n"_s.arg(report.directory);
    for (const Finding &finding : report.findings)
        if (finding.isProblem())
            out += u"  problem: "_s + finding.text + u'\n';
    for (const Finding &finding : report.findings)
        if (!finding.isProblem())
            out += u"  note:    "_s + finding.text + u'\n';
    for (const Finding &finding : report.findings)
        if (!finding.advice.isEmpty())
            out += u"  note:    "_s + finding.advice + u'\n';
    out += report.ok() ? u"  all is well\n"_s : QString();
    out += u"\nsettings in effect:\n"_s;
    for (const Setting &s : report.settings)
        out += u"  %1 %2%3\n"_s.arg(s.key.leftJustified(40),
                                    s.isList && s.value.isEmpty() ? u"(empty)"_s
                                                                  : s.value.join(u", "_s),
                                    s.isDefault ? u"  (default)"_s : QString());
    return out;
}

QString DirectoryCheck::json(const Report &report)
{
    QStringList findings;
    for (const Finding &finding : report.findings)
        findings.append(finding.toJson());
    QStringList clients;
    for (const RunningClients::Client &client : report.clients)
        clients.append(JsonWriter()
                           .add(u"processId"_s, client.processId)
                           .add(u"arguments"_s, QJsonArray::fromStringList(client.arguments))
                           .add(u"seconds"_s, client.seconds)
                           .add(u"holdsLock"_s, client.holdsLock)
                           .toString());
    QStringList settings;
    for (const Setting &s : report.settings)
        settings.append(JsonWriter()
                            .add(u"key"_s, s.key)
                            .add(u"value"_s, s.isList
                                                 ? QJsonValue(QJsonArray::fromStringList(s.value))
                                                 : QJsonValue(s.value.value(0)))
                            .add(u"default"_s, s.isDefault)
                            .toString());
    return JsonWriter()
        .add(u"directory"_s, report.directory)
        .add(u"ok"_s, report.ok())
        .addRaw(u"findings"_s, JsonWriter::array(findings))
        .addRaw(u"clients"_s, JsonWriter::array(clients))
        .addRaw(u"settings"_s, JsonWriter::array(settings))
        .toString();
}

QString DirectoryCheck::startHint(const QString &directory, const StartFailure &failure)
{
    const QString client = QDir(directory).filePath(clientName);
    QString hint;
    switch (failure.reason) {
    case StartFailure::NoDirectory:
        hint = u"the processing directory %1 does not exist; choose the one that holds the "
               u"payment client with --dir DIR"_s.arg(directory);
        break;
    case StartFailure::NoProgram:
        hint = u"there is no payment client %1; put it there, or choose its directory with "
               u"--dir DIR"_s.arg(client);
        break;
    case StartFailure::PermissionDenied:
        hint = u"%1 may not be run (permission denied); make it executable with chmod +x %1"_s.arg(
            client);
        break;
    case StartFailure::BadInterpreter:
        hint = u"%1 is a script whose interpreter%2 is missing; install it or correct the "
               u"script's first line"_s.arg(
                   client, failure.detail.isEmpty() ? QString() : u' ' + failure.detail);
        break;
    case StartFailure::ArgumentListTooLong:
        return u"the client's command line is longer than the system allows (argument list too "
               u"long); a customer QR code is a few hundred characters at most, so scan it "
               u"again"_s;
    case StartFailure::Other:
        hint = u"%1 could not be started: %2"_s.arg(client, failure.detail);
        break;
    }
    return hint + u" (posctl check --dir %1 looks at the whole directory)"_s.arg(directory);
}
