// The pictures the README and the docs show, taken from the real windows
// with the test harness (a home of its own, the simulator). Not a test: it
// checks nothing but that each picture could be taken. scripts/screenshots
// builds it and runs it on a virtual display.

#include "Preferences/PreferencesWindow.h"
#include "Preferences/ToolPathsPage.h"
#include "app/Application.h"
#include "app/ContentWindow.h"
#include "app/HelpView.h"
#include "drives/DriveParser.h"
#include "drives/DriveStateStore.h"
#include "support/EngineHarness.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"
#include "ui/DriveTableModel.h"
#include "ui/MainWindow.h"
#include "ui/OperationWatch.h"
#include "ui/VolumeDetailsView.h"

#include <QLabel>
#include <QPainter>
#include <QPdfPageNavigator>
#include <QPdfView>
#include <QProcess>
#include <QTableView>

using namespace tapedesk;
using namespace tapedesk::test;

class Screenshots : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void screenshots()
    {
        const QString dir = qEnvironmentVariable("TAPEDESK_SCREENSHOT_DIR");
        QVERIFY2(!dir.isEmpty(), "TAPEDESK_SCREENSHOT_DIR names the folder the pictures go to");
        // Where the tools live on a typical host; the picture shows the paths, not the tools.
        setPaths(QStringLiteral("/opt/itdt/itdt"), QStringLiteral("/usr/local/bin/ltfs"),
                 QStringLiteral("/usr/local/bin/mkltfs"), QStringLiteral("/srv/tapedesk/output"));
        const auto shoot = [&](QWidget *window, int settleMs, const char *file) {
            QVERIFY(QTest::qWaitForWindowExposed(window));
            QTest::qWait(settleMs); // the help window renders its pages in the background
            QVERIFY(window->grab().save(dir + QLatin1String(file)));
        };
        Application application;
        application.applyLook();
        application.showPreferences();
        application.preferencesWindow->pathsPage()->ui.saveButton->click();
        shoot(application.preferencesWindow.get(), 500, "/preferences-window.png");
        application.showHelp();
        application.helpWindow->resize(900, 860);
        qobject_cast<HelpView *>(application.helpWindow->content())
            ->pdfView()
            ->pageNavigator()
            ->jump(1, QPointF());
        shoot(application.helpWindow.get(), 2500, "/help-window.png");

        // The first start on a host without the tools: the message, and the
        // preferences window that opened by itself over the main window. An
        // operator's home without a Documents folder; nothing is saved there.
        const QByteArray home = qgetenv("HOME");
        const QByteArray path = qgetenv("PATH");
        qputenv("HOME", "/home/operator");
        qputenv("PATH", "/usr/bin:/bin");
        SettingsStore::removeKeys(
            {PreferenceKeys::itdt, PreferenceKeys::ltfs, PreferenceKeys::mkltfs, PreferenceKeys::output});
        MainWindow window;
        Application first;
        first.applyLook();
        first.attachMainWindow(window);
        applyLaunchArguments({QStringLiteral("tapedesk")});
        window.show();
        QVERIFY(waitUntil([&] { return first.preferencesWindow && first.preferencesWindow->isVisible(); }));
        QVERIFY(QTest::qWaitForWindowExposed(first.preferencesWindow.get()));
        QTest::qWait(500);
        QPixmap shot = window.grab();
        const QPixmap preferences = first.preferencesWindow->grab();
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
        MainWindow tape;
        applyLaunchArguments({QStringLiteral("tapedesk")});
        tape.show();
        QVERIFY(waitForPane(tape, QStringLiteral("Scan Complete")) && waitForIdle(tape));
        // The drive TapeDesk mounted: its one card reads mounted.
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
        MainWindow formatting;
        formatting.show();
        QVERIFY(waitUntil([&] { return formatting.engine.lastOperation().ended; }));
        qputenv("TAPESIM_SPEED", "6");
        test::selectDrive(formatting, QStringLiteral("tape44"), QStringLiteral("44")); // blank
        QStringList asked;
        answerWith({QStringLiteral("0"), QStringLiteral("ARCH44"), QStringLiteral("0")}, &asked);
        formatting.format();
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

TAPEDESK_TEST_MAIN(Screenshots)
#include "shots.moc"
