#pragma once

#include "drives/Drive.h"
#include "operations/MountCheck.h"
#include "support/Support.h"
#include "tools/Synchronized.h"

#include <QElapsedTimer>
#include <QMainWindow>
#include <QPointer>
#include <QPushButton>
#include <QString>
#include <QStringList>
#include <atomic>
#include <functional>

class QAbstractButton;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QProgressBar;

class QTableView;
class QTimer;

namespace tapedesk {

class DriveTableModel;

// The text of the last tool output, carried from one step to the next.
extern Synchronized<QString> lastStatusFeedBack;

// The output pane every message goes to. Until the main window has loaded it
// is a pane that is shown nowhere.
QPlainTextEdit *outputView();
void setOutputView(QPlainTextEdit *pane);
// Inserts the messages showResults() has collected but not yet put into the
// pane (GUI thread). Every other post runs it first, so no visible change
// overtakes a message posted before it.
void flushPendingOutput();

// The main window. It owns the state the operations share and hosts them; each
// workflow's code lives in its own file under operations/ (see
// docs/architecture.md). Background parts run on the global thread pool; every
// visible change is posted to the GUI thread in the order it was made.
class ViewController : public QMainWindow
{
    Q_OBJECT

public:
    // The widgets the operations talk to.
    struct Outlets
    {
        QPlainTextEdit *rightScrollView = nullptr; // the output pane (a scroll view with its text)
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
    };

    explicit ViewController(QWidget *parent = nullptr);
    ~ViewController() override;

    Outlets ui;

    // Shared state (written from background parts, hence synchronized).
    Synchronized<DrivePtr> selectedDrive;
    Synchronized<QString> firmwareFileAndPath;
    Synchronized<QString> lastExitCode;
    Synchronized<QString> lastErrorOutput;
    Synchronized<QString> volume_name;
    std::atomic<bool> formatTapeEnabled{false};
    QTimer *timer = nullptr;
    // How long an unmount waits for an ltfs daemon that still holds the drive
    // before the pane names it, and again after each further such stretch.
    qint64 holderReportIntervalMs = 60000;
    Support support;

    // Command runners
    QString shell(const QString &launchPath, const QStringList &arguments);
    QString shell(const QString &command);

    // Start-up
    void viewDidLoad(const QStringList &launchArguments);
    void viewDidAppear();
    // Told of every Save in the preferences window. Checks the paths again and
    // scans only while the setup a first start asked for is not yet valid.
    void preferencesSaved();

    // Operation feedback
    void showResults(bool clear, const QString &result);
    void setExitCode(const QString &results);
    void displayError();
    QString localizedString(const QString &key) const;
    void changeButtonStatus(QAbstractButton *button, int status, bool showError);
    void startProgress();
    void endProgress();
    void enableButtons(bool enabled);
    void showCloseAlert(const QString &title, const QString &message,
                        const std::function<void(bool)> &completion);
    void refreshDriveTable();

    // Drive scan
    void btnScan(QAbstractButton *sender = nullptr);
    void scanForDrives();

    // Mount and unmount
    void btnMount(QAbstractButton *sender = nullptr);
    void mountDrive();
    bool isTapeMounted();
    // isTapeMounted() with its third answer: Unknown when the mount table
    // could not be read.
    MountAnswer tapeMountAnswer();
    QString getSelectedDriveAddress();
    void loadTape();
    void unLoadTape();
    void unMountDrive();
    void waitForUnMount();

    // Format
    void btnFormat(QAbstractButton *sender = nullptr);
    void executeFormatTape();
    void formatDrive();
    void controlTextDidChange(QLineEdit *field);

    // Firmware
    void btnUpgrade(QAbstractButton *sender = nullptr);
    void updateFirmware();

    // Log retrieval, standard test, host validation
    void btnRetrieveLog(QAbstractButton *sender = nullptr);
    void retrieveLog();
    void btnRunTest(QAbstractButton *sender = nullptr);
    void standardTest();
    void btnHostValidation(QAbstractButton *sender = nullptr);
    void hostValidation();
    // Runs itdt on the selected drive in the form the diagnostics share (-R
    // and -LP the output folder, -f the drive's id, then `commandWord`) and
    // records the result. False, with nothing run, when the itdt path, the
    // output folder or the selection is unset; otherwise whether the run left
    // the success code. Defined in operations/standardtest.cpp.
    bool runDiagnostic(const QString &commandWord);
    // The checks the log retrieval, the standard test and the host validation
    // share before they ask anything: paths set, a drive selected, its tape not
    // mounted (else the alert with these texts). True when the action may go on.
    bool diagnosticMayStart(const QString &mountedTitle, const QString &mountedText);
    // The mounted-tape refusal of the firmware update and the diagnostics:
    // "Error: Tape needs to be un-mounted" and the alert with these texts when
    // the tape is mounted or the mount table cannot be read. True when refused.
    bool refuseMountedTape(const QString &mountedTitle, const QString &mountedText);

    // Mounted-drive records
    void btnClearPreferences(QAbstractButton *sender = nullptr);

    // Drive table
    void tableViewSelectionDidChange();
    DriveTableModel *driveModel() const { return m_model; }

    // Runs `work` off the GUI thread and waits for it while the window keeps
    // painting and queued posts keep running; user input is held back, so no
    // second operation can start meanwhile. For tool runs that belong to the
    // GUI thread's turn (unmount, polls, forced reformat, eject).
    QString runResponsive(const std::function<QString()> &work);

    // Posts `f` to the GUI thread (first in, first out).
    void postToMain(std::function<void()> f);
    // Queues `f` on the global thread pool.
    static void runInBackground(std::function<void()> f);

    // Records a tool's output: an empty output leaves lastExitCode as it was,
    // otherwise the code is extracted; the output becomes lastStatusFeedBack.
    void recordResult(const QString &output);
    // shell() followed by recordResult(); returns the output.
    QString runTool(const QString &launchPath, const QStringList &arguments);
    bool lastRunSucceeded() const;

    // True while a tool run started by runResponsive() is in flight.
    bool isWaitingResponsive() const { return m_responsiveDepth > 0; }

Q_SIGNALS:
    // A start with no program path stored: the operator has to set them up.
    // The application answers by showing the preferences window.
    void preferencesNeeded();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void buildLayout();
    void connectActions();
    // Loads and validates the paths, then scans or says what is wrong.
    void checkPathsAndScan();
    void setMountLabel(const QString &text);
    // Mount steps act on one drive: the one selected when the mount started.
    void mountInBackground(const DrivePtr &drive);
    void runLoadVerb(const DrivePtr &drive, const QString &verb);
    QString getSelectedDriveAddress(const DrivePtr &drive);
    // Shows why and fails the Mount button when the drive's name cannot be a
    // mount point; `operation` is "Mount" or "Unmount".
    bool refuseUnsafeMountName(const DrivePtr &drive, const QString &operation);
    QString mountPointOfSelection() const;
    // Runs "umount -v <mountPoint>" as found by the login shell; true when it
    // answered that the target is busy.
    bool runUmount(const QString &mountPoint);
    // The format's mounted check: Yes also while an ltfs daemon still holds
    // the drive after its volume left the mount table.
    MountAnswer formatMountAnswer(const DrivePtr &drive);
    // Names the ltfs processes an unmount has waited for longer than
    // holderReportIntervalMs.
    void reportHolders(const QList<LtfsHolder> &holders);

    DriveTableModel *m_model = nullptr;
    bool m_appeared = false;
    // Set while a first start's setup has not yet produced valid paths.
    bool m_awaitingSetup = false;
    int m_responsiveDepth = 0;
    bool m_pollInFlight = false;
    // The volume the unmount waits for, and since when.
    QString m_unmountPoint;
    QElapsedTimer m_unmountClock;
    qint64 m_lastHolderReportMs = 0;
    QStringList m_lastVolumeUsers;
    // The drive Format was pressed on: the format goes on only while it is
    // still the selected drive.
    DrivePtr m_formatTarget;
};

} // namespace tapedesk
