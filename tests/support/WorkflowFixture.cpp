#include "support/WorkflowFixture.h"

#include "drives/Drive.h"
#include "drives/DriveStateStore.h"
#include "support/TestEnv.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"
#include "ui/ViewController.h"

#include <QFile>
#include <QPlainTextEdit>
#include <QTableView>

namespace tapedesk::test {

void clearStore()
{
    for (const QString &k : {PreferenceKeys::itdt, PreferenceKeys::ltfs, PreferenceKeys::mkltfs,
                             PreferenceKeys::output, DriveStateStore::kMountedDrivesKey})
        SettingsStore::remove(k);
    for (OptionalPath *p : {&ITDT_PATH, &LTFS_PATH, &MKLTFS_PATH, &OUTPUT_FOLDER})
        p->set(std::nullopt);
    mountedDrives.set({});
    driveList.clear();
}

bool showSettled(ViewController &vc)
{
    vc.show();
    if (!waitForPane(vc, QStringLiteral("Looks like preferences settings could be wrong.")) ||
        !waitForIdle(vc))
        return false;
    vc.ui.rightScrollView->clear();
    return true;
}

QString simLogPath()
{
    return TestHome::path() + QStringLiteral("/sim.log");
}

void freshWorkflowCase()
{
    resetSimulator();
    qunsetenv("TAPESIM_FAIL");
    QFile::remove(simLogPath());
    qputenv("TAPESIM_LOG", QFile::encodeName(simLogPath()));
    SettingsStore::remove(DriveStateStore::kMountedDrivesKey);
    mountedDrives.set({});
    driveList.clear();
    useSimulator();
}

void endWorkflowCase()
{
    qunsetenv("TAPESIM_FAIL");
    qunsetenv("TAPESIM_LOG");
}

QList<QStringList> simRunsOf(const QString &tool)
{
    QList<QStringList> runs;
    for (QStringList argv : simInvocations(simLogPath())) {
        if (argv.takeFirst() == tool)
            runs << argv;
    }
    return runs;
}

QStringList itdtArgs(const QString &device, const QStringList &command)
{
    const QString out = OUTPUT_FOLDER.get().value_or(QString());
    return QStringList{QStringLiteral("-R"), out, QStringLiteral("-LP"), out, QStringLiteral("-f"), device} +
           command;
}

void selectDrive(ViewController &vc, const QString &id, const QString &name)
{
    DriveRecord record;
    record.id = id;
    record.name = name;
    vc.engine.selectedDrive.set(makeDrive(record));
}

bool scanToEnd(ViewController &vc)
{
    vc.btnScan();
    return waitForPane(vc, QStringLiteral("Scan Complete")) && waitForIdle(vc);
}

bool scanAndSelectRow(ViewController &vc, int row)
{
    if (!scanToEnd(vc))
        return false;
    vc.ui.tableView->selectRow(row);
    return waitForPane(vc, QStringLiteral(" Selected")) && vc.engine.selectedDrive.get();
}

bool waitForStatus(QWidget *button, const QString &status, int timeoutMs)
{
    return waitUntil([&] { return statusOf(button) == status; }, timeoutMs);
}

QList<SeenDialog> startOnMountedTape0(const std::function<void(ViewController &)> &action)
{
    if (!mountWithSimulator(QStringLiteral("0")))
        return {};
    QFile::remove(simLogPath());
    ViewController vc;
    selectDrive(vc);
    DialogScript script;
    script.press(QStringLiteral("OK"));
    action(vc);
    if (!waitForPane(vc, QStringLiteral("Error: Tape needs to be un-mounted")))
        return {};
    return script.seen();
}

} // namespace tapedesk::test
