#include "app/SignalHandling.h"

#include "tools/ProcessRunner.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace tapedesk {

namespace {

// The handler may only do what is async-signal-safe: it writes one byte into
// a pipe that the GUI thread watches, and lets the next signal end the
// process as if no handler were there.
int g_wakeFd = -1;

void onQuitSignal(int signal)
{
    const char byte = static_cast<char>(signal);
    [[maybe_unused]] const ssize_t written = ::write(g_wakeFd, &byte, 1);
    struct sigaction fallback = {};
    fallback.sa_handler = SIG_DFL;
    ::sigemptyset(&fallback.sa_mask);
    ::sigaction(signal, &fallback, nullptr);
}

} // namespace

void installQuitOnSignals()
{
    if (g_wakeFd >= 0)
        return;
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    g_wakeFd = fds[1];

    auto *notifier = new QSocketNotifier(fds[0], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [fd = fds[0], notifier] {
        char drained[16];
        while (::read(fd, drained, sizeof drained) > 0) {
        }
        notifier->setEnabled(false);
        // First the tools, so a run the GUI thread waits for returns and the
        // event loops can end; then the loops themselves.
        children::killAll();
        QCoreApplication::quit();
        // A dialog opened by an event already queued behind this one (the
        // first start's message) runs a loop of its own that began after the
        // quit: quitting again ends it too, rather than leaving the window
        // waiting for an answer no one will give.
        auto *again = new QTimer(notifier);
        QObject::connect(again, &QTimer::timeout, &QCoreApplication::quit);
        again->start(100);
    });

    struct sigaction action = {};
    action.sa_handler = onQuitSignal;
    ::sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);
}

} // namespace tapedesk
