#include "operations/OperationContext.h"

#include "operations/ExitCode.h"
#include "operations/MountParsing.h"
#include "support/Dialogs.h"
#include "tools/Console.h"
#include "tools/ToolPaths.h"

namespace tapedesk {

OperationContext::OperationContext(QObject &home, Face &face, Journal &journal)
    : threads(home, m_stop, face), feedback(face, threads, journal, selection),
      tools(face, journal, threads, m_stop)
{}

Action judgedButton(Action action)
{
    return action == Action::Format ? Action::Mount : action;
}

void OperationContext::beginOperation()
{
    m_verdict.reset();
    m_statusAtStart.clear();
    for (Action a : {Action::Scan, Action::Mount, Action::Format, Action::Test, Action::HostValidation,
                     Action::RetrieveLog, Action::Upgrade, Action::ClearMountedDrives, Action::Recover})
        m_statusAtStart.insert(a, feedback.shownStatus(a));
}

void OperationContext::finish(Action button, const Verdict &verdict)
{
    threads.postToMain([this, button, verdict] {
        const bool first = !m_verdict;
        // An offer declined after a failure (the recovery after a refused
        // mount) leaves the failure the operation's verdict.
        const bool keepFailure =
            verdict.outcome == Outcome::Cancelled && m_verdict &&
            (m_verdict->outcome == Outcome::Failed || m_verdict->outcome == Outcome::Stopped);
        if (!keepFailure)
            m_verdict = verdict;
        int status = -1;
        switch (verdict.outcome) {
        case Outcome::Complete:
            status = 0;
            break;
        case Outcome::Failed:
        case Outcome::Stopped:
            status = 1;
            break;
        case Outcome::Refused:
            status = verdict.marksButton ? 1 : -1;
            break;
        case Outcome::Cancelled:
            // The image the button had before the action (a button that had
            // none shows ready), unless a part of the operation before the
            // question gave it its own (the unmount before a format's naming).
            if (!first)
                break;
            status = m_statusAtStart.value(button, -1);
            if (status < 0 && feedback.shownStatus(button) >= 0)
                status = 3;
            break;
        }
        if (status >= 0)
            feedback.status(button, status);
    });
}

Verdict OperationContext::failedRun(const ToolResult &run, const QString &failureLine)
{
    if (run.reported())
        return Verdict::failed(failureLine.trimmed());
    const QString reason =
        unreportedReason(run, toolDisplayName(run.program, run.arguments, run.program == ITDT_PATH.get()));
    show(false, reason);
    return Verdict::failed(reason);
}

void OperationContext::postMountCaption(const QString &caption)
{
    threads.postToMain([this, caption] {
        if (setMountCaption)
            setMountCaption(caption);
    });
}

void OperationContext::postVolumeRefresh()
{
    threads.postToMain([this] {
        if (refreshVolume)
            refreshVolume();
    });
}

MountAnswer OperationContext::selectedMountAnswer()
{
    // Callers on the GUI thread, where the window must keep painting.
    std::optional<QString> table;
    const auto readTable = [&table] { table = readMountTable(); };
    if (threads.onHomeThread())
        threads.runResponsive(readTable);
    else
        readTable();
    const DrivePtr drive = selection.get();
    const QString name = drive ? drive->name() : QString();
    const QString ltfsLines = table ? ltfsLinesOf(*table) : QString();
    if (!ltfsLines.isEmpty()) {
        consoleLine(QStringView(QStringLiteral("/mnt/") + name));
        consoleLine(QStringView(ltfsLines));
    }
    return mountAnswerFor(table, name);
}

MountAnswer OperationContext::mountOrHeldAnswer(const DrivePtr &drive)
{
    const MountAnswer listed = selectedMountAnswer();
    if (listed != MountAnswer::No)
        return listed;
    // Unlisted but still served by an ltfs daemon (an unmount that has not
    // finished writing the index): the drive is not free yet.
    std::optional<QList<LtfsHolder>> holders;
    threads.runResponsive(
        [&] { holders = ltfsHoldersOf(kMountRoot + drive->name(), LTFS_PATH.get().value_or(QString())); });
    if (!holders)
        return MountAnswer::Unknown;
    return holders->isEmpty() ? MountAnswer::No : MountAnswer::Yes;
}

bool OperationContext::refuseMountedTape(const QString &alertTitle, const QString &alertText)
{
    // An unreadable mount table counts as mounted: the diagnostics load,
    // rewrite or dump the cartridge under a mounted volume otherwise.
    const MountAnswer answer = selectedMountAnswer();
    if (answer == MountAnswer::No)
        return false;
    show(false, QStringLiteral("Error: Tape needs to be un-mounted"));
    if (answer == MountAnswer::Unknown)
        show(false, mountTableUnreadableLine(QStringLiteral("nothing was run.")));
    dialogs().inform(alertTitle, alertText);
    return true;
}

bool OperationContext::refuseUnsafeMountName(const DrivePtr &drive, const QString &operation, Action button)
{
    const QString name = drive->name();
    if (isSafeMountName(name))
        return false;
    const QString message = unsafeMountNameMessage(operation, name);
    show(true, message);
    finish(button, Verdict::refused(message, true));
    return true;
}

} // namespace tapedesk
