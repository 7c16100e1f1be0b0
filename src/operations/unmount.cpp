// Tape unmount: umount once, then poll the mount table every 3 seconds until
// the volume is gone; only then is the unmount complete and the mounted record
// removed. A waiting format starts at that moment (formatTapeEnabled).
// Everything here is the GUI thread's turn; the tool runs go through
// runResponsive so the window keeps painting while input is held back.

#include "drives/Drive.h"
#include "tools/Bash.h"
#include "tools/Console.h"
#include "ui/ViewController.h"

#include <QTimer>

namespace tapedesk {

namespace {
constexpr int kPollIntervalMs = 3000;
}

void ViewController::unMountDrive()
{
    const DrivePtr drive = selectedDrive.get();
    if (!drive) {
        changeButtonStatus(ui.btnMount, 1, true);
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
    showResults(true, QStringLiteral("Unmounting Tape: ") + mountPoint);
    changeButtonStatus(ui.btnMount, 2, true);
    runResponsive([&mountPoint] {
        try {
            consoleLine(
                QStringView(Bash().execute(QStringLiteral("umount"), {QStringLiteral("-v"), mountPoint})));
        } catch (const BashError &) {
            // No umount on this host: the poll below waits until the volume goes by other means.
        }
        return QString();
    });

    if (timer)
        timer->deleteLater();
    timer = new QTimer(this);
    timer->setInterval(kPollIntervalMs);
    connect(timer, &QTimer::timeout, this, &ViewController::waitForUnMount);
    timer->start();

    const QString id = drive->id();
    for (const DrivePtr &listed : driveList.snapshot()) {
        if (listed->id() == id) {
            listed->setMounted(false);
            drive->update([](DriveRecord &r) { r.label.clear(); });
            selectedDrive.set(listed);
            refreshDriveTable();
            break;
        }
    }
}

void ViewController::waitForUnMount()
{
    // The poll's own wait keeps the event loop turning, and a slow mount
    // table could let the timer fire again inside it.
    if (m_pollInFlight)
        return;
    m_pollInFlight = true;
    const bool stillMounted = isTapeMounted();
    m_pollInFlight = false;
    if (stillMounted) {
        showResults(true, QStringLiteral("Waiting for un-mount to complete, please wait..."));
        return;
    }

    if (timer)
        timer->stop();
    showResults(false, QStringLiteral("Unmounting Tape Complete"));
    changeButtonStatus(ui.btnMount, 0, true);
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
    endProgress();
    showResults(false, QStringLiteral("End unMountDrive"));
}

} // namespace tapedesk
