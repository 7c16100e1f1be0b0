// Firmware update: after a warning and a file choice, itdt loads the new
// microcode into the selected drive in the background. Refused while the
// drive's volume is mounted.

#include "drives/Drive.h"
#include "operations/TapeEngine.h"
#include "operations/Texts.h"
#include "support/Dialogs.h"
#include "tools/ToolPaths.h"

namespace tapedesk {

void TapeEngine::upgradeAction()
{
    if (!support.isPreferencesSet()) {
        showResults(false, MSG_NO_PREFERENCES);
        return;
    }
    if (!selectedDrive.get()) {
        showResults(false, QStringLiteral("Error: No Drive Selected"));
        return;
    }
    if (refuseMountedTape(QStringLiteral("Update Firmware"),
                          QStringLiteral(" Please unmount tape before updating")))
        return;
    changeButtonStatus(Action::Upgrade, 2, true);
    showCloseAlert(ALERT_WARNING, ALERT_FIRMWARE_SURE, [this](bool) {
        firmwareFileAndPath.set(support.pickFile({QStringLiteral("fmrz"), QStringLiteral("fm")}));
        if (firmwareFileAndPath.get().isEmpty()) {
            showResults(true, QStringLiteral("no firmware to update"));
            return;
        }
        // Set before the background part starts, so its own statuses always
        // come after this one.
        changeButtonStatus(Action::Upgrade, 0, true);
        updateFirmware();
    });
}

void TapeEngine::updateFirmware()
{
    const DrivePtr drive = selectedDrive.get();
    if (!drive) {
        showResults(false, QStringLiteral("Error: No Drive Selected"));
        return;
    }
    const QString id = drive->id();
    const QString file = firmwareFileAndPath.get();
    runInBackground([this, id, file] {
        changeButtonStatus(Action::Upgrade, 2, true);
        startProgress();
        showResults(true, QStringLiteral("Starting Update - This May Take Several Minutes"));
        const QString output = OUTPUT_FOLDER.get().value_or(QString());
        runTool(ITDT_PATH.get().value_or(QString()),
                {QStringLiteral("-R"), output, QStringLiteral("-LP"), output, QStringLiteral("-f"), id,
                 QStringLiteral("ucode"), file});
        // Only the exit code decides: itdt reports on standard output.
        if (!lastRunSucceeded()) {
            showResults(true, QStringLiteral("Firmware Update Failed - Contact Corvel Support"));
            changeButtonStatus(Action::Upgrade, 1, true);
            endProgress();
            return;
        }
        showResults(true, QStringLiteral("Firmware Update Complete"));
        changeButtonStatus(Action::Upgrade, 0, true);
        endProgress();
    });
}

} // namespace tapedesk
