#pragma once

#include "support/Dialogs.h"

#include <QString>

namespace tapedesk {

// The answers a command line gives in advance. A question whose flag was not
// given is declined (the workflow then changes nothing) and the missing flag
// is kept, so the program can say which one and exit as refused.
struct CliFlags
{
    bool yes = false;
    bool force = false;
    QString name;
    QString then; // "mount" or "eject"
    QString file;
    QString to;
    bool recover = false; // the command is recover: only it answers the recovery question
};

class CliAnswers final : public DialogProvider
{
public:
    explicit CliAnswers(CliFlags flags) : m_flags(std::move(flags)) {}

    // The flag a declined question needed ("--yes", ...), or "".
    QString missingFlag() const { return m_missing; }
    // The refusal an alert told of ("Run Test: Please unmount tape ..."), or "".
    QString refusal() const { return m_refusal; }

    QString getString(const QString &title, const QString &question, const QString &defaultValue) override;
    int userOptionPrompt(const QString &title, const QString &question, const QString &t1,
                         const QString &t2) override;
    QString pickFile(const QStringList &fileTypes) override;
    QString pickFolder() override;
    bool confirm(const QString &title, const QString &message) override;
    void inform(const QString &title, const QString &informative) override;

private:
    void needs(const QString &flag, const QString &question);

    CliFlags m_flags;
    QString m_missing;
    QString m_refusal;
};

} // namespace tapedesk
