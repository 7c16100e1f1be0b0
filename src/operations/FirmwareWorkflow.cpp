#include "operations/FirmwareWorkflow.h"

#include "operations/OperationContext.h"
#include "operations/Texts.h"
#include "support/Dialogs.h"
#include "tools/ToolPaths.h"

namespace tapedesk {

void FirmwareWorkflow::perform()
{
    if (!m_op.support.isPreferencesSet()) {
        m_op.show(false, MSG_NO_PREFERENCES);
        m_op.finish(Action::Upgrade, Verdict::refused(MSG_NO_PREFERENCES));
        return;
    }
    const DrivePtr drive = m_op.selection.get();
    if (!drive) {
        const QString line = QStringLiteral("Error: No Drive Selected");
        m_op.show(false, line);
        m_op.finish(Action::Upgrade, Verdict::refused(line));
        return;
    }
    if (m_op.refuseMountedTape(QStringLiteral("Update Firmware"),
                               QStringLiteral(" Please unmount tape before updating"))) {
        m_op.finish(Action::Upgrade, Verdict::refused(QStringLiteral("Error: Tape needs to be un-mounted")));
        return;
    }
    if (!dialogs().confirm(ALERT_WARNING, ALERT_FIRMWARE_SURE)) {
        m_op.finish(Action::Upgrade,
                    Verdict::cancelled(QStringLiteral("The firmware update was not started")));
        return;
    }
    const QString file = m_op.support.pickFile({QStringLiteral("fmrz"), QStringLiteral("fm")});
    if (file.isEmpty()) {
        const QString line = QStringLiteral("no firmware to update");
        m_op.show(true, line);
        m_op.finish(Action::Upgrade, Verdict::cancelled(line));
        return;
    }
    update(drive->id(), file);
}

void FirmwareWorkflow::update(const QString &driveId, const QString &file)
{
    m_op.threads.runInBackground([this, driveId, file] {
        m_op.status(Action::Upgrade, 2);
        m_op.startProgress();
        m_op.show(true, QStringLiteral("Starting Update - This May Take Several Minutes"));
        const QString output = OUTPUT_FOLDER.get().value_or(QString());
        const ToolResult run = m_op.run(ITDT_PATH.get().value_or(QString()),
                                        {QStringLiteral("-R"), output, QStringLiteral("-LP"), output,
                                         QStringLiteral("-f"), driveId, QStringLiteral("ucode"), file});
        // Only the code itdt reports decides: it reports on standard output.
        if (!run.succeeded()) {
            const QString line = QStringLiteral("Firmware Update Failed - Contact Corvel Support");
            m_op.show(true, line);
            m_op.feedback.showErrorTexts(run.reportedCode.value_or(QString()));
            m_op.finish(Action::Upgrade, m_op.failedRun(run, line));
            m_op.endProgress();
            return;
        }
        m_op.show(true, QStringLiteral("Firmware Update Complete"));
        m_op.finish(Action::Upgrade, Verdict::complete(QStringLiteral("Firmware Update Complete")));
        m_op.endProgress();
    });
}

} // namespace tapedesk
