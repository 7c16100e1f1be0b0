// ctest-timeout: 120
// The application: its windows and menus, the compiled-in manual, the real
// program quit while a tool hangs, and a settings store that cannot be read or
// written. With TAPEDESK_SCREENSHOT_DIR set (and a real display) it also saves
// the pictures the README shows.

#include "Preferences/PreferencesViewController.h"
#include "Preferences/PreferencesWindowController.h"
#include "app/AppDelegate.h"
#include "app/Eula_ViewController.h"
#include "app/Help_ViewController.h"
#include "app/WindowController.h"
#include "drives/DriveParser.h"
#include "drives/DriveStateStore.h"
#include "support/EngineHarness.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"
#include "ui/DriveTableModel.h"
#include "ui/OperationWatch.h"
#include "ui/ViewController.h"
#include "ui/VolumeDetailsView.h"

#include <QLabel>
#include <QMenuBar>
#include <QPainter>
#include <QPdfDocument>
#include <QPdfPageNavigator>
#include <QPdfView>
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
        ViewController window;
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();
        delegate.attachMainWindow(window);

        QStringList titles;
        for (QAction *top : window.menuBar()->actions()) {
            for (QAction *a : QList<QAction *>{top} + top->menu()->actions())
                titles << (a->isSeparator() ? QString() : a->text().remove(QLatin1Char('&')));
        }
        QCOMPARE(titles, (QStringList{"TapeDesk", "Preferences…", "Account…", "", "Save Transcript…",
                                      "Open Journal Folder", "", "Quit", "Help", "TapeDesk Help",
                                      "Why Is My Drive Missing?", "Licence Agreement"}));
        // Each window is made once and comes back when asked again.
        for (int twice = 0; twice < 2; ++twice) {
            for (QAction *a : {delegate.actionPreferences, delegate.actionHelp, delegate.actionAccount,
                               delegate.actionLicence})
                a->trigger();
            const QWidgetList all = QApplication::topLevelWidgets();
            for (const char *name : {"Preferences", "HELP_WC", "ACCOUNT_WC", "EULA_WC"}) {
                const auto named = [&](QWidget *w) { return w->objectName() == QLatin1String(name); };
                QCOMPARE(std::count_if(all.cbegin(), all.cend(), named), 1);
                QWidget *w = *std::find_if(all.cbegin(), all.cend(), named);
                QVERIFY(w->isVisible());
                w->close();
            }
        }
        auto *help = qobject_cast<Help_ViewController *>(delegate.helpController->contentViewController());
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
            ViewController vc;
            vc.viewDidLoad({QStringLiteral("tapedesk")});
            vc.show();
            QVERIFY(waitForPane(vc, QStringLiteral("Scan Complete")) && waitForIdle(vc));
            QCOMPARE(vc.ui.tableView->model()->rowCount(), 2); // the remembered drive was read
            vc.ui.tableView->selectRow(0);
            QVERIFY(waitForPane(vc, QStringLiteral("tape61 Selected")));
            DialogScript script;
            script.press(QStringLiteral("Ok"));
            vc.ui.btnMount->click();
            QVERIFY(waitForPane(vc, QStringLiteral("Mount Complete")) && waitForIdle(vc));
            QVERIFY(paneText(vc).contains(cannotSave));
            QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("UNMOUNT"));
            // A failed write takes nothing from what is read.
            QVERIFY(vc.engine.support.preferencesValid());

            vc.ui.rightScrollView->clear();
            vc.ui.btnClearPreferences->click();
            QVERIFY(waitForPane(vc, QStringLiteral("Mounted drives reset")));
            QCOMPARE(paneText(vc), QLatin1Char('\n') + cannotSave + QStringLiteral("\nMounted drives reset"));
        }
        PreferencesWindowController preferences;
        preferences.showWindow();
        preferences.pathsPane()->ui.btnSave->click();
        QCOMPARE(preferences.pathsPane()->lblStatus->text(),
                 QStringLiteral("Preferences could not be saved to %1 - they apply until TapeDesk quits.")
                     .arg(file));
        QCOMPARE(readFile(file), before);
    }

    // Not a check: pictures for the documentation, taken only when asked.
    void screenshots()
    {
        const QString dir = qEnvironmentVariable("TAPEDESK_SCREENSHOT_DIR");
        if (dir.isEmpty())
            QSKIP("TAPEDESK_SCREENSHOT_DIR not set");
        // Where the tools live on a typical host; the picture shows the paths, not the tools.
        setPaths(QStringLiteral("/opt/itdt/itdt"), QStringLiteral("/usr/local/bin/ltfs"),
                 QStringLiteral("/usr/local/bin/mkltfs"), QStringLiteral("/srv/tapedesk/output"));
        const auto shoot = [&](QWidget *window, int settleMs, const char *file) {
            QVERIFY(QTest::qWaitForWindowExposed(window));
            QTest::qWait(settleMs); // the help window renders its pages in the background
            QVERIFY(window->grab().save(dir + QLatin1String(file)));
        };
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();
        delegate.showPreferences();
        delegate.preferencesController->pathsPane()->ui.btnSave->click();
        shoot(delegate.preferencesController.get(), 500, "/preferences-window.png");
        delegate.showHelp();
        delegate.helpController->resize(900, 860);
        qobject_cast<Help_ViewController *>(delegate.helpController->contentViewController())
            ->pdfView()
            ->pageNavigator()
            ->jump(1, QPointF());
        shoot(delegate.helpController.get(), 2500, "/help-window.png");

        // The first start on a host without the tools: the message, and the
        // preferences window that opened by itself over the main window. An
        // operator's home without a Documents folder; nothing is saved there.
        const QByteArray home = qgetenv("HOME");
        const QByteArray path = qgetenv("PATH");
        qputenv("HOME", "/home/operator");
        qputenv("PATH", "/usr/bin:/bin");
        SettingsStore::removeKeys(
            {PreferenceKeys::itdt, PreferenceKeys::ltfs, PreferenceKeys::mkltfs, PreferenceKeys::output});
        ViewController window;
        AppDelegate first;
        first.applicationDidFinishLaunching();
        first.attachMainWindow(window);
        window.viewDidLoad({QStringLiteral("tapedesk")});
        window.show();
        QVERIFY(waitUntil(
            [&] { return first.preferencesController && first.preferencesController->isVisible(); }));
        QVERIFY(QTest::qWaitForWindowExposed(first.preferencesController.get()));
        QTest::qWait(500);
        QPixmap shot = window.grab();
        const QPixmap preferences = first.preferencesController->grab();
        {
            QPainter painter(&shot);
            // Below the message, which is what the operator reads first.
            const QPoint at((shot.width() - preferences.width()) / 2 + 120, 300);
            painter.drawPixmap(at, preferences);
            painter.setPen(QPen(QColor(0x60, 0x90, 0xd0), 2));
            painter.drawRect(QRect(at, preferences.size()).adjusted(-1, -1, 0, 0));
        }
        qputenv("HOME", home);
        qputenv("PATH", path);
        const QImage small = shot.scaledToWidth(820, Qt::SmoothTransformation).toImage();
        QVERIFY(small.save(dir + QStringLiteral("/first-start.png"), nullptr, 0));

        // A tape mounted through the simulator, its details in the Volume tab:
        // a cartridge a quarter full whose drive asks for cleaning.
        freshCase("[drive]\nid = tape56\nmodel = ULTRIUM-HH9\nserial = 1013000156\naddress = H1-B0-T6-L0\n"
                  "cartridge = yes\nbarcode = TD0056\nformatted = yes\nvolume = PROJ56\n"
                  "formatted-at = 2026-03-02T09:14:05.120000000Z\nloads = 41\nused-mb = 4100000\n"
                  "tape-alert = 0x0000000000100000\n");
        QVERIFY(QDir().mkpath(QStringLiteral("/tmp/ltfs/mnt/56")));
        QCOMPARE(QProcess::execute(simBinDir() + QStringLiteral("/ltfs"),
                                   {QStringLiteral("/tmp/ltfs/mnt/56"), QStringLiteral("-o"),
                                    QStringLiteral("devname=56")}),
                 0);
        DriveRecord mounted;
        mounted.id = QStringLiteral("tape56");
        mounted.name = QStringLiteral("56");
        mounted.serialNumber = QStringLiteral("1013000156");
        mounted.mounted = true;
        DriveStateStore::saveDriveInfo(*makeDrive(mounted));
        ViewController tape;
        tape.viewDidLoad({QStringLiteral("tapedesk")});
        tape.show();
        QVERIFY(waitForPane(tape, QStringLiteral("Scan Complete")) && waitForIdle(tape));
        // The record TapeDesk kept of its mount: the card that reads mounted.
        const QList<DrivePtr> cards = tape.driveModel()->drives();
        for (int row = 0; row < cards.size(); ++row) {
            if (cards[row]->mounted() && cards[row]->id() == QStringLiteral("tape56"))
                tape.ui.tableView->selectRow(row);
        }
        tape.ui.paneTabs->setCurrentWidget(tape.volumeView());
        QVERIFY2(
            waitUntil([&] { return tape.volumeView()->stateText().startsWith(QStringLiteral("As LTFS")); }),
            qPrintable(tape.volumeView()->stateText() + paneText(tape)));
        shoot(&tape, 300, "/volume-details.png");
        // A long format under way on a blank cartridge: the tool's output
        // live in its tab and the clock beside the progress.
        freshCase("[drive]\nid = tape44\nmodel = ULTRIUM-HH9\nserial = 1013000144\ncartridge = yes\n");
        ViewController formatting;
        formatting.show();
        QVERIFY(waitUntil([&] { return formatting.engine.lastOperation().ended; }));
        qputenv("TAPESIM_SPEED", "6");
        test::selectDrive(formatting, QStringLiteral("tape44"), QStringLiteral("44")); // blank
        QStringList asked;
        answerWith({QStringLiteral("0"), QStringLiteral("ARCH44"), QStringLiteral("0")}, &asked);
        formatting.btnFormat(formatting.ui.btnFormat);
        formatting.ui.paneTabs->setCurrentIndex(1);
        QVERIFY(waitUntil(
            [&] { return formatting.watch().elapsedLabel()->text().endsWith(QStringLiteral("00:03")); },
            20000));
        QTest::qWait(300);
        QVERIFY(formatting.grab().save(dir + QStringLiteral("/live-output.png")));
        formatting.engine.abandon();
        qunsetenv("TAPESIM_SPEED");
    }
};

TAPEDESK_TEST_MAIN(AppTest)
#include "tst_app.moc"
