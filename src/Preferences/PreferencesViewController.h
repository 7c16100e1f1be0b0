#pragma once

#include "support/Support.h"

#include <QPointer>
#include <QWidget>

class QAbstractButton;
class QLabel;
class QLineEdit;
class QPushButton;

namespace tapedesk {

// The pane with the four paths. Edits and choices stay in the fields until
// Save; each showing of the window refills them from the paths in use.
class PreferencesViewController : public QWidget
{
    Q_OBJECT

public:
    explicit PreferencesViewController(QWidget *parent = nullptr);

    Support support;

    QLineEdit *txtITDT = nullptr;
    QLineEdit *txtLTFS = nullptr;
    QLineEdit *txtMK = nullptr;
    QLineEdit *txtOutput = nullptr;
    QPointer<QLabel> lblStatus;

    // The buttons, named after their actions (as in the main window's `ui`).
    struct Outlets
    {
        QPushButton *btnITDT = nullptr;
        QPushButton *btnLTFS = nullptr;
        QPushButton *btnMK = nullptr;
        QPushButton *btnOutput = nullptr;
        QPushButton *btnSave = nullptr;
        QPushButton *btnReset = nullptr;
    };
    Outlets ui;

    void viewDidLoad();
    // Called each time the window is about to be shown.
    void viewWillAppear();

    void setDefaults();
    void loadPreferences();

    void btnITDT(QAbstractButton *sender = nullptr);
    void btnLTFS(QAbstractButton *sender = nullptr);
    void btnMK(QAbstractButton *sender = nullptr);
    void btnOutput(QAbstractButton *sender = nullptr);
    void btnSave(QAbstractButton *sender = nullptr);
    void btnReset(QAbstractButton *sender = nullptr);

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
