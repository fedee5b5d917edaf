#pragma once

// The names in a recording's lines: one place for the recorder and its scribe, which write them
// (plain C++), and for posctl and the emulator, which read them.
namespace recordingkeys {

// What a line is.
inline constexpr const char *event = "event";
inline constexpr const char *start = "start";               // before the client starts
inline constexpr const char *end = "end";                   // once it has ended
inline constexpr const char *output = "output";             // what it wrote, masked
inline constexpr const char *acknowledged = "acknowledged"; // a host has its answer
inline constexpr const char *settled = "settled";           // a person settled a run (id)

// Every line of a run.
inline constexpr const char *id = "id";
inline constexpr const char *time = "time";

// start
inline constexpr const char *pid = "pid";
inline constexpr const char *arguments = "arguments";
inline constexpr const char *host = "host";
inline constexpr const char *hostPid = "hostPid";

// end
inline constexpr const char *durationMs = "durationMs";
inline constexpr const char *exitStatus = "exitStatus";
inline constexpr const char *signal = "signal";
inline constexpr const char *startError = "startError";
inline constexpr const char *delivered = "delivered";
inline constexpr const char *approval = "approval";
inline constexpr const char *stdoutBytes = "stdoutBytes";
inline constexpr const char *stderrBytes = "stderrBytes";
inline constexpr const char *stdoutCut = "stdoutCut";
inline constexpr const char *stderrCut = "stderrCut";

// output: the answer's members that readers want, first; then the outputs, always last, so that
// a reader stops before them (the ",\"stdout\":" that starts them cannot stand inside a string).
inline constexpr const char *answer = "answer";
inline constexpr const char *answerMembers[] = {"Status", "ResponseCodeHost", "TextResponse",
                                                "AuthorizationCode", "ReferenceNumber"};
inline constexpr const char *stdoutEscaped = "stdoutEscaped"; // held bytes that are not UTF-8
inline constexpr const char *stderrEscaped = "stderrEscaped";
inline constexpr const char *stdoutText = "stdout";
inline constexpr const char *stderrText = "stderr";
inline constexpr const char *outputsStart = ",\"stdout\":";

// acknowledged
inline constexpr const char *pids = "pids";

// settled: how ("cancelled", "kept", "not-charged"), by whom (the user), a note
inline constexpr const char *how = "how";
inline constexpr const char *by = "by";
inline constexpr const char *note = "note";

// The environment variable by which a host that acknowledges its answers names itself to the
// recorder.
inline constexpr const char *hostVariable = "INPAS_ACKNOWLEDGING_HOST";

} // namespace recordingkeys
