#pragma once

#include "operations/Diagnostics.h"

namespace tapedesk {

class OperationContext;

// Standard drive test: itdt loads the tape, removes its partitions and runs
// the drive's standard test, one phase after the other; a failed phase ends
// the run with its own lines. See also HostValidationWorkflow (the same
// three-phase shape).
class StandardTestWorkflow
{
public:
    explicit StandardTestWorkflow(OperationContext &op) : m_op(op), m_itdt(op) {}

    // The Test button: the checks, the warning, then the test in the background.
    void perform();

private:
    void runInBackground();
    // The phase's line, the failure line and why, the failed status.
    void failAt(const QString &phaseLine, const QString &failureLine, const ToolResult &run);

    OperationContext &m_op;
    Diagnostics m_itdt;
};

} // namespace tapedesk
