// How the output pane copes with a long session: 100,000 messages appended
// through the real window (offscreen), every post run and painted as the GUI
// thread would. Appending must stay cheap as the pane grows, so besides the
// total this reports the growth ratio:
//   time of appends 90,001-100,000  /  time of appends 1-10,000.
// A pane whose cost grows with its length shows up there long before the
// total misses.

#include "ui/MainWindow.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QPlainTextEdit>
#include <QTemporaryDir>
#include <QThreadPool>
#include <cstdio>
#include <cstdlib>

using namespace tapedesk;

namespace {

constexpr int kTotal = 100000;
constexpr int kBatch = 10000;

void figure(const char *name, double measured, const char *unit, const char *op, double target)
{
    const bool ok = op[0] == '<' ? measured <= target : measured >= target;
    std::printf("%s: %.2f %s (target %s %g %s) %s\n", name, measured, unit, op, target, unit,
                ok ? "ok" : "MISS");
}

// Runs posted work until the pane holds `blocks` blocks.
void drainUntil(QPlainTextEdit *pane, int blocks)
{
    while (pane->document()->blockCount() < blocks)
        QCoreApplication::processEvents(QEventLoop::AllEvents);
}

QString message(int i)
{
    // The mix the workflows write: short status lines and longer advice.
    switch (i % 4) {
    case 0:
        return QStringLiteral("Running Scan - Please Wait....");
    case 1:
        return QStringLiteral("      Loading Media");
    case 2:
        return QStringLiteral("Drive%1 (tape%1) Selected").arg(i);
    default:
        return QStringLiteral("The drive reported a general failure. Check the cable and the drive's power, "
                              "then try again; if it repeats, run Retrieve Log and contact support.");
    }
}

} // namespace

int main(int argc, char **argv)
{
    // A home of its own: the window reads the per-user store when it appears
    // and must not start a scan with the operator's real settings.
    QTemporaryDir home;
    ::setenv("HOME", QFile::encodeName(home.path()).constData(), 1);
    ::setenv("XDG_CONFIG_HOME", QFile::encodeName(home.path() + QStringLiteral("/.config")).constData(), 1);
    if (!::getenv("QT_QPA_PLATFORM"))
        ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication app(argc, argv);

    MainWindow mainWindow;
    mainWindow.show();
    QPlainTextEdit *pane = mainWindow.ui.transcript;
    QElapsedTimer settle;
    settle.start();
    while (!pane->toPlainText().contains(QStringLiteral("Looks like preferences")) &&
           settle.elapsed() < 10000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    pane->clear();
    QCoreApplication::processEvents();

    QList<qint64> batchNs;
    QElapsedTimer total;
    total.start();
    for (int b = 0; b < kTotal / kBatch; ++b) {
        QElapsedTimer t;
        t.start();
        for (int i = b * kBatch; i < (b + 1) * kBatch; ++i)
            mainWindow.engine.showMessage(false, message(i));
        drainUntil(pane, 1 + (b + 1) * kBatch);
        batchNs << t.nsecsElapsed();
    }
    const double totalS = static_cast<double>(total.nsecsElapsed()) / 1e9;

    // The pane must hold what was appended, in order, or the figures mean nothing.
    const QStringList lines = pane->toPlainText().split(QLatin1Char('\n'));
    if (lines.size() != kTotal + 1 || lines.at(kTotal) != message(kTotal - 1) || lines.at(3) != message(2)) {
        std::printf("pane content wrong: %lld lines\n", static_cast<long long>(lines.size()));
        return 1;
    }

    // The same number of messages from a workflow's background thread, racing
    // the GUI thread that shows them (for information; not a target).
    pane->clear();
    QElapsedTimer fromPool;
    fromPool.start();
    QThreadPool::globalInstance()->start([&mainWindow] {
        for (int i = 0; i < kTotal; ++i)
            mainWindow.engine.showMessage(false, message(i));
    });
    drainUntil(pane, kTotal + 1);
    const double fromPoolS = static_cast<double>(fromPool.nsecsElapsed()) / 1e9;
    QThreadPool::globalInstance()->waitForDone();
    std::printf("%d appends posted from a background thread: %.2f s\n", kTotal, fromPoolS);

    for (int b = 0; b < batchNs.size(); ++b)
        std::printf("appends %6d-%6d: %.1f ms\n", b * kBatch + 1, (b + 1) * kBatch,
                    static_cast<double>(batchNs.at(b)) / 1e6);
    const double growth = static_cast<double>(batchNs.last()) / static_cast<double>(batchNs.first());
    figure("pane_append_100k", totalS, "s", "<=", 1);
    figure("pane_growth_last10k_over_first10k", growth, "x", "<=", 12);
    return 0;
}
