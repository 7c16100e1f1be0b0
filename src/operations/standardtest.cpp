// Standard drive test: itdt loads the tape, removes its partitions and runs
// the drive's standard test, one phase after the other; a failed phase ends
// the run with its own lines. See also hostvalidation.cpp (the same three-phase
// shape) and retrievelog.cpp.

#include "operations/TapeEngine.h"
#include "operations/Texts.h"
#include "support/Dialogs.h"
#include "tools/Console.h"
#include "tools/ToolPaths.h"

namespace tapedesk {

namespace {
// Shown exactly so, unbalanced quote and all: operators and support know it.
const QString kTestInProgress = QStringLiteral(
    "Standard Test in progress - this may take up to 30 minutes and cannot be interrupted. You may see "
    "'testing Complete' appear several times during this test process as each phases of the overall "
    "test in finished, please wait for 'Standard Test Compete to ensure all phases of the test are "
    "finished'\n");

QString loadFailureLine()
{
    return QStringLiteral("TEST failed - Please try with another tape, if failure repeats contact Corvel "
                          "Support at ") +
           supportEmail();
}

QString testFailureLine()
{
    return QStringLiteral("Host Validation Failed \u2013 Run Retrieve Log And Contact Corvel Support At ") +
           supportEmail() + QStringLiteral(" For Instruction");
}
} // namespace

bool TapeEngine::runDiagnostic(const QString &commandWord)
{
    const std::optional<QString> itdt = ITDT_PATH.get();
    const std::optional<QString> output = OUTPUT_FOLDER.get();
    const DrivePtr drive = selectedDrive.get();
    if (!itdt || !output || !drive) {
        consoleLine(QStringView(
            QStringLiteral("itdt %1 not run: tool path, output folder or drive unset").arg(commandWord)));
        return false;
    }
    runTool(*itdt, {QStringLiteral("-R"), *output, QStringLiteral("-LP"), *output, QStringLiteral("-f"),
                    drive->id(), commandWord});
    return lastRunSucceeded();
}

bool TapeEngine::diagnosticMayStart(const QString &mountedTitle, const QString &mountedText)
{
    if (!support.isPreferencesSet()) {
        showResults(true, MSG_NO_PREFERENCES);
        return false;
    }
    if (!selectedDrive.get()) {
        showResults(true, QStringLiteral("Error: No Drive Selected"));
        return false;
    }
    return !refuseMountedTape(mountedTitle, mountedText);
}

bool TapeEngine::refuseMountedTape(const QString &mountedTitle, const QString &mountedText)
{
    // An unreadable mount table counts as mounted: the diagnostics load,
    // rewrite or dump the cartridge under a mounted volume otherwise.
    const MountAnswer answer = tapeMountAnswer();
    if (answer == MountAnswer::No)
        return false;
    showResults(false, QStringLiteral("Error: Tape needs to be un-mounted"));
    if (answer == MountAnswer::Unknown)
        showResults(false, mountTableUnreadableLine(QStringLiteral("nothing was run.")));
    dialogs().inform(mountedTitle, mountedText);
    return true;
}

void TapeEngine::runTestAction()
{
    if (!diagnosticMayStart(QStringLiteral("Run Test"),
                            QStringLiteral("Please unmount tape before running test")))
        return;
    showCloseAlert(ALERT_WARNING, ALERT_DESTRUCTIVE_RUN_TEST, [this](bool) { standardTest(); });
}

void TapeEngine::standardTest()
{
    runInBackground([this] {
        startProgress();
        showResults(true, kTestInProgress);
        changeButtonStatus(Action::Test, 2, true);
        showResults(false, QStringLiteral("     Loading...\n"));

        const auto failureEnd = [this](const QString &phaseLine, const QString &failureLine) {
            showResults(false, phaseLine);
            showResults(false, failureLine);
            changeButtonStatus(Action::Test, 1, false);
            endProgress();
        };

        const bool loaded = runDiagnostic(QStringLiteral("load"));
        consoleLine(QStringView(lastExitCode.get()));
        if (!loaded)
            return failureEnd(QStringLiteral("     load failed\n"), loadFailureLine());
        showResults(false, QStringLiteral("     Load Complete\n"));

        const bool partitionsRemoved = runDiagnostic(QStringLiteral("rmp"));
        showResults(false, QStringLiteral("     Testing\n"));
        if (!partitionsRemoved)
            return failureEnd(QStringLiteral("     Load Failed\n"), testFailureLine());
        showResults(false, QStringLiteral("     Testing Complete\n"));

        if (!runDiagnostic(QStringLiteral("standardtest")))
            return failureEnd(QStringLiteral("     Standard Test Failed\n"), testFailureLine());
        showResults(false, QStringLiteral("Standard Test Complete"));
        changeButtonStatus(Action::Test, 0, true);
        endProgress();
    });
}

} // namespace tapedesk
