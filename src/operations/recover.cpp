// Volume recovery: when the ltfs daemon died while a volume was mounted, the
// volume's last index was never written and ltfs refuses it until ltfsck has
// rolled it back to that index. The mount offers it after its failure lines;
// tapedesk-cli recover asks for it directly. ltfsck runs only on a tape that
// is not mounted, and its exit status is the verdict. A recovered volume is
// offered for mounting; one that ltfsck could not recover is left as it is:
// reformatting erases it, and only the operator may decide that.

#include "drives/Drive.h"
#include "operations/MountCheck.h"
#include "operations/TapeEngine.h"
#include "operations/Texts.h"
#include "support/Dialogs.h"
#include "tools/Console.h"
#include "tools/ToolPaths.h"

#include <QFileInfo>
#include <limits>

namespace tapedesk {

namespace {

const QString kRecoverButton = QStringLiteral("Recover Volume");
const QString kRecoverQuestion = QStringLiteral(
    "ltfsck rolls the volume back to its last index. Files written since that index are lost; the rest "
    "can be read again. Recover the volume now?");

// A limit only so that the runner waits for the exit status, which is the
// verdict; no check comes near 24 days, and none is cut short.
constexpr int kWaitForTheStatusMs = std::numeric_limits<int>::max();

struct Verdict
{
    bool recovered = false;
    QString line;
};

// ltfsck follows fsck: 0 nothing to correct, 1 corrected (2.4.8.4 also for a
// volume that was consistent), 4 not corrected, 8 an operational (device)
// error. Anything else, or no status at all, leaves the volume's state unknown.
Verdict verdictOf(int status)
{
    switch (status) {
    case 0:
    case 1:
        return {true, QStringLiteral("Volume Recovered: the volume is back at its last index and can be "
                                     "mounted again. Files written after that index are lost.")};
    case 4:
        return {false, QStringLiteral("Recovery Failed: ltfsck could not recover the volume (exit status 4). "
                                      "The cartridge may need reformatting, which erases everything on it; "
                                      "TapeDesk never does that by itself. Keep the cartridge apart and "
                                      "contact support before you format it.")};
    case 8:
        return {false, QStringLiteral("Recovery Failed: ltfsck could not use the drive (exit status 8, a "
                                      "device error). Check that the cartridge is in the drive and that a "
                                      "Scan lists the drive, then mount again to retry.")};
    case -1:
        return {false, QStringLiteral("Recovery Failed: ltfsck gave no exit status (it could not start, was "
                                      "stopped or crashed), so the state of the volume is unknown.")};
    default:
        break;
    }
    const QString meaning = status == 2    ? QStringLiteral("the computer must be restarted first")
                            : status == 16 ? QStringLiteral("a usage error")
                            : status == 32 ? QStringLiteral("cancelled")
                            : status == 64 ? QStringLiteral("a library error")
                                           : QStringLiteral("a status TapeDesk does not know");
    return {false,
            QStringLiteral("Recovery Failed: ltfsck ended with exit status %1 (%2); the volume was not "
                           "recovered.")
                .arg(status)
                .arg(meaning)};
}

} // namespace

void TapeEngine::recoverAction()
{
    if (!support.isPreferencesSet()) {
        showResults(true, MSG_NO_PREFERENCES);
        return;
    }
    const DrivePtr drive = selectedDrive.get();
    if (!drive) {
        changeButtonStatus(Action::Recover, 1, true);
        showResults(true, QStringLiteral("Error: No drive selected"));
        return;
    }
    if (refuseUnsafeMountName(drive, QStringLiteral("Recover")))
        return;
    askRecover(drive);
}

void TapeEngine::offerRecovery(const DrivePtr &drive)
{
    showResults(false,
                QStringLiteral("The volume was not closed: LTFS stopped while it was mounted (a crash, a "
                               "power cut or a killed process), so its last index was never written. "
                               "Files written since the last index are lost; ltfsck can roll the "
                               "volume back to that index so that the rest mounts again."));
    // Queued behind the mount's endProgress, so the question finds the
    // window idle.
    postToMain([this, drive] { askRecover(drive); });
}

void TapeEngine::askRecover(const DrivePtr &drive)
{
    if (support.userOptionPrompt(kRecoverButton, kRecoverQuestion, kRecoverButton,
                                 QStringLiteral("Cancel")) != 0) {
        showResults(false, QStringLiteral("Recovery canceled: the tape was not changed."));
        return;
    }
    recoverVolume(drive);
}

void TapeEngine::recoverVolume(const DrivePtr &drive)
{
    // Installed with ltfs, so looked for beside the ltfs the operator chose.
    const QString ltfsck =
        QFileInfo(LTFS_PATH.get().value_or(QString())).absolutePath() + QStringLiteral("/ltfsck");
    const QFileInfo found(ltfsck);
    if (!found.isFile() || !found.isExecutable()) {
        showResults(false,
                    QStringLiteral("Recovery not possible: ltfsck was not found at %1, beside the ltfs "
                                   "set in Preferences. Install ltfsck there (it comes with LTFS), "
                                   "then mount again.")
                        .arg(ltfsck));
        changeButtonStatus(Action::Recover, 1, false);
        return;
    }
    // ltfsck beside a live daemon would rewrite the volume under it; an
    // unreadable mount table may hide one.
    const MountAnswer mounted = formatMountAnswer(drive);
    if (mounted != MountAnswer::No) {
        showResults(false, QStringLiteral("Error: Tape needs to be un-mounted"));
        if (mounted == MountAnswer::Unknown)
            showResults(false, mountTableUnreadableLine(QStringLiteral("the volume was not checked.")));
        dialogs().inform(kRecoverButton, QStringLiteral("Please unmount tape before recovering the volume"));
        changeButtonStatus(Action::Recover, 1, false);
        return;
    }
    // Held from now on, so no click lands before the background part's own
    // startProgress().
    holdActions();
    runInBackground([this, drive, ltfsck] { recoverInBackground(drive, ltfsck); });
}

void TapeEngine::recoverInBackground(const DrivePtr &drive, const QString &ltfsck)
{
    startProgress();
    changeButtonStatus(Action::Recover, 2, true);
    const QString device = ltfsDevice(drive->record());
    showResults(false, QStringLiteral("Recovering Volume - This May Take Several Minutes"));
    showResults(false, QStringLiteral("ltfsck ") + device);
    const ProcessResult run = runForExitStatus(ltfsck, {device});
    // Standard output stays empty; the messages are on standard error.
    const QString messages = QString::fromUtf8(run.err).trimmed();
    if (!messages.isEmpty())
        showResults(false, messages);
    const Verdict verdict = verdictOf(run.started ? run.exitStatus : -1);
    showResults(false, verdict.line);
    changeButtonStatus(Action::Recover, verdict.recovered ? 0 : 1, false);
    endProgress();
    if (!verdict.recovered)
        return;
    postToMain([this, drive] {
        if (support.userOptionPrompt(QStringLiteral("Volume Recovered"),
                                     QStringLiteral("Mount the volume now?"), QStringLiteral("Mount"),
                                     QStringLiteral("Not Now")) == 0 &&
            selectedDrive.get() == drive)
            mountDrive();
    });
}

ProcessResult TapeEngine::runForExitStatus(const QString &program, const QStringList &arguments)
{
    // As shell(): an abandoned engine starts nothing.
    if (m_abandoned)
        return {};
    const ChunkObserver live = announceTool(program, arguments);
    ProcessResult run = runProcess(program, arguments, StreamMode::Separate, live, kWaitForTheStatusMs);
    journal.toolEnded(run.exitStatus, {});
    lastErrorOutput.set(QString::fromUtf8(run.err));
    consoleLine(QByteArrayView(run.err));
    Q_EMIT toolRan(program, arguments, run.exitStatus >= 0 ? QString::number(run.exitStatus) : QString());
    return run;
}

} // namespace tapedesk
