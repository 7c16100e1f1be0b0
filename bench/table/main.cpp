// A site with ten thousand drives: how long from the scan report to the first
// painted table, and how much memory the listed drives cost the process.
//   table_10k_report_to_paint: parse the report (the scan's parser), rebuild
//     the list, reload the table the way a scan does and wait for the table's
//     first paint.
//   table_10k_memory: resident memory (VmRSS) after that paint minus resident
//     memory with the empty window shown.

#include "drives/Drive.h"
#include "support/Support.h"
#include "ui/DriveTableModel.h"
#include "ui/MainWindow.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QPlainTextEdit>
#include <QTableView>
#include <QTemporaryDir>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <unistd.h>

using namespace tapedesk;

namespace {

constexpr int kDrives = 10000;

void figure(const char *name, double measured, const char *unit, const char *op, double target)
{
    const bool ok = op[0] == '<' ? measured <= target : measured >= target;
    std::printf("%s: %.2f %s (target %s %g %s) %s\n", name, measured, unit, op, target, unit,
                ok ? "ok" : "MISS");
}

// Resident memory in MB, from "VmRSS:     81234 kB".
double residentMB()
{
    QFile f(QStringLiteral("/proc/self/status"));
    if (!f.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : f.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').constFirst().toDouble() / 1024.0;
    return 0;
}

// What `itdt scan` prints for a large library, one line per drive:
//   #0 tape0 - [ULTRIUM-HH8]-[F1A2] S/N:1000000000 H1-B0-T0-L0
QString scanReport()
{
    QString report = QStringLiteral("Scanning SCSI Bus ...\n");
    for (int i = 0; i < kDrives; ++i)
        report += QStringLiteral("#%1 tape%1 - [ULTRIUM-%2]-[F1A2] S/N:%3 H%4-B0-T%5-L0\n")
                      .arg(i)
                      .arg(i % 2 ? QStringLiteral("HH9") : QStringLiteral("HH8"))
                      .arg(1000000000 + i)
                      .arg(i / 256)
                      .arg(i % 256);
    report += QStringLiteral("Exit with code: 0\n");
    return report;
}

// Notes the first paint of the table once it holds the drives.
class PaintWatch : public QObject
{
public:
    explicit PaintWatch(const DriveTableModel *model) : m_model(model) {}
    bool painted = false;

protected:
    bool eventFilter(QObject *, QEvent *e) override
    {
        if (e->type() == QEvent::Paint && m_model->rowCount() > 0)
            painted = true;
        return false;
    }

private:
    const DriveTableModel *m_model;
};

// The parser writes every drive's values to standard output as diagnostics;
// they go to /dev/null while the window runs (still written, so still paid
// for), and the report comes out clean.
class QuietStdout
{
public:
    QuietStdout()
    {
        std::fflush(stdout);
        m_saved = ::dup(1);
        const int null = ::open("/dev/null", O_WRONLY);
        ::dup2(null, 1);
        ::close(null);
    }
    ~QuietStdout()
    {
        std::fflush(stdout);
        ::dup2(m_saved, 1);
        ::close(m_saved);
    }
    QuietStdout(const QuietStdout &) = delete;
    QuietStdout &operator=(const QuietStdout &) = delete;

private:
    int m_saved = -1;
};

bool waitFor(const std::function<bool()> &condition, int ms)
{
    QElapsedTimer t;
    t.start();
    while (!condition()) {
        if (t.elapsed() > ms)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return true;
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

    auto quiet = std::make_unique<QuietStdout>();
    MainWindow mainWindow;
    mainWindow.show();
    waitFor([&] { return mainWindow.ui.transcript->toPlainText().contains(QStringLiteral("Looks like")); },
            10000);
    waitFor([] { return false; }, 300); // let start-up painting settle
    const QString report = scanReport();
    const double before = residentMB();

    PaintWatch watch(mainWindow.driveModel());
    mainWindow.ui.tableView->viewport()->installEventFilter(&watch);
    QElapsedTimer t;
    t.start();
    driveList.clear();
    Support().parseDriveTextToDrive(report);
    const qint64 parsedNs = t.nsecsElapsed();
    mainWindow.engine.refreshDriveTable();
    const bool painted = waitFor([&] { return watch.painted; }, 10000);
    const double elapsedMs = static_cast<double>(t.nsecsElapsed()) / 1e6;
    const double after = residentMB();

    quiet.reset();
    if (!painted || mainWindow.driveModel()->rowCount() != kDrives ||
        mainWindow.driveModel()
                ->index(kDrives - 1, 0)
                .data(DriveTableModel::LinesRole)
                .toStringList()
                .constFirst() != QStringLiteral("Drive%1 (tape%2)").arg(kDrives).arg(kDrives - 1)) {
        std::printf("table not listed: %d rows, painted %d\n", mainWindow.driveModel()->rowCount(),
                    painted ? 1 : 0);
        return 1;
    }

    std::printf("parse: %.1f ms, reload and first paint: %.1f ms\n", static_cast<double>(parsedNs) / 1e6,
                elapsedMs - static_cast<double>(parsedNs) / 1e6);
    std::printf("resident memory: %.1f MB with the empty window, %.1f MB with %d drives listed\n", before,
                after, kDrives);
    figure("table_10k_report_to_paint", elapsedMs, "ms", "<=", 250);
    figure("table_10k_memory", after - before, "MB", "<=", 30);
    return 0;
}
