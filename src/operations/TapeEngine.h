#pragma once

#include "drives/Drive.h"
#include "operations/DriveLock.h"
#include "operations/Face.h"
#include "operations/Journal.h"
#include "operations/MissingDrive.h"
#include "operations/OperationContext.h"
#include "operations/Verdict.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QStringList>
#include <memory>
#include <optional>

namespace tapedesk {

class ScanWorkflow;
class MountWorkflow;
class UnmountWorkflow;
class FormatWorkflow;
class FirmwareWorkflow;
class RetrieveLogWorkflow;
class StandardTestWorkflow;
class HostValidationWorkflow;
class RecoverWorkflow;
class VolumeDetailsReader;

// The action as the operator knows it: "Mount", "Host Validation", ...
QString actionName(Action action);

// What an operation is called while it runs: "Formatting tape0", "Scanning".
QString operationTitle(Action action, const QString &driveId, bool unmount = false);

// The tape operations without a window: the front door the faces use. The
// engine keeps the rule of one operation at a time, the drive lock, the
// operator's Stop and the operation's record; each workflow is a class of its
// own that owns its state (see docs/architecture.md), and what the operator
// sees goes through the Face the engine was made with. The engine lives on
// the GUI thread (the thread of the event loop that runs it).
class TapeEngine : public QObject
{
    Q_OBJECT

public:
    explicit TapeEngine(Face &face, QObject *parent = nullptr);
    ~TapeEngine() override;
    TapeEngine(const TapeEngine &) = delete;
    TapeEngine &operator=(const TapeEngine &) = delete;

    // What the operator asks for. Refused while another operation is under
    // way, except clearing the mounted-drive records, which touches no
    // drive: the gate closes before perform() returns.
    void perform(Action action);
    // The operator chose `drive` in the drive list (ignored while an
    // operation shows its progress).
    void selectDrive(const DrivePtr &drive);
    DrivePtr selectedDrive() const { return m_op.selection.get(); }
    // The first look once the front end is up: lists the ltfs mounts on the
    // console, checks the paths and scans, or says what is wrong with them.
    void start();
    // Told of every Save of the paths. Checks them again and scans only while
    // the setup a first start asked for is not yet valid.
    void preferencesSaved();
    // True from an action (or the start's scan) until nothing of it is left:
    // no progress, no background part, no queued step, no unmount wait.
    bool isOperating() const { return m_operating; }
    // The same, as the rule of one operation at a time reads it.
    bool isBusy() const { return m_operating; }
    // Ends the running tools with their process groups and starts no other:
    // for a front end that is going away (a signal, the window closing). The
    // workflow under way then fails at its next step without touching a drive.
    void abandon();

    enum class StopResult {
        Stopped,       // the operation ended as a failure (its tool ends with it)
        Refused,       // the pane says why; the operation goes on
        NothingToStop, // no operation under way, or one already stopped
    };
    // The operator's Stop. The running tool's process group gets SIGTERM, and
    // SIGKILL 5 s later if it is still there; no later step of the operation
    // runs, and the operation ends at once as stopped: one pane line naming
    // what was stopped, the failed status on the workflow's button,
    // endProgress(). A stopped unmount wait leaves the drive recorded as
    // mounted. Refused during a firmware update, and while mkltfs runs unless
    // the operator confirms that the cartridge is left unformatted.
    StopResult stop();
    // True from an accepted stop() until the stopped operation's last part
    // has unwound (its tool gone); no other action starts meanwhile.
    bool isStopping() const { return m_op.tools.isStopped(); }
    // Hands each tool's command line and output to the face as they arrive.
    void setLiveOutput(bool on) { m_op.tools.setLiveOutput(on); }
    // True while a tool run on the GUI thread's turn is in flight.
    bool isWaitingResponsive() const { return m_op.threads.isWaitingResponsive(); }

    // The selected drive's mounted volume, read again for the face.
    void refreshVolumeDetails();
    void setVolumeReadTimeoutMs(int ms);
    // Says in the pane, one finding a line, why a scan may list no drive.
    void explainMissingDrive();
    void setHostRoots(const HostRoots &roots);
    // The unmount's patience with an ltfs daemon before the pane names it.
    void setHolderReportInterval(qint64 ms);
    // The drive list was changed from outside the workflows.
    void refreshDriveTable();
    // A message in the pane, as a workflow shows it.
    void showMessage(bool clear, const QString &text) { m_op.show(clear, text); }

    // One operation as the operator and the journal know it.
    struct OperationRecord
    {
        Action action = Action::Scan;
        QString title; // "Formatting tape0"
        QString drive; // empty for a scan
        QDateTime started;
        QElapsedTimer clock;
        std::optional<Verdict> verdict; // once it has ended
        bool ended = false;
        // "Complete", "Failed", "Refused", "Cancelled" or "Stopped".
        QString verdictName() const;
    };
    // The operation under way, or the last one (GUI thread).
    const OperationRecord &lastOperation() const { return m_record; }
    // Every operation's record (operations/Journal.h).
    Journal &journal() { return m_journal; }

Q_SIGNALS:
    // A start with no program path stored: the operator has to set them up.
    void preferencesNeeded();
    // The operation isOperating() told of is over; lastOperation() holds its verdict.
    void operationEnded();
    // An action was refused before it began (its drive is another
    // process's); the pane says why.
    void operationRefused(const QString &reason);
    // A tool run ended: the program, its arguments and the exit code read
    // from its output ("" when it printed none). Emitted on the thread that
    // ran it.
    void toolRan(const QString &program, const QStringList &arguments, const QString &code);

private:
    void performAction(Action action);
    // Starts an operation: takes the selected drive's lock for `action`
    // where it acts on a drive. False, after saying why, when it may not.
    bool beginOperation(Action action);
    // Ends the operation once nothing of it is left.
    void checkOperationEnded();
    // Loads and validates the paths, then scans or says what is wrong.
    void checkPathsAndScan();
    void setMountCaption(const QString &text);
    void openRecord(Action action);
    void closeRecord();

    Face &m_face;
    Journal m_journal;
    OperationContext m_op;
    std::unique_ptr<ScanWorkflow> m_scan;
    std::unique_ptr<MountWorkflow> m_mount;
    std::unique_ptr<UnmountWorkflow> m_unmount;
    std::unique_ptr<FormatWorkflow> m_format;
    std::unique_ptr<FirmwareWorkflow> m_firmware;
    std::unique_ptr<RetrieveLogWorkflow> m_retrieveLog;
    std::unique_ptr<StandardTestWorkflow> m_standardTest;
    std::unique_ptr<HostValidationWorkflow> m_hostValidation;
    std::unique_ptr<RecoverWorkflow> m_recover;
    std::unique_ptr<VolumeDetailsReader> m_volume;
    bool m_operating = false;
    // The action under way, whose button shows a stop's failure.
    Action m_action = Action::Scan;
    DriveLock m_driveLock;
    // Set while a first start's setup has not yet produced valid paths.
    bool m_awaitingSetup = false;
    OperationRecord m_record;
};

} // namespace tapedesk
