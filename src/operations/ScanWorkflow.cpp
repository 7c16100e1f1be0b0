#include "operations/ScanWorkflow.h"

#include "operations/MountCheck.h"
#include "operations/MountParsing.h"
#include "operations/OperationContext.h"
#include "operations/Texts.h"
#include "tools/Console.h"
#include "tools/ToolPaths.h"

namespace tapedesk {

void ScanWorkflow::perform()
{
    if (!m_op.support.isPreferencesSet()) {
        m_op.show(true, MSG_NO_PREFERENCES);
        m_op.finish(Action::Scan, Verdict::refused(MSG_NO_PREFERENCES));
        return;
    }
    scan();
}

void ScanWorkflow::scan()
{
    m_op.threads.runInBackground([this] {
        m_op.startProgress();
        m_op.status(Action::Scan, 2);
        m_op.show(true, QStringLiteral("Running Scan - Please Wait...."));
        const QString output = OUTPUT_FOLDER.get().value_or(QString());
        const ToolResult run =
            m_op.run(ITDT_PATH.get().value_or(QString()),
                     {QStringLiteral("-R"), output, QStringLiteral("-LP"), output, QStringLiteral("scan")});
        if (run.out.isEmpty()) {
            const QString line = QStringLiteral("Scan Failed - make sure your preferences are set correctly");
            m_op.show(false, line);
            reportMissingDrive();
            m_op.finish(Action::Scan, m_op.failedRun(run, line));
            m_op.endProgress();
            return;
        }
        m_op.show(false, QStringLiteral(".....Scan Executed"));
        consoleLine(QStringView(run.out));
        driveList.clear();
        m_op.support.parseDriveTextToDrive(run.out);
        m_op.support.loadMountedDrives();
        markStoppedLtfs();
        m_op.feedback.drivesChanged();
        m_op.show(false, QStringLiteral("Scan Complete"));
        const qsizetype listed = driveList.snapshot().size();
        if (listed == 0)
            reportMissingDrive();
        m_op.finish(
            Action::Scan,
            Verdict::complete(
                QStringLiteral("Scan Complete: %1 drive%2 listed").arg(listed).arg(listed == 1 ? "" : "s")));
        m_op.endProgress();
    });
}

// When the ltfs daemon dies (a crash, a power cut, an out-of-memory kill),
// the mount table goes on listing its volume, whose mount point then answers
// "Transport endpoint is not connected". Such a drive counts as mounted, so
// Mount unmounts it, and is marked, so the operator learns why. The process
// check is the unmount's; a mount table or process list that cannot be read
// marks nothing, and the drive is left as TapeDesk knew it.
void ScanWorkflow::markStoppedLtfs()
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

void ScanWorkflow::explainStoppedLtfs(const DrivePtr &drive)
{
    if (!drive->record().ltfsStopped)
        return;
    m_op.show(false, QStringLiteral("LTFS stopped unexpectedly: the volume is still listed as mounted on %1, "
                                    "but no ltfs process serves it any more (a crash, a power cut or a "
                                    "killed process). Files written to it since its last index are lost.")
                         .arg(kMountRoot + drive->name()));
    m_op.show(false, QStringLiteral("What to do: press Mount to unmount it (there is nothing to wait for), "
                                    "then Mount again. If the mount then asks to recover the volume, "
                                    "choose Recover Volume."));
}

void ScanWorkflow::explainMissingDrive()
{
    m_op.threads.runInBackground([this] { reportMissingDrive(); });
}

void ScanWorkflow::reportMissingDrive()
{
    m_op.show(false, QStringLiteral("Why no drive may be listed:"));
    for (const Finding &finding :
         missingDriveFindings(ITDT_PATH.get().value_or(QString()), m_hostRoots, Identity::current()))
        m_op.show(false, finding.line());
}

} // namespace tapedesk
