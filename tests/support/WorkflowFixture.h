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

// Selects the drive (id, name) without a scan, as a workflow sees it.
void selectDrive(ViewController &vc, const QString &id = QStringLiteral("tape0"),
                 const QString &name = QStringLiteral("0"));

} // namespace tapedesk::test
