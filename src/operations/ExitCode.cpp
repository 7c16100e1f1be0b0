#include "operations/ExitCode.h"

#include "operations/Texts.h"
#include "tools/SettingsStore.h"

#include <QFileInfo>
#include <QRegularExpression>

namespace tapedesk {

std::optional<QString> exitCodeFromOutput(const QString &results)
{
    if (results.contains(QStringLiteral("code: "))) {
        const qsizetype lastSpace = results.lastIndexOf(QLatin1Char(' '));
        QString word = results.mid(lastSpace + 1);
        word.remove(QLatin1Char(' '));
        word.remove(QLatin1Char('\n'));
        word.remove(QLatin1Char('\t'));
        word.remove(QLatin1Char('\r'));
        return word;
    }
    if (results.contains(QStringLiteral("errno ")))
        return QStringLiteral("99");
    return std::nullopt;
}

std::optional<QString> ltfsReportedCode(const ToolResult &run)
{
    static const QRegularExpression message(QStringLiteral("LTFS\\d{5}[A-Z] "));
    if (!run.exitStatus || !message.match(run.err).hasMatch())
        return std::nullopt;
    return QString::number(*run.exitStatus);
}

QString toolDisplayName(const QString &program, const QStringList &arguments, bool isItdt)
{
    QString name = QFileInfo(program).fileName();
    if (!isItdt)
        return name;
    // itdt's subcommand comes after its options, each of which takes a value:
    // "-R out -LP out -f tape0 standardtest".
    qsizetype i = 0;
    while (i < arguments.size() && arguments.at(i).startsWith(QLatin1Char('-')))
        i += 2;
    if (i < arguments.size())
        name += QLatin1Char(' ') + arguments.at(i);
    return name;
}

QString unreportedReason(const ToolResult &run, const QString &name)
{
    if (run.stopped)
        return name + QStringLiteral(" was stopped");
    if (!run.started)
        return name + QStringLiteral(" could not be started: ") + run.program;
    if (run.timedOut)
        return name + QStringLiteral(" timed out");
    if (run.signal != 0)
        return name + QStringLiteral(" was killed by signal %1").arg(run.signal);
    return name + QStringLiteral(" ended without reporting a result");
}

QString supportEmail()
{
    return SettingsStore::text(SUPPORT_EMAIL_KEY).value_or(SUPPORT_EMAIL_DEFAULT);
}

} // namespace tapedesk
