#include "support/Dialogs.h"

#include "tools/Console.h"

namespace tapedesk {

namespace {

// What a host without a window answers: no to everything, with the question
// on the console so the operator can see what was not done.
class DeclineAll final : public DialogProvider
{
public:
    QString getString(const QString &title, const QString &question, const QString &) override
    {
        declined(title, question);
        return QStringLiteral("-1");
    }
    int userOptionPrompt(const QString &title, const QString &question, const QString &,
                         const QString &) override
    {
        declined(title, question);
        return 1;
    }
    QString pickFile(const QStringList &) override
    {
        declined(kPickFileTitle, QString());
        return {};
    }
    QString pickFolder() override
    {
        declined(kPickFolderTitle, QString());
        return QStringLiteral("-1");
    }
    bool confirm(const QString &title, const QString &message) override
    {
        declined(title, message);
        return false;
    }
    void inform(const QString &title, const QString &informative) override
    {
        consoleLine(QStringView(title + QLatin1Char(' ') + informative));
    }

private:
    static void declined(const QString &title, const QString &question)
    {
        consoleLine(
            QStringView(QStringLiteral("Declined (no one to ask): ") + title + QLatin1Char(' ') + question));
    }
};

struct Slot
{
    std::unique_ptr<DialogProvider> provider = std::make_unique<DeclineAll>();
    bool installed = false;
};

Slot &providerSlot()
{
    static Slot slot;
    return slot;
}

} // namespace

DialogProvider &dialogs()
{
    return *providerSlot().provider;
}

void setDialogProvider(std::unique_ptr<DialogProvider> provider)
{
    if (!provider)
        return;
    providerSlot().provider = std::move(provider);
    providerSlot().installed = true;
}

bool hasDialogProvider()
{
    return providerSlot().installed;
}

} // namespace tapedesk
