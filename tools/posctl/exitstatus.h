#pragma once

// posctl's exit statuses, for a till's scripts and for monitoring.
enum ExitStatus : int {
    Success = 0,
    Failure = 1,    // the operation failed, or check found a problem
    UsageError = 2, // a usage error, no plug-in, or no standard output
    NotEnoughBalance = 3,
    // posctl stopped waiting for a running operation, could not write its answer, or the client
    // did not end by itself: the terminal may have completed the operation.
    UnknownOutcome = 4,
    // Stopped by signal N before any work was done: SignalBase + N.
    SignalBase = 128,
};
