#pragma once

#include "operations/Face.h"
#include "tools/ToolResult.h"

#include <QString>

namespace tapedesk {

class OperationContext;

// What the log retrieval, the standard test and the host validation share:
// the checks before they ask anything, and itdt run on the selected drive in
// the form they all use. See also StandardTestWorkflow,
// HostValidationWorkflow and RetrieveLogWorkflow.
class Diagnostics
{
public:
    explicit Diagnostics(OperationContext &op) : m_op(op) {}

    // Paths set, a drive selected, its tape not mounted (else the alert with
    // these texts). True when the action may go on; otherwise the verdict of
    // `action` is given.
    bool mayStart(Action action, const QString &mountedTitle, const QString &mountedText);
    // itdt -R and -LP the output folder, -f the drive's id, then `commandWord`.
    // A run that could not start (an unset path, folder or drive) comes back
    // as one that did not start, with nothing run.
    ToolResult run(const QString &commandWord);

private:
    OperationContext &m_op;
};

} // namespace tapedesk
