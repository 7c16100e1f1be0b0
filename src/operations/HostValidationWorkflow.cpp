#include "operations/HostValidationWorkflow.h"

#include "operations/ExitCode.h"
#include "operations/OperationContext.h"
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

void HostValidationWorkflow::perform()
{
    if (!m_itdt.mayStart(Action::HostValidation, QStringLiteral("Host Validation"),
                         QStringLiteral("Please unmount tape before running test")))
        return;
    if (!dialogs().confirm(ALERT_WARNING, ALERT_DESTRUCTIVE)) {
        m_op.finish(Action::HostValidation,
                    Verdict::cancelled(QStringLiteral("The host validation was not started")));
        return;
    }
    m_op.threads.runInBackground([this] { runInBackground(); });
}

void HostValidationWorkflow::runInBackground()
{
    m_op.startProgress();
    m_op.show(true, QStringLiteral("Host Validation In Process - Please Wait\n"));
    const DrivePtr drive = m_op.selection.get();
    const DriveRecord selected = drive ? drive->record() : DriveRecord{};
    consoleLine(QStringView(QStringLiteral("SELECTED DRIVE ID: ") + selected.id));
    consoleLine(QStringView(QStringLiteral("SELECTED DRIVE NAME: ") + selected.name));
    m_op.show(false, QStringLiteral("     Loading...\n"));

    const ToolResult load = m_itdt.run(QStringLiteral("load"));
    if (!load.succeeded())
        return failAt(QStringLiteral("     Load Failed\n"), load);
    m_op.show(false, QStringLiteral("     Load Complete\n"));

    const ToolResult rmp = m_itdt.run(QStringLiteral("rmp"));
    m_op.show(false, QStringLiteral("     Testing in Progress...\n"));
    if (!rmp.succeeded())
        return failAt(QStringLiteral("     Test Failed\n"), rmp);

    const ToolResult test = m_itdt.run(QStringLiteral("systemtest"));
    if (!test.succeeded())
        return failAt(QStringLiteral("     Test Failed\n"), test);
    m_op.show(false, QStringLiteral("Host Validation Complete"));
    m_op.show(false, test.out);
    m_op.finish(Action::HostValidation, Verdict::complete(QStringLiteral("Host Validation Complete")));
    m_op.endProgress();
}

void HostValidationWorkflow::failAt(const QString &phaseLine, const ToolResult &run)
{
    // The button keeps its image until the verdict; a failure first shows
    // the error texts of the code the run reported.
    m_op.show(false, phaseLine);
    m_op.show(false, hostValidationFailureLine());
    m_op.feedback.showErrorTexts(run.reportedCode.value_or(QString()));
    m_op.finish(Action::HostValidation, m_op.failedRun(run, phaseLine));
    m_op.endProgress();
}

} // namespace tapedesk
