#pragma once

#include "operations/Diagnostics.h"

namespace tapedesk {

class OperationContext;

// Host validation: itdt loads the tape, removes its partitions and runs the
// drive's system test; when all three pass, the system test's own report is
// the verdict the operator reads. See also StandardTestWorkflow (the same
// shape) and RetrieveLogWorkflow, which the failure line points to.
class HostValidationWorkflow
{
public:
    explicit HostValidationWorkflow(OperationContext &op) : m_op(op), m_itdt(op) {}

    // The Host Validation button.
    void perform();

private:
    void runInBackground();
    // The phase's line, the failure line, the error texts of the code the
    // run reported (or why it reported none), the failed status.
    void failAt(const QString &phaseLine, const ToolResult &run);

    OperationContext &m_op;
    Diagnostics m_itdt;
};

} // namespace tapedesk
