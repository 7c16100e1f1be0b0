#pragma once

#include "support/Support.h"

#include <QPointer>
#include <QWidget>

class QLabel;
class QLineEdit;
class QPushButton;

namespace tapedesk {

// The page with the four paths. Edits and choices stay in the fields until
// Save; each showing of the window refills them from the paths in use.
class ToolPathsPage : public QWidget
{
    Q_OBJECT

public:
    explicit ToolPathsPage(QWidget *parent = nullptr);

    Support support;

    QLineEdit *itdtPathEdit = nullptr;
    QLineEdit *ltfsPathEdit = nullptr;
    QLineEdit *mkltfsPathEdit = nullptr;
    QLineEdit *outputFolderEdit = nullptr;
    QPointer<QLabel> statusLabel;

    // The buttons, named after their actions (as in the main window's `ui`).
    struct Widgets
    {
        QPushButton *chooseItdtButton = nullptr;
        QPushButton *chooseLtfsButton = nullptr;
        QPushButton *chooseMkltfsButton = nullptr;
        QPushButton *chooseOutputFolderButton = nullptr;
        QPushButton *saveButton = nullptr;
        QPushButton *resetButton = nullptr;
    };
    Widgets ui;

    // Refills the fields each time the window is about to be shown: the
    // paths in use once they are set, the defaults before.
    void showPathsInUse();

    void loadPreferences();

public Q_SLOTS:
    // The buttons' actions; Reset is setDefaults.
    void chooseItdt();
    void chooseLtfs();
    void chooseMkltfs();
    void chooseOutputFolder();
    void save();
    void setDefaults();

Q_SIGNALS:
    // After every Save, whatever was typed: the main window decides whether
    // the new paths call for a check and a scan.
    void saved();

private:
    void chooseFile(QLineEdit *field);
};

inline const QString NO_PATH_SELECTED = QStringLiteral("No Path Selected");
inline const QString PREFERENCES_SAVED = QStringLiteral("Preferences have been saved.");

} // namespace tapedesk
