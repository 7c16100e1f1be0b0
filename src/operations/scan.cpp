// Drive scan: itdt lists the drives, the parser rebuilds driveList, the drive
// state store adds the drives this system mounted, the drives whose LTFS
// stopped under a mounted volume are marked, and the table reloads.

#include "drives/Drive.h"
#include "operations/MountCheck.h"
#include "operations/MountParsing.h"
#include "operations/TapeEngine.h"
#include "operations/Texts.h"
#include "tools/Console.h"
#include "tools/ToolPaths.h"

namespace tapedesk {

void TapeEngine::scanAction()
{
    if (!support.isPreferencesSet()) {
        showResults(true, MSG_NO_PREFERENCES);
        return;
    }
    scanForDrives();
}

void TapeEngine::scanForDrives()
{
    runInBackground([this] {
        startProgress();
        changeButtonStatus(Action::Scan, 2, true);
        showResults(true, QStringLiteral("Running Scan - Please Wait...."));
        const QString output = OUTPUT_FOLDER.get().value_or(QString());
        const QString report =
            shell(ITDT_PATH.get().value_or(QString()),
                  {QStringLiteral("-R"), output, QStringLiteral("-LP"), output, QStringLiteral("scan")});
        if (report.isEmpty()) {
            lastStatusFeedBack.set(QString());
            showResults(false, QStringLiteral("Scan Failed - make sure your preferences are set correctly"));
            reportMissingDrive();
            endProgress();
            return;
        }
        setExitCode(report);
        lastStatusFeedBack.set(report);
        showResults(false, QStringLiteral(".....Scan Executed"));
        consoleLine(QStringView(report));
        driveList.clear();
        support.parseDriveTextToDrive(report);
        support.loadMountedDrives();
        markStoppedLtfs();
        refreshDriveTable();
        changeButtonStatus(Action::Scan, 0, true);
        showResults(false, QStringLiteral("Scan Complete"));
        if (driveList.snapshot().isEmpty())
            reportMissingDrive();
        endProgress();
    });
}

// When the ltfs daemon dies (a crash, a power cut, an out-of-memory kill),
// the mount table goes on listing its volume, whose mount point then answers
// "Transport endpoint is not connected". Such a drive counts as mounted, so
// Mount unmounts it, and is marked, so the operator learns why. The process
// check is the unmount's; a mount table or process list that cannot be read
// marks nothing, and the drive is left as TapeDesk knew it.
void TapeEngine::markStoppedLtfs()
{
    const std::optional<QString> table = readMountTable();
    const QString ltfsLines = table ? ltfsLinesOf(*table) : QString();
    if (ltfsLines.isEmpty())
        return;
    const QString ltfs = LTFS_PATH.get().value_or(QString());
    for (const DrivePtr &drive : driveList.snapshot()) {
        const QString name = drive->name();
        if (!isSafeMountName(name) || !mountOutputShows(ltfsLines, name))
            continue;
        const std::optional<QList<LtfsHolder>> holders = ltfsHoldersOf(kMountRoot + name, ltfs);
        if (holders && holders->isEmpty()) {
            drive->update([](DriveRecord &r) {
                r.mounted = true;
                r.ltfsStopped = true;
            });
        }
    }
}

void TapeEngine::explainStoppedLtfs(const DrivePtr &drive)
{
    if (!drive->record().ltfsStopped)
        return;
    showResults(false,
                QStringLiteral("LTFS stopped unexpectedly: the volume is still listed as mounted on %1, "
                               "but no ltfs process serves it any more (a crash, a power cut or a "
                               "killed process). Files written to it since its last index are lost.")
                    .arg(kMountRoot + drive->name()));
    showResults(false, QStringLiteral("What to do: press Mount to unmount it (there is nothing to wait for), "
                                      "then Mount again. If the mount then asks to recover the volume, "
                                      "choose Recover Volume."));
}

void TapeEngine::clearMountedDrivesAction()
{
    support.resetMountedDrives();
    showResults(false, QStringLiteral("Mounted drives reset"));
}

} // namespace tapedesk
