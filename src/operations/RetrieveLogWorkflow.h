#pragma once

#include "operations/Diagnostics.h"

namespace tapedesk {

class OperationContext;

// Log retrieval: itdt writes a drive dump ("blz") into the output folder; the
// newest dump there is offered for saving into a folder the operator picks.
// See also Diagnostics and support/FileHelpers.
class RetrieveLogWorkflow
{
public:
    explicit RetrieveLogWorkflow(OperationContext &op) : m_op(op), m_itdt(op) {}

    // The Retrieve Log button.
    void perform();

private:
    void runInBackground();
    // The save step, on the GUI thread: the picker and a possible replace
    // question are modal. `dumpPath` belongs to this one run.
    void save(const QString &dumpPath);

    OperationContext &m_op;
    Diagnostics m_itdt;
};

} // namespace tapedesk
