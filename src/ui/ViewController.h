#pragma once

#include "operations/Face.h"
#include "operations/TapeEngine.h"

#include <QMainWindow>
#include <QPushButton>
#include <QString>
#include <QStringList>

class QAbstractButton;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QTabWidget;
class QProgressBar;
class QTableView;

namespace tapedesk {

class DriveTableModel;
class VolumeDetailsView;
class OperationWatch;

// The main window: one face of the tape engine. It holds the widgets, turns
// clicks and the drive choice into the engine's actions, and shows what the
// engine tells it; the tape logic is all in `engine` (operations/).
class ViewController : public QMainWindow, public Face
{
    Q_OBJECT

public:
    // The widgets the engine's feedback lands in.
    struct Outlets
    {
        QPlainTextEdit *rightScrollView = nullptr; // the output pane (a scroll view with its text)
        QTabWidget *paneTabs = nullptr;            // the pane's first tab, beside the other views
        QTableView *tableView = nullptr;
        QLabel *lblMount = nullptr;
        QPushButton *btnScan = nullptr;
        QPushButton *btnMount = nullptr;
        QPushButton *btnRetriveLog = nullptr;
        QPushButton *btnTest = nullptr;
        QPushButton *btnUpgrade = nullptr;
        QPushButton *btnHostValidation = nullptr;
        QPushButton *btnFormat = nullptr;
        QPushButton *btnClearPreferences = nullptr;
        QProgressBar *progressIndicator = nullptr;
        QPushButton *btnStop = nullptr; // beside the progress, while an operation runs
    };

    explicit ViewController(QWidget *parent = nullptr);
    ~ViewController() override;

    Outlets ui;
    TapeEngine engine{*this};

    // Start-up
    void viewDidLoad(const QStringList &launchArguments);
    // Starts the engine (its first scan). Called once per showing of the
    // window, right after its first frame is on screen.
    void viewDidAppear();
    // Told of every Save in the preferences window.
    void preferencesSaved();

    // Button actions
    void btnScan(QAbstractButton *sender = nullptr);
    void btnMount(QAbstractButton *sender = nullptr);
    void btnFormat(QAbstractButton *sender = nullptr);
    void btnUpgrade(QAbstractButton *sender = nullptr);
    void btnRetrieveLog(QAbstractButton *sender = nullptr);
    void btnRunTest(QAbstractButton *sender = nullptr);
    void btnHostValidation(QAbstractButton *sender = nullptr);
    void btnClearPreferences(QAbstractButton *sender = nullptr);
    void btnStop(QAbstractButton *sender = nullptr);
    // The volume-name field of the format's question.
    void controlTextDidChange(QLineEdit *field);

    // Drive table
    void tableViewSelectionDidChange();
    DriveTableModel *driveModel() const { return m_model; }
    // The button that shows `action`'s status.
    QPushButton *buttonFor(Action action) const;

    // Face
    void clearPane() override;
    void appendToPane(const QString &text) override;
    void setStatus(Action action, int status) override;
    void setMountCaption(const QString &caption) override;
    void progressStarted() override;
    void progressEnded() override;
    void drivesChanged(const QList<DrivePtr> &drives, const DrivePtr &selected) override;
    bool holdInputButStop(bool held) override;
    void volumeDetailsChanged(const VolumeReport &report) override;
    // Made when the window first appears, or when first asked for before.
    VolumeDetailsView *volumeView();
    void toolStarted(const QString &program, const QStringList &arguments) override;
    void toolOutput(OutputStream stream, QByteArrayView chunk) override;

    // The live tool output, the operation's clock and its notification.
    OperationWatch &watch() const { return *m_watch; }

Q_SIGNALS:
    // A start with no program path stored: the operator has to set them up.
    // The application answers by showing the preferences window.
    void preferencesNeeded();
    // The window was shown and its first frame drawn; what start-up left for
    // later can run now.
    void appeared();

protected:
    void showEvent(QShowEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    bool event(QEvent *event) override;
    // While input is held: the application's input reaches only Stop and
    // the dialog a stop may ask.
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void buildLayout();
    void connectActions();
    void enableActions(bool enabled);

    DriveTableModel *m_model = nullptr;
    VolumeDetailsView *m_volumeView = nullptr;
    OperationWatch *m_watch = nullptr;
    int m_inputHolds = 0;
    // Shown, and viewDidAppear not yet called for this showing.
    bool m_appearing = false;
    bool m_paneFontsSet = false;
};

} // namespace tapedesk
