// Tape format: the operator names the volume, mkltfs formats the cartridge in
// the background, and the operator then mounts the new volume or ejects the
// tape. A mounted tape is unmounted first (unmount.cpp starts the naming again
// through formatTapeEnabled); a tape that already holds a volume is offered a
// forced reformat. The format's outcome is shown on the Mount button.

#include "drives/Drive.h"
#include "operations/MountCheck.h"
#include "operations/MountParsing.h"
#include "operations/TapeEngine.h"
#include "operations/Texts.h"
#include "operations/VolumeName.h"
#include "support/Dialogs.h"
#include "tools/Console.h"
#include "tools/ToolPaths.h"

namespace tapedesk {

namespace {

const QString kMountedWarning =
    QStringLiteral("Tape is mounted and may contain data that will be lost, continue?");
const QString kNameTitle = QStringLiteral("Format Drive");
const QString kNameQuestion = QStringLiteral("Assign tape name (6 character alphanumeric: EG: KT1234)");
const QString kCancelAnswer = QStringLiteral("-1");
const QString kFormatCanceled = QStringLiteral("Format Canceled");
const QString kFormatFailed = QStringLiteral("Tape Format Failed");
const QString kFormatComplete = QStringLiteral("Tape Format Complete");

// How often a format that is ready to start looks again whether the operation
// before it (the unmount that made way for it) has let go of the window.
constexpr int kStartRetryMs = 20;

// What one mkltfs run needs, fixed when the operator named the volume.
struct FormatJob
{
    DrivePtr drive;
    QString device;
    QString barCode;
    QString volume;

    QStringList arguments(bool force) const
    {
        QStringList args{QStringLiteral("--device=") + device};
        if (force)
            args << QStringLiteral("--force");
        args << QStringLiteral("--tape-serial=") + barCode << QStringLiteral("--volume-name=") + volume;
        return args;
    }
};

bool stderrHas(const QString &stderrText, const QString &phrase)
{
    const QStringList lines = stderrText.split(QLatin1Char('\n'));
    return std::any_of(lines.cbegin(), lines.cend(), [&](const QString &l) { return l.contains(phrase); });
}

// mkltfs writes nothing to standard output, so lastExitCode still holds the
// previous tool's code; standard error carries the verdict. A failed format
// ends with "LTFS15023I Formatting failed.", a good one with "LTFS15024I
// Medium formatted successfully.". A run stopped before it began (a refused
// tape serial: "LTFS15030E Tape serial must contain only ASCII digits and
// capital letters.") prints neither, yet formatted nothing: with anything on
// standard error, only the success line counts as success.
bool formattingFailed(const QString &stderrText)
{
    if (stderrHas(stderrText, QStringLiteral("Formatting failed")))
        return true;
    return !stderrText.trimmed().isEmpty() &&
           !stderrHas(stderrText, QStringLiteral("Medium formatted successfully"));
}

// Why the format cannot go on with `target`, or "" when it can. The format
// acts on the drive Format was pressed on, and only while that drive is still
// the selected one: the selection is what the operator sees and confirmed.
QString targetProblem(const DrivePtr &target, const DrivePtr &selected)
{
    if (!selected)
        return kFormatCanceled + QStringLiteral(" - no drive selected");
    if (!target)
        return kFormatCanceled + QStringLiteral(" - no drive was chosen for the format");
    const DriveRecord t = target->record();
    if (selected->id() != t.id)
        return kFormatCanceled + QStringLiteral(" - ") + t.id +
               QStringLiteral(" is no longer the selected drive");
    if (!isSafeMountName(t.name))
        return unsafeMountNameMessage(QStringLiteral("Format"), t.name);
    return {};
}

// The drive the operator now sees selected, when it is still the one the
// format acts on (the unmount may have swapped in the listed object of the
// same drive); nullptr after showing why not.
DrivePtr stillTarget(TapeEngine &vc, const DrivePtr &target)
{
    DrivePtr selected = vc.selectedDrive.get();
    const QString problem = targetProblem(target, selected);
    if (problem.isEmpty())
        return selected;
    vc.showResults(false, problem);
    vc.changeButtonStatus(Action::Format, 1, false);
    return nullptr;
}

// Runs a tool on the GUI thread's turn with the window painting, the
// progress indicator showing and every action disabled, as while a
// background part runs.
void runBusy(TapeEngine &vc, const std::function<void()> &work)
{
    vc.holdActions();
    vc.runResponsive([&] {
        work();
        return QString();
    });
}

// Mount the new volume or eject the tape.
void askMountOrEject(TapeEngine &vc, const DrivePtr &target)
{
    const int answer = vc.support.userOptionPrompt(kFormatComplete, QStringLiteral("Mount or Eject tape"),
                                                   QStringLiteral("Eject"), QStringLiteral("Mount"));
    if (!stillTarget(vc, target))
        return;
    if (answer == 0) {
        runBusy(vc, [&vc] { vc.unLoadTape(); });
        vc.endProgress();
    } else {
        vc.mountDrive();
    }
}

void finishForcedRun(TapeEngine &vc, const FormatJob &job)
{
    if (formattingFailed(vc.lastErrorOutput.get()) || !vc.lastRunSucceeded()) {
        vc.showResults(true, kFormatFailed);
        vc.changeButtonStatus(Action::Mount, 1, true);
        vc.endProgress();
        return;
    }
    vc.showResults(true, kFormatComplete);
    vc.changeButtonStatus(Action::Mount, 0, true);
    vc.endProgress();
    // Queued behind endProgress so the question finds the window idle.
    const DrivePtr drive = job.drive;
    vc.postToMain([&vc, drive] { askMountOrEject(vc, drive); });
}

void askReformat(TapeEngine &vc, const FormatJob &job)
{
    vc.showCloseAlert(
        QStringLiteral("Tape already Formatted: Reformat tape - this will destroy all existing data on tape"),
        QStringLiteral("Reformat tape?"), [&vc, &job](bool) {
            const QString mkltfs = MKLTFS_PATH.get().value_or(QString());
            // A real cartridge takes many minutes here; the window must not
            // look hung meanwhile.
            runBusy(vc, [&] { vc.runTool(mkltfs, job.arguments(true)); });
            finishForcedRun(vc, job);
        });
}

void formatInBackground(TapeEngine &vc, const FormatJob &job)
{
    vc.startProgress();
    vc.showResults(true, QStringLiteral("Formatting Tape - This May Take Several Minutes"));
    vc.changeButtonStatus(Action::Format, 2, true);
    vc.showResults(false, QStringLiteral("--device= ") + job.device);
    vc.showResults(false, QStringLiteral("--tape-serial= ") + job.barCode);
    vc.showResults(false, QStringLiteral("--volume-name= ") + job.volume);
    vc.runTool(MKLTFS_PATH.get().value_or(QString()), job.arguments(false));

    // "LTFS15047E Medium is already formatted (0)." comes with "Formatting
    // failed" too, so it is looked for first.
    const QString stderrText = vc.lastErrorOutput.get();
    if (stderrHas(stderrText, QStringLiteral("Medium is already formatted"))) {
        vc.showResults(true, QStringLiteral("Tape is already formated"));
        vc.changeButtonStatus(Action::Mount, 1, true);
        vc.endProgress();
        // Queued last so the progress has stopped before the operator can
        // answer and start the forced run.
        vc.postToMain([&vc, job] { askReformat(vc, job); });
        return;
    }
    if (formattingFailed(stderrText) || !vc.lastRunSucceeded()) {
        vc.showResults(true, kFormatFailed);
        vc.changeButtonStatus(Action::Mount, 1, true);
        vc.endProgress();
        return;
    }
    vc.changeButtonStatus(Action::Mount, 0, true);
    vc.endProgress();
    const DrivePtr drive = job.drive;
    vc.postToMain([&vc, drive] { askMountOrEject(vc, drive); });
}

// Starts the background part once no other operation holds the window. After
// an unmount the naming runs inside its last poll, whose endProgress() comes
// after this; a format started at once would have its actions re-enabled
// under it.
void startWhenIdle(TapeEngine &vc, const FormatJob &job)
{
    if (vc.isBusy()) {
        vc.postLater(kStartRetryMs, [&vc, job] { startWhenIdle(vc, job); });
        return;
    }
    const DrivePtr drive = stillTarget(vc, job.drive);
    if (!drive)
        return;
    // Held from now on, so no click lands between here and the background
    // part's own startProgress().
    vc.holdActions();
    vc.runInBackground([&vc, job] { formatInBackground(vc, job); });
}

} // namespace

void TapeEngine::formatAction()
{
    if (!support.isPreferencesSet()) {
        showResults(true, MSG_NO_PREFERENCES);
        return;
    }
    const DrivePtr drive = selectedDrive.get();
    if (!drive) {
        changeButtonStatus(Action::Format, 1, true);
        showResults(true, QStringLiteral("Error: No drive selected"));
        return;
    }
    m_formatTarget = drive;
    if (!stillTarget(*this, drive))
        return;
    if (!support.driveOk(*drive))
        return;
    showResults(false, QStringLiteral("Removing Mounted Record"));
    switch (formatMountAnswer(drive)) {
    case MountAnswer::No:
        executeFormatTape();
        return;
    case MountAnswer::Unknown:
        // Asking to unmount would only start a wait that cannot end while the
        // table stays unreadable; formatting blind could destroy a mounted
        // volume. So nothing runs.
        m_formatTarget.reset();
        showResults(false, mountTableUnreadableLine(QStringLiteral("the format was not started.")));
        changeButtonStatus(Action::Format, 1, false);
        return;
    case MountAnswer::Yes:
        break;
    }
    showCloseAlert(ALERT_WARNING, kMountedWarning, [this](bool) {
        formatTapeEnabled = true;
        unMountDrive();
    });
}

MountAnswer TapeEngine::formatMountAnswer(const DrivePtr &drive)
{
    const MountAnswer listed = tapeMountAnswer();
    if (listed != MountAnswer::No)
        return listed;
    // Unlisted but still served by an ltfs daemon (an unmount that has not
    // finished writing the index): mkltfs must wait for it like for a mounted
    // tape, so the format goes through the unmount and its wait.
    std::optional<QList<LtfsHolder>> holders;
    runResponsive([&] {
        holders = ltfsHoldersOf(kMountRoot + drive->name(), LTFS_PATH.get().value_or(QString()));
        return QString();
    });
    if (!holders)
        return MountAnswer::Unknown;
    return holders->isEmpty() ? MountAnswer::No : MountAnswer::Yes;
}

void TapeEngine::executeFormatTape()
{
    formatTapeEnabled = false;
    // Reached from the unmount without Format having been pressed: the
    // selection is the drive.
    const DrivePtr target = m_formatTarget ? m_formatTarget : selectedDrive.get();
    m_formatTarget = target;
    const DrivePtr drive = stillTarget(*this, target);
    if (!drive) {
        m_formatTarget.reset();
        return;
    }
    for (;;) {
        const QString answer = support.getString(kNameTitle, kNameQuestion, QString());
        if (answer == kCancelAnswer) {
            m_formatTarget.reset();
            volume_name.set(answer);
            showResults(false, kFormatCanceled);
            return;
        }
        volume_name.set(volumeNameFromEntry(answer));
        if (isValidVolumeName(answer))
            break;
        dialogs().inform(QStringLiteral("Invalid Name"), QStringLiteral("name entered is invalid"));
    }
    // The selection may have moved while the question was open.
    const DrivePtr named = stillTarget(*this, target);
    if (!named) {
        m_formatTarget.reset();
        return;
    }
    const QString name = volume_name.get();
    named->update([&](DriveRecord &r) { r.barCode = name; });
    formatDrive();
}

void TapeEngine::formatDrive()
{
    const DrivePtr target = m_formatTarget ? m_formatTarget : selectedDrive.get();
    m_formatTarget.reset();
    const DrivePtr drive = stillTarget(*this, target);
    if (!drive)
        return;
    const DriveRecord record = drive->record();
    consoleLine(QStringView(record.name));
    consoleLine(QStringView(record.barCode));
    startWhenIdle(*this, FormatJob{drive, ltfsDevice(record), record.barCode, volume_name.get()});
}

} // namespace tapedesk
