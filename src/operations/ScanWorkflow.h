#pragma once

#include "drives/Drive.h"
#include "operations/MissingDrive.h"

namespace tapedesk {

class OperationContext;

// Drive scan: itdt lists the drives, the parser rebuilds driveList, the drive
// state store adds the drives this system mounted, the drives whose LTFS
// stopped under a mounted volume are marked, and the table reloads. When no
// drive is listed, the pane says what on this host may be why.
class ScanWorkflow
{
public:
    explicit ScanWorkflow(OperationContext &op) : m_op(op) {}

    // The Scan button.
    void perform();
    // The scan itself, in the background (also the start-up's).
    void scan();
    // Why a scan may list no drive, one finding a line, in the background.
    void explainMissingDrive();
    // The pane's lines for a drive whose LTFS stopped under its volume.
    void explainStoppedLtfs(const DrivePtr &drive);
    // The host the missing-drive findings read (a test's folder tree).
    void setHostRoots(const HostRoots &roots) { m_hostRoots = roots; }

private:
    void markStoppedLtfs();
    void reportMissingDrive();

    OperationContext &m_op;
    HostRoots m_hostRoots;
};

} // namespace tapedesk
