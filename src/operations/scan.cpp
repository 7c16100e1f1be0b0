// Drive scan: itdt lists the drives, the parser rebuilds driveList, the drive
// state store adds the drives this system mounted, and the table reloads.

#include "drives/Drive.h"
#include "operations/TapeEngine.h"
#include "operations/Texts.h"
#include "tools/Console.h"
#include "tools/ToolPaths.h"

namespace tapedesk {

void TapeEngine::scanAction()
{
    if (!support.isPreferencesSet()) {
        showResults(true, MSG_NO_PREFERENCES);
        return;
    }
    scanForDrives();
}

void TapeEngine::scanForDrives()
{
    runInBackground([this] {
        startProgress();
        changeButtonStatus(Action::Scan, 2, true);
        showResults(true, QStringLiteral("Running Scan - Please Wait...."));
        const QString output = OUTPUT_FOLDER.get().value_or(QString());
        const QString report =
            shell(ITDT_PATH.get().value_or(QString()),
                  {QStringLiteral("-R"), output, QStringLiteral("-LP"), output, QStringLiteral("scan")});
        if (report.isEmpty()) {
            lastStatusFeedBack.set(QString());
            showResults(false, QStringLiteral("Scan Failed - make sure your preferences are set correctly"));
            endProgress();
            return;
        }
        setExitCode(report);
        lastStatusFeedBack.set(report);
        showResults(false, QStringLiteral(".....Scan Executed"));
        consoleLine(QStringView(report));
        driveList.clear();
        support.parseDriveTextToDrive(report);
        support.loadMountedDrives();
        refreshDriveTable();
        changeButtonStatus(Action::Scan, 0, true);
        showResults(false, QStringLiteral("Scan Complete"));
        endProgress();
    });
}

void TapeEngine::clearMountedDrivesAction()
{
    support.resetMountedDrives();
    showResults(false, QStringLiteral("Mounted drives reset"));
}

} // namespace tapedesk
