#pragma once

#include "drives/Drive.h"
#include "operations/MountCheck.h"

#include <QElapsedTimer>
#include <QList>
#include <QStringList>
#include <functional>
#include <memory>

class QTimer;

namespace tapedesk {

class OperationContext;

// Tape unmount: umount, then poll every 3 seconds (asking umount again while
// the volume is still listed) until the volume is released; only then is the
// unmount complete and the mounted record removed. Everything here is the GUI
// thread's turn; the tool runs go through runResponsive so the window keeps
// painting while input is held back.
class UnmountWorkflow
{
public:
    explicit UnmountWorkflow(OperationContext &op);
    ~UnmountWorkflow();
    UnmountWorkflow(const UnmountWorkflow &) = delete;
    UnmountWorkflow &operator=(const UnmountWorkflow &) = delete;

    // Unmounts `drive`; `then` runs once the unmount is complete, before its
    // record is removed (the format's naming).
    void start(const DrivePtr &drive, std::function<void()> then = {});
    // Polls are still to come.
    bool isWaiting() const;
    // Whether a wait is under way that Stop would end.
    bool hasWait() const { return !m_point.isEmpty(); }
    // The Stop's end of the wait: the drives as they were before it, and the
    // follow-up dropped. Returns what was stopped, for the pane.
    QString endWait();
    // How long the unmount waits for an ltfs daemon that still holds the drive
    // before the pane names it, and again after each further such stretch.
    void setHolderReportInterval(qint64 ms) { m_holderReportIntervalMs = ms; }

private:
    void poll();
    // Runs "umount -v <mountPoint>" as found by the login shell; true when it
    // answered that the target is busy.
    bool runUmount(const QString &mountPoint);
    void reportHolders(const QList<LtfsHolder> &holders);
    void complete();

    OperationContext &m_op;
    std::unique_ptr<QTimer> m_timer;
    qint64 m_holderReportIntervalMs = 60000;
    bool m_pollInFlight = false;
    // The volume the unmount waits for, and since when.
    QString m_point;
    QElapsedTimer m_clock;
    qint64 m_lastHolderReportMs = 0;
    QStringList m_lastVolumeUsers;
    // The drives as the unmount found them, and the selection: put back when
    // its wait is stopped, since the volume may still be mounted.
    DrivePtr m_selection;
    QList<std::pair<DrivePtr, DriveRecord>> m_records;
    std::function<void()> m_then;
};

} // namespace tapedesk
