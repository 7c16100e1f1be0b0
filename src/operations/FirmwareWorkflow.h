#pragma once

#include <QString>

namespace tapedesk {

class OperationContext;

// Firmware update: after a warning and a file choice, itdt loads the new
// microcode into the selected drive in the background. Refused while the
// drive's volume is mounted. Only the code itdt reports decides: a load that
// reported nothing is a failure, never a success.
class FirmwareWorkflow
{
public:
    explicit FirmwareWorkflow(OperationContext &op) : m_op(op) {}

    // The Upgrade button.
    void perform();

private:
    void update(const QString &driveId, const QString &file);

    OperationContext &m_op;
};

} // namespace tapedesk
