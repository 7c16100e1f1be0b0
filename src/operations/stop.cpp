// The operator's Stop: a drive that stops answering leaves its tool waiting
// for ever, and the operation with it. Stop ends the tool and the operation
// at once as a failure, except where ending the tool could damage the drive
// (a firmware update) or, unconfirmed, the cartridge (mkltfs). The tool runs
// of the operation obey the stop through a StopWatch (tools/ProcessRunner.h);
// the workflow unwinds at its next tool run (Stopped). See also
// TapeEngine.cpp (runStep, runInBackground, runResponsive, post) and
// unmount.cpp, whose wait can be stopped too.

#include "drives/Drive.h"
#include "operations/TapeEngine.h"
#include "operations/Texts.h"
#include "support/Dialogs.h"
#include "tools/Console.h"
#include "tools/ToolPaths.h"

#include <QFileInfo>
#include <QTimer>

namespace tapedesk {

namespace {

// itdt's subcommand comes after its options, each of which takes a value:
// "-R out -LP out -f tape0 standardtest".
QString itdtCommandWord(const QStringList &arguments)
{
    qsizetype i = 0;
    while (i < arguments.size() && arguments.at(i).startsWith(QLatin1Char('-')))
        i += 2;
    return arguments.value(i);
}

} // namespace

void TapeEngine::toolStarting(const QString &launchPath, const QStringList &arguments)
{
    QString name = QFileInfo(launchPath).fileName();
    if (launchPath == ITDT_PATH.get())
        name += QLatin1Char(' ') + itdtCommandWord(arguments);
    const std::lock_guard lock(m_toolMutex);
    if (m_stopped)
        throw Stopped{};
    m_runningTool = name;
    m_runningMkltfs = launchPath == MKLTFS_PATH.get();
    ++m_toolRuns;
}

void TapeEngine::toolEnded()
{
    {
        const std::lock_guard lock(m_toolMutex);
        m_runningTool.clear();
        m_runningMkltfs = false;
    }
    throwIfStopped();
}

void TapeEngine::throwIfStopped() const
{
    if (m_stopped)
        throw Stopped{};
}

TapeEngine::StopResult TapeEngine::stop()
{
    if (!m_operating || m_stopped)
        return StopResult::NothingToStop;
    const DrivePtr drive = selectedDrive.get();
    const QString driveId = drive ? drive->id() : QString();
    if (m_action == Action::Upgrade) {
        showResults(false, QStringLiteral("Stop refused: a firmware update cut short can leave the drive "
                                          "unusable, so it runs to its end"));
        return StopResult::Refused;
    }
    QString what;
    bool confirmedMkltfs = false;
    for (quint64 confirmedRun = 0;;) {
        std::unique_lock lock(m_toolMutex);
        if (!m_runningMkltfs || m_toolRuns == confirmedRun) {
            what = m_runningTool;
            confirmedMkltfs = m_runningMkltfs;
            m_stopped = true;
            break;
        }
        const quint64 run = m_toolRuns;
        lock.unlock();
        // The question waits for the operator while mkltfs goes on, and may
        // find it over (or the whole operation) once answered: asked again
        // for another run, not at all when nothing is left.
        if (!dialogs().confirm(kStopFormatTitle,
                               QStringLiteral("Stopping mkltfs now leaves the cartridge in %1 unformatted: "
                                              "it holds no volume until it is formatted again.")
                                   .arg(driveId))) {
            showResults(false, QStringLiteral("Stop refused: mkltfs goes on formatting the cartridge"));
            return StopResult::Refused;
        }
        if (!m_operating || m_stopped)
            return StopResult::NothingToStop;
        confirmedRun = run;
    }

    QString tail;
    if (!m_unmountPoint.isEmpty()) {
        what = endUnmountWait();
        tail = QStringLiteral(" - the volume may still be in use");
    } else if (confirmedMkltfs) {
        tail = QStringLiteral(" - the cartridge is left unformatted");
    }
    if (what.isEmpty())
        what = actionName(m_action);
    if (m_action != Action::Scan && !driveId.isEmpty())
        what += QStringLiteral(" on ") + driveId;
    const QString line = QStringLiteral("Stopped by the operator: ") + what + tail;
    m_record.stopped = true;
    consoleLine(QStringView(line));
    showResults(false, line);
    // The format shows its outcome on the Mount button.
    changeButtonStatus(m_action == Action::Format ? Action::Mount : m_action, 1, false);
    endProgress();
    return StopResult::Stopped;
}

QString TapeEngine::endUnmountWait()
{
    if (timer)
        timer->stop();
    // A format that waited for this unmount does not start either.
    formatTapeEnabled = false;
    m_formatTarget.reset();
    for (const auto &before : std::as_const(m_unmountRecords))
        before.first->update([&](DriveRecord &r) { r = before.second; });
    if (m_unmountSelection)
        selectedDrive.set(m_unmountSelection);
    const bool mounted = m_unmountSelection && m_unmountSelection->mounted();
    postToMain(
        [this, mounted] { setMountLabel(mounted ? QStringLiteral("UNMOUNT") : QStringLiteral("MOUNT")); });
    refreshDriveTable();
    QString what = QStringLiteral("the wait for the unmount of ") + m_unmountPoint;
    m_unmountPoint.clear();
    m_unmountRecords.clear();
    m_unmountSelection.reset();
    return what;
}

} // namespace tapedesk
