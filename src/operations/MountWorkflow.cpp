// See also UnmountWorkflow (the same button on a mounted drive) and
// RecoverWorkflow (a volume ltfs refuses until ltfsck has run).

#include "operations/MountWorkflow.h"

#include "operations/ExitCode.h"
#include "operations/MountParsing.h"
#include "operations/OperationContext.h"
#include "operations/RecoverWorkflow.h"
#include "operations/Texts.h"
#include "operations/UnmountWorkflow.h"
#include "tools/ToolPaths.h"

#include <QDir>

namespace tapedesk {

namespace {
const QString kMountQuestion = QStringLiteral(
    "Please check tape is fully seated in the drive and correct type  (ex. LTO-7 tape in LTO-7 drive). "
    "Tape must be formatted. Please check and format if needed before mounting");
const QString kNoDriveSelected = QStringLiteral("Error: No drive selected");
const QString kMountFailedLine =
    QStringLiteral("Mount Error: Please check that a formated tape was inserted");
// How long the mount table may take to list a volume after ltfs returned.
constexpr int kListingWaitMs = 5000;
} // namespace

void MountWorkflow::perform()
{
    if (!m_op.support.isPreferencesSet()) {
        m_op.show(true, MSG_NO_PREFERENCES);
        m_op.finish(Action::Mount, Verdict::refused(MSG_NO_PREFERENCES));
        return;
    }
    const DrivePtr drive = m_op.selection.get();
    if (!drive) {
        m_op.show(true, kNoDriveSelected);
        m_op.finish(Action::Mount, Verdict::refused(kNoDriveSelected, true));
        return;
    }
    const bool mounted = drive->mounted();
    // Refused before the question: no answer could make this name a mount point.
    if (m_op.refuseUnsafeMountName(drive, mounted ? QStringLiteral("Unmount") : QStringLiteral("Mount"),
                                   Action::Mount))
        return;
    if (mounted) {
        m_op.unmount->start(drive);
        return;
    }
    if (m_op.support.userOptionPrompt(QStringLiteral("Mount Tape"), kMountQuestion, QStringLiteral("Ok"),
                                      QStringLiteral("Cancel")) > 0) {
        m_op.finish(Action::Mount, Verdict::cancelled(QStringLiteral("The mount was cancelled")));
        return;
    }
    m_op.status(Action::Mount, 2);
    mountSelected();
    m_op.feedback.drivesChanged();
}

void MountWorkflow::mountSelected()
{
    const DrivePtr drive = m_op.selection.get();
    if (!drive) {
        m_op.show(true, kNoDriveSelected);
        m_op.finish(Action::Mount, Verdict::refused(kNoDriveSelected, true));
        return;
    }
    if (m_op.refuseUnsafeMountName(drive, QStringLiteral("Mount"), Action::Mount))
        return;
    m_op.threads.runInBackground([this, drive] { mountInBackground(drive); });
}

void MountWorkflow::mountInBackground(const DrivePtr &drive)
{
    // The failure lines, then the verdict: the run's own where it reported
    // one, else what it did instead (one more line).
    auto failWith = [&](const QStringList &lines, const ToolResult *run) {
        for (const QString &line : lines)
            m_op.show(false, line);
        drive->setMounted(false);
        m_op.postMountCaption(QStringLiteral("MOUNT"));
        m_op.finish(Action::Mount, run ? m_op.failedRun(*run, lines.constFirst())
                                       : Verdict::failed(lines.constFirst().trimmed()));
        m_op.endProgress();
    };

    m_op.startProgress();
    m_op.show(true, QStringLiteral("Mounting Tape"));
    // Files in an unmounted mount point were written to the local disk by
    // mistake (a copy that ran before the mount). ltfs reports success over
    // them and FUSE then refuses, or a mount would hide them; either way the
    // operator's next copy "to the tape" lands in /tmp. Refused before any
    // tool runs: a safety departure from judging ltfs's output alone.
    const QString mountPoint = kMountRoot + drive->name();
    if (const StrayFiles stray = strayFilesIn(mountPoint);
        stray.count > 0 && mountAnswerFor(readMountTable(), drive->name()) != MountAnswer::Yes) {
        failWith({strayFilesLine(mountPoint, stray)}, nullptr);
        return;
    }
    runLoadVerb(drive, QStringLiteral("load"));
    m_op.status(Action::Mount, 2);
    m_op.show(false, QStringLiteral("      Loading Media"));
    m_op.show(false, QStringLiteral("      Getting Tape Address"));
    const ToolResult read = readBarcode(drive);
    const QString barcode = read.succeeded() ? barcodeFromAttributeRead(read.out) : QString();
    drive->update([&](DriveRecord &r) { r.barcode = barcode; });
    if (read.reportedCode == QStringLiteral("5")) {
        failWith({QStringLiteral("      Mount Error"),
                  QStringLiteral("      Please check that a formatted tape was inserted")},
                 &read);
        return;
    }
    if (!read.succeeded()) {
        failWith({QStringLiteral("      Getting Tape Address Failed"), QStringLiteral("      Mount Failed")},
                 &read);
        return;
    }

    const DriveRecord record = drive->record();
    m_op.show(false, kMountRoot + QStringLiteral(" ") + record.name);
    m_op.show(false, QStringLiteral("devname= ") + record.name);
    // FUSE refuses a missing mount point, and /tmp is emptied at every boot.
    if (!QDir().mkpath(mountPoint)) {
        failWith({kMountFailedLine, QStringLiteral("Cannot create the mount point ") + mountPoint}, nullptr);
        return;
    }
    ToolResult ltfs =
        m_op.run(LTFS_PATH.get().value_or(QString()),
                 {mountPoint, QStringLiteral("-o"), QStringLiteral("devname=") + ltfsDevice(record),
                  QStringLiteral("-o"), QStringLiteral("eject")});
    ltfs.reportedCode = ltfsReportedCode(ltfs);
    const std::optional<QString> volume = volumeFromLtfsStderr(ltfs.err);
    if (!volume) {
        failWith({kMountFailedLine, ltfs.err}, &ltfs);
        if (ltfsAsksForLtfsck(ltfs.err))
            m_op.recover->offer(drive);
        return;
    }
    // The success line alone does not prove a mount: FUSE may refuse after it
    // ("fuse: mountpoint is not empty"), and then nothing is mounted. Only the
    // mount table listing this very mount point does.
    const MountAnswer inTable = waitForMountListing(record.name, kListingWaitMs);
    m_op.threads.throwIfStopped();
    if (inTable != MountAnswer::Yes) {
        QStringList lines{kMountFailedLine, ltfs.err};
        if (inTable == MountAnswer::Unknown)
            lines << mountTableUnreadableLine(QStringLiteral("the mount could not be confirmed."));
        failWith(lines, nullptr);
        return;
    }
    drive->update([&](DriveRecord &r) { r.label = *volume; });

    m_op.show(false, ltfs.out);
    m_op.show(false, QStringLiteral("Mount Complete"));
    m_op.postMountCaption(QStringLiteral("UNMOUNT"));
    m_op.support.saveDriveInfo(*drive);
    m_op.endProgress();
    // The list may have been rebuilt by a scan meanwhile: mark the drive that
    // is listed now under the same id, if any.
    for (const DrivePtr &listed : driveList.snapshot()) {
        if (listed->id() == record.id) {
            listed->setMounted(true);
            m_op.selection.set(listed);
            m_op.feedback.drivesChanged();
            break;
        }
    }
    m_op.postVolumeRefresh();
    m_op.finish(Action::Mount, Verdict::complete(QStringLiteral("Mount Complete: ") + mountPoint));
}

ToolResult MountWorkflow::readBarcode(const DrivePtr &drive)
{
    const QString id = drive->id();
    m_op.show(false, QStringLiteral("Starting getSelectedDriveAddress for: ") + id);
    ToolResult read =
        m_op.run(ITDT_PATH.get().value_or(QString()),
                 {QStringLiteral("-f"), id, QStringLiteral("-w"), QStringLiteral("1"),
                  QStringLiteral("readattr"), QStringLiteral("-p"), QStringLiteral("0"), QStringLiteral("-a"),
                  QStringLiteral("0x806"), QStringLiteral("-d"), QStringLiteral("/dev/stdout")});
    if (!read.succeeded())
        m_op.show(false, QStringLiteral("getSelectedDriveAddress has failed for: ") + id);
    return read;
}

void MountWorkflow::ejectSelected()
{
    if (const DrivePtr drive = m_op.selection.get())
        runLoadVerb(drive, QStringLiteral("unload"));
}

ToolResult MountWorkflow::runLoadVerb(const DrivePtr &drive, const QString &verb)
{
    const QString output = OUTPUT_FOLDER.get().value_or(QString());
    return m_op.run(ITDT_PATH.get().value_or(QString()), {QStringLiteral("-R"), output, QStringLiteral("-LP"),
                                                          output, QStringLiteral("-f"), drive->id(), verb});
}

} // namespace tapedesk
