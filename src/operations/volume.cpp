// What the operator wants to know next: the mounted volume's details, read
// from what LTFS publishes on the mount point, and, when a scan lists no
// drive, what on this host stands in the way.

#include "operations/MissingDrive.h"
#include "operations/TapeEngine.h"
#include "operations/VolumeDetails.h"
#include "tools/HandOff.h"
#include "tools/ToolPaths.h"

#include <QCoreApplication>
#include <QTimer>
#include <thread>

namespace tapedesk {

void TapeEngine::refreshVolumeDetails()
{
    VolumeReport report;
    const DrivePtr drive = selectedDrive.get();
    if (drive) {
        report.driveId = drive->id();
        report.mountPoint = kMountRoot + drive->name();
        report.state = drive->mounted() && isSafeMountName(drive->name()) ? VolumeReport::State::Reading
                                                                          : VolumeReport::State::NotMounted;
    }
    const bool inFlight = m_volumeReadHangs->load();
    // The read under way answers a refresh of the same volume too.
    if (report.state == VolumeReport::State::Reading && inFlight && !m_volumeReadTimedOut &&
        report.mountPoint == m_volumeReadPoint)
        return;
    const quint64 read = ++m_volumeRead;
    if (report.state != VolumeReport::State::Reading) {
        m_face.volumeDetailsChanged(report);
        return;
    }
    const QString waited =
        QStringLiteral("%1 did not answer within %2 s: LTFS may be hung or the drive busy. "
                       "The window goes on; try Refresh later.")
            .arg(report.mountPoint)
            .arg(volumeReadTimeoutMs / 1000.0);
    // A file system that hangs holds its reader in the kernel, where nothing
    // can end it; one such reader is enough.
    if (inFlight) {
        report.state = VolumeReport::State::TimedOut;
        report.problem =
            QStringLiteral("An earlier read of %1 has still not returned. ").arg(m_volumeReadPoint) + waited;
        m_face.volumeDetailsChanged(report);
        return;
    }
    m_face.volumeDetailsChanged(report);
    m_volumeReadPoint = report.mountPoint;
    m_volumeReadTimedOut = false;
    // Detached, not a background part: a reader stuck in the kernel must
    // neither block the pool nor keep the engine from going away.
    m_volumeReadHangs->store(true);
    std::thread([this, read, report, hangs = m_volumeReadHangs,
                 alive = std::weak_ptr<int>(m_volumeReadGuard)]() mutable {
        VolumeRead result = readVolumeAttributes(report.mountPoint);
        hangs->store(false);
        QCoreApplication *app = QCoreApplication::instance();
        if (!app)
            return;
        postTo(app, [this, read, report, alive, result = std::move(result)]() mutable {
            if (alive.expired() || read != m_volumeRead)
                return;
            ++m_volumeRead; // answered: the time-out has nothing left to say
            if (result.error.isEmpty()) {
                report.state = VolumeReport::State::Read;
                report.details = volumeDetailsFrom(result.attributes, result.size);
            } else {
                report.state = VolumeReport::State::Unreadable;
                report.problem =
                    QStringLiteral("%1 cannot be read: %2.").arg(report.mountPoint, result.error);
            }
            m_face.volumeDetailsChanged(report);
        });
    }).detach();
    QTimer::singleShot(volumeReadTimeoutMs, this, [this, read, report, waited]() mutable {
        if (read != m_volumeRead)
            return;
        ++m_volumeRead; // its late answer changes nothing now
        m_volumeReadTimedOut = true;
        report.state = VolumeReport::State::TimedOut;
        report.problem = waited;
        m_face.volumeDetailsChanged(report);
    });
}

void TapeEngine::explainMissingDrive()
{
    runInBackground([this] { reportMissingDrive(); });
}

void TapeEngine::reportMissingDrive()
{
    showResults(false, QStringLiteral("Why no drive may be listed:"));
    for (const Finding &finding :
         missingDriveFindings(ITDT_PATH.get().value_or(QString()), hostRoots, Identity::current()))
        showResults(false, finding.line());
}

} // namespace tapedesk
