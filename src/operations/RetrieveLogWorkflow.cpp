#include "operations/RetrieveLogWorkflow.h"

#include "operations/ExitCode.h"
#include "operations/OperationContext.h"
#include "operations/Texts.h"
#include "support/FileHelpers.h"
#include "tools/ToolPaths.h"

#include <QFileInfo>
#include <QUrl>

namespace tapedesk {

namespace {
const QString kDumpExtension = QStringLiteral("blz");
} // namespace

void RetrieveLogWorkflow::perform()
{
    if (!m_itdt.mayStart(Action::RetrieveLog, QStringLiteral("Update Retrieve Log"),
                         QStringLiteral("Please unmount tape before retrieving log")))
        return;
    m_op.threads.runInBackground([this] { runInBackground(); });
}

void RetrieveLogWorkflow::runInBackground()
{
    m_op.startProgress();
    m_op.show(true, STATUS_LOG_GATHERING);
    m_op.status(Action::RetrieveLog, 2);
    // The verdict is the dump file, not the exit code: a failed run still
    // leaves the newest earlier dump worth sending.
    const ToolResult dump = m_itdt.run(QStringLiteral("dump"));

    const QString output = OUTPUT_FOLDER.get().value_or(QString());
    const DirectoryListing dumps =
        contentsOfDirectory(kDumpExtension, QUrl::fromLocalFile(output), ContentDate::created, false);
    m_op.show(false, dump.out);
    if (!dumps.ok || dumps.names.isEmpty()) {
        const QString line =
            dumps.ok
                ? QStringLiteral("No drive dump (.blz) found in %1 - nothing to save").arg(output)
                : QStringLiteral("Cannot read the output folder (%1) - nothing to save").arg(dumps.error);
        m_op.show(false, line);
        m_op.finish(Action::RetrieveLog, Verdict::failed(line));
        m_op.endProgress();
        return;
    }
    const QString dumpPath = output + QLatin1Char('/') + dumps.names.first();
    m_op.threads.postToMain([this, dumpPath] { save(dumpPath); });
}

void RetrieveLogWorkflow::save(const QString &dumpPath)
{
    const QString folder = m_op.support.pickFolder();
    if (folder == QStringLiteral("-1")) {
        const QString line = QStringLiteral("User canceled retrieve log");
        m_op.show(false, line);
        m_op.finish(Action::RetrieveLog, Verdict::cancelled(line));
        m_op.endProgress();
        return;
    }
    const QString name = QFileInfo(dumpPath).fileName();
    const bool copied = m_op.support.copyFile(dumpPath, folder);
    if (!copied)
        m_op.show(false, QStringLiteral("Could not copy %1 to %2").arg(name, folder));
    m_op.show(false, QStringLiteral("Contact Corvel Support At ") + supportEmail() +
                         QStringLiteral(" For Further Instructions"));
    m_op.finish(Action::RetrieveLog,
                copied ? Verdict::complete(QStringLiteral("Saved ") + name + QStringLiteral(" in ") + folder)
                       : Verdict::failed(QStringLiteral("Could not copy %1 to %2").arg(name, folder)));
    m_op.endProgress();
}

} // namespace tapedesk
