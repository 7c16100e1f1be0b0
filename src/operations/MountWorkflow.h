#pragma once

#include "drives/Drive.h"
#include "tools/ToolResult.h"

#include <optional>

namespace tapedesk {

class OperationContext;

// Tape mount: itdt loads the cartridge and reads its barcode, ltfs mounts the
// volume on /tmp/ltfs/mnt/<name>, and the drive is recorded as mounted. On a
// drive already mounted the Mount button unmounts instead (UnmountWorkflow). A
// volume that ltfs refuses until ltfsck has run is offered for recovery
// (RecoverWorkflow).
class MountWorkflow
{
public:
    explicit MountWorkflow(OperationContext &op) : m_op(op) {}

    // The Mount button: the question, then the mount; or the unmount.
    void perform();
    // The mount without its question, as the format and the recovery end.
    void mountSelected();
    // itdt unloads the selected drive's cartridge (the format's Eject).
    void ejectSelected();

private:
    void mountInBackground(const DrivePtr &drive);
    ToolResult runLoadVerb(const DrivePtr &drive, const QString &verb);
    // The barcode read back from the cartridge, or the run that failed to.
    ToolResult readBarcode(const DrivePtr &drive);

    OperationContext &m_op;
};

} // namespace tapedesk
