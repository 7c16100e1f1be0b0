#pragma once

// What the fault-matrix tests share: a fault injected into one simulated tool
// run, a watch that proves the window keeps painting while that run hangs and
// then quits it the way the application does, and a picture of the settings
// store to show that a fault loses nothing in it.

#include "operations/MountSteps.h"
#include "tools/ProcessRunner.h"

#include <QAbstractScrollArea>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSettings>
#include <QTest>
#include <QTimer>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace tapedesk::test {

// TAPESIM_FAIL modes: an exit code, a crash half-way, invalid UTF-8 with a line
// of over 1 MiB, no output at all, and a run that never ends.
inline const QString kFaultCode = QStringLiteral("code");

// The TAPESIM_FAIL value for `mode` on `target` ("tape0:ucode"); "code" stands
// for `code`.
inline void injectFault(const QString &target, const QString &mode, int code = 3)
{
    const QString value = mode == kFaultCode ? QString::number(code) : mode;
    qputenv("TAPESIM_FAIL", (target + QLatin1Char('=') + value).toUtf8());
}

// Adds the fault rows every matrix test runs: column "mode".
inline void addFaultRows()
{
    QTest::addColumn<QString>("mode");
    for (const char *mode : {"code", "crash", "garbage", "silent", "hang"})
        QTest::newRow(mode) << QString::fromLatin1(mode);
}

// Every key of the settings file with its value, as a later start would read it.
inline QMap<QString, QVariant> storeContents()
{
    QSettings s(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("TapeDesk"),
                QStringLiteral("TapeDesk"));
    s.sync();
    QMap<QString, QVariant> all;
    const QStringList keys = s.allKeys();
    for (const QString &k : keys)
        all.insert(k, s.value(k));
    return all;
}

// A drive this system mounted earlier and still remembers; no fault may cost
// its record. It is not in the simulator's library, so no workflow touches it.
inline void rememberAnotherDrive()
{
    DriveRecord r;
    r.id = QStringLiteral("tape7");
    r.name = QStringLiteral("7");
    r.info1 = QStringLiteral("Corvel LTO8 HH");
    r.info2 = QStringLiteral("S/N:7777777777");
    r.info3 = QStringLiteral("F1A2");
    r.serialNumber = QStringLiteral("7777777777");
    r.address = QStringLiteral("KEEP77");
    r.barCode = QStringLiteral("KEEP77");
    DriveStateStore::saveDriveInfo(Drive(r));
}

// Whether the simulator has started a run of `tool` whose arguments hold `word`.
inline bool simulatorRan(const QString &tool, const QString &word)
{
    const QList<QStringList> runs = runsOf(tool);
    return std::any_of(runs.cbegin(), runs.cend(), [&](const QStringList &argv) {
        return word.isEmpty() || argv.contains(word) ||
               std::any_of(argv.cbegin(), argv.cend(), [&](const QString &a) { return a.startsWith(word); });
    });
}

// While the faulted run hangs, a heartbeat on the GUI thread repaints the pane
// and counts the paints that arrive. After enough of them it quits the hung
// tool as quitting TapeDesk does (children::killAll()). A frozen window cannot
// run that heartbeat, so a thread of its own kills the tool after a minute:
// the test then fails on the count instead of hanging.
class HangWatch : public QObject
{
public:
    static constexpr int kPaints = 5;

    HangWatch(ViewController &vc, std::function<bool()> hung) : m_vc(vc), m_hung(std::move(hung))
    {
        m_pane = vc.ui.rightScrollView->viewport();
        m_pane->installEventFilter(this);
        connect(&m_heartbeat, &QTimer::timeout, this, [this] { beat(); });
        m_heartbeat.start(20);
        m_safety = std::thread([this] {
            std::unique_lock lock(m_mutex);
            if (!m_stop.wait_for(lock, std::chrono::seconds(60), [this] { return m_done; }))
                children::killAll();
        });
    }

    ~HangWatch() override
    {
        {
            std::lock_guard lock(m_mutex);
            m_done = true;
        }
        m_stop.notify_all();
        m_safety.join();
        m_pane->removeEventFilter(this);
    }

    // Paints seen while the tool hung, and whether the watch quit it.
    int paintsWhileHung() const { return m_paints; }
    bool quitTheTool() const { return m_killed; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (watched == m_pane && event->type() == QEvent::Paint && m_hanging)
            ++m_paints;
        return false;
    }

private:
    void beat()
    {
        if (m_killed)
            return;
        m_hanging = m_hung() && children::liveCount() > 0;
        if (!m_hanging)
            return;
        if (m_paints >= kPaints) {
            m_killed = true;
            m_hanging = false;
            children::killAll();
            return;
        }
        m_pane->update();
    }

    ViewController &m_vc;
    std::function<bool()> m_hung;
    QWidget *m_pane = nullptr;
    QTimer m_heartbeat;
    bool m_hanging = false;
    bool m_killed = false;
    int m_paints = 0;
    std::mutex m_mutex;
    std::condition_variable m_stop;
    bool m_done = false;
    std::thread m_safety;
};

// The window as the operator gets it: shown, its first scan done (exit code
// "0"), the drive of `row` selected, an empty pane and tool log.
inline bool openWithDriveSelected(ViewController &vc, int row, const QString &id)
{
    vc.viewDidLoad({QStringLiteral("tapedesk")});
    vc.show();
    if (!waitForPane(vc, QStringLiteral("Scan Complete")) || !waitForIdle(vc))
        return false;
    vc.ui.tableView->selectRow(row);
    if (!waitForPane(vc, id + QStringLiteral(" Selected")))
        return false;
    vc.ui.rightScrollView->clear();
    QFile::remove(toolLogPath());
    return vc.engine.lastExitCode.get() == QStringLiteral("0");
}

// Whether the simulator's mount table lists a volume on `point`.
inline bool mountTableShows(const QString &point)
{
    const ProcessResult table = runProcess(simBinDir() + QStringLiteral("/mount"), {}, StreamMode::Separate);
    return QString::fromUtf8(table.out).contains(QStringLiteral(" on ") + point + QStringLiteral(" type"));
}

// The pane's lines after the last clear, without the empty first one.
inline QStringList paneLines(ViewController &vc)
{
    QStringList lines = paneText(vc).split(QLatin1Char('\n'));
    // An empty pane still has one (empty) line, so constLast() is always safe.
    if (lines.size() > 1 && lines.constFirst().isEmpty())
        lines.removeFirst();
    return lines;
}

} // namespace tapedesk::test
