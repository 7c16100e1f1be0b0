// ctest-timeout: 120
// The application: its windows and menus, the compiled-in manual, the real
// program quit while a tool hangs, and a settings store that cannot be read or
// written.

#include "Preferences/PreferencesWindow.h"
#include "Preferences/ToolPathsPage.h"
#include "app/Application.h"
#include "app/ContentWindow.h"
#include "app/HelpView.h"
#include "app/LicenceView.h"
#include "drives/DriveParser.h"
#include "drives/DriveStateStore.h"
#include "support/Support.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"
#include "ui/MainWindow.h"

#include <QLabel>
#include <QMenuBar>
#include <QPdfDocument>
#include <QPlainTextEdit>
#include <QProcess>
#include <QRegularExpression>
#include <QTableView>
#include <csignal>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

// A drive of this test's own, so a mount uses its own mount point.
const QByteArray kLibrary =
    "[drive]\nid = tape61\nmodel = ULTRIUM-HH8\nfirmware = F1A2\nserial = 1013000161\n"
    "address = H1-B0-T0-L0\nloaded = yes\ncartridge = yes\nbarcode = TD0061\n"
    "formatted = yes\nvolume = VOL61\n";

// The living processes of session `sid` (zombies only wait to be reaped).
QStringList sessionMembers(pid_t sid)
{
    QStringList members;
    for (const QString &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QByteArray stat = readFile(QStringLiteral("/proc/") + entry + QStringLiteral("/stat"));
        // "pid (comm) state ppid pgrp session ...": comm may hold blanks.
        const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
        if (fields.size() < 4 || fields.at(0) == "Z" || fields.at(3).toInt() != sid)
            continue;
        const QByteArray cmdline = readFile(QStringLiteral("/proc/") + entry + QStringLiteral("/cmdline"));
        members << entry + QLatin1Char(' ') +
                       QString::fromLocal8Bit(QByteArray(cmdline).replace('\0', ' ').trimmed());
    }
    return members;
}

} // namespace

class AppTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Root writes through any permission bits; without these capabilities it
    // meets a read-only folder as an operator does. Threads inherit them when
    // they are created, so this runs before the test starts any.
    void initTestCase()
    {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
        if (::syscall(SYS_capget, &header, data) == 0) {
            data[0].effective &=
                ~((1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH) | (1u << CAP_FOWNER));
            ::syscall(SYS_capset, &header, data);
        }
    }

    // The library above, paths on the simulator, no fault, and one drive
    // remembered from an earlier mount that no fault may cost its record.
    void init()
    {
        freshCase(kLibrary);
        DriveStateStore::saveDriveInfo(
            *getSingleDrive(QStringLiteral("#0 tape7 - [HH8]-[F1A2] S/N:7777777777 x")));
    }

    void menusReachEachWindowOnce()
    {
        SettingsStore::remove(EULA_AGREED_KEY);
        MainWindow window;
        Application application;
        application.applyLook();
        application.attachMainWindow(window);

        QList<QAction *> inMenus;
        for (QAction *top : window.menuBar()->actions())
            inMenus += top->menu()->actions();
        // Each window is reached from a menu, made once, and comes back when asked again.
        for (int twice = 0; twice < 2; ++twice) {
            for (QAction *a : {application.actionPreferences, application.actionHelp,
                               application.actionAccount, application.actionLicence}) {
                QVERIFY(inMenus.contains(a));
                a->trigger();
            }
            const QWidgetList all = QApplication::topLevelWidgets();
            for (const char *name : {"Preferences", "HelpWindow", "AccountWindow", "LicenceWindow"}) {
                const auto named = [&](QWidget *w) { return w->objectName() == QLatin1String(name); };
                QCOMPARE(std::count_if(all.cbegin(), all.cend(), named), 1);
                QWidget *w = *std::find_if(all.cbegin(), all.cend(), named);
                QVERIFY(w->isVisible());
                w->close();
            }
        }
        auto *help = qobject_cast<HelpView *>(application.helpWindow->content());
        QVERIFY(help->document()->pageCount() >= 8); // the manual compiled in
        QCOMPARE(SettingsStore::boolean(EULA_AGREED_KEY), std::optional<bool>(true)); // the licence was shown
    }

    // A logout or a service stop sends SIGTERM while the start-up scan hangs:
    // the program ends cleanly and leaves no process of its session behind.
    void quitWhileAToolHangs()
    {
        QProcess app;
        qputenv("TAPESIM_FAIL", "*:scan=hang");
        app.setChildProcessModifier([] { ::setsid(); });
        app.start(QStringLiteral(TAPEDESK_BIN "/tapedesk"), {});
        qunsetenv("TAPESIM_FAIL");
        QVERIFY(app.waitForStarted());
        const auto sid = static_cast<pid_t>(app.processId());
        QVERIFY(waitUntil(
            [&] { return !sessionMembers(sid).filter(QRegularExpression("/itdt .* scan$")).isEmpty(); },
            30000));

        ::kill(sid, SIGTERM);
        const bool ended = app.waitForFinished(30000);
        waitUntil([&] { return sessionMembers(sid).isEmpty(); }, 5000);
        const QStringList left = sessionMembers(sid);
        for (const QString &m : left) // never leave a test's processes behind
            ::kill(m.section(QLatin1Char(' '), 0, 0).toInt(), SIGKILL);
        QVERIFY(ended);
        QCOMPARE(app.exitStatus(), QProcess::NormalExit);
        QCOMPARE(app.exitCode(), 0);
        QCOMPARE(left, QStringList());
    }

    // The folder cannot be written: the scan and the mount still work from
    // what can be read, each failed write is named, and the file stays as it was.
    void aReadOnlyStoreSaysWhatCouldNotBeSaved()
    {
        const QString file = SettingsStore::fileName();
        const QString folder = QFileInfo(file).absolutePath();
        const QByteArray before = readFile(file);
        ::chmod(QFile::encodeName(file).constData(), 0444);
        ::chmod(QFile::encodeName(folder).constData(), 0555);
        auto restore = qScopeGuard([&] { ::chmod(QFile::encodeName(folder).constData(), 0755); });
        if (QFile(folder + QStringLiteral("/probe")).open(QIODevice::WriteOnly))
            QSKIP("this user writes through read-only folders");
        const QString cannotSave =
            QStringLiteral("Could not save settings to %1 - check that its folder can be written to.")
                .arg(file);
        {
            MainWindow mainWindow;
            applyLaunchArguments({QStringLiteral("tapedesk")});
            mainWindow.show();
            QVERIFY(waitForPane(mainWindow, QStringLiteral("Scan Complete")) && waitForIdle(mainWindow));
            QCOMPARE(mainWindow.ui.tableView->model()->rowCount(), 2); // the remembered drive was read
            mainWindow.ui.tableView->selectRow(0);
            QVERIFY(waitForPane(mainWindow, QStringLiteral("tape61 Selected")));
            DialogScript script;
            script.press(QStringLiteral("Ok"));
            mainWindow.ui.mountButton->click();
            QVERIFY(waitForPane(mainWindow, QStringLiteral("Mount Complete")) && waitForIdle(mainWindow));
            QVERIFY(paneText(mainWindow).contains(cannotSave));
            QCOMPARE(mainWindow.ui.mountLabel->text(), QStringLiteral("UNMOUNT"));
            // A failed write takes nothing from what is read.
            QVERIFY(Support().preferencesValid());

            mainWindow.ui.transcript->clear();
            mainWindow.ui.clearMountedDrivesButton->click();
            QVERIFY(waitForPane(mainWindow, QStringLiteral("Mounted drives reset")));
            QCOMPARE(paneText(mainWindow),
                     QLatin1Char('\n') + cannotSave + QStringLiteral("\nMounted drives reset"));
        }
        PreferencesWindow preferences;
        preferences.showAndRaise();
        preferences.pathsPage()->ui.saveButton->click();
        QCOMPARE(preferences.pathsPage()->statusLabel->text(),
                 QStringLiteral("Preferences could not be saved to %1 - they apply until TapeDesk quits.")
                     .arg(file));
        QCOMPARE(readFile(file), before);
    }
};

TAPEDESK_TEST_MAIN(AppTest)
#include "tst_app.moc"
