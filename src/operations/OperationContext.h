#pragma once

#include "drives/Drive.h"
#include "operations/Face.h"
#include "operations/Feedback.h"
#include "operations/MountCheck.h"
#include "operations/OperationThreads.h"
#include "operations/ToolRunner.h"
#include "operations/Verdict.h"
#include "support/Support.h"
#include "tools/Synchronized.h"

#include <functional>

namespace tapedesk {

class MountWorkflow;
class UnmountWorkflow;
class FormatWorkflow;
class RecoverWorkflow;

// What every workflow works with: the selection, the feedback, the hand-offs
// between threads, the tool runner, and the operation's verdict. The engine
// owns one and hands it to each workflow; a workflow keeps its own state and
// reads only the tool results it was handed.
class OperationContext
{
public:
    OperationContext(QObject &home, Face &face, Journal &journal);
    OperationContext(const OperationContext &) = delete;
    OperationContext &operator=(const OperationContext &) = delete;

private:
    // Set by an accepted Stop until the operation has ended; the runs of the
    // operation's threads obey it. First, since the hand-offs and the runner
    // are made with it.
    std::atomic<bool> m_stop{false};

public:
    Synchronized<DrivePtr> selection;
    Support support;
    OperationThreads threads;
    Feedback feedback;
    ToolRunner tools;

    // Shortcuts the workflows use on every other line.
    void show(bool clear, const QString &text) { feedback.show(clear, text); }
    void status(Action action, int status) { feedback.status(action, status); }
    void startProgress() { feedback.startProgress(); }
    void endProgress() { feedback.endProgress(); }
    ToolResult run(const QString &program, const QStringList &arguments)
    {
        return tools.run(program, arguments);
    }

    // The workflow's verdict for the operation, shown on `button` (posted,
    // so it comes after everything shown before it): Complete the complete
    // image, Failed and Stopped the failed one, a refusal the failed one
    // where it marks the button, Cancelled the image the button had before
    // the action. A later verdict of the same operation (the mount that
    // follows a format) replaces an earlier one.
    void finish(Action button, const Verdict &verdict);
    // The verdict a failed run gets: its own failure line as the reason, or,
    // where the tool reported nothing, what it did instead; that line is
    // shown in the pane too. A departure, for the truth of the verdict: the
    // older rule let the code an earlier run left behind stand for a run
    // that reported none, so a firmware load killed before it printed a word
    // passed as "Firmware Update Complete". A run with no code of its own now
    // takes its workflow's failure path; a run that reported one is judged
    // by it as before.
    Verdict failedRun(const ToolResult &run, const QString &failureLine);

    // The operation's verdict so far (GUI thread), and a new operation.
    const std::optional<Verdict> &verdict() const { return m_verdict; }
    void beginOperation();

    // The mount caption ("MOUNT"/"UNMOUNT") on the GUI thread's turn, which
    // also refreshes the volume's details.
    std::function<void(const QString &)> setMountCaption;
    void postMountCaption(const QString &caption);
    // The selected drive's volume details read again (GUI thread's turn).
    std::function<void()> refreshVolume;
    void postVolumeRefresh();

    // Whether the selected drive's volume is in the mount table: Unknown when
    // the table cannot be read. On the GUI thread the read runs responsively.
    MountAnswer selectedMountAnswer();
    // As selectedMountAnswer() for `drive`, but Yes also while an ltfs daemon
    // still holds the drive after its volume left the mount table.
    MountAnswer mountOrHeldAnswer(const DrivePtr &drive);
    // "Error: Tape needs to be un-mounted" and the alert with these texts when
    // the tape is mounted or the mount table cannot be read. True when refused.
    bool refuseMountedTape(const QString &alertTitle, const QString &alertText);
    // Shows why and fails `button` when the drive's name cannot be a mount
    // point; `operation` is "Mount", "Unmount", "Recover" or "Format".
    bool refuseUnsafeMountName(const DrivePtr &drive, const QString &operation, Action button);

    // The workflows that hand over to each other (a format unmounts first,
    // a refused mount offers recovery, a recovery or a format mounts).
    MountWorkflow *mount = nullptr;
    UnmountWorkflow *unmount = nullptr;
    FormatWorkflow *format = nullptr;
    RecoverWorkflow *recover = nullptr;

private:
    std::optional<Verdict> m_verdict; // GUI thread
    QHash<Action, int> m_statusAtStart;
};

// The button a workflow's verdict shows on: the format's is Mount.
Action judgedButton(Action action);

} // namespace tapedesk
