// Log retrieval: itdt writes a drive dump ("blz") into the output folder; the
// newest dump there is offered for saving into a folder the operator picks.
// See also standardtest.cpp (runDiagnostic) and support/FileHelpers.cpp.

#include "operations/TapeEngine.h"
#include "operations/Texts.h"
#include "support/Dialogs.h"
#include "support/FileHelpers.h"
#include "tools/ToolPaths.h"

#include <QFileInfo>

namespace tapedesk {

namespace {

const QString kDumpExtension = QStringLiteral("blz");

// The save step, on the GUI thread: the picker and a possible replace question
// are modal. `dumpPath` belongs to this one run.
void saveDump(TapeEngine &vc, const QString &dumpPath)
{
    const QString folder = vc.support.pickFolder();
    if (folder == QStringLiteral("-1")) {
        vc.showResults(false, QStringLiteral("User canceled retrieve log"));
        vc.endProgress();
        return;
    }
    if (!vc.support.copyFile(dumpPath, folder))
        vc.showResults(false,
                       QStringLiteral("Could not copy %1 to %2").arg(QFileInfo(dumpPath).fileName(), folder));
    vc.showResults(false, QStringLiteral("Contact Corvel Support At ") + supportEmail() +
                              QStringLiteral(" For Further Instructions"));
    vc.endProgress();
}

} // namespace

void TapeEngine::retrieveLogAction()
{
    if (!diagnosticMayStart(QStringLiteral("Update Retrieve Log"),
                            QStringLiteral("Please unmount tape before retrieving log")))
        return;
    retrieveLog();
}

void TapeEngine::retrieveLog()
{
    runInBackground([this] {
        startProgress();
        showResults(true, STATUS_LOG_GATHERING);
        changeButtonStatus(Action::RetrieveLog, 2, true);
        // The verdict is the dump file, not the exit code: a failed run still
        // leaves the newest earlier dump worth sending.
        runDiagnostic(QStringLiteral("dump"));

        const QString output = OUTPUT_FOLDER.get().value_or(QString());
        const DirectoryListing dumps =
            contentsOfDirectory(kDumpExtension, QUrl::fromLocalFile(output), ContentDate::created, false);
        showResults(false, lastStatusFeedBack.get());
        if (!dumps.ok || dumps.names.isEmpty()) {
            showResults(false,
                        dumps.ok
                            ? QStringLiteral("No drive dump (.blz) found in %1 - nothing to save").arg(output)
                            : QStringLiteral("Cannot read the output folder (%1) - nothing to save")
                                  .arg(dumps.error));
            changeButtonStatus(Action::RetrieveLog, 1, false);
            endProgress();
            return;
        }
        const QString dumpPath = output + QLatin1Char('/') + dumps.names.first();
        changeButtonStatus(Action::RetrieveLog, 0, true);
        postToMain([this, dumpPath] { saveDump(*this, dumpPath); });
    });
}

} // namespace tapedesk
