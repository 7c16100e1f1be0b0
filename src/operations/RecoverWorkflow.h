#pragma once

#include "drives/Drive.h"

namespace tapedesk {

class OperationContext;

// Volume recovery: when the ltfs daemon died while a volume was mounted, the
// volume's last index was never written and ltfs refuses it until ltfsck has
// rolled it back to that index. The mount offers it after its failure lines;
// tapedesk-cli recover asks for it directly. ltfsck runs only on a tape that
// is not mounted, and its exit status is the verdict. A recovered volume is
// offered for mounting; one that ltfsck could not recover is left as it is:
// reformatting erases it, and only the operator may decide that.
class RecoverWorkflow
{
public:
    explicit RecoverWorkflow(OperationContext &op) : m_op(op) {}

    // The Recover action (its status shows on the window's Mount button).
    void perform();
    // After a mount that ltfs refused for want of ltfsck: why, and the question.
    void offer(const DrivePtr &drive);

private:
    void ask(const DrivePtr &drive);
    void recover(const DrivePtr &drive);
    void recoverInBackground(const DrivePtr &drive, const QString &ltfsck);

    OperationContext &m_op;
};

} // namespace tapedesk
