#include "finding.h"

#include "jsonwriter.h"

using namespace Qt::Literals::StringLiterals;

namespace {

struct KindRow
{
    Finding::Kind kind;
    const char *name;
    Finding::Severity severity;
};

// One home for what each kind is called and how much it matters: a run that may hold money not
// accounted for is critical; what stops or spoils the recording or the plug-in's settings is a
// warning; the rest is information.
constexpr KindRow kinds[] = {
    {Finding::Kind::NoDirectory, "noDirectory", Finding::Severity::Critical},
    {Finding::Kind::NotADirectory, "notADirectory", Finding::Severity::Critical},
    {Finding::Kind::NoClient, "noClient", Finding::Severity::Critical},
    {Finding::Kind::ClientNotAFile, "clientNotAFile", Finding::Severity::Critical},
    {Finding::Kind::ClientNotExecutable, "clientNotExecutable", Finding::Severity::Critical},
    {Finding::Kind::InterpreterMissing, "interpreterMissing", Finding::Severity::Critical},
    {Finding::Kind::ClientStillRunning, "clientStillRunning", Finding::Severity::Warning},
    {Finding::Kind::NoConfiguration, "noConfiguration", Finding::Severity::Info},
    {Finding::Kind::ConfigurationUnreadable, "configurationUnreadable", Finding::Severity::Warning},
    {Finding::Kind::NotASetting, "notASetting", Finding::Severity::Warning},
    {Finding::Kind::GroupNotRead, "groupNotRead", Finding::Severity::Warning},
    {Finding::Kind::KeyNotRead, "keyNotRead", Finding::Severity::Warning},
    {Finding::Kind::KeyInWrongGroup, "keyInWrongGroup", Finding::Severity::Warning},
    {Finding::Kind::ValueNotRead, "valueNotRead", Finding::Severity::Warning},
    {Finding::Kind::IntervalBelowZero, "intervalBelowZero", Finding::Severity::Warning},
    {Finding::Kind::ItemDropped, "itemDropped", Finding::Severity::Warning},
    {Finding::Kind::RecorderOn, "recorderOn", Finding::Severity::Info},
    {Finding::Kind::RecordedClientMissing, "recordedClientMissing", Finding::Severity::Critical},
    {Finding::Kind::RecordedClientChanged, "recordedClientChanged", Finding::Severity::Warning},
    {Finding::Kind::RecorderReplaced, "recorderReplaced", Finding::Severity::Critical},
    {Finding::Kind::ScribeMissing, "scribeMissing", Finding::Severity::Warning},
    {Finding::Kind::RecordingsUnwritable, "recordingsUnwritable", Finding::Severity::Critical},
    {Finding::Kind::RecordingsNotAFolder, "recordingsNotAFolder", Finding::Severity::Critical},
    {Finding::Kind::RecordingsUnreadable, "recordingsUnreadable", Finding::Severity::Critical},
    {Finding::Kind::RecorderOffOverOpenRuns, "recorderOffOverOpenRuns", Finding::Severity::Warning},
    {Finding::Kind::RepeatedFailures, "repeatedFailures", Finding::Severity::Warning},
    {Finding::Kind::RecordingFailed, "recordingFailed", Finding::Severity::Critical},
    {Finding::Kind::LineUnreadable, "lineUnreadable", Finding::Severity::Warning},
    {Finding::Kind::OutputsMissing, "outputsMissing", Finding::Severity::Warning},
    {Finding::Kind::UnseenApproval, "unseenApproval", Finding::Severity::Critical},
    {Finding::Kind::UnknownOutcome, "unknownOutcome", Finding::Severity::Critical},
    {Finding::Kind::SettledRun, "settledRun", Finding::Severity::Info},
};

const KindRow &row(Finding::Kind kind)
{
    for (const KindRow &r : kinds)
        if (r.kind == kind)
            return r;
    Q_UNREACHABLE();
}

} // namespace

Finding Finding::of(Kind kind, const QString &text)
{
    Finding finding;
    finding.kind = kind;
    finding.severity = row(kind).severity;
    finding.text = text;
    return finding;
}

QString Finding::kindName(Kind kind)
{
    return QLatin1StringView(row(kind).name);
}

QString Finding::severityName(Severity severity)
{
    switch (severity) {
    case Severity::Info:
        return u"info"_s;
    case Severity::Warning:
        return u"warning"_s;
    case Severity::Critical:
        return u"critical"_s;
    }
    return {};
}

QString Finding::toJson() const
{
    // Every finding has every key, in this order: empty or null where it has no such value.
    return JsonWriter()
        .add(u"kind"_s, kindName(kind))
        .add(u"severity"_s, severityName(severity))
        .add(u"text"_s, text)
        .add(u"advice"_s, advice)
        .add(u"file"_s, file)
        .add(u"line"_s, line > 0 ? QJsonValue(line) : QJsonValue())
        .add(u"run"_s, run)
        .add(u"day"_s, day)
        .add(u"operation"_s, operation)
        .add(u"amount"_s, amount ? QJsonValue(*amount) : QJsonValue())
        .add(u"referenceNumber"_s, referenceNumber)
        .add(u"authorizationCode"_s, authorizationCode)
        .add(u"processId"_s, processId > 0 ? QJsonValue(processId) : QJsonValue())
        .toString();
}
