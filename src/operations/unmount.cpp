// Tape unmount: umount, then poll every 3 seconds (asking umount again while
// the volume is still listed) until the volume is released; only then is the
// unmount complete and the mounted record removed.
// A waiting format starts at that moment (formatTapeEnabled). Everything here
// is the GUI thread's turn; the tool runs go through runResponsive so the
// window keeps painting while input is held back.
//
// Released, not just unlisted (a safety departure from waiting for the mount
// table alone): umount takes the volume out of the mount table at once, but
// the ltfs daemon then writes the final index to the cartridge, which takes
// from seconds to minutes on a real tape, and holds the drive until it exits.
// A format started before that fails on the drive's reservation, or has the
// old index written over the new volume. So the unmount also waits until no
// ltfs process serves the mount point any more, and a mount table that cannot
// be read counts as still mounted.

#include "drives/Drive.h"
#include "operations/MountCheck.h"
#include "operations/TapeEngine.h"
#include "tools/Bash.h"
#include "tools/Console.h"
#include "tools/ToolPaths.h"

#include <QScopeGuard>
#include <QTimer>

namespace tapedesk {

namespace {

constexpr int kPollIntervalMs = 3000;
constexpr int kUmountTimeoutMs = 10000;
const QString kWaiting = QStringLiteral("Waiting for un-mount to complete, please wait...");

QString holderLine(const LtfsHolder &holder, qint64 waitedMs)
{
    const qint64 minutes = waitedMs / 60000;
    const QString waited = minutes > 0
                               ? QStringLiteral("%1 minute%2").arg(minutes).arg(minutes == 1 ? "" : "s")
                               : QStringLiteral("%1 seconds").arg(waitedMs / 1000);
    return QStringLiteral("Still waiting after %1: ltfs process %2 has not released the drive yet (%3)")
        .arg(waited)
        .arg(holder.pid)
        .arg(holder.commandLine);
}

} // namespace

void TapeEngine::unMountDrive()
{
    const DrivePtr drive = selectedDrive.get();
    if (!drive) {
        changeButtonStatus(Action::Mount, 1, true);
        showResults(true, QStringLiteral("Error: No drive selected"));
        return;
    }
    if (refuseUnsafeMountName(drive, QStringLiteral("Unmount")))
        return;
    // An earlier unmount still waiting would go on polling after this one ends.
    if (timer)
        timer->stop();

    startProgress();
    const QString mountPoint = kMountRoot + drive->name();
    m_unmountPoint = mountPoint;
    m_unmountSelection = drive;
    m_unmountRecords = {{drive, drive->record()}};
    m_unmountClock.start();
    m_lastHolderReportMs = 0;
    showResults(true, QStringLiteral("Unmounting Tape: ") + mountPoint);
    changeButtonStatus(Action::Mount, 2, true);
    m_lastVolumeUsers.clear();
    runUmount(mountPoint);

    if (timer)
        timer->deleteLater();
    timer = new QTimer(this);
    timer->setInterval(kPollIntervalMs);
    connect(timer, &QTimer::timeout, this, [this] { runStep([this] { waitForUnMount(); }); });
    timer->start();

    const QString id = drive->id();
    const bool stopped = drive->record().ltfsStopped;
    for (const DrivePtr &listed : driveList.snapshot()) {
        if (listed->id() == id) {
            if (listed != drive)
                m_unmountRecords.append({listed, listed->record()});
            listed->update([](DriveRecord &r) { r.mounted = r.ltfsStopped = false; });
            drive->update([](DriveRecord &r) { r.label.clear(); });
            selectedDrive.set(listed);
            refreshDriveTable();
            break;
        }
    }
    // No daemon is left to write an index, so there is nothing to wait for.
    if (stopped)
        waitForUnMount();
}

void TapeEngine::waitForUnMount()
{
    // The poll's own wait keeps the event loop turning, and a slow mount
    // table could let the timer fire again inside it.
    if (m_pollInFlight)
        return;
    m_pollInFlight = true;
    // A stop unwinds the poll from inside one of its runs.
    auto pollOver = qScopeGuard([this] { m_pollInFlight = false; });
    const MountAnswer listed = tapeMountAnswer();
    const QString point = m_unmountPoint.isEmpty() ? mountPointOfSelection() : m_unmountPoint;
    std::optional<QList<LtfsHolder>> holders;
    QStringList busyLines;
    if (listed == MountAnswer::No) {
        runResponsive([&] {
            holders = ltfsHoldersOf(point, LTFS_PATH.get().value_or(QString()));
            return QString();
        });
    } else if (listed == MountAnswer::Yes && !point.isEmpty()) {
        // umount once, as the poll alone would do, never unmounts a volume
        // that was busy when it ran: each poll asks again, so the unmount
        // completes by itself once whatever held the volume lets go (a
        // departure from a single umount).
        if (runUmount(point)) {
            VolumeUsers users;
            runResponsive([&] {
                users = volumeUsersOf(point);
                return QString();
            });
            busyLines = volumeUsersLines(users);
        }
    }
    pollOver.dismiss();
    m_pollInFlight = false;
    if (listed != MountAnswer::No || !holders || !holders->isEmpty()) {
        showResults(true, kWaiting);
        // The pane is cleared at every poll, so the holders come with each
        // waiting line; the console gets them when they change.
        for (const QString &line : busyLines)
            showResults(false, line);
        if (!busyLines.isEmpty() && busyLines != m_lastVolumeUsers)
            consoleLine(QStringView(busyLines.join(QLatin1Char('\n'))));
        m_lastVolumeUsers = busyLines;
        if (listed == MountAnswer::Unknown)
            showResults(false, mountTableUnreadableLine(QStringLiteral("the unmount waits until it can.")));
        else if (listed == MountAnswer::No && !holders)
            showResults(false, QStringLiteral("The process list could not be read, so TapeDesk cannot tell "
                                              "whether ltfs has released the drive: the unmount waits."));
        else if (holders)
            reportHolders(*holders);
        return;
    }

    if (timer)
        timer->stop();
    showResults(false, QStringLiteral("Unmounting Tape Complete"));
    changeButtonStatus(Action::Mount, 0, true);
    postToMain([this] { setMountLabel(QStringLiteral("MOUNT")); });
    if (formatTapeEnabled.load())
        executeFormatTape();
    // The table stays disabled during the wait, so this is still the drive
    // being unmounted; without one there is no record to take out.
    if (const DrivePtr drive = selectedDrive.get()) {
        showResults(false, QStringLiteral("Removing Mounted Record"));
        support.removeMountedDrive(drive->serialNumber());
        showResults(false, QStringLiteral("Removed Mounted Record"));
    }
    m_unmountPoint.clear();
    m_unmountRecords.clear();
    m_unmountSelection.reset();
    endProgress();
    showResults(false, QStringLiteral("End unMountDrive"));
}

bool TapeEngine::runUmount(const QString &mountPoint)
{
    bool busy = false;
    runResponsive([&] {
        try {
            // umount of a FUSE volume whose daemon is stuck can hang; every
            // poll asks again, so none may hold the wait for ever.
            const ProcessResult r = Bash().executeCollectingErrors(
                QStringLiteral("umount"), {QStringLiteral("-v"), mountPoint}, kUmountTimeoutMs);
            consoleLine(QByteArrayView(r.out));
            consoleLine(QByteArrayView(r.err));
            // util-linux: "umount: /tmp/ltfs/mnt/0: target is busy."
            busy = r.err.contains("target is busy");
        } catch (const BashError &) {
            // No umount on this host: the poll waits until the volume goes by other means.
        }
        return QString();
    });
    return busy;
}

QString TapeEngine::mountPointOfSelection() const
{
    const DrivePtr drive = selectedDrive.get();
    return drive ? kMountRoot + drive->name() : QString();
}

void TapeEngine::reportHolders(const QList<LtfsHolder> &holders)
{
    // The pane is cleared at every poll, so once a holder has been named it is
    // named again on each poll; the console gets it once per stretch.
    const qint64 waited = m_unmountClock.isValid() ? m_unmountClock.elapsed() : 0;
    if (waited < holderReportIntervalMs)
        return;
    const bool newStretch = waited - m_lastHolderReportMs >= holderReportIntervalMs;
    if (newStretch)
        m_lastHolderReportMs = waited;
    for (const LtfsHolder &holder : holders) {
        const QString line = holderLine(holder, waited);
        showResults(false, line);
        if (newStretch)
            consoleLine(QStringView(line));
    }
}

} // namespace tapedesk
