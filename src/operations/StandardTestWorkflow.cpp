#include "operations/StandardTestWorkflow.h"

#include "operations/ExitCode.h"
#include "operations/OperationContext.h"
#include "operations/Texts.h"
#include "support/Dialogs.h"
#include "tools/Console.h"

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

void StandardTestWorkflow::perform()
{
    if (!m_itdt.mayStart(Action::Test, QStringLiteral("Run Test"),
                         QStringLiteral("Please unmount tape before running test")))
        return;
    if (!dialogs().confirm(ALERT_WARNING, ALERT_DESTRUCTIVE_RUN_TEST)) {
        m_op.finish(Action::Test, Verdict::cancelled(QStringLiteral("The standard test was not started")));
        return;
    }
    m_op.threads.runInBackground([this] { runInBackground(); });
}

void StandardTestWorkflow::runInBackground()
{
    m_op.startProgress();
    m_op.show(true, kTestInProgress);
    m_op.status(Action::Test, 2);
    m_op.show(false, QStringLiteral("     Loading...\n"));

    const ToolResult load = m_itdt.run(QStringLiteral("load"));
    consoleLine(QStringView(load.reportedCode.value_or(QString())));
    if (!load.succeeded())
        return failAt(QStringLiteral("     load failed\n"), loadFailureLine(), load);
    m_op.show(false, QStringLiteral("     Load Complete\n"));

    const ToolResult rmp = m_itdt.run(QStringLiteral("rmp"));
    m_op.show(false, QStringLiteral("     Testing\n"));
    if (!rmp.succeeded())
        return failAt(QStringLiteral("     Load Failed\n"), testFailureLine(), rmp);
    m_op.show(false, QStringLiteral("     Testing Complete\n"));

    const ToolResult test = m_itdt.run(QStringLiteral("standardtest"));
    if (!test.succeeded())
        return failAt(QStringLiteral("     Standard Test Failed\n"), testFailureLine(), test);
    m_op.show(false, QStringLiteral("Standard Test Complete"));
    m_op.finish(Action::Test, Verdict::complete(QStringLiteral("Standard Test Complete")));
    m_op.endProgress();
}

void StandardTestWorkflow::failAt(const QString &phaseLine, const QString &failureLine, const ToolResult &run)
{
    m_op.show(false, phaseLine);
    m_op.show(false, failureLine);
    m_op.finish(Action::Test, m_op.failedRun(run, phaseLine));
    m_op.endProgress();
}

} // namespace tapedesk
