#include "cli/CliAnswers.h"

#include "operations/Texts.h"

#include <cstdio>

namespace tapedesk {

namespace {
void toStderr(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fprintf(stderr, "%s\n", bytes.constData());
}
} // namespace

void CliAnswers::needs(const QString &flag, const QString &question)
{
    if (m_missing.isEmpty())
        m_missing = flag;
    toStderr(QStringLiteral("Not answered without %1: %2").arg(flag, question.simplified()));
}

QString CliAnswers::getString(const QString &title, const QString &question, const QString &)
{
    if (!m_flags.name.isEmpty())
        return m_flags.name;
    needs(QStringLiteral("--name"), title + QLatin1Char(' ') + question);
    return QStringLiteral("-1");
}

int CliAnswers::userOptionPrompt(const QString &title, const QString &question, const QString &t1,
                                 const QString &t2)
{
    // After a format: the first button ejects, the second mounts.
    if (t1 == QStringLiteral("Eject") && t2 == QStringLiteral("Mount")) {
        if (m_flags.then == QStringLiteral("eject"))
            return 0;
        if (m_flags.then == QStringLiteral("mount"))
            return 1;
        needs(QStringLiteral("--then"), question);
        // Neither: the tape stays loaded, as after a cancelled question.
        return 1;
    }
    // Rolling a volume back is the recover command's alone, so that a
    // script's mount --yes never changes a cartridge; and after a recovery,
    // mounting is the mount command's.
    if (t1 == QStringLiteral("Recover Volume") && !m_flags.recover) {
        toStderr(QStringLiteral("Not recovered: tapedesk-cli recover DRIVE --yes runs ltfsck."));
        return 1;
    }
    if (t1 == QStringLiteral("Mount") && t2 == QStringLiteral("Not Now"))
        return 1;
    if (m_flags.yes)
        return 0;
    needs(QStringLiteral("--yes"),
          title.isEmpty() ? t1 + QLatin1Char('?') : title + QLatin1Char(' ') + question);
    return 1;
}

QString CliAnswers::pickFile(const QStringList &)
{
    if (!m_flags.file.isEmpty())
        return m_flags.file;
    needs(QStringLiteral("--file"), kPickFileTitle);
    return {};
}

QString CliAnswers::pickFolder()
{
    if (!m_flags.to.isEmpty())
        return m_flags.to;
    needs(QStringLiteral("--to"), kPickFolderTitle);
    return QStringLiteral("-1");
}

bool CliAnswers::confirm(const QString &title, const QString &message)
{
    // Asked because of a signal, not needed by the command: no missing flag.
    if (title == kStopFormatTitle) {
        if (!m_flags.yes)
            toStderr(QStringLiteral("Not stopped without --yes: ") + message);
        return m_flags.yes;
    }
    // Reformatting destroys a volume: only --force says yes to that.
    const bool reformat = title.startsWith(QStringLiteral("Tape already Formatted"));
    if (reformat ? m_flags.force : m_flags.yes)
        return true;
    needs(reformat ? QStringLiteral("--force") : QStringLiteral("--yes"), title + QLatin1Char(' ') + message);
    return false;
}

void CliAnswers::inform(const QString &title, const QString &informative)
{
    if (m_refusal.isEmpty())
        m_refusal = title + QStringLiteral(": ") + informative.trimmed();
    toStderr(m_refusal);
}

} // namespace tapedesk
