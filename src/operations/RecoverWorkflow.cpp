#include "operations/RecoverWorkflow.h"

#include "operations/MountWorkflow.h"
#include "operations/OperationContext.h"
#include "operations/Texts.h"
#include "support/Dialogs.h"
#include "tools/Console.h"
#include "tools/ToolPaths.h"

#include <QFileInfo>

namespace tapedesk {

namespace {

const QString kRecoverButton = QStringLiteral("Recover Volume");
const QString kRecoverQuestion = QStringLiteral(
    "ltfsck rolls the volume back to its last index. Files written since that index are lost; the rest "
    "can be read again. Recover the volume now?");

// ltfsck follows fsck: 0 nothing to correct, 1 corrected (2.4.8.4 also for a
// volume that was consistent), 4 not corrected, 8 an operational (device)
// error. Anything else, or no status at all, leaves the volume's state unknown.
Verdict verdictOf(std::optional<int> exitStatus)
{
    const int status = exitStatus.value_or(-1);
    switch (status) {
    case 0:
    case 1:
        return Verdict::complete(
            QStringLiteral("Volume Recovered: the volume is back at its last index and can be "
                           "mounted again. Files written after that index are lost."));
    case 4:
        return Verdict::failed(
            QStringLiteral("Recovery Failed: ltfsck could not recover the volume (exit status 4). "
                           "The cartridge may need reformatting, which erases everything on it; "
                           "TapeDesk never does that by itself. Keep the cartridge apart and "
                           "contact support before you format it."));
    case 8:
        return Verdict::failed(
            QStringLiteral("Recovery Failed: ltfsck could not use the drive (exit status 8, a "
                           "device error). Check that the cartridge is in the drive and that a "
                           "Scan lists the drive, then mount again to retry."));
    case -1:
        return Verdict::failed(
            QStringLiteral("Recovery Failed: ltfsck gave no exit status (it could not start, was "
                           "stopped or crashed), so the state of the volume is unknown."));
    default:
        break;
    }
    const QString meaning = status == 2    ? QStringLiteral("the computer must be restarted first")
                            : status == 16 ? QStringLiteral("a usage error")
                            : status == 32 ? QStringLiteral("cancelled")
                            : status == 64 ? QStringLiteral("a library error")
                                           : QStringLiteral("a status TapeDesk does not know");
    return Verdict::failed(
        QStringLiteral("Recovery Failed: ltfsck ended with exit status %1 (%2); the volume "
                       "was not recovered.")
            .arg(status)
            .arg(meaning));
}

} // namespace

void RecoverWorkflow::perform()
{
    if (!m_op.support.isPreferencesSet()) {
        m_op.show(true, MSG_NO_PREFERENCES);
        m_op.finish(Action::Recover, Verdict::refused(MSG_NO_PREFERENCES));
        return;
    }
    const DrivePtr drive = m_op.selection.get();
    if (!drive) {
        const QString line = QStringLiteral("Error: No drive selected");
        m_op.show(true, line);
        m_op.finish(Action::Recover, Verdict::refused(line, true));
        return;
    }
    if (m_op.refuseUnsafeMountName(drive, QStringLiteral("Recover"), Action::Mount))
        return;
    ask(drive);
}

void RecoverWorkflow::offer(const DrivePtr &drive)
{
    m_op.show(false,
              QStringLiteral("The volume was not closed: LTFS stopped while it was mounted (a crash, a "
                             "power cut or a killed process), so its last index was never written. "
                             "Files written since the last index are lost; ltfsck can roll the "
                             "volume back to that index so that the rest mounts again."));
    // Queued behind the mount's endProgress, so the question finds the
    // window idle.
    m_op.threads.postToMain([this, drive] { ask(drive); });
}

void RecoverWorkflow::ask(const DrivePtr &drive)
{
    if (m_op.support.userOptionPrompt(kRecoverButton, kRecoverQuestion, kRecoverButton,
                                      QStringLiteral("Cancel")) != 0) {
        const QString line = QStringLiteral("Recovery canceled: the tape was not changed.");
        m_op.show(false, line);
        m_op.finish(Action::Recover, Verdict::cancelled(line));
        return;
    }
    recover(drive);
}

void RecoverWorkflow::recover(const DrivePtr &drive)
{
    // Installed with ltfs, so looked for beside the ltfs the operator chose.
    const QString ltfsck =
        QFileInfo(LTFS_PATH.get().value_or(QString())).absolutePath() + QStringLiteral("/ltfsck");
    const QFileInfo found(ltfsck);
    if (!found.isFile() || !found.isExecutable()) {
        const QString line =
            QStringLiteral("Recovery not possible: ltfsck was not found at %1, beside the ltfs "
                           "set in Preferences. Install ltfsck there (it comes with LTFS), "
                           "then mount again.")
                .arg(ltfsck);
        m_op.show(false, line);
        m_op.finish(Action::Recover, Verdict::refused(line, true));
        return;
    }
    // ltfsck beside a live daemon would rewrite the volume under it; an
    // unreadable mount table may hide one.
    const MountAnswer mounted = m_op.mountOrHeldAnswer(drive);
    if (mounted != MountAnswer::No) {
        const QString line = QStringLiteral("Error: Tape needs to be un-mounted");
        m_op.show(false, line);
        if (mounted == MountAnswer::Unknown)
            m_op.show(false, mountTableUnreadableLine(QStringLiteral("the volume was not checked.")));
        dialogs().inform(kRecoverButton, QStringLiteral("Please unmount tape before recovering the volume"));
        m_op.finish(Action::Recover, Verdict::refused(line, true));
        return;
    }
    // Held from now on, so no click lands before the background part's own
    // startProgress().
    m_op.feedback.holdActions();
    m_op.threads.runInBackground([this, drive, ltfsck] { recoverInBackground(drive, ltfsck); });
}

void RecoverWorkflow::recoverInBackground(const DrivePtr &drive, const QString &ltfsck)
{
    m_op.startProgress();
    m_op.status(Action::Recover, 2);
    const QString device = ltfsDevice(drive->record());
    m_op.show(false, QStringLiteral("Recovering Volume - This May Take Several Minutes"));
    m_op.show(false, QStringLiteral("ltfsck ") + device);
    const ToolResult run = m_op.tools.runForExitStatus(ltfsck, {device});
    // Standard output stays empty; the messages are on standard error.
    const QString messages = run.err.trimmed();
    if (!messages.isEmpty())
        m_op.show(false, messages);
    const Verdict verdict = verdictOf(run.started ? run.exitStatus : std::nullopt);
    m_op.show(false, verdict.reason);
    m_op.finish(Action::Recover, verdict);
    m_op.endProgress();
    if (verdict.outcome != Outcome::Complete)
        return;
    m_op.threads.postToMain([this, drive] {
        if (m_op.support.userOptionPrompt(QStringLiteral("Volume Recovered"),
                                          QStringLiteral("Mount the volume now?"), QStringLiteral("Mount"),
                                          QStringLiteral("Not Now")) == 0 &&
            m_op.selection.get() == drive)
            m_op.mount->mountSelected();
    });
}

} // namespace tapedesk
