#pragma once

#include <QStringList>

namespace tapedesk {

// Exit statuses of tapedesk-cli.
namespace CliStatus {
constexpr int ok = 0;
constexpr int failed = 1;
constexpr int usage = 2;
constexpr int refused = 3;
} // namespace CliStatus

// Runs one command line (arguments without the program name) to its end and
// returns the exit status. Needs a QCoreApplication.
int runCli(const QStringList &arguments);

// The status a signal ends a run with (128 + the signal), or 0 while none came.
void noteSignal(int signalNumber);

} // namespace tapedesk
