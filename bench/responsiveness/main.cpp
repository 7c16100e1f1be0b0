// The longest time the GUI thread goes without an event-loop turn while an
// operation runs against the simulator. A 5 ms heartbeat timer notes every
// turn; a gap much longer than 5 ms means the window froze for that long.
//
// The last scenario presses Stop (a real click) while umount hangs on the GUI
// thread's turn, so the figure also covers the input that reaches Stop then.
// With TAPEDESK_SCREENSHOT_DIR set it saves the window just before the click.
//
// Runs offscreen in a temporary home whose four paths point at the simulator.
// Output ends with one line per figure:
//   mount_max_gui_gap: 7.1 ms (target <= 50 ms) ok
// Exit status 1 when a figure misses its target or a scenario cannot run.

#include "drives/Drive.h"
#include "support/Dialogs.h"
#include "tools/ProcessRunner.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"
#include "ui/MainWindow.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>

using namespace tapedesk;

namespace {

constexpr int kHeartbeatMs = 5;
constexpr double kTargetMs = 50.0;
constexpr int kScenarioLimitMs = 60000;

// Counts event-loop turns through a fast timer and keeps the longest gap.
class Heartbeat
{
public:
    Heartbeat()
    {
        m_timer.setTimerType(Qt::PreciseTimer);
        m_timer.setInterval(kHeartbeatMs);
        QObject::connect(&m_timer, &QTimer::timeout, [this] { beat(); });
    }

    void start()
    {
        m_clock.start();
        m_last = 0;
        m_maxGapNs = 0;
        m_maxGapEnd = 0;
        m_beats = 0;
        m_timer.start();
    }

    void stop()
    {
        beat();
        m_timer.stop();
    }

    double maxGapMs() const { return static_cast<double>(m_maxGapNs) / 1e6; }
    // When the longest gap ended, from start(): tells which step froze.
    double maxGapEndS() const { return static_cast<double>(m_maxGapEnd) / 1e9; }
    double elapsedS() const { return static_cast<double>(m_last) / 1e9; }
    int beats() const { return m_beats; }

private:
    void beat()
    {
        const qint64 now = m_clock.nsecsElapsed();
        if (now - m_last > m_maxGapNs) {
            m_maxGapNs = now - m_last;
            m_maxGapEnd = now;
        }
        m_last = now;
        ++m_beats;
    }

    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_last = 0;
    qint64 m_maxGapNs = 0;
    qint64 m_maxGapEnd = 0;
    int m_beats = 0;
};

// Runs the event loop until `done` holds or `limitMs` passes.
bool runUntil(const std::function<bool()> &done, int limitMs)
{
    QEventLoop loop;
    QTimer check;
    check.setInterval(2);
    QObject::connect(&check, &QTimer::timeout, [&] {
        if (done())
            loop.quit();
    });
    QTimer::singleShot(limitMs, &loop, &QEventLoop::quit);
    check.start();
    loop.exec();
    return done();
}

bool paneShows(MainWindow &mainWindow, const QString &text)
{
    return mainWindow.ui.transcript->toPlainText().contains(text);
}

bool idle(MainWindow &mainWindow)
{
    return QThreadPool::globalInstance()->activeThreadCount() == 0 && mainWindow.ui.scanButton->isEnabled() &&
           mainWindow.ui.tableView->isEnabled();
}

// One measured operation. `prepare` brings the window into the state the
// operation starts from and is not measured; the heartbeat runs from `start`
// until `finished` holds.
struct Scenario
{
    QString figure;
    QString description;
    std::function<bool(MainWindow &)> prepare;
    std::function<void(MainWindow &)> start;
    std::function<bool(MainWindow &)> finished;
};

void answerEverything();

bool mountSelected(MainWindow &mainWindow)
{
    mainWindow.ui.transcript->clear();
    answerEverything();
    mainWindow.engine.perform(Action::Mount);
    return runUntil(
        [&] { return paneShows(mainWindow, QStringLiteral("Mount Complete")) && idle(mainWindow); },
        kScenarioLimitMs);
}

bool selectFirstDrive(MainWindow &mainWindow)
{
    if (!runUntil([&] { return mainWindow.ui.tableView->model()->rowCount() > 0 && idle(mainWindow); },
                  kScenarioLimitMs))
        return false;
    mainWindow.ui.tableView->selectRow(0);
    return runUntil([&] { return mainWindow.engine.selectedDrive() != nullptr; }, 2000);
}

// Answers the format's questions at once, as an operator who names the
// volume, agrees to every warning and ejects afterwards. Only the format
// scenario installs it.
class FormatAnswers final : public DialogProvider
{
public:
    explicit FormatAnswers(bool *ejectAnswered) : m_ejectAnswered(ejectAnswered) {}

    QString getString(const QString &, const QString &, const QString &) override
    {
        return QStringLiteral("BENCH1");
    }
    int userOptionPrompt(const QString &title, const QString &, const QString &, const QString &) override
    {
        if (title == QStringLiteral("Tape Format Complete"))
            *m_ejectAnswered = true;
        return 0; // "Proceed" for the drive check, "Eject" after the format
    }
    QString pickFile(const QStringList &) override { return {}; }
    QString pickFolder() override { return QStringLiteral("-1"); }
    bool confirm(const QString &, const QString &) override { return true; }
    void inform(const QString &, const QString &) override {}

private:
    bool *m_ejectAnswered;
};

bool formatEjectAnswered = false;

// The mount's question answered as the format's are: at once, "Ok".
void answerEverything()
{
    setDialogProvider(std::make_unique<FormatAnswers>(&formatEjectAnswered));
}

// Presses Stop as an operator would, once the tool has hung for a while.
class StopPresser
{
public:
    explicit StopPresser(MainWindow &mainWindow) : m_window(mainWindow)
    {
        m_timer.setInterval(20);
        QObject::connect(&m_timer, &QTimer::timeout, [this] { check(); });
        m_timer.start();
    }

private:
    void check()
    {
        const bool hung = m_window.engine.isWaitingResponsive() && children::liveCount() > 0 &&
                          m_window.ui.stopButton->isVisible();
        if (!hung) {
            m_hungSince.invalidate();
            return;
        }
        if (!m_hungSince.isValid())
            m_hungSince.start();
        if (m_hungSince.elapsed() < 300)
            return;
        m_timer.stop();
        const QString dir = qEnvironmentVariable("TAPEDESK_SCREENSHOT_DIR");
        if (!dir.isEmpty())
            m_window.grab().save(dir + QStringLiteral("/stop-during-hang.png"));
        QTest::mouseClick(m_window.ui.stopButton, Qt::LeftButton);
    }

    MainWindow &m_window;
    QTimer m_timer;
    QElapsedTimer m_hungSince;
};
std::unique_ptr<StopPresser> stopPresser;

// The list of what is measured, in order. Each scenario leaves the window
// idle for the next. To measure another operation (the forced reformat, for
// one), append a Scenario here: its prepare sets up the simulator and the
// selection, its start calls the operation, its finished waits for the pane
// line that ends it and for idle().
QList<Scenario> scenarios()
{
    return {
        Scenario{QStringLiteral("mount_max_gui_gap"),
                 QStringLiteral("mount of tape0 (load, barcode read, ltfs) from the background"),
                 [](MainWindow &mainWindow) {
                     qunsetenv("TAPESIM_UNMOUNT_DELAY");
                     return selectFirstDrive(mainWindow) && !mainWindow.engine.selectedDrive()->mounted();
                 },
                 [](MainWindow &mainWindow) {
                     mainWindow.ui.transcript->clear();
                     answerEverything();
                     mainWindow.engine.perform(Action::Mount);
                 },
                 [](MainWindow &mainWindow) {
                     return paneShows(mainWindow, QStringLiteral("Mount Complete")) && idle(mainWindow);
                 }},
        Scenario{QStringLiteral("unmount_max_gui_gap"),
                 QStringLiteral("slow unmount of tape0 (umount, then 3 s polls of the mount table)"),
                 [](MainWindow &mainWindow) {
                     if (!mainWindow.engine.selectedDrive() && !selectFirstDrive(mainWindow))
                         return false;
                     if (!mainWindow.engine.selectedDrive()->mounted() && !mountSelected(mainWindow))
                         return false;
                     // The volume stays listed 4 s after umount, so the first poll waits.
                     qputenv("TAPESIM_UNMOUNT_DELAY", "4");
                     return true;
                 },
                 [](MainWindow &mainWindow) {
                     mainWindow.ui.transcript->clear();
                     mainWindow.engine.perform(Action::Mount);
                 },
                 [](MainWindow &mainWindow) {
                     return paneShows(mainWindow, QStringLiteral("End unMountDrive")) && idle(mainWindow);
                 }},
        Scenario{QStringLiteral("reformat_max_gui_gap"),
                 QStringLiteral(
                     "format of tape0's formatted cartridge: mkltfs refuses, the forced mkltfs runs on the "
                     "GUI thread's turn at TAPESIM_SPEED=0.5, then the eject"),
                 [](MainWindow &mainWindow) {
                     if (!mainWindow.engine.selectedDrive() && !selectFirstDrive(mainWindow))
                         return false;
                     if (mainWindow.engine.selectedDrive()->mounted())
                         return false;
                     formatEjectAnswered = false;
                     setDialogProvider(std::make_unique<FormatAnswers>(&formatEjectAnswered));
                     // A few seconds per mkltfs run, as a short real format would be.
                     qputenv("TAPESIM_SPEED", "0.5");
                     return true;
                 },
                 [](MainWindow &mainWindow) {
                     mainWindow.ui.transcript->clear();
                     mainWindow.format();
                 },
                 [](MainWindow &mainWindow) {
                     return formatEjectAnswered &&
                            paneShows(mainWindow, QStringLiteral("Tape Format Complete")) && idle(mainWindow);
                 }},
        Scenario{QStringLiteral("stop_max_gui_gap"),
                 QStringLiteral("unmount of tape0 whose umount hangs on the GUI thread's turn; Stop clicked "
                                "after 0.3 s of the hang"),
                 [](MainWindow &mainWindow) {
                     qputenv("TAPESIM_SPEED", "0.2");
                     if (!mainWindow.engine.selectedDrive() && !selectFirstDrive(mainWindow))
                         return false;
                     if (!mainWindow.engine.selectedDrive()->mounted() && !mountSelected(mainWindow))
                         return false;
                     qputenv("TAPESIM_FAIL", "tape0:umount=hang");
                     return true;
                 },
                 [](MainWindow &mainWindow) {
                     mainWindow.ui.transcript->clear();
                     stopPresser = std::make_unique<StopPresser>(mainWindow);
                     mainWindow.ui.mountButton->click();
                 },
                 [](MainWindow &mainWindow) {
                     return paneShows(mainWindow, QStringLiteral("Stopped by the operator")) &&
                            idle(mainWindow);
                 }},
    };
}

// A home of its own with the four paths on the simulator, before any Qt
// object reads the environment.
void prepareHome(const QString &home)
{
    const QString bin = QStringLiteral(TAPEDESK_SIM_BIN);
    const QByteArray h = QFile::encodeName(home);
    qputenv("HOME", h);
    qputenv("XDG_CONFIG_HOME", h + "/.config");
    qputenv("XDG_DATA_HOME", h + "/.local/share");
    qputenv("XDG_CACHE_HOME", h + "/.cache");
    qputenv("TAPESIM_HOME", h + "/tapesim");
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // Tool runs take a little time, as they would on a drive, but not minutes.
    if (qEnvironmentVariableIsEmpty("TAPESIM_SPEED"))
        qputenv("TAPESIM_SPEED", "0.2");
    // "mount | grep ltfs" uses our PATH; "which umount" a login shell's.
    qputenv("PATH", QFile::encodeName(bin) + ':' + qgetenv("PATH"));
    QFile profile(home + QStringLiteral("/.bash_profile"));
    if (profile.open(QIODevice::WriteOnly))
        profile.write("export PATH=\"" + QFile::encodeName(bin) + ":$PATH\"\n");
    QDir().mkpath(home + QStringLiteral("/.config"));
    QDir().mkpath(home + QStringLiteral("/output"));
}

void usePaths(const QString &home)
{
    const QString bin = QStringLiteral(TAPEDESK_SIM_BIN);
    const QString paths[][2] = {
        {PreferenceKeys::itdt, bin + QStringLiteral("/itdt")},
        {PreferenceKeys::ltfs, bin + QStringLiteral("/ltfs")},
        {PreferenceKeys::mkltfs, bin + QStringLiteral("/mkltfs")},
        {PreferenceKeys::output, home + QStringLiteral("/output")},
    };
    for (const auto &p : paths)
        SettingsStore::setText(p[0], p[1]);
}

} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir home;
    if (!home.isValid()) {
        std::fprintf(stderr, "cannot create a temporary home\n");
        return 1;
    }
    prepareHome(home.path());
    QApplication app(argc, argv);
    app.setOrganizationName(QStringLiteral("TapeDesk"));
    app.setApplicationName(QStringLiteral("TapeDeskBench"));
    usePaths(home.path());

    MainWindow mainWindow;
    mainWindow.show(); // validates the paths and scans, as at start-up

    struct Figure
    {
        QString name;
        double ms = -1;
    };
    QList<Figure> figures;
    bool allRan = true;
    Heartbeat heartbeat;
    for (const Scenario &s : scenarios()) {
        if (!s.prepare(mainWindow)) {
            std::printf("bench: %s could not be prepared\n", qPrintable(s.figure));
            std::fflush(stdout);
            figures << Figure{s.figure};
            allRan = false;
            continue;
        }
        heartbeat.start();
        s.start(mainWindow);
        const bool finished = runUntil([&] { return s.finished(mainWindow); }, kScenarioLimitMs);
        heartbeat.stop();
        std::printf("bench: %s: %s; %d heartbeats over %.2f s, longest gap ended at %.2f s%s\n",
                    qPrintable(s.figure), qPrintable(s.description), heartbeat.beats(), heartbeat.elapsedS(),
                    heartbeat.maxGapEndS(), finished ? "" : "; DID NOT FINISH");
        figures << Figure{s.figure, finished ? heartbeat.maxGapMs() : -1};
        allRan = allRan && finished;
    }

    bool allOk = allRan;
    for (const Figure &f : figures) {
        const bool ok = f.ms >= 0 && f.ms <= kTargetMs;
        allOk = allOk && ok;
        if (f.ms < 0)
            std::printf("%s: n/a ms (target <= %.0f ms) MISS\n", qPrintable(f.name), kTargetMs);
        else
            std::printf("%s: %.1f ms (target <= %.0f ms) %s\n", qPrintable(f.name), f.ms, kTargetMs,
                        ok ? "ok" : "MISS");
    }
    std::fflush(stdout);
    return allOk ? 0 : 1;
}
