// See also UnmountWorkflow (a mounted tape is unmounted first) and
// MountWorkflow (the new volume is mounted after the format).

#include "operations/FormatWorkflow.h"

#include "operations/ExitCode.h"
#include "operations/MountParsing.h"
#include "operations/MountWorkflow.h"
#include "operations/OperationContext.h"
#include "operations/Texts.h"
#include "operations/UnmountWorkflow.h"
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

bool stderrHas(const QString &stderrText, const QString &phrase)
{
    const QStringList lines = stderrText.split(QLatin1Char('\n'));
    return std::any_of(lines.cbegin(), lines.cend(), [&](const QString &l) { return l.contains(phrase); });
}

// mkltfs writes nothing to standard output; standard error and its exit
// status carry the verdict. A failed format ends with "LTFS15023I Formatting
// failed.", a good one with "LTFS15024I Medium formatted successfully.". A
// run stopped before it began (a refused tape serial: "LTFS15030E Tape serial
// must contain only ASCII digits and capital letters.") prints neither, yet
// formatted nothing: only the success line, from a run that exited with 0,
// counts as success.
bool formatted(const ToolResult &run)
{
    return run.reportedCode == QStringLiteral("0") &&
           stderrHas(run.err, QStringLiteral("Medium formatted successfully")) &&
           !stderrHas(run.err, QStringLiteral("Formatting failed"));
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

} // namespace

QStringList FormatWorkflow::Job::arguments(bool force) const
{
    QStringList args{QStringLiteral("--device=") + device};
    if (force)
        args << QStringLiteral("--force");
    args << QStringLiteral("--tape-serial=") + tapeSerial << QStringLiteral("--volume-name=") + volume;
    return args;
}

void FormatWorkflow::perform()
{
    if (!m_op.support.isPreferencesSet()) {
        m_op.show(true, MSG_NO_PREFERENCES);
        m_op.finish(Action::Mount, Verdict::refused(MSG_NO_PREFERENCES));
        return;
    }
    const DrivePtr drive = m_op.selection.get();
    if (!drive) {
        const QString line = QStringLiteral("Error: No drive selected");
        m_op.status(Action::Format, 1);
        m_op.show(true, line);
        m_op.finish(Action::Mount, Verdict::refused(line));
        return;
    }
    m_target = drive;
    if (!stillTarget(drive))
        return;
    if (!m_op.support.driveOk(*drive)) {
        m_op.finish(Action::Mount,
                    Verdict::cancelled(QStringLiteral("The drive's check before a format was declined")));
        return;
    }
    m_op.show(false, QStringLiteral("Removing Mounted Record"));
    switch (m_op.mountOrHeldAnswer(drive)) {
    case MountAnswer::No:
        nameAndFormat();
        return;
    case MountAnswer::Unknown: {
        // Asking to unmount would only start a wait that cannot end while the
        // table stays unreadable; formatting blind could destroy a mounted
        // volume. So nothing runs.
        m_target.reset();
        const QString line = mountTableUnreadableLine(QStringLiteral("the format was not started."));
        m_op.show(false, line);
        m_op.status(Action::Format, 1);
        m_op.finish(Action::Mount, Verdict::refused(line));
        return;
    }
    case MountAnswer::Yes:
        break;
    }
    if (!dialogs().confirm(ALERT_WARNING, kMountedWarning)) {
        m_op.finish(Action::Mount, Verdict::cancelled(QStringLiteral("The mounted tape was left as it is")));
        return;
    }
    m_op.unmount->start(drive, [this] { nameAndFormat(); });
}

void FormatWorkflow::nameAndFormat()
{
    // Reached from the unmount without Format having been pressed: the
    // selection is the drive.
    const DrivePtr target = m_target ? m_target : m_op.selection.get();
    m_target = target;
    if (!stillTarget(target)) {
        m_target.reset();
        return;
    }
    QString volume;
    for (;;) {
        const QString answer = m_op.support.getString(kNameTitle, kNameQuestion, QString());
        if (answer == kCancelAnswer) {
            m_target.reset();
            m_op.show(false, kFormatCanceled);
            m_op.finish(Action::Mount, Verdict::cancelled(kFormatCanceled));
            return;
        }
        volume = volumeNameFromEntry(answer);
        if (isValidVolumeName(answer))
            break;
        dialogs().inform(QStringLiteral("Invalid Name"), QStringLiteral("name entered is invalid"));
    }
    // The selection may have moved while the question was open.
    m_target.reset();
    const DrivePtr drive = stillTarget(target);
    if (!drive)
        return;
    drive->update([&](DriveRecord &r) { r.tapeSerial = volume; });
    const DriveRecord record = drive->record();
    consoleLine(QStringView(record.name));
    consoleLine(QStringView(record.tapeSerial));
    startWhenIdle(Job{drive, ltfsDevice(record), record.tapeSerial, volume});
}

DrivePtr FormatWorkflow::stillTarget(const DrivePtr &target)
{
    DrivePtr selected = m_op.selection.get();
    const QString problem = targetProblem(target, selected);
    if (problem.isEmpty())
        return selected;
    m_op.show(false, problem);
    m_op.status(Action::Format, 1);
    m_op.finish(Action::Mount, Verdict::refused(problem));
    return nullptr;
}

// Starts the background part once no other operation holds the window. After
// an unmount the naming runs inside its last poll, whose endProgress() comes
// after this; a format started at once would have its actions re-enabled
// under it.
void FormatWorkflow::startWhenIdle(const Job &job)
{
    if (m_op.feedback.progressShown()) {
        m_op.threads.postLater(kStartRetryMs, [this, job] { startWhenIdle(job); });
        return;
    }
    if (!stillTarget(job.drive))
        return;
    // Held from now on, so no click lands between here and the background
    // part's own startProgress().
    m_op.feedback.holdActions();
    m_op.threads.runInBackground([this, job] { formatInBackground(job); });
}

void FormatWorkflow::formatInBackground(const Job &job)
{
    m_op.startProgress();
    m_op.show(true, QStringLiteral("Formatting Tape - This May Take Several Minutes"));
    m_op.status(Action::Format, 2);
    m_op.show(false, QStringLiteral("--device= ") + job.device);
    m_op.show(false, QStringLiteral("--tape-serial= ") + job.tapeSerial);
    m_op.show(false, QStringLiteral("--volume-name= ") + job.volume);
    ToolResult run = m_op.run(MKLTFS_PATH.get().value_or(QString()), job.arguments(false));
    run.reportedCode = ltfsReportedCode(run);

    // "LTFS15047E Medium is already formatted (0)." comes with "Formatting
    // failed" too, so it is looked for first.
    if (run.reported() && stderrHas(run.err, QStringLiteral("Medium is already formatted"))) {
        const QString line = QStringLiteral("Tape is already formated");
        m_op.show(true, line);
        m_op.finish(Action::Mount, Verdict::failed(line));
        m_op.endProgress();
        // Queued last so the progress has stopped before the operator can
        // answer and start the forced run.
        m_op.threads.postToMain([this, job] { askReformat(job); });
        return;
    }
    if (!formatted(run)) {
        failFormat(run);
        return;
    }
    m_op.finish(Action::Mount, Verdict::complete(kFormatComplete + QStringLiteral(": ") + job.volume));
    m_op.endProgress();
    const DrivePtr drive = job.drive;
    m_op.threads.postToMain([this, drive] { askMountOrEject(drive); });
}

void FormatWorkflow::failFormat(const ToolResult &run)
{
    m_op.show(true, kFormatFailed);
    m_op.finish(Action::Mount, m_op.failedRun(run, kFormatFailed));
    m_op.endProgress();
}

void FormatWorkflow::askReformat(const Job &job)
{
    if (!dialogs().confirm(
            QStringLiteral(
                "Tape already Formatted: Reformat tape - this will destroy all existing data on tape"),
            QStringLiteral("Reformat tape?")))
        return;
    const QString mkltfs = MKLTFS_PATH.get().value_or(QString());
    ToolResult run;
    // A real cartridge takes many minutes here; the window must not look
    // hung meanwhile.
    runBusy([&] { run = m_op.run(mkltfs, job.arguments(true)); });
    run.reportedCode = ltfsReportedCode(run);
    finishForcedRun(job, run);
}

void FormatWorkflow::finishForcedRun(const Job &job, const ToolResult &run)
{
    if (!formatted(run)) {
        failFormat(run);
        return;
    }
    m_op.show(true, kFormatComplete);
    m_op.finish(Action::Mount, Verdict::complete(kFormatComplete + QStringLiteral(": ") + job.volume));
    m_op.endProgress();
    // Queued behind endProgress so the question finds the window idle.
    const DrivePtr drive = job.drive;
    m_op.threads.postToMain([this, drive] { askMountOrEject(drive); });
}

void FormatWorkflow::askMountOrEject(const DrivePtr &target)
{
    const int answer = m_op.support.userOptionPrompt(kFormatComplete, QStringLiteral("Mount or Eject tape"),
                                                     QStringLiteral("Eject"), QStringLiteral("Mount"));
    if (!stillTarget(target))
        return;
    if (answer == 0) {
        runBusy([this] { m_op.mount->ejectSelected(); });
        m_op.endProgress();
    } else {
        m_op.mount->mountSelected();
    }
}

void FormatWorkflow::runBusy(const std::function<void()> &work)
{
    m_op.feedback.holdActions();
    m_op.threads.runResponsive(work);
}

} // namespace tapedesk
