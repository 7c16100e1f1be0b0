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

void selectDrive(ViewController &vc, const QString &id, const QString &name)
{
    DriveRecord record;
    record.id = id;
    record.name = name;
    vc.engine.selectedDrive.set(makeDrive(record));
}

} // namespace tapedesk::test
