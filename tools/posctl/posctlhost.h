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
    static constexpr int usageError = 2;

    PosctlHost(const GlobalOptions &globals, SignalPipe &signals, SignalGuard::Mode mode);
    ~PosctlHost();
    PosctlHost(const PosctlHost &) = delete;
    PosctlHost &operator=(const PosctlHost &) = delete;

    // Loads the plug-in and takes a processor; on failure a sentence for the user in error.
    bool start(QString &error);
    int runOne(const Invocation &invocation);
    int runBatch();

private:
    bool newProcessor(QString &error);
    int check();
    int recorder(const Invocation &invocation);
    int recordings(const Invocation &invocation);
    // One command on the processor, guarded from the host call until its answer is written.
    // batchLine: the line of a batch it came from, or 0.
    int runCommand(const Invocation &invocation, bool json, int batchLine = 0);
    // 0 when all was written to standard output, else the error number.
    int print(const CommandRunner::Outcome &outcome, bool json);
    void reportStoppedBatch(const QString &why, int lastLine, QList<QByteArray> notRun) const;

    GlobalOptions m_globals;
    ClientWatch m_watch;
    SignalGuard m_guard;
    CommandRunner m_runner;
    PaymentPlugin m_plugin;
    std::unique_ptr<AbstractPaymentProcessing> m_processor;
};
