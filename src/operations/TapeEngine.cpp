// The front door: the actions, the selection, start-up, the operator's Stop
// and the rule of one operation at a time. Each workflow is a class of its
// own beside this file (see docs/architecture.md); what they share is the
// OperationContext.

#include "operations/TapeEngine.h"

#include "operations/FirmwareWorkflow.h"
#include "operations/FormatWorkflow.h"
#include "operations/HostValidationWorkflow.h"
#include "operations/MountWorkflow.h"
#include "operations/RecoverWorkflow.h"
#include "operations/RetrieveLogWorkflow.h"
#include "operations/ScanWorkflow.h"
#include "operations/StandardTestWorkflow.h"
#include "operations/Texts.h"
#include "operations/UnmountWorkflow.h"
#include "operations/VolumeDetailsReader.h"
#include "support/Dialogs.h"
#include "tools/Console.h"
#include "tools/HandOff.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"

#include <QHash>

namespace tapedesk {

QString actionName(Action action)
{
    static const QHash<Action, QString> names{
        {Action::Scan, QStringLiteral("Scan")},
        {Action::Mount, QStringLiteral("Mount")},
        {Action::Format, QStringLiteral("Format")},
        {Action::Test, QStringLiteral("Test")},
        {Action::HostValidation, QStringLiteral("Host Validation")},
        {Action::RetrieveLog, QStringLiteral("Retrieve Log")},
        {Action::Upgrade, QStringLiteral("Upgrade")},
        {Action::Recover, QStringLiteral("Recover")},
        {Action::ClearMountedDrives, QStringLiteral("Clear Mounted Drives")}};
    return names.value(action);
}

QString operationTitle(Action action, const QString &driveId, bool unmount)
{
    static const QHash<Action, QString> verbs{
        {Action::Scan, QStringLiteral("Scanning for drives")},
        {Action::Mount, QStringLiteral("Mounting")},
        {Action::Format, QStringLiteral("Formatting")},
        {Action::Test, QStringLiteral("Testing")},
        {Action::HostValidation, QStringLiteral("Validating the host with")},
        {Action::RetrieveLog, QStringLiteral("Retrieving the log of")},
        {Action::Upgrade, QStringLiteral("Updating the firmware of")},
        {Action::Recover, QStringLiteral("Recovering the volume in")},
        {Action::ClearMountedDrives, QStringLiteral("Clearing the mounted-drive records")}};
    QString verb = unmount && action == Action::Mount ? QStringLiteral("Unmounting") : verbs.value(action);
    if (action == Action::Scan || action == Action::ClearMountedDrives || driveId.isEmpty())
        return verb;
    return verb + QLatin1Char(' ') + driveId;
}

QString TapeEngine::OperationRecord::verdictName() const
{
    return verdict ? outcomeName(verdict->outcome) : QStringLiteral("Ended");
}

TapeEngine::TapeEngine(Face &face, QObject *parent)
    : QObject(parent), m_face(face), m_op(*this, face, m_journal),
      m_scan(std::make_unique<ScanWorkflow>(m_op)), m_mount(std::make_unique<MountWorkflow>(m_op)),
      m_unmount(std::make_unique<UnmountWorkflow>(m_op)), m_format(std::make_unique<FormatWorkflow>(m_op)),
      m_firmware(std::make_unique<FirmwareWorkflow>(m_op)),
      m_retrieveLog(std::make_unique<RetrieveLogWorkflow>(m_op)),
      m_standardTest(std::make_unique<StandardTestWorkflow>(m_op)),
      m_hostValidation(std::make_unique<HostValidationWorkflow>(m_op)),
      m_recover(std::make_unique<RecoverWorkflow>(m_op)),
      m_volume(std::make_unique<VolumeDetailsReader>(*this, face, m_op.selection))
{
    m_op.mount = m_mount.get();
    m_op.unmount = m_unmount.get();
    m_op.format = m_format.get();
    m_op.recover = m_recover.get();
    m_op.setMountCaption = [this](const QString &caption) { setMountCaption(caption); };
    m_op.refreshVolume = [this] { refreshVolumeDetails(); };
    m_op.threads.setHooks([this] { m_op.feedback.flush(); }, [this] { checkOperationEnded(); });
    m_op.tools.onToolRan = [this](const QString &program, const QStringList &arguments, const QString &code) {
        Q_EMIT toolRan(program, arguments, code);
    };
    SettingsStore::setProblemListener([this](const QString &problem) { m_op.show(false, problem); });
}

TapeEngine::~TapeEngine()
{
    SettingsStore::setProblemListener({});
    // Background parts post back to this engine; let them finish first. A
    // hung tool would keep them forever, so its process goes first, and no
    // step after it may start another.
    abandon();
    waitForBackground();
}

void TapeEngine::perform(Action action)
{
    // A stopped tool that ignored SIGTERM has a few seconds left; its drive
    // is not free before it has gone.
    if (m_op.tools.isStopped() && action != Action::ClearMountedDrives) {
        m_op.show(false,
                  QStringLiteral("Not started: the stopped tool has not ended yet - try again in a moment"));
        return;
    }
    // The face holds its controls while an operation runs; this keeps the
    // rule for a front end that has none to hold, and for the moment before
    // the face has heard of the operation.
    if (m_operating) {
        if (action == Action::ClearMountedDrives) {
            // Touches no drive, so it may come between the steps of another
            // operation, whose verdict it leaves alone.
            m_op.support.resetMountedDrives();
            m_op.show(false, QStringLiteral("Mounted drives reset"));
            return;
        }
        consoleLine(QStringView(QStringLiteral("Another operation is running; the request waits for none.")));
        return;
    }
    if (!beginOperation(action))
        return;
    m_action = action;
    m_op.threads.runStep([&] { performAction(action); });
}

void TapeEngine::performAction(Action action)
{
    switch (action) {
    case Action::Scan:
        return m_scan->perform();
    case Action::Mount:
        return m_mount->perform();
    case Action::Format:
        return m_format->perform();
    case Action::Test:
        return m_standardTest->perform();
    case Action::HostValidation:
        return m_hostValidation->perform();
    case Action::RetrieveLog:
        return m_retrieveLog->perform();
    case Action::Upgrade:
        return m_firmware->perform();
    case Action::ClearMountedDrives:
        m_op.support.resetMountedDrives();
        m_op.show(false, QStringLiteral("Mounted drives reset"));
        m_op.finish(Action::ClearMountedDrives, Verdict::complete(QStringLiteral("Mounted drives reset")));
        return;
    case Action::Recover:
        return m_recover->perform();
    }
}

void TapeEngine::selectDrive(const DrivePtr &drive)
{
    if (!drive || m_op.feedback.progressShown())
        return;
    m_op.selection.set(drive);
    setMountCaption(drive->mounted() ? QStringLiteral("UNMOUNT") : QStringLiteral("MOUNT"));
    m_op.status(Action::RetrieveLog, 2);
    m_op.show(true, QStringLiteral("Ready \n") + drive->id() + QStringLiteral(" Selected"));
    m_scan->explainStoppedLtfs(drive);
}

bool TapeEngine::beginOperation(Action action)
{
    const DrivePtr drive = m_op.selection.get();
    openRecord(action);
    if (action != Action::Scan && action != Action::ClearMountedDrives && drive) {
        const DriveRecord record = drive->record();
        const QString key = record.serialNumber.isEmpty() ? record.id : record.serialNumber;
        QString holder;
        if (!m_driveLock.acquire(key, actionName(action), holder)) {
            const QString reason =
                QStringLiteral("Refused: %1 is in use by %2 - one operation at a time per drive")
                    .arg(record.id, holder);
            m_record.verdict = Verdict::refused(reason);
            closeRecord();
            m_op.show(true, reason);
            Q_EMIT operationRefused(reason);
            return false;
        }
    }
    m_operating = true;
    m_op.beginOperation();
    return true;
}

void TapeEngine::checkOperationEnded()
{
    if (!m_operating || m_op.feedback.progressShown() || !m_op.threads.idle() || m_unmount->isWaiting())
        return;
    m_operating = false;
    m_op.tools.clearStop();
    m_driveLock.release();
    // Every path of every workflow gives a verdict; one that did not is no
    // success either.
    m_record.verdict =
        m_op.verdict().value_or(Verdict::failed(QStringLiteral("The operation gave no verdict")));
    closeRecord();
    m_op.feedback.operationOver();
    m_face.operationEnded(m_record.action, *m_record.verdict);
    Q_EMIT operationEnded();
}

void TapeEngine::openRecord(Action action)
{
    const DrivePtr drive = m_op.selection.get();
    const bool onDrive = drive && action != Action::Scan && action != Action::ClearMountedDrives;
    m_record = OperationRecord{};
    m_record.action = action;
    m_record.drive = onDrive ? drive->id() : QString();
    m_record.title = operationTitle(action, m_record.drive, onDrive && drive->mounted());
    m_record.started = QDateTime::currentDateTime();
    m_record.clock.start();
    m_journal.begin(m_record.title, m_record.started);
}

void TapeEngine::closeRecord()
{
    if (m_record.ended || !m_record.clock.isValid())
        return;
    m_record.ended = true;
    QString verdict = m_record.verdictName();
    if (m_record.verdict && !m_record.verdict->reason.isEmpty())
        verdict += QStringLiteral(": ") + m_record.verdict->reason;
    m_journal.end(m_record.title, verdict, QDateTime::currentDateTime(), m_record.clock.elapsed());
}

void TapeEngine::start()
{
    m_operating = true;
    m_action = Action::Scan;
    openRecord(Action::Scan);
    m_op.beginOperation();
    m_op.threads.runStep([this] {
        QString mounted;
        m_op.threads.runResponsive(
            [&] { mounted = m_op.tools.runCommand(QStringLiteral("mount | grep ltfs")).out; });
        consoleLine(QStringView(mounted));
        checkPathsAndScan();
    });
}

void TapeEngine::checkPathsAndScan()
{
    if (!m_op.support.preferencesValid()) {
        // With no program path stored there is nothing to correct, only to
        // set up: the front end asks for the paths instead.
        const bool firstStart = noToolPathSet();
        QString message = QStringLiteral("Looks like preferences settings could be wrong.");
        if (!firstStart)
            message += QLatin1Char('\n') + preferencesProblem();
        m_op.show(true, message);
        m_op.endProgress();
        m_op.finish(Action::Scan, Verdict::refused(message.section(QLatin1Char('\n'), -1)));
        if (firstStart) {
            m_awaitingSetup = true;
            Q_EMIT preferencesNeeded();
        }
        return;
    }
    m_awaitingSetup = false;
    if (m_op.support.isPreferencesSet()) {
        m_op.status(Action::Scan, 3);
        m_scan->scan();
    }
}

void TapeEngine::preferencesSaved()
{
    // Only the setup a first start asked for goes on to a scan: at any other
    // time a Save may come while an operation runs, and the operator scans
    // when ready. Once the paths are valid the setup is over.
    if (m_awaitingSetup && !m_op.feedback.progressShown()) {
        if (!m_operating) {
            openRecord(Action::Scan);
            m_op.beginOperation();
        }
        m_operating = true;
        m_action = Action::Scan;
        m_op.threads.runStep([this] { checkPathsAndScan(); });
    }
}

void TapeEngine::abandon()
{
    m_op.tools.abandon();
}

TapeEngine::StopResult TapeEngine::stop()
{
    if (!m_operating || m_op.tools.isStopped())
        return StopResult::NothingToStop;
    const DrivePtr drive = m_op.selection.get();
    const QString driveId = drive ? drive->id() : QString();
    if (m_action == Action::Upgrade) {
        m_op.show(false, QStringLiteral("Stop refused: a firmware update cut short can leave the drive "
                                        "unusable, so it runs to its end"));
        return StopResult::Refused;
    }
    QString what;
    bool confirmedMkltfs = false;
    for (quint64 confirmedRun = 0;;) {
        const ToolRunner::StopRequest request = m_op.tools.requestStop(confirmedRun);
        if (request.stopped) {
            what = request.tool;
            confirmedMkltfs = request.mkltfs;
            break;
        }
        // The question waits for the operator while mkltfs goes on, and may
        // find it over (or the whole operation) once answered: asked again
        // for another run, not at all when nothing is left.
        if (!dialogs().confirm(kStopFormatTitle,
                               QStringLiteral("Stopping mkltfs now leaves the cartridge in %1 unformatted: "
                                              "it holds no volume until it is formatted again.")
                                   .arg(driveId))) {
            m_op.show(false, QStringLiteral("Stop refused: mkltfs goes on formatting the cartridge"));
            return StopResult::Refused;
        }
        if (!m_operating || m_op.tools.isStopped())
            return StopResult::NothingToStop;
        confirmedRun = request.run;
    }

    QString tail;
    if (m_unmount->hasWait()) {
        what = m_unmount->endWait();
        tail = QStringLiteral(" - the volume may still be in use");
    } else if (confirmedMkltfs) {
        tail = QStringLiteral(" - the cartridge is left unformatted");
    }
    if (what.isEmpty())
        what = actionName(m_action);
    if (m_action != Action::Scan && !driveId.isEmpty())
        what += QStringLiteral(" on ") + driveId;
    const QString line = QStringLiteral("Stopped by the operator: ") + what + tail;
    consoleLine(QStringView(line));
    m_op.show(false, line);
    m_op.finish(judgedButton(m_action), Verdict::stopped(line));
    m_op.endProgress();
    return StopResult::Stopped;
}

void TapeEngine::refreshVolumeDetails()
{
    m_volume->refresh();
}

void TapeEngine::setVolumeReadTimeoutMs(int ms)
{
    m_volume->setTimeoutMs(ms);
}

void TapeEngine::explainMissingDrive()
{
    m_scan->explainMissingDrive();
}

void TapeEngine::setHostRoots(const HostRoots &roots)
{
    m_scan->setHostRoots(roots);
}

void TapeEngine::setHolderReportInterval(qint64 ms)
{
    m_unmount->setHolderReportInterval(ms);
}

void TapeEngine::refreshDriveTable()
{
    m_op.feedback.drivesChanged();
}

void TapeEngine::setMountCaption(const QString &text)
{
    m_face.setMountCaption(text);
    // The caption follows the selected drive's mounted state, and so do its details.
    refreshVolumeDetails();
}

} // namespace tapedesk
