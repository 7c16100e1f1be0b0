#pragma once

// Steps the mount and unmount tests share: a fresh simulator library, a scan,
// a selection, and the simulator's record of which tools ran.

#include "drives/DriveStateStore.h"
#include "support/TestEnv.h"
#include "support/WindowHarness.h"
#include "tools/SettingsStore.h"
#include "ui/ViewController.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QPlainTextEdit>
#include <QTableView>
#include <QThreadPool>

namespace tapedesk::test {

inline QString toolLogPath()
{
    return TestHome::path() + QStringLiteral("/tool-runs.jsonl");
}

// The default library (or `stateIni` as the simulator's state), paths on the
// simulator, no fault, no mounted-drive record, an empty tool log.
inline void freshSimulator(const QByteArray &stateIni = {})
{
    const QString simHome = TestHome::path() + QStringLiteral("/tapesim");
    resetSimulator();
    if (!stateIni.isEmpty()) {
        QDir().mkpath(simHome);
        QFile f(simHome + QStringLiteral("/state.ini"));
        if (f.open(QIODevice::WriteOnly))
            f.write(stateIni);
    }
    qunsetenv("TAPESIM_FAIL");
    qunsetenv("TAPESIM_UNMOUNT_DELAY");
    QFile::remove(toolLogPath());
    qputenv("TAPESIM_LOG", QFile::encodeName(toolLogPath()));
    SettingsStore::remove(DriveStateStore::kMountedDrivesKey);
    mountedDrives.set({});
    driveList.clear();
    useSimulator();
}

// One argv per simulated tool run since the log was last emptied, tool first.
inline QList<QStringList> toolRuns()
{
    QList<QStringList> runs;
    for (const QByteArray &line : readFile(toolLogPath()).split('\n')) {
        QStringList argv;
        for (const auto &v : QJsonDocument::fromJson(line).array())
            argv << v.toString();
        if (!argv.isEmpty())
            runs << argv;
    }
    return runs;
}

inline QList<QStringList> runsOf(const QString &tool)
{
    QList<QStringList> picked;
    for (const QStringList &argv : toolRuns()) {
        if (argv.constFirst() == tool)
            picked << argv;
    }
    return picked;
}

// Lets every background part finish, then runs what they posted.
inline void settle()
{
    QThreadPool::globalInstance()->waitForDone();
    for (int i = 0; i < 3; ++i)
        QCoreApplication::processEvents();
}

// Scans, selects `row`, empties the pane and the tool log.
inline bool scanAndSelect(ViewController &vc, int row)
{
    vc.btnScan();
    settle();
    if (!waitForIdle(vc) || vc.ui.tableView->model()->rowCount() <= row)
        return false;
    vc.ui.tableView->selectRow(row);
    QCoreApplication::processEvents();
    settle();
    vc.ui.rightScrollView->clear();
    QFile::remove(toolLogPath());
    return vc.engine.selectedDrive.get() != nullptr;
}

} // namespace tapedesk::test
