#include "operations/Diagnostics.h"

#include "operations/OperationContext.h"
#include "operations/Texts.h"
#include "tools/Console.h"
#include "tools/ToolPaths.h"

namespace tapedesk {

bool Diagnostics::mayStart(Action action, const QString &mountedTitle, const QString &mountedText)
{
    if (!m_op.support.isPreferencesSet()) {
        m_op.show(true, MSG_NO_PREFERENCES);
        m_op.finish(action, Verdict::refused(MSG_NO_PREFERENCES));
        return false;
    }
    if (!m_op.selection.get()) {
        const QString line = QStringLiteral("Error: No Drive Selected");
        m_op.show(true, line);
        m_op.finish(action, Verdict::refused(line));
        return false;
    }
    if (m_op.refuseMountedTape(mountedTitle, mountedText)) {
        m_op.finish(action, Verdict::refused(QStringLiteral("Error: Tape needs to be un-mounted")));
        return false;
    }
    return true;
}

ToolResult Diagnostics::run(const QString &commandWord)
{
    const std::optional<QString> itdt = ITDT_PATH.get();
    const std::optional<QString> output = OUTPUT_FOLDER.get();
    const DrivePtr drive = m_op.selection.get();
    if (!itdt || !output || !drive) {
        consoleLine(QStringView(
            QStringLiteral("itdt %1 not run: tool path, output folder or drive unset").arg(commandWord)));
        ToolResult none;
        none.program = itdt.value_or(QStringLiteral("itdt"));
        none.arguments = QStringList{commandWord};
        return none;
    }
    return m_op.run(*itdt, {QStringLiteral("-R"), *output, QStringLiteral("-LP"), *output,
                            QStringLiteral("-f"), drive->id(), commandWord});
}

} // namespace tapedesk
