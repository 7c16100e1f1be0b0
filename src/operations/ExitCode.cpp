#include "operations/ExitCode.h"

#include "operations/Texts.h"
#include "tools/SettingsStore.h"

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

QString supportEmail()
{
    return SettingsStore::text(SUPPORT_EMAIL_KEY).value_or(SUPPORT_EMAIL_DEFAULT);
}

} // namespace tapedesk
