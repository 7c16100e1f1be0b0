#include "operations/VolumeDetailsReader.h"

#include "operations/Face.h"
#include "operations/VolumeDetails.h"
#include "tools/HandOff.h"

#include <QCoreApplication>
#include <QTimer>
#include <thread>

namespace tapedesk {

VolumeDetailsReader::VolumeDetailsReader(QObject &home, Face &face, const Synchronized<DrivePtr> &selection)
    : m_home(home), m_face(face), m_selection(selection)
{}

void VolumeDetailsReader::refresh()
{
    if (!m_face.showsVolumeDetails())
        return;
    VolumeReport report;
    const DrivePtr drive = m_selection.get();
    if (drive) {
        report.driveId = drive->id();
        report.mountPoint = kMountRoot + drive->name();
        report.state = drive->mounted() && isSafeMountName(drive->name()) ? VolumeReport::State::Reading
                                                                          : VolumeReport::State::NotMounted;
    }
    const bool inFlight = m_hangs->load();
    // The read under way answers a refresh of the same volume too.
    if (report.state == VolumeReport::State::Reading && inFlight && !m_timedOut &&
        report.mountPoint == m_readPoint)
        return;
    const quint64 read = ++m_read;
    if (report.state != VolumeReport::State::Reading) {
        m_face.volumeDetailsChanged(report);
        return;
    }
    const QString waited =
        QStringLiteral("%1 did not answer within %2 s: LTFS may be hung or the drive busy. "
                       "The window goes on; try Refresh later.")
            .arg(report.mountPoint)
            .arg(m_timeoutMs / 1000.0);
    // A file system that hangs holds its reader in the kernel, where nothing
    // can end it; one such reader is enough.
    if (inFlight) {
        report.state = VolumeReport::State::TimedOut;
        report.problem =
            QStringLiteral("An earlier read of %1 has still not returned. ").arg(m_readPoint) + waited;
        m_face.volumeDetailsChanged(report);
        return;
    }
    m_face.volumeDetailsChanged(report);
    m_readPoint = report.mountPoint;
    m_timedOut = false;
    // Detached, not a background part: a reader stuck in the kernel must
    // neither block the pool nor keep the engine from going away.
    m_hangs->store(true);
    std::thread([this, read, report, hangs = m_hangs, alive = std::weak_ptr<int>(m_guard)]() mutable {
        VolumeRead result = readVolumeAttributes(report.mountPoint);
        hangs->store(false);
        QCoreApplication *app = QCoreApplication::instance();
        if (!app)
            return;
        postTo(app, [this, read, report, alive, result = std::move(result)]() mutable {
            if (alive.expired() || read != m_read)
                return;
            ++m_read; // answered: the time-out has nothing left to say
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
    QTimer::singleShot(m_timeoutMs, &m_home, [this, read, report, waited]() mutable {
        if (read != m_read)
            return;
        ++m_read; // its late answer changes nothing now
        m_timedOut = true;
        report.state = VolumeReport::State::TimedOut;
        report.problem = waited;
        m_face.volumeDetailsChanged(report);
    });
}

} // namespace tapedesk
