#pragma once

#include <QString>
#include <QStringList>
#include <memory>

namespace tapedesk {

// Every question TapeDesk puts to the operator. The window answers them with
// modal widgets; a front end without a window can install its own provider and
// answer from its arguments. All calls block and run on the GUI thread.
// Cancellation comes back in-band, as the callers expect: "-1" from getString
// and pickFolder, 1 from userOptionPrompt, "" from pickFile.
class DialogProvider
{
public:
    virtual ~DialogProvider() = default;

    virtual QString getString(const QString &title, const QString &question, const QString &defaultValue) = 0;
    // 0 when the first button (t1) was chosen, 1 for any other answer.
    virtual int userOptionPrompt(const QString &title, const QString &question, const QString &t1,
                                 const QString &t2) = 0;
    virtual QString pickFile(const QStringList &fileTypes) = 0;
    virtual QString pickFolder() = 0;
    // Warning alert with "OK" then "Cancel"; true for "OK".
    virtual bool confirm(const QString &title, const QString &message) = 0;
    // Alert with the single button "OK".
    virtual void inform(const QString &title, const QString &informative) = 0;
};

// The provider installed last. Until a front end installs one, every question
// is declined (the in-band cancel answers above, false, nothing picked): a
// host without a window never has an operation go ahead unasked.
DialogProvider &dialogs();
// Replaces the provider (the previous one is destroyed).
void setDialogProvider(std::unique_ptr<DialogProvider> provider);
// False while the declining default is in place.
bool hasDialogProvider();

// Titles shared by the pickers and their tests.
inline const QString kPickFileTitle = QStringLiteral("Select File");
inline const QString kPickFolderTitle = QStringLiteral("Where would you like to save the DRIVE DUMP?");

} // namespace tapedesk
