// Tape mount: itdt loads the cartridge and reads its barcode, ltfs mounts the
// volume on /tmp/ltfs/mnt/<name>, and the drive is recorded as mounted. On a
// drive already mounted the Mount button unmounts instead (unmount.cpp). A
// volume that ltfs refuses until ltfsck has run is offered for recovery
// (recover.cpp).

#include "drives/Drive.h"
#include "operations/MountCheck.h"
#include "operations/MountParsing.h"
#include "operations/TapeEngine.h"
#include "operations/Texts.h"
#include "tools/Console.h"
#include "tools/ToolPaths.h"

#include <QDir>
#include <QThread>

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

void TapeEngine::mountAction()
{
    if (!support.isPreferencesSet()) {
        showResults(true, MSG_NO_PREFERENCES);
        return;
    }
    const DrivePtr drive = selectedDrive.get();
    if (!drive) {
        changeButtonStatus(Action::Mount, 1, true);
        showResults(true, kNoDriveSelected);
        return;
    }
    // Refused before the question: no answer could make this name a mount point.
    if (refuseUnsafeMountName(drive, drive->mounted() ? QStringLiteral("Unmount") : QStringLiteral("Mount")))
        return;
    changeButtonStatus(Action::Mount, 2, true);
    if (!drive->mounted()) {
        if (support.userOptionPrompt(QStringLiteral("Mount Tape"), kMountQuestion, QStringLiteral("Ok"),
                                     QStringLiteral("Cancel")) <= 0) {
            mountDrive();
            refreshDriveTable();
        }
    } else {
        unMountDrive();
    }
    // The mount is still running here; its background part sets the status again.
    changeButtonStatus(Action::Mount, 0, true);
}

void TapeEngine::mountDrive()
{
    // The format workflow calls this directly, so the checks of the button
    // are repeated for it.
    const DrivePtr drive = selectedDrive.get();
    if (!drive) {
        changeButtonStatus(Action::Mount, 1, true);
        showResults(true, kNoDriveSelected);
        return;
    }
    if (refuseUnsafeMountName(drive, QStringLiteral("Mount")))
        return;
    runInBackground([this, drive] { mountInBackground(drive); });
}

void TapeEngine::mountInBackground(const DrivePtr &drive)
{
    auto failWith = [&](const QStringList &lines, bool showError) {
        for (const QString &line : lines)
            showResults(false, line);
        drive->setMounted(false);
        postToMain([this] { setMountLabel(QStringLiteral("MOUNT")); });
        changeButtonStatus(Action::Mount, 1, showError);
        endProgress();
    };

    startProgress();
    showResults(true, QStringLiteral("Mounting Tape"));
    // Files in an unmounted mount point were written to the local disk by
    // mistake (a copy that ran before the mount). ltfs reports success over
    // them and FUSE then refuses, or a mount would hide them; either way the
    // operator's next copy "to the tape" lands in /tmp. Refused before any
    // tool runs: a safety departure from judging ltfs's output alone.
    const QString mountPoint = kMountRoot + drive->name();
    if (const StrayFiles stray = strayFilesIn(mountPoint);
        stray.count > 0 && mountAnswerFor(readMountTable(), drive->name()) != MountAnswer::Yes) {
        failWith({strayFilesLine(mountPoint, stray)}, false);
        return;
    }
    runLoadVerb(drive, QStringLiteral("load"));
    changeButtonStatus(Action::Mount, 2, true);
    showResults(false, QStringLiteral("      Loading Media"));
    showResults(false, QStringLiteral("      Getting Tape Address"));
    const QString address = getSelectedDriveAddress(drive);
    drive->update([&](DriveRecord &r) { r.address = address; });

    const QString code = lastExitCode.get();
    if (code == QStringLiteral("5")) {
        failWith({QStringLiteral("      Mount Error"),
                  QStringLiteral("      Please check that a formatted tape was inserted")},
                 false);
        return;
    }
    if (code != ERROR_CODE_OK) {
        failWith({QStringLiteral("      Getting Tape Address Failed"), QStringLiteral("      Mount Failed")},
                 false);
        return;
    }

    const DriveRecord record = drive->record();
    showResults(false, kMountRoot + QStringLiteral(" ") + record.name);
    showResults(false, QStringLiteral("devname= ") + record.name);

    // FUSE refuses a missing mount point, and /tmp is emptied at every boot.
    if (!QDir().mkpath(mountPoint)) {
        failWith({kMountFailedLine, QStringLiteral("Cannot create the mount point ") + mountPoint}, true);
        return;
    }
    // A launch that fails leaves the previous tool's standard error behind;
    // only ltfs's own may decide this mount.
    lastErrorOutput.set(QString());
    runTool(LTFS_PATH.get().value_or(QString()),
            {mountPoint, QStringLiteral("-o"), QStringLiteral("devname=") + ltfsDevice(record),
             QStringLiteral("-o"), QStringLiteral("eject")});

    const QString stderrText = lastErrorOutput.get();
    const std::optional<QString> volume = volumeFromLtfsStderr(stderrText);
    if (!volume) {
        failWith({kMountFailedLine, stderrText}, true);
        if (ltfsAsksForLtfsck(stderrText))
            offerRecovery(drive);
        return;
    }
    // The success line alone does not prove a mount: FUSE may refuse after it
    // ("fuse: mountpoint is not empty"), and then nothing is mounted. Only the
    // mount table listing this very mount point does.
    const MountAnswer inTable = waitForMountListing(record.name, kListingWaitMs);
    throwIfStopped();
    if (inTable != MountAnswer::Yes) {
        QStringList lines{kMountFailedLine, stderrText};
        if (inTable == MountAnswer::Unknown)
            lines << mountTableUnreadableLine(QStringLiteral("the mount could not be confirmed."));
        failWith(lines, true);
        return;
    }
    drive->update([&](DriveRecord &r) { r.label = *volume; });

    showResults(false, lastStatusFeedBack.get());
    showResults(false, QStringLiteral("Mount Complete"));
    postToMain([this] { setMountLabel(QStringLiteral("UNMOUNT")); });
    support.saveDriveInfo(*drive);
    endProgress();
    // The list may have been rebuilt by a scan meanwhile: mark the drive that
    // is listed now under the same id, if any.
    const QString id = record.id;
    for (const DrivePtr &listed : driveList.snapshot()) {
        if (listed->id() == id) {
            listed->setMounted(true);
            selectedDrive.set(listed);
            refreshDriveTable();
            break;
        }
    }
    postToMain([this] { refreshVolumeDetails(); });
    changeButtonStatus(Action::Mount, 0, true);
}

bool TapeEngine::refuseUnsafeMountName(const DrivePtr &drive, const QString &operation)
{
    const QString name = drive->name();
    if (isSafeMountName(name))
        return false;
    showResults(true, unsafeMountNameMessage(operation, name));
    changeButtonStatus(Action::Mount, 1, false);
    return true;
}

bool TapeEngine::isTapeMounted()
{
    return tapeMountAnswer() == MountAnswer::Yes;
}

MountAnswer TapeEngine::tapeMountAnswer()
{
    // Every caller is on the GUI thread, where the window must keep painting.
    std::optional<QString> table;
    const auto readTable = [&table] {
        table = readMountTable();
        return QString();
    };
    if (QThread::currentThread() == thread())
        runResponsive(readTable);
    else
        readTable();
    const DrivePtr drive = selectedDrive.get();
    const QString name = drive ? drive->name() : QString();
    const QString ltfsLines = table ? ltfsLinesOf(*table) : QString();
    if (!ltfsLines.isEmpty()) {
        consoleLine(QStringView(QStringLiteral("/mnt/") + name));
        consoleLine(QStringView(ltfsLines));
    }
    return mountAnswerFor(table, name);
}

QString TapeEngine::getSelectedDriveAddress()
{
    const DrivePtr drive = selectedDrive.get();
    return drive ? getSelectedDriveAddress(drive) : QString();
}

QString TapeEngine::getSelectedDriveAddress(const DrivePtr &drive)
{
    const QString id = drive->id();
    showResults(false, QStringLiteral("Starting getSelectedDriveAddress for: ") + id);
    runTool(ITDT_PATH.get().value_or(QString()),
            {QStringLiteral("-f"), id, QStringLiteral("-w"), QStringLiteral("1"), QStringLiteral("readattr"),
             QStringLiteral("-p"), QStringLiteral("0"), QStringLiteral("-a"), QStringLiteral("0x806"),
             QStringLiteral("-d"), QStringLiteral("/dev/stdout")});
    if (lastRunSucceeded())
        return barcodeFromAttributeRead(lastStatusFeedBack.get());
    showResults(false, QStringLiteral("getSelectedDriveAddress has failed for: ") + id);
    return {};
}

void TapeEngine::loadTape()
{
    if (const DrivePtr drive = selectedDrive.get())
        runLoadVerb(drive, QStringLiteral("load"));
}

void TapeEngine::unLoadTape()
{
    if (const DrivePtr drive = selectedDrive.get())
        runLoadVerb(drive, QStringLiteral("unload"));
}

void TapeEngine::runLoadVerb(const DrivePtr &drive, const QString &verb)
{
    const QString output = OUTPUT_FOLDER.get().value_or(QString());
    runTool(ITDT_PATH.get().value_or(QString()), {QStringLiteral("-R"), output, QStringLiteral("-LP"), output,
                                                  QStringLiteral("-f"), drive->id(), verb});
}

} // namespace tapedesk
