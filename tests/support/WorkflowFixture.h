#pragma once

// Steps the workflow tests share: a fresh simulator for each case, the
// simulator's record of what ran, a drive picked the way the operator does
// or set directly, and waiting on a button's verdict.

#include "support/WindowHarness.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <functional>

namespace tapedesk {
class ViewController;
}

namespace tapedesk::test {

// An empty store: no paths, no mounted-drive record, no scanned drives.
void clearStore();
// Shows the window (on an empty store: a warning and no scan) and waits until
// its start-up is over, then empties the pane.
[[nodiscard]] bool showSettled(ViewController &vc);

// Where TAPESIM_LOG points during a workflow case.
QString simLogPath();

// The default library, paths on the simulator, no fault, no mounted-drive
// record, no scanned drives, and an empty invocation log.
void freshWorkflowCase();
// Drops the fault and the log a case set, so the next case starts clean.
void endWorkflowCase();

// Every run of `tool` ("itdt", "ltfs", ...) since the log was emptied,
// arguments only.
QList<QStringList> simRunsOf(const QString &tool);

// The arguments TapeDesk hands itdt for `command` on `device`: the output
// folder as result and log folder first.
QStringList itdtArgs(const QString &device, const QStringList &command);

// Selects the drive (id, name) without a scan, as a workflow sees it.
void selectDrive(ViewController &vc, const QString &id = QStringLiteral("tape0"),
                 const QString &name = QStringLiteral("0"));
// Presses Scan and waits until the scan is over and the window idle.
[[nodiscard]] bool scanToEnd(ViewController &vc);
// Scans and selects `row` the way the operator does; true once the pane
// confirms the selection.
bool scanAndSelectRow(ViewController &vc, int row);

// Waits until `button` shows `status` ("Complete Button", "Fail Button", ...).
bool waitForStatus(QWidget *button, const QString &status, int timeoutMs = 10000);

// Mounts tape0's volume, selects tape0, empties the log, starts `action`,
// presses OK on what it shows and waits for the pane's refusal. The dialogs
// seen, or nothing when the pane never refused.
QList<SeenDialog> startOnMountedTape0(const std::function<void(ViewController &)> &action);

} // namespace tapedesk::test
