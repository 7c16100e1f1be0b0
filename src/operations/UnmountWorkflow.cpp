// Released, not just unlisted (a safety departure from waiting for the mount
// table alone): umount takes the volume out of the mount table at once, but
// the ltfs daemon then writes the final index to the cartridge, which takes
// from seconds to minutes on a real tape, and holds the drive until it exits.
// A format started before that fails on the drive's reservation, or has the
// old index written over the new volume. So the unmount also waits until no
// ltfs process serves the mount point any more, and a mount table that cannot
// be read counts as still mounted.
//
// See also MountWorkflow (the same button) and FormatWorkflow (which unmounts
// a mounted tape first).

#include "operations/UnmountWorkflow.h"

#include "operations/OperationContext.h"
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

UnmountWorkflow::UnmountWorkflow(OperationContext &op) : m_op(op), m_timer(std::make_unique<QTimer>())
{
    m_timer->setInterval(kPollIntervalMs);
    QObject::connect(m_timer.get(), &QTimer::timeout, [this] { m_op.threads.runStep([this] { poll(); }); });
}

UnmountWorkflow::~UnmountWorkflow() = default;

bool UnmountWorkflow::isWaiting() const
{
    return m_timer->isActive();
}

void UnmountWorkflow::start(const DrivePtr &drive, std::function<void()> then)
{
    if (m_op.refuseUnsafeMountName(drive, QStringLiteral("Unmount"), Action::Mount))
        return;
    // An earlier unmount still waiting would go on polling after this one ends.
    m_timer->stop();
    m_then = std::move(then);
    m_op.startProgress();
    m_point = kMountRoot + drive->name();
    m_selection = drive;
    m_records = {{drive, drive->record()}};
    m_clock.start();
    m_lastHolderReportMs = 0;
    m_op.show(true, QStringLiteral("Unmounting Tape: ") + m_point);
    m_op.status(Action::Mount, 2);
    m_lastVolumeUsers.clear();
    runUmount(m_point);
    m_timer->start();

    const QString id = drive->id();
    const bool stopped = drive->record().ltfsStopped;
    for (const DrivePtr &listed : driveList.snapshot()) {
        if (listed->id() == id) {
            if (listed != drive)
                m_records.append({listed, listed->record()});
            listed->update([](DriveRecord &r) { r.mounted = r.ltfsStopped = false; });
            drive->update([](DriveRecord &r) { r.label.clear(); });
            m_op.selection.set(listed);
            m_op.feedback.drivesChanged();
            break;
        }
    }
    // No daemon is left to write an index, so there is nothing to wait for.
    if (stopped)
        poll();
}

void UnmountWorkflow::poll()
{
    // The poll's own wait keeps the event loop turning, and a slow mount
    // table could let the timer fire again inside it.
    if (m_pollInFlight)
        return;
    m_pollInFlight = true;
    // A stop unwinds the poll from inside one of its runs.
    auto pollOver = qScopeGuard([this] { m_pollInFlight = false; });
    const MountAnswer listed = m_op.selectedMountAnswer();
    const QString point = m_point;
    std::optional<QList<LtfsHolder>> holders;
    QStringList busyLines;
    if (listed == MountAnswer::No) {
        m_op.threads.runResponsive(
            [&] { holders = ltfsHoldersOf(point, LTFS_PATH.get().value_or(QString())); });
    } else if (listed == MountAnswer::Yes && !point.isEmpty()) {
        // umount once, as the poll alone would do, never unmounts a volume
        // that was busy when it ran: each poll asks again, so the unmount
        // completes by itself once whatever held the volume lets go (a
        // departure from a single umount).
        if (runUmount(point)) {
            VolumeUsers users;
            m_op.threads.runResponsive([&] { users = volumeUsersOf(point); });
            busyLines = volumeUsersLines(users);
        }
    }
    pollOver.dismiss();
    m_pollInFlight = false;
    if (listed != MountAnswer::No || !holders || !holders->isEmpty()) {
        m_op.show(true, kWaiting);
        // The pane is cleared at every poll, so the holders come with each
        // waiting line; the console gets them when they change.
        for (const QString &line : busyLines)
            m_op.show(false, line);
        if (!busyLines.isEmpty() && busyLines != m_lastVolumeUsers)
            consoleLine(QStringView(busyLines.join(QLatin1Char('\n'))));
        m_lastVolumeUsers = busyLines;
        if (listed == MountAnswer::Unknown)
            m_op.show(false, mountTableUnreadableLine(QStringLiteral("the unmount waits until it can.")));
        else if (listed == MountAnswer::No && !holders)
            m_op.show(false, QStringLiteral("The process list could not be read, so TapeDesk cannot tell "
                                            "whether ltfs has released the drive: the unmount waits."));
        else if (holders)
            reportHolders(*holders);
        return;
    }
    complete();
}

void UnmountWorkflow::complete()
{
    m_timer->stop();
    m_op.show(false, QStringLiteral("Unmounting Tape Complete"));
    m_op.finish(Action::Mount, Verdict::complete(QStringLiteral("Unmounting Tape Complete: ") + m_point));
    m_op.postMountCaption(QStringLiteral("MOUNT"));
    if (const std::function<void()> then = std::exchange(m_then, {}))
        then();
    // The table stays disabled during the wait, so this is still the drive
    // being unmounted; without one there is no record to take out.
    if (const DrivePtr drive = m_op.selection.get()) {
        m_op.show(false, QStringLiteral("Removing Mounted Record"));
        m_op.support.removeMountedDrive(drive->serialNumber());
        m_op.show(false, QStringLiteral("Removed Mounted Record"));
    }
    m_point.clear();
    m_records.clear();
    m_selection.reset();
    m_op.endProgress();
    m_op.show(false, QStringLiteral("End unMountDrive"));
}

QString UnmountWorkflow::endWait()
{
    m_timer->stop();
    // A format that waited for this unmount does not start either.
    m_then = {};
    for (const auto &before : std::as_const(m_records))
        before.first->update([&](DriveRecord &r) { r = before.second; });
    if (m_selection)
        m_op.selection.set(m_selection);
    const bool mounted = m_selection && m_selection->mounted();
    m_op.postMountCaption(mounted ? QStringLiteral("UNMOUNT") : QStringLiteral("MOUNT"));
    m_op.feedback.drivesChanged();
    QString what = QStringLiteral("the wait for the unmount of ") + m_point;
    m_point.clear();
    m_records.clear();
    m_selection.reset();
    return what;
}

bool UnmountWorkflow::runUmount(const QString &mountPoint)
{
    bool busy = false;
    // A copy of its own: the caller may hand in m_point, which the operator's
    // Stop clears on the GUI thread while umount still runs on the worker.
    m_op.threads.runResponsive([&busy, point = mountPoint] {
        try {
            // umount of a FUSE volume whose daemon is stuck can hang; every
            // poll asks again, so none may hold the wait for ever.
            const ProcessResult r = Bash().executeCollectingErrors(
                QStringLiteral("umount"), {QStringLiteral("-v"), point}, kUmountTimeoutMs);
            consoleLine(QByteArrayView(r.out));
            consoleLine(QByteArrayView(r.err));
            // util-linux: "umount: /tmp/ltfs/mnt/0: target is busy."
            busy = r.err.contains("target is busy");
        } catch (const BashError &) {
            // No umount on this host: the poll waits until the volume goes by other means.
        }
    });
    return busy;
}

void UnmountWorkflow::reportHolders(const QList<LtfsHolder> &holders)
{
    // The pane is cleared at every poll, so once a holder has been named it is
    // named again on each poll; the console gets it once per stretch.
    const qint64 waited = m_clock.isValid() ? m_clock.elapsed() : 0;
    if (waited < m_holderReportIntervalMs)
        return;
    const bool newStretch = waited - m_lastHolderReportMs >= m_holderReportIntervalMs;
    if (newStretch)
        m_lastHolderReportMs = waited;
    for (const LtfsHolder &holder : holders) {
        const QString line = holderLine(holder, waited);
        m_op.show(false, line);
        if (newStretch)
            consoleLine(QStringView(line));
    }
}

} // namespace tapedesk
