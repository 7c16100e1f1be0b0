#pragma once

#include "drives/Drive.h"
#include "operations/DriveLock.h"
#include "operations/Face.h"
#include "operations/Journal.h"
#include "operations/MissingDrive.h"
#include "operations/MountCheck.h"
#include "support/Support.h"
#include "tools/ProcessRunner.h"
#include "tools/Synchronized.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QStringList>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

class QTimer;

namespace tapedesk {

// The action as the operator knows it: "Mount", "Host Validation", ...
QString actionName(Action action);

// What an operation is called while it runs: "Formatting tape0", "Scanning".
QString operationTitle(Action action, const QString &driveId, bool unmount = false);

// The text of the last tool output, carried from one step to the next.
extern Synchronized<QString> lastStatusFeedBack;

// The tape operations without a window: the state they share, the workflows
// and their feedback. Each workflow's code lives in its own file under
// operations/ (see docs/architecture.md); what the operator sees goes through
// the Face the engine was made with. The engine lives on the GUI thread (the
// thread of the event loop that runs it); background parts run on the global
// thread pool and every change they make visible is posted back to it, in
// the order it was made. One operation runs at a time.
class TapeEngine : public QObject
{
    Q_OBJECT

public:
    explicit TapeEngine(Face &face, QObject *parent = nullptr);
    ~TapeEngine() override;
    TapeEngine(const TapeEngine &) = delete;
    TapeEngine &operator=(const TapeEngine &) = delete;

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

    // What the operator asks for. Refused while another operation runs,
    // except clearing the mounted-drive records, which touches no drive.
    void perform(Action action);
    // The operator chose `drive` in the drive list.
    void selectDrive(const DrivePtr &drive);
    // The first look once the front end is up: lists the ltfs mounts on the
    // console, checks the paths and scans, or says what is wrong with them.
    void start();
    // Told of every Save of the paths. Checks them again and scans only while
    // the setup a first start asked for is not yet valid.
    void preferencesSaved();
    // True from an operation's startProgress() until its endProgress().
    bool isBusy() const { return m_busy; }
    // True from an action (or the start's scan) until nothing of it is left:
    // no progress, no background part, no queued step, no unmount wait.
    bool isOperating() const { return m_operating; }
    // Ends the running tools with their process groups and starts no other:
    // for a front end that is going away (a signal, the window closing). The
    // workflow under way then fails at its next step without touching a drive.
    void abandon();
    // What stop() did.
    enum class StopResult {
        Stopped,       // the operation ended as a failure (its tool ends with it)
        Refused,       // the pane says why; the operation goes on
        NothingToStop, // no operation under way, or one already stopped
    };
    // The operator's Stop (operations/stop.cpp). The running tool's process
    // group gets SIGTERM, and SIGKILL 5 s later if it is still there; no later
    // step of the operation runs, and the operation ends at once as a failure:
    // one pane line naming what was stopped, the failed status on the
    // workflow's button, endProgress(). Nothing it had not yet recorded is
    // recorded; a stopped unmount wait leaves the drive recorded as mounted.
    // Refused during a firmware update, and while mkltfs runs unless the
    // operator confirms that the cartridge is left unformatted.
    StopResult stop();
    // True from an accepted stop() until the stopped operation's last part
    // has unwound (its tool gone); no other action starts meanwhile.
    bool isStopping() const { return m_stopped.load(); }
    // Hands each tool's command line and output to the face as they arrive
    // (Face::toolStarted, Face::toolOutput).
    void setLiveOutput(bool on) { m_liveOutput = on; }

    // Volume details (volume.cpp): reads the selected drive's mounted volume
    // off the GUI thread and hands it to the face; a read that has not
    // answered after volumeReadTimeoutMs is reported as timed out, and no
    // second read of it starts while it hangs.
    void refreshVolumeDetails();
    int volumeReadTimeoutMs = 5000;
    // Says in the pane, one finding a line, why a scan may list no drive
    // (volume.cpp). Reads the host under `hostRoots`.
    void explainMissingDrive();
    HostRoots hostRoots;
    // One operation as the operator and the journal know it.
    struct OperationRecord
    {
        Action action = Action::Scan;
        QString title; // "Formatting tape0"
        QString drive; // empty for a scan
        QDateTime started;
        QElapsedTimer clock;
        // The last verdict status of the button that judges the action: 0
        // complete, 1 failed, -1 none.
        int status = -1;
        bool stopped = false;
        bool ended = false;
        // "Complete", "Failed", "Stopped" or "Ended" (no verdict given).
        QString verdict() const;
    };
    // The operation under way, or the last one (GUI thread).
    const OperationRecord &lastOperation() const { return m_record; }
    // Every operation's record (operations/Journal.h).
    Journal journal;

    // Command runners
    QString shell(const QString &launchPath, const QStringList &arguments);
    QString shell(const QString &command);

    // Operation feedback
    void showResults(bool clear, const QString &result);
    void setExitCode(const QString &results);
    void displayError();
    QString localizedString(const QString &key) const;
    void changeButtonStatus(Action action, int status, bool showError);
    void startProgress();
    void endProgress();
    // startProgress() at once, for a tool run on the GUI thread's turn.
    void holdActions();
    void showCloseAlert(const QString &title, const QString &message,
                        const std::function<void(bool)> &completion);
    void refreshDriveTable();

    // Drive scan
    void scanForDrives();

    // Mount and unmount
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
    void executeFormatTape();
    void formatDrive();

    // Firmware, log retrieval, standard test, host validation
    void updateFirmware();
    void retrieveLog();
    void standardTest();
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

    // Runs `work` off the GUI thread and waits for it while the event loop
    // keeps turning (the window painting, queued posts running); user input is
    // held back but for the face's Stop (Face::holdInputButStop), so no second
    // operation can start meanwhile. For tool runs that belong to the GUI
    // thread's turn (unmount, polls, forced reformat, eject). After a stop it
    // does not return but unwinds the step that called it.
    QString runResponsive(const std::function<QString()> &work);
    // True while a tool run started by runResponsive() is in flight.
    bool isWaitingResponsive() const { return m_responsiveDepth > 0; }

    // Posts `f` to the GUI thread (first in, first out).
    void postToMain(std::function<void()> f);
    // Runs `f` on the GUI thread after `ms` milliseconds.
    void postLater(int ms, std::function<void()> f);
    // Queues `f` on the global thread pool.
    void runInBackground(std::function<void()> f);

    // Records a tool's output: an empty output leaves lastExitCode as it was,
    // otherwise the code is extracted; the output becomes lastStatusFeedBack.
    void recordResult(const QString &output);
    // shell() followed by recordResult(); returns the output.
    QString runTool(const QString &launchPath, const QStringList &arguments);
    bool lastRunSucceeded() const;

Q_SIGNALS:
    // A start with no program path stored: the operator has to set them up.
    void preferencesNeeded();
    // The operation isOperating() told of is over.
    void operationEnded();
    // An action was refused before it began (its drive is another
    // process's); the pane says why.
    void operationRefused(const QString &reason);
    // A tool run ended: the program, its arguments and the exit code read
    // from its output ("" when it printed none). Emitted on the thread that
    // ran it.
    void toolRan(const QString &program, const QStringList &arguments, const QString &code);

private:
    // Thrown where a stopped operation would go on (a tool run, the end of a
    // responsive wait) and caught by runStep() and runInBackground(): the
    // rest of the workflow is skipped, and stop() has already shown its end.
    struct Stopped
    {
    };
    void throwIfStopped() const;
    // Records the tool a run is about to start, or throws Stopped; and forgets it.
    void toolStarting(const QString &launchPath, const QStringList &arguments);
    void toolEnded();
    // stop()'s end of the unmount's wait: the drive as it was before it.
    QString endUnmountWait();

    // The actions as the operator asks for them (perform()).
    void scanAction();
    void mountAction();
    void formatAction();
    void upgradeAction();
    void retrieveLogAction();
    void runTestAction();
    void hostValidationAction();
    void clearMountedDrivesAction();
    void recoverAction();

    void performAction(Action action);
    // Runs `f` as one step of the operation, then ends the operation if
    // nothing of it is left.
    void runStep(const std::function<void()> &f);
    void setBusy(bool busy);
    // Posts `f` counted as a queued step of the operation. A post from
    // another thread than the engine's is dropped once the operation is
    // stopped: a stopped operation's background part shows nothing more.
    void post(std::function<void()> f);
    void post(std::function<void()> f, bool dropWhenStopped);
    // Starts an operation: takes the selected drive's lock for `action`
    // where it acts on a drive. False, after saying why, when it may not.
    bool beginOperation(Action action);
    // Ends the operation once nothing of it is left.
    void checkOperationEnded();
    // Hands the messages showResults() has collected to the face in one go
    // (GUI thread). Every other post runs it first, so no visible change
    // overtakes a message posted before it.
    void flushPendingOutput();
    // Loads and validates the paths, then scans or says what is wrong.
    void checkPathsAndScan();
    void setMountLabel(const QString &text);
    // Mount steps act on one drive: the one selected when the mount started.
    void mountInBackground(const DrivePtr &drive);
    void runLoadVerb(const DrivePtr &drive, const QString &verb);
    QString getSelectedDriveAddress(const DrivePtr &drive);
    // Shows why and fails the Mount action when the drive's name cannot be a
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
    // Marks the listed drives whose volume is in the mount table while no
    // ltfs process serves it, and says so when such a drive is selected.
    void markStoppedLtfs();
    void explainStoppedLtfs(const DrivePtr &drive);
    // Volume recovery (recover.cpp): after a mount that ltfs refused for want
    // of ltfsck, the reason and the question; then the checks, ltfsck in the
    // background and its verdict.
    void offerRecovery(const DrivePtr &drive);
    void askRecover(const DrivePtr &drive);
    void recoverVolume(const DrivePtr &drive);
    void recoverInBackground(const DrivePtr &drive, const QString &ltfsck);
    // The missing-drive findings in the pane, on the calling thread.
    void reportMissingDrive();
    // Opens the record of an operation that starts, and closes it.
    void openRecord(Action action);
    void closeRecord();
    // Names the tool to the face and the journal; the observer hands its
    // output to both.
    ChunkObserver announceTool(const QString &program, const QStringList &arguments);
    // Queues a tool's start or output for the face. A tool may print far
    // faster than the GUI thread takes posts, and a post per chunk then keeps
    // it from ever turning; what arrives while one hand-over is on its way
    // joins it instead.
    void queueLive(int kind, QByteArrayView bytes, const QString &program = {},
                   const QStringList &arguments = {});
    void handOverLive();
    // Runs a tool whose exit status is its verdict, its output live where
    // live output is on.
    ProcessResult runForExitStatus(const QString &program, const QStringList &arguments);

    // The volume read a face is waiting for: a later refresh or the time-out
    // makes an older answer stale. The guard tells a detached reader's late
    // answer whether the engine is still there.
    quint64 m_volumeRead = 0;
    QString m_volumeReadPoint; // of the reader started last
    bool m_volumeReadTimedOut = false;
    std::shared_ptr<std::atomic<bool>> m_volumeReadHangs = std::make_shared<std::atomic<bool>>(false);
    std::shared_ptr<int> m_volumeReadGuard = std::make_shared<int>(0);

    Face &m_face;
    bool m_busy = false;
    bool m_operating = false;
    bool m_liveOutput = false;
    std::atomic<bool> m_abandoned{false};
    // The action under way, whose button shows a stop's failure.
    Action m_action = Action::Scan;
    // Set by an accepted stop() until the operation has ended; the tool runs
    // of the operation's threads obey it (StopWatch).
    std::atomic<bool> m_stopped{false};
    // The tool a run has started, so stop() can name it and refuse mkltfs
    // unconfirmed; held while a run starts, so a run either sees the stop or
    // is seen by it.
    std::mutex m_toolMutex;
    QString m_runningTool;
    bool m_runningMkltfs = false;
    quint64 m_toolRuns = 0;
    // Steps of the operation still queued for the GUI thread, and background
    // parts still running.
    std::shared_ptr<std::atomic<int>> m_queuedSteps = std::make_shared<std::atomic<int>>(0);
    int m_backgroundParts = 0; // GUI thread only
    int m_stepDepth = 0;
    DriveLock m_driveLock;
    // Set while a first start's setup has not yet produced valid paths.
    bool m_awaitingSetup = false;
    int m_responsiveDepth = 0;
    bool m_pollInFlight = false;
    // Messages on their way to the pane: how many are still queued, shared
    // with the posts that carry them (which may outlive the engine), and the
    // text of those that arrived but are not yet shown.
    std::shared_ptr<std::atomic<int>> m_queuedMessages = std::make_shared<std::atomic<int>>(0);
    QString m_collectedMessages;
    // The volume the unmount waits for, and since when.
    QString m_unmountPoint;
    QElapsedTimer m_unmountClock;
    qint64 m_lastHolderReportMs = 0;
    QStringList m_lastVolumeUsers;
    // The drives as the unmount found them, and the selection: put back when
    // its wait is stopped, since the volume may still be mounted.
    DrivePtr m_unmountSelection;
    QList<std::pair<DrivePtr, DriveRecord>> m_unmountRecords;
    // The drive Format was pressed on: the format goes on only while it is
    // still the selected drive.
    DrivePtr m_formatTarget;
    OperationRecord m_record;
    struct LivePiece
    {
        int kind; // -1 a tool's start, else an OutputStream
        QByteArray bytes;
        QString program;
        QStringList arguments;
    };
    std::mutex m_liveMutex;
    QList<LivePiece> m_livePieces;
    bool m_liveHandOverQueued = false;
};

} // namespace tapedesk
