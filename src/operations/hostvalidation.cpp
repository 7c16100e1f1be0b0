// Host validation: itdt loads the tape, removes its partitions and runs the
// drive's system test; when all three pass, the system test's own report is
// the verdict the operator reads. See also standardtest.cpp (the same shape,
// and runDiagnostic) and retrievelog.cpp, which the failure line points to.

#include "operations/TapeEngine.h"
#include "operations/Texts.h"
#include "support/Dialogs.h"
#include "tools/Console.h"

namespace tapedesk {

namespace {
QString hostValidationFailureLine()
{
    return QStringLiteral("Host Validation Failed \u2013 Run Retrieve Log And Contact Corvel Support At ") +
           supportEmail() + QStringLiteral(" For Instructions");
}
} // namespace

void TapeEngine::hostValidationAction()
{
    if (!diagnosticMayStart(QStringLiteral("Host Validation"),
                            QStringLiteral("Please unmount tape before running test")))
        return;
    showCloseAlert(ALERT_WARNING, ALERT_DESTRUCTIVE, [this](bool) { hostValidation(); });
}

void TapeEngine::hostValidation()
{
    runInBackground([this] {
        startProgress();
        showResults(true, QStringLiteral("Host Validation In Process - Please Wait\n"));
        const DrivePtr drive = selectedDrive.get();
        const DriveRecord selected = drive ? drive->record() : DriveRecord{};
        consoleLine(QStringView(QStringLiteral("SELECTED DRIVE ID: ") + selected.id));
        consoleLine(QStringView(QStringLiteral("SELECTED DRIVE NAME: ") + selected.name));
        showResults(false, QStringLiteral("     Loading...\n"));

        // The button keeps its image until the verdict; a failure first shows
        // the error texts of the last exit code.
        const auto failureEnd = [this](const QString &phaseLine) {
            showResults(false, phaseLine);
            showResults(false, hostValidationFailureLine());
            changeButtonStatus(Action::HostValidation, 1, true);
            endProgress();
        };

        if (!runDiagnostic(QStringLiteral("load")))
            return failureEnd(QStringLiteral("     Load Failed\n"));
        showResults(false, QStringLiteral("     Load Complete\n"));

        const bool partitionsRemoved = runDiagnostic(QStringLiteral("rmp"));
        showResults(false, QStringLiteral("     Testing in Progress...\n"));
        if (!partitionsRemoved)
            return failureEnd(QStringLiteral("     Test Failed\n"));

        if (!runDiagnostic(QStringLiteral("systemtest")))
            return failureEnd(QStringLiteral("     Test Failed\n"));
        showResults(false, QStringLiteral("Host Validation Complete"));
        showResults(false, lastStatusFeedBack.get());
        changeButtonStatus(Action::HostValidation, 0, true);
        endProgress();
    });
}

} // namespace tapedesk
