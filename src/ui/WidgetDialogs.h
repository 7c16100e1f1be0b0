#pragma once

#include "support/Dialogs.h"

namespace tapedesk {

// The dialogs as real modal widgets: QMessageBox with the buttons in the order
// given, and non-native QFileDialogs (so they look the same everywhere and
// tests can drive them).
class WidgetDialogs final : public DialogProvider
{
public:
    QString getString(const QString &title, const QString &question, const QString &defaultValue) override;
    int userOptionPrompt(const QString &title, const QString &question, const QString &t1,
                         const QString &t2) override;
    QString pickFile(const QStringList &fileTypes) override;
    QString pickFolder() override;
    bool confirm(const QString &title, const QString &message) override;
    void inform(const QString &title, const QString &informative) override;
};

} // namespace tapedesk
