#pragma once

#include "operations/Face.h"
#include "operations/TapeEngine.h"

#include <QMainWindow>
#include <QPushButton>
#include <QString>
#include <QStringList>

class QLabel;
class QPlainTextEdit;
class QTabWidget;
class QProgressBar;
class QTableView;

namespace tapedesk {

class DriveTableModel;
class InputHold;
class VolumeDetailsView;
class OperationWatch;

// The main window: one face of the tape engine. It holds the widgets, turns
// clicks and the drive choice into the engine's actions, and shows what the
// engine tells it; the tape logic is all in `engine` (operations/).
class MainWindow : public QMainWindow, public Face
{
    Q_OBJECT

public:
    // The widgets the engine's feedback lands in.
    struct Widgets
    {
        QPlainTextEdit *transcript = nullptr; // the output pane's first tab
        QTabWidget *paneTabs = nullptr;       // the output pane: the transcript beside the other views
        QTableView *tableView = nullptr;
        QLabel *mountLabel = nullptr;
        QPushButton *scanButton = nullptr;
        QPushButton *mountButton = nullptr;
        QPushButton *retrieveLogButton = nullptr;
        QPushButton *testButton = nullptr;
        QPushButton *upgradeButton = nullptr;
        QPushButton *hostValidationButton = nullptr;
        QPushButton *formatButton = nullptr;
        QPushButton *clearMountedDrivesButton = nullptr;
        QProgressBar *progressBar = nullptr;
        QPushButton *stopButton = nullptr; // beside the progress, while an operation runs
    };

    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

    Widgets ui;
    TapeEngine engine{*this};

    // Told of every Save in the preferences window.
    void preferencesSaved();

public Q_SLOTS:
    // The buttons' actions.
    void scan();
    void mount();
    void format();
    void upgrade();
    void retrieveLog();
    void runTest();
    void validateHost();
    void clearMountedDrives();
    void stop();

public:
    // Drive table
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
    // Made once the first frame is drawn, or when first asked for before.
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
    void firstFrameDrawn();

protected:
    void showEvent(QShowEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    bool event(QEvent *event) override;

private:
    void buildLayout();
    void connectActions();
    void enableActions(bool enabled);
    // Hands the chosen row's drive to the engine.
    void driveSelectionChanged();
    // Starts the engine (its first scan). Runs once per showing of the
    // window, right after its first frame is on screen.
    void startAfterFirstFrame();

    DriveTableModel *m_model = nullptr;
    VolumeDetailsView *m_volumeView = nullptr;
    OperationWatch *m_watch = nullptr;
    InputHold *m_inputHold = nullptr;
    // Shown, and startAfterFirstFrame not yet run for this showing.
    bool m_awaitingFirstFrame = false;
    bool m_paneFontsSet = false;
};

} // namespace tapedesk
