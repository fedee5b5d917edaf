#pragma once

#include "clientwatch.h"
#include "commandline.h"
#include "commandrunner.h"
#include "paymentplugin.h"
#include "signalguard.h"

#include <memory>

// posctl as a host: the plug-in loaded as the till loads it, one processor, and the commands
// run on it, one or a batch.
class PosctlHost
{
public:
    PosctlHost(const GlobalOptions &globals, SignalPipe &signals, SignalGuard::Mode mode);
    ~PosctlHost();
    PosctlHost(const PosctlHost &) = delete;
    PosctlHost &operator=(const PosctlHost &) = delete;

    // Loads the plug-in and takes a processor; on failure a sentence for the user in error.
    bool start(QString &error);
    // The invocation's command, by its row of CommandTable; returns the exit status.
    int run(const Invocation &invocation, int batchLine = 0);

    // The handlers of the commands posctl answers itself (CommandTable::Command::handler).
    int check(const Invocation &invocation);
    int recorder(const Invocation &invocation);
    int recordings(const Invocation &invocation);
    int settle(const Invocation &invocation);
    int scanParams(const Invocation &invocation);
    int options(const Invocation &invocation);
    int batch(const Invocation &invocation);
    int setDirectory(const Invocation &invocation);
    int replaceProcessor(const Invocation &invocation);

private:
    bool newProcessor(QString &error);
    // One command on the processor, guarded from the host call until its answer is written.
    // batchLine: the line of a batch it came from, or 0.
    int runOperation(const Invocation &invocation, int batchLine);
    // 0 when all was written to standard output, else the error number.
    int print(const CommandRunner::Outcome &outcome);
    int print(const QString &json, const QString &text);
    void reportStoppedBatch(const QString &why, int lastLine, QList<QByteArray> notRun) const;

    GlobalOptions m_globals;
    bool m_json; // --json, and every line of a batch
    ClientWatch m_watch;
    SignalGuard m_guard;
    CommandRunner m_runner;
    PaymentPlugin m_plugin;
    std::unique_ptr<AbstractPaymentProcessing> m_processor;
};
