// The engine's own parts: start-up, the actions' entry point, the selection
// and the hand-offs between the GUI thread and the background. The workflows
// are in their own files beside this one; feedback.cpp holds what they show.

#include "operations/TapeEngine.h"

#include "operations/ExitCode.h"
#include "operations/Texts.h"
#include "tools/Console.h"
#include "tools/HandOff.h"
#include "tools/ProcessRunner.h"
#include "tools/SettingsStore.h"
#include "tools/Shell.h"
#include "tools/ToolPaths.h"

#include <QEventLoop>
#include <QHash>
#include <QThread>
#include <QTimer>
#include <thread>

namespace tapedesk {

namespace {
// How long a stopped tool has to end after SIGTERM before SIGKILL follows.
constexpr int kStopGraceMs = 5000;
} // namespace

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

QString TapeEngine::OperationRecord::verdict() const
{
    if (stopped)
        return QStringLiteral("Stopped");
    if (status == 0)
        return QStringLiteral("Complete");
    if (status == 1)
        return QStringLiteral("Failed");
    return QStringLiteral("Ended");
}

TapeEngine::TapeEngine(Face &face, QObject *parent) : QObject(parent), m_face(face)
{
    timer = new QTimer(this); // a plain timer that is never scheduled until an unmount replaces it
    SettingsStore::setProblemListener([this](const QString &problem) { showResults(false, problem); });
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
    // The face holds its controls while an operation runs; this keeps the
    // rule for a front end that has none to hold.
    if (m_busy && action != Action::ClearMountedDrives) {
        consoleLine(QStringView(QStringLiteral("Another operation is running; the request waits for none.")));
        return;
    }
    // A stopped tool that ignored SIGTERM has a few seconds left; its drive
    // is not free before it has gone.
    if (m_stopped && action != Action::ClearMountedDrives) {
        showResults(
            false, QStringLiteral("Not started: the stopped tool has not ended yet - try again in a moment"));
        return;
    }
    if (!beginOperation(action))
        return;
    if (action != Action::ClearMountedDrives)
        m_action = action;
    runStep([&] { performAction(action); });
}

void TapeEngine::performAction(Action action)
{
    switch (action) {
    case Action::Scan:
        return scanAction();
    case Action::Mount:
        return mountAction();
    case Action::Format:
        return formatAction();
    case Action::Test:
        return runTestAction();
    case Action::HostValidation:
        return hostValidationAction();
    case Action::RetrieveLog:
        return retrieveLogAction();
    case Action::Upgrade:
        return upgradeAction();
    case Action::ClearMountedDrives:
        return clearMountedDrivesAction();
    case Action::Recover:
        return recoverAction();
    }
}

void TapeEngine::selectDrive(const DrivePtr &drive)
{
    if (!drive || m_busy)
        return;
    selectedDrive.set(drive);
    setMountLabel(drive->mounted() ? QStringLiteral("UNMOUNT") : QStringLiteral("MOUNT"));
    changeButtonStatus(Action::RetrieveLog, 2, true);
    showResults(true, QStringLiteral("Ready \n") + drive->id() + QStringLiteral(" Selected"));
    explainStoppedLtfs(drive);
}

bool TapeEngine::beginOperation(Action action)
{
    const bool wasOperating = m_operating;
    m_operating = true;
    const DrivePtr drive = selectedDrive.get();
    if (!wasOperating)
        openRecord(action);
    if (action == Action::Scan || action == Action::ClearMountedDrives || !drive || m_driveLock.held())
        return true;
    const DriveRecord record = drive->record();
    const QString key = record.serialNumber.isEmpty() ? record.id : record.serialNumber;
    QString holder;
    if (m_driveLock.acquire(key, actionName(action), holder))
        return true;
    m_operating = wasOperating;
    if (!wasOperating)
        closeRecord();
    const QString reason = QStringLiteral("Refused: %1 is in use by %2 - one operation at a time per drive")
                               .arg(record.id, holder);
    showResults(true, reason);
    Q_EMIT operationRefused(reason);
    return false;
}

void TapeEngine::checkOperationEnded()
{
    if (!m_operating || m_busy || m_stepDepth > 0 || m_backgroundParts > 0 || m_queuedSteps->load() > 0 ||
        (timer && timer->isActive()))
        return;
    m_operating = false;
    m_stopped = false;
    m_driveLock.release();
    closeRecord();
    Q_EMIT operationEnded();
}

void TapeEngine::runStep(const std::function<void()> &f)
{
    // A dialog or a responsive wait inside the step turns the event loop, and
    // steps queued meanwhile run inside it: none of them may end the
    // operation while this one is still under way.
    ++m_stepDepth;
    try {
        f();
    } catch (const Stopped &) {
        // stop() has shown the end; the rest of the step belongs to it.
    }
    --m_stepDepth;
    checkOperationEnded();
}

void TapeEngine::openRecord(Action action)
{
    const DrivePtr drive = selectedDrive.get();
    const bool onDrive = drive && action != Action::Scan && action != Action::ClearMountedDrives;
    m_record = OperationRecord{};
    m_record.action = action;
    m_record.drive = onDrive ? drive->id() : QString();
    m_record.title = operationTitle(action, m_record.drive, onDrive && drive->mounted());
    m_record.started = QDateTime::currentDateTime();
    m_record.clock.start();
    journal.begin(m_record.title, m_record.started);
}

void TapeEngine::closeRecord()
{
    if (m_record.ended || !m_record.clock.isValid())
        return;
    m_record.ended = true;
    journal.end(m_record.title, m_record.verdict(), QDateTime::currentDateTime(), m_record.clock.elapsed());
}

ChunkObserver TapeEngine::announceTool(const QString &program, const QStringList &arguments)
{
    journal.toolStarted(program, arguments);
    if (!m_liveOutput)
        return [this](OutputStream stream, QByteArrayView chunk) { journal.toolOutput(stream, chunk); };
    queueLive(-1, {}, program, arguments);
    return [this](OutputStream stream, QByteArrayView chunk) {
        journal.toolOutput(stream, chunk);
        queueLive(static_cast<int>(stream), chunk);
    };
}

void TapeEngine::queueLive(int kind, QByteArrayView bytes, const QString &program,
                           const QStringList &arguments)
{
    {
        const std::lock_guard lock(m_liveMutex);
        if (kind >= 0 && !m_livePieces.isEmpty() && m_livePieces.last().kind == kind)
            m_livePieces.last().bytes += bytes;
        else
            m_livePieces.append(LivePiece{kind, bytes.toByteArray(), program, arguments});
        if (m_liveHandOverQueued)
            return;
        m_liveHandOverQueued = true;
    }
    // Never dropped, not even for a stopped operation: the flag must come down.
    post([this] { handOverLive(); }, false);
}

void TapeEngine::handOverLive()
{
    QList<LivePiece> pieces;
    {
        const std::lock_guard lock(m_liveMutex);
        pieces.swap(m_livePieces);
        m_liveHandOverQueued = false;
    }
    for (const LivePiece &piece : std::as_const(pieces)) {
        if (piece.kind < 0)
            m_face.toolStarted(piece.program, piece.arguments);
        else
            m_face.toolOutput(static_cast<OutputStream>(piece.kind), piece.bytes);
    }
}

void TapeEngine::start()
{
    m_operating = true;
    m_action = Action::Scan;
    openRecord(Action::Scan);
    runStep([this] {
        const QString mounted = runResponsive([this] { return shell(QStringLiteral("mount | grep ltfs")); });
        consoleLine(QStringView(mounted));
        checkPathsAndScan();
    });
}

void TapeEngine::checkPathsAndScan()
{
    if (!support.preferencesValid()) {
        // With no program path stored there is nothing to correct, only to
        // set up: the front end asks for the paths instead.
        const bool firstStart = noToolPathSet();
        QString message = QStringLiteral("Looks like preferences settings could be wrong.");
        if (!firstStart)
            message += QLatin1Char('\n') + preferencesProblem();
        showResults(true, message);
        endProgress();
        if (firstStart) {
            m_awaitingSetup = true;
            Q_EMIT preferencesNeeded();
        }
        return;
    }
    m_awaitingSetup = false;
    if (support.isPreferencesSet()) {
        changeButtonStatus(Action::Scan, 3, true);
        scanForDrives();
        changeButtonStatus(Action::Scan, 0, true);
    }
}

void TapeEngine::preferencesSaved()
{
    // Only the setup a first start asked for goes on to a scan: at any other
    // time a Save may come while an operation runs, and the operator scans
    // when ready. Once the paths are valid the setup is over.
    if (m_awaitingSetup && !m_busy) {
        if (!m_operating)
            openRecord(Action::Scan);
        m_operating = true;
        m_action = Action::Scan;
        runStep([this] { checkPathsAndScan(); });
    }
}

void TapeEngine::abandon()
{
    m_abandoned = true;
    children::killAll();
}

QString TapeEngine::shell(const QString &launchPath, const QStringList &arguments)
{
    // As a tool that printed nothing: every workflow reads that as a failure.
    if (m_abandoned)
        return {};
    toolStarting(launchPath, arguments);
    const ChunkObserver live = announceTool(launchPath, arguments);
    const ToolResult run = shellLaunch(launchPath, arguments, live);
    if (run.started)
        lastErrorOutput.set(run.err);
    const int status = run.exitStatus.value_or(-1);
    QString output = run.out;
    const QString code = exitCodeFromOutput(output).value_or(QString());
    journal.toolEnded(status, code);
    // What a stopped tool printed decides nothing.
    toolEnded();
    Q_EMIT toolRan(launchPath, arguments, code);
    return output;
}

QString TapeEngine::shell(const QString &command)
{
    toolStarting(command, {});
    const QStringList arguments{QStringLiteral("-c"), command};
    const ChunkObserver live = announceTool(commandShell(), arguments);
    int status = -1;
    QString output = shellCommand(command, live, &status);
    journal.toolEnded(status, {});
    toolEnded();
    return output;
}

void TapeEngine::refreshDriveTable()
{
    postToMain([this] { m_face.drivesChanged(driveList.snapshot(), selectedDrive.get()); });
}

void TapeEngine::setMountLabel(const QString &text)
{
    m_face.setMountCaption(text);
    // The caption follows the selected drive's mounted state, and so do its details.
    refreshVolumeDetails();
}

void TapeEngine::post(std::function<void()> f)
{
    post(std::move(f), QThread::currentThread() != thread());
}

void TapeEngine::post(std::function<void()> f, bool dropWhenStopped)
{
    // The count is shared with the post, which is dropped unrun when the
    // engine goes first; either way the step leaves the count.
    class Step
    {
    public:
        explicit Step(std::shared_ptr<std::atomic<int>> count) : m_count(std::move(count))
        {
            m_count->fetch_add(1);
        }
        ~Step() { m_count->fetch_sub(1); }
        Step(const Step &) = delete;
        Step &operator=(const Step &) = delete;

    private:
        std::shared_ptr<std::atomic<int>> m_count;
    };
    auto step = std::make_shared<Step>(m_queuedSteps);
    postTo(this, [this, step = std::move(step), f = std::move(f), dropWhenStopped]() mutable {
        runStep([&] {
            if (!dropWhenStopped || !m_stopped)
                f();
            step.reset();
        });
    });
}

void TapeEngine::postToMain(std::function<void()> f)
{
    post([this, f = std::move(f)] {
        flushPendingOutput();
        f();
    });
}

void TapeEngine::postLater(int ms, std::function<void()> f)
{
    m_queuedSteps->fetch_add(1);
    QTimer::singleShot(ms, this, [this, f = std::move(f)] {
        runStep([&] {
            m_queuedSteps->fetch_sub(1);
            f();
        });
    });
}

void TapeEngine::runInBackground(std::function<void()> f)
{
    ++m_backgroundParts;
    startInBackground([this, f = std::move(f)] {
        {
            const StopWatch watch(m_stopped, kStopGraceMs);
            try {
                f();
            } catch (const Stopped &) {
                // stop() has shown the end; nothing of the part is left to run.
            }
        }
        // Counted down on the GUI thread, behind every post the part made.
        post([this] { --m_backgroundParts; }, false);
    });
}

QString TapeEngine::runResponsive(const std::function<QString()> &work)
{
    QEventLoop loop;
    QString result;
    std::atomic<bool> done{false};
    ++m_responsiveDepth;
    std::thread worker([&] {
        {
            const StopWatch watch(m_stopped, kStopGraceMs);
            try {
                result = work();
            } catch (const Stopped &) {
                // Thrown again on the GUI thread, below.
            }
        }
        done = true;
        postTo(&loop, [&loop] { loop.quit(); });
    });
    // Input reaches the Stop only where the face holds back the rest itself.
    const bool faceHoldsInput = m_face.holdInputButStop(true);
    while (!done)
        loop.exec(faceHoldsInput ? QEventLoop::AllEvents : QEventLoop::ExcludeUserInputEvents);
    m_face.holdInputButStop(false);
    worker.join();
    --m_responsiveDepth;
    throwIfStopped();
    return result;
}

} // namespace tapedesk
