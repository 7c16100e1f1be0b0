// The engine's own parts: start-up, the actions' entry point, the selection
// and the hand-offs between the GUI thread and the background. The workflows
// are in their own files beside this one; feedback.cpp holds what they show.

#include "operations/TapeEngine.h"

#include "operations/Texts.h"
#include "tools/Console.h"
#include "tools/HandOff.h"
#include "tools/ProcessRunner.h"
#include "tools/SettingsStore.h"
#include "tools/Shell.h"
#include "tools/ToolPaths.h"

#include <QEventLoop>
#include <QTimer>
#include <thread>

namespace tapedesk {

TapeEngine::TapeEngine(Face &face, QObject *parent) : QObject(parent), m_face(face)
{
    timer = new QTimer(this); // a plain timer that is never scheduled until an unmount replaces it
    SettingsStore::setProblemListener([this](const QString &problem) { showResults(false, problem); });
}

TapeEngine::~TapeEngine()
{
    SettingsStore::setProblemListener({});
    // Background parts post back to this engine; let them finish first. A
    // hung tool would keep them forever, so its process goes first.
    children::killAll();
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
}

void TapeEngine::start()
{
    const QString mounted = runResponsive([this] { return shell(QStringLiteral("mount | grep ltfs")); });
    consoleLine(QStringView(mounted));
    checkPathsAndScan();
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
    if (m_awaitingSetup && !m_busy)
        checkPathsAndScan();
}

QString TapeEngine::shell(const QString &launchPath, const QStringList &arguments)
{
    return shellLaunch(launchPath, arguments, lastErrorOutput);
}

QString TapeEngine::shell(const QString &command)
{
    return shellCommand(command);
}

void TapeEngine::refreshDriveTable()
{
    postToMain([this] { m_face.drivesChanged(driveList.snapshot(), selectedDrive.get()); });
}

void TapeEngine::setMountLabel(const QString &text)
{
    m_face.setMountCaption(text);
}

void TapeEngine::postToMain(std::function<void()> f)
{
    postTo(this, [this, f = std::move(f)] {
        flushPendingOutput();
        f();
    });
}

void TapeEngine::runInBackground(std::function<void()> f)
{
    startInBackground(std::move(f));
}

QString TapeEngine::runResponsive(const std::function<QString()> &work)
{
    QEventLoop loop;
    QString result;
    std::atomic<bool> done{false};
    ++m_responsiveDepth;
    std::thread worker([&] {
        result = work();
        done = true;
        postTo(&loop, [&loop] { loop.quit(); });
    });
    while (!done)
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    worker.join();
    --m_responsiveDepth;
    return result;
}

} // namespace tapedesk
