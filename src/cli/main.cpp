// tapedesk-cli: no display, no QApplication. SIGINT and SIGTERM stop the
// operation as the window's Stop does (TapeEngine::stop) and end the run with
// 130 or 143; where the stop is refused the run goes on. The drive's lock goes
// with the process.

#include "cli/CliCommand.h"

#include <QCoreApplication>
#include <csignal>

namespace {
void onSignal(int signalNumber)
{
    // Only a store: the run's event loop looks for it.
    tapedesk::noteSignal(signalNumber);
}
} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("TapeDesk"));
    QCoreApplication::setApplicationName(QStringLiteral("TapeDesk"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TAPEDESK_VERSION));
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    return tapedesk::runCli(QCoreApplication::arguments().mid(1));
}
