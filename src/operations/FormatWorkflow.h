#pragma once

#include "drives/Drive.h"
#include "operations/Verdict.h"
#include "tools/ToolResult.h"

#include <QString>
#include <QStringList>
#include <functional>

namespace tapedesk {

class OperationContext;

// Tape format: the operator names the volume, mkltfs formats the cartridge in
// the background, and the operator then mounts the new volume or ejects the
// tape. A mounted tape is unmounted first; a tape that already holds a volume
// is offered a forced reformat. The format's outcome is shown on the Mount
// button.
class FormatWorkflow
{
public:
    explicit FormatWorkflow(OperationContext &op) : m_op(op) {}

    // The Format button.
    void perform();

    // What one mkltfs run needs, fixed when the operator named the volume.
    struct Job
    {
        DrivePtr drive;
        QString device;
        QString tapeSerial;
        QString volume;
        QStringList arguments(bool force) const;
    };

private:
    // The naming, then the format; after an unmount, from its completion.
    void nameAndFormat();
    // The drive the operator now sees selected, when it is still the one the
    // format acts on; nullptr after showing why not.
    DrivePtr stillTarget(const DrivePtr &target);
    void startWhenIdle(const Job &job);
    void formatInBackground(const Job &job);
    void askReformat(const Job &job);
    void finishForcedRun(const Job &job, const ToolResult &run);
    void askMountOrEject(const DrivePtr &target);
    // "Tape Format Failed", and why where mkltfs did not say.
    void failFormat(const ToolResult &run);
    // Runs a tool on the GUI thread's turn with the window painting, the
    // progress showing and every action held, as while a background part runs.
    void runBusy(const std::function<void()> &work);

    OperationContext &m_op;
    // The drive Format was pressed on: the format goes on only while it is
    // still the selected drive.
    DrivePtr m_target;
};

} // namespace tapedesk
