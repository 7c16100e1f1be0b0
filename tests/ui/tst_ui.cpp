// ctest-timeout: 120
// The main window as the operator and a screen reader meet it: the first
// start, the drive table's lines, colours and clicks, what is read aloud and
// the real dialogs the workflows ask through.

#include "Preferences/PreferencesWindow.h"
#include "Preferences/ToolPathsPage.h"
#include "app/Application.h"
#include "app/DarkLook.h"
#include "drives/DriveStateStore.h"
#include "operations/Texts.h"
#include "support/Support.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "tools/PathDefaults.h"
#include "tools/ToolPaths.h"
#include "ui/DriveTableModel.h"
#include "ui/MainWindow.h"
#include "ui/VolumeDetailsView.h"

#include <QAccessible>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScopeGuard>
#include <QTableView>
#include <QTimer>
#include <QUrl>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

QImage card(MainWindow &mainWindow, int row)
{
    QTableView *table = mainWindow.ui.tableView;
    return table->viewport()->grab(table->visualRect(mainWindow.driveModel()->index(row, 0))).toImage();
}

// "$SIM" and "$HOME" stand for the simulator's folder and the test home.
QStringList expand(QStringList texts)
{
    for (QString &t : texts)
        t.replace(QStringLiteral("$SIM"), simBinDir()).replace(QStringLiteral("$HOME"), TestHome::path());
    return texts;
}

// What a screen reader hears of a button at each status: its description,
// once the statusImage property says the image and its words are in place.
struct DescriptionReader : QObject
{
    explicit DescriptionReader(QStringList *list) : heard(list) {}
    QStringList *heard;
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::DynamicPropertyChange)
            *heard << accessibleText(watched, QAccessible::Description);
        return false;
    }
};

// Clicks the middle of a row's card, as the operator does.
void clickRow(MainWindow &mainWindow, int row)
{
    QTest::mouseClick(mainWindow.ui.tableView->viewport(), Qt::LeftButton, {},
                      mainWindow.ui.tableView->visualRect(mainWindow.driveModel()->index(row, 0)).center());
}

} // namespace

class UiTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { applyDarkLook(*qobject_cast<QApplication *>(QCoreApplication::instance())); }
    void init() { freshCase(); }
    // A case's scripted answers point into it: the real dialogs come back.
    void cleanup() { setDialogProvider(std::make_unique<WidgetDialogs>()); }

    void startUp_data()
    {
        // Tools on PATH (else none installed); what is stored; the launch
        // switch; the pane's line after the warning; the fields the
        // preferences window opens with (none: it stays closed).
        QTest::addColumn<bool>("toolsOnPath");
        QTest::addColumn<QStringList>("stored");
        QTest::addColumn<QString>("launch");
        QTest::addColumn<QString>("problem");
        QTest::addColumn<QStringList>("offered");
        const auto row = [](const char *tag, bool toolsOnPath, const QStringList &stored, const char *launch,
                            const char *problem, const QStringList &offered) {
            QTest::newRow(tag) << toolsOnPath << stored << QString::fromLatin1(launch)
                               << QString::fromLatin1(problem) << offered;
        };
        const QStringList sim{"$SIM/itdt", "$SIM/ltfs", "$SIM/mkltfs"};
        const QString documents = QStringLiteral("$HOME/Documents/corvel-lto-output");
        row("first start, tools on PATH: Save, then a scan", true, {}, "", "", sim + QStringList{documents});
        row("no documents folder: output in the home folder", true, {}, "", "",
            sim + QStringList{"$HOME/corvel-lto-output"});
        row("after -c: a first start again, the output not offered", true, sim + QStringList{"$HOME/old"},
            "-c", "", sim + QStringList{documents});
        row("nothing installed: the install folder names what is missing", false, {}, "", "",
            {"/usr/local/bin/itdt", "/usr/local/bin/ltfs", "/usr/local/bin/mkltfs", documents});
        row("stored but wrong: the path is named, nothing opens", true,
            {"/opt/x/itdt", "$SIM/ltfs", "$SIM/mkltfs", "$HOME/out"}, "", "\nitdt not found at /opt/x/itdt",
            {});
    }

    void startUp()
    {
        QFETCH(bool, toolsOnPath);
        QFETCH(QStringList, stored);
        QFETCH(QString, launch);
        QFETCH(QString, problem);
        QFETCH(QStringList, offered);
        const QString afterSave = toolsOnPath ? QStringLiteral("Scan Complete")
                                              : QStringLiteral("mkltfs not found at /usr/local/bin/mkltfs");
        for (const char *folder : {"/Documents", "/corvel-lto-output"})
            QDir(TestHome::path() + QLatin1String(folder)).removeRecursively();
        if (!offered.value(3).startsWith(QStringLiteral("$HOME/corvel")))
            makeDir(QStringLiteral("Documents"));
        qputenv("PATH",
                (toolsOnPath ? QFile::encodeName(simBinDir()) + ':' : QByteArray()) + "/usr/bin:/bin");
        // A host with a tape tool installed cannot show the defaults of a host without one.
        for (const char *tool : {"itdt", "ltfs", "mkltfs"}) {
            if (!toolsOnPath && QFile::exists(defaultToolPath(QString::fromLatin1(tool))))
                QSKIP("this host has a tape tool installed");
        }
        stored = expand(stored);
        forgetPaths();
        if (!stored.isEmpty())
            setPaths(stored[0], stored[1], stored[2], stored[3]);

        MainWindow mainWindow;
        Application application;
        application.attachMainWindow(mainWindow);
        applyLaunchArguments({QStringLiteral("tapedesk"), launch});
        mainWindow.show();
        const QString startPane =
            QStringLiteral("\nLooks like preferences settings could be wrong.") + problem;
        QVERIFY(waitForPane(mainWindow, startPane) && waitForIdle(mainWindow));
        QCOMPARE(paneText(mainWindow), startPane);
        QCOMPARE(application.preferencesWindow != nullptr, !offered.isEmpty());
        if (offered.isEmpty())
            return;
        ToolPathsPage &pane = *application.preferencesWindow->pathsPage();
        QCOMPARE(pathFields(pane), expand(offered));
        pane.ui.saveButton->click();
        QVERIFY(waitUntil([&] { return paneText(mainWindow).endsWith(afterSave); }) &&
                waitForIdle(mainWindow));
        QVERIFY(QFileInfo(pane.outputFolderEdit->text()).isDir()); // the default folder is made on Save
        QCOMPARE(mainWindow.driveModel()->rowCount(), toolsOnPath ? 5 : 0);
    }

    void driveTable_data()
    {
        QTest::addColumn<bool>("hung");
        QTest::newRow("the volume read, Open Volume") << false;
        QTest::newRow("a hung read times out, the window goes on") << true;
    }

    // The simulator's library and a drive remembered as mounted (tape55): five
    // lines a row, read the same by a screen reader, the card yellow when
    // mounted, grey otherwise; a click chooses a drive, empty space changes
    // nothing. The Volume tab hands the mount point to the desktop's opener (a
    // fake xdg-open first on PATH). A read that hangs (a FIFO blocks its open
    // as a hung FUSE mount does) times out while the window keeps turning, and
    // starts no second reader.
    void driveTable()
    {
        QFETCH(bool, hung);
        const QByteArray point("/tmp/ltfs/mnt/55");
        QDir(QString::fromLatin1(point)).removeRecursively();
        QFile::remove(QString::fromLatin1(point));
        QVERIFY(hung ? ::mkfifo(point.constData(), 0600) == 0 : QDir().mkpath(QString::fromLatin1(point)));
        const auto release = qScopeGuard([&] {
            // Lets a reader out of its open, so no thread outlives the case.
            if (const int fd = ::open(point.constData(), O_WRONLY | O_NONBLOCK); fd >= 0)
                ::close(fd);
            QFile::remove(QString::fromLatin1(point));
        });
        const QString opened = TestHome::path() + QStringLiteral("/opened");
        const QString bin = makeDir(QStringLiteral("opener"));
        writeScript(bin, QStringLiteral("xdg-open"), QStringLiteral("printf '%s' \"$1\" > ") + opened);
        qputenv("PATH", bin.toUtf8() + ':' + qgetenv("PATH"));
        DriveRecord remembered;
        remembered.id = QStringLiteral("tape55");
        remembered.name = QStringLiteral("55");
        remembered.info1 = QStringLiteral("Corvel LTO8 HH");
        remembered.serialNumber = QStringLiteral("Stape55");
        remembered.info2 = QStringLiteral("S/N:Stape55");
        remembered.info3 = QStringLiteral("F1A2");
        remembered.mounted = true;
        DriveStateStore::saveDriveInfo(*makeDrive(remembered));
        MainWindow mainWindow;
        mainWindow.engine.setVolumeReadTimeoutMs(1500);
        applyLaunchArguments({QStringLiteral("tapedesk")});
        mainWindow.show();
        QVERIFY(waitForPane(mainWindow, QStringLiteral("Scan Complete")) && waitForIdle(mainWindow));
        QAccessibleInterface *table = QAccessible::queryAccessibleInterface(mainWindow.ui.tableView);
        for (const auto &[row, lines] :
             {std::pair{
                  0, QStringList{"Drive1 (tape0)", "Corvel LTO8 HH", "FW: F1A2", "S/N:1013000101", "TAPE: "}},
              {5, {"Drive6 (tape55)", "Corvel LTO8 HH", "FW: F1A2", "S/N:Stape55", "TAPE: "}}}) {
            QCOMPARE(mainWindow.driveModel()->index(row, 0).data(DriveTableModel::LinesRole).toStringList(),
                     lines);
            QCOMPARE(table->tableInterface()->cellAt(row, 0)->text(QAccessible::Name), lines.join('\n'));
        }
        // A corner of the card, clear of the text.
        const QImage idle = card(mainWindow, 0);
        const QImage mounted = card(mainWindow, 5);
        QCOMPARE(idle.pixelColor(idle.width() - 5, 3), QColor(Qt::lightGray));
        QCOMPARE(mounted.pixelColor(mounted.width() - 5, 3), QColor(Qt::yellow));
        // Dark text on the light card, readable in the dark window.
        int dark = 0;
        for (int i = 0; i < idle.width() * idle.height(); ++i)
            dark += qGray(idle.pixel(i % idle.width(), i / idle.width())) < 96 ? 1 : 0;
        QVERIFY2(dark > 50, qPrintable(QString::number(dark)));

        VolumeDetailsView *view = mainWindow.volumeView();
        mainWindow.ui.paneTabs->setCurrentWidget(view);
        mainWindow.ui.transcript->clear();
        QElapsedTimer clock;
        qint64 longestGap = 0;
        qint64 last = 0;
        QTimer ticker;
        QObject::connect(&ticker, &QTimer::timeout, [&] {
            longestGap = std::max(longestGap, clock.elapsed() - last);
            last = clock.elapsed();
        });
        clock.start();
        ticker.start(20);
        clickRow(mainWindow, 5);
        if (hung) {
            QVERIFY(
                waitUntil([&] { return view->stateText().contains(QStringLiteral("within 1.5 s")); }, 5000));
            QVERIFY2(longestGap < 300, qPrintable(QString::number(longestGap)));
            QVERIFY(clock.elapsed() >= 1500);
            QCOMPARE(view->valueOf(QStringLiteral("Capacity")), QStringLiteral("-"));
            QTest::mouseClick(view->refreshButton(), Qt::LeftButton);
            QVERIFY(view->stateText().startsWith(
                QStringLiteral("An earlier read of /tmp/ltfs/mnt/55 has still not")));
            return;
        }
        QTRY_COMPARE(view->stateText(), QStringLiteral("As LTFS reports them now."));
        // A plain folder publishes nothing, and statvfs alone names no volume.
        QCOMPARE(view->valueOf(QStringLiteral("Volume name")), QStringLiteral("not reported"));
        QTest::mouseClick(view->openButton(), Qt::LeftButton);
        QTRY_COMPARE(readFile(opened), QUrl::fromLocalFile(QString::fromLatin1(point)).toEncoded());
        // The caption is said to be Mount's action.
        QCOMPARE(accessibleText(mainWindow.ui.mountLabel, QAccessible::Description),
                 QStringLiteral("Mount Action"));
        QWidget *viewport = mainWindow.ui.tableView->viewport();
        QTest::mouseClick(viewport, Qt::LeftButton, {}, QPoint(20, viewport->height() - 5));
        QTest::qWait(50);
        QCOMPARE(paneText(mainWindow), QStringLiteral("\nReady \ntape55 Selected"));
        clickRow(mainWindow, 0);
        QVERIFY(waitForPane(mainWindow, QStringLiteral("tape0 Selected")));
        QTRY_VERIFY(!view->openButton()->isEnabled());
        // Every label, the Volume tab's values among them, is read by what it
        // shows: a fixed name would hide a text that changes.
        for (QLabel *label : mainWindow.findChildren<QLabel *>())
            QCOMPARE(accessibleText(label, QAccessible::Name), label->text());

        // Automation and a screen reader find each control by its name alone.
        QStringList names;
        for (QWidget *w : mainWindow.findChildren<QWidget *>())
            names << accessibleText(w, QAccessible::Name);
        for (const char *name : {"Scan", "Mount", "Retrieve Log", "Test", "Upgrade", "Host Validation",
                                 "Format", "Clear Mounted Drives", "Drives", "Output", "MOUNT", "Progress"})
            QVERIFY2(names.count(QString::fromLatin1(name)) == 1, name);
    }

    void statusReadAloud_data()
    {
        // The action and the answer to its question; what a screen reader
        // hears: the question's title, name and description, then the
        // button's description at each status.
        QTest::addColumn<bool>("mount");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QStringList>("heard");
        QTest::newRow("a Test run")
            << false << "OK"
            << QStringList{QStringList{ALERT_WARNING, ALERT_WARNING, ALERT_DESTRUCTIVE_RUN_TEST}.join(" | "),
                           "In Progress", "Complete"};
        // Nothing ran, so nothing is in progress, let alone complete.
        QTest::newRow("a mount cancelled at its question leaves its button")
            << true << "Cancel"
            << QStringList{
                   "Mount Tape | Mount Tape | Please check tape is fully seated in the drive and correct "
                   "type  (ex. LTO-7 tape in LTO-7 drive). Tape must be formatted. Please check and "
                   "format if needed before mounting"};
    }

    void statusReadAloud()
    {
        QFETCH(bool, mount);
        QFETCH(QString, answer);
        QFETCH(QStringList, heard);
        MainWindow mainWindow;
        QPushButton *button = mount ? mainWindow.ui.mountButton : mainWindow.ui.testButton;
        selectDrive(mainWindow);
        QVERIFY(waitForIdle(mainWindow));
        const QString before = accessibleText(button, QAccessible::Description);
        QStringList said;
        DescriptionReader reader(&said);
        button->installEventFilter(&reader);
        DialogScript script;
        script.then([&](QWidget *d, const SeenDialog &) {
            said << QStringList{d->windowTitle(), accessibleText(d, QAccessible::Name),
                                accessibleText(d, QAccessible::Description)}
                        .join(QStringLiteral(" | "));
            clickButton(d, answer);
        });
        if (mount)
            mainWindow.mount();
        else
            mainWindow.runTest();
        waitUntil([&] { return said.size() >= heard.size(); }); // a miss shows below
        QVERIFY(waitForIdle(mainWindow));
        QCOMPARE(script.seen().size(), 1);
        QCOMPARE(said, heard);
        if (mount)
            QCOMPARE(accessibleText(button, QAccessible::Description), before);
    }

    void questions_data()
    {
        // A name asked for (default "KT1234"), or a choice between `typed`
        // and "Mount"; what the dialog gets; the in-band answer.
        QTest::addColumn<bool>("name");
        QTest::addColumn<QString>("typed"); // null: the field left alone
        QTest::addColumn<QString>("how");   // a button's text or "close"
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *tag, bool name, const QString &typed, const char *how,
                            const char *expected) {
            QTest::newRow(tag) << name << typed << QString::fromLatin1(how) << QString::fromLatin1(expected);
        };
        row("default kept", true, {}, "OK", "KT1234");
        row("typed text as it stands", true, QStringLiteral(" kt12ab -1 "), "OK", " kt12ab -1 ");
        row("Cancel after typing", true, QStringLiteral("AB1234"), "Cancel", "-1");
        row("second button", false, QStringLiteral("Eject"), "Mount", "1");
        row("choice, closed", false, QStringLiteral("Eject"), "close", "1");
        // The order follows the arguments, not what the words usually mean.
        row("Cancel given first", false, QStringLiteral("Cancel"), "Cancel", "0");
    }

    void questions()
    {
        QFETCH(bool, name);
        QFETCH(QString, typed);
        QFETCH(QString, how);
        QFETCH(QString, expected);
        const QString title = QStringLiteral("Format Drive");
        const QString ask = QStringLiteral("Assign tape name (6 character alphanumeric: EG: KT1234)");
        DialogScript script;
        QString shown;
        script.then([&](QWidget *d, const SeenDialog &) {
            if (auto *field = d->findChild<QLineEdit *>()) {
                shown = field->text();
                if (!typed.isNull())
                    field->setText(typed);
            }
            if (how == QStringLiteral("close"))
                d->close();
            else
                clickButton(d, how);
        });
        QCOMPARE(
            name ? Support().getString(title, ask, QStringLiteral("KT1234"))
                 : QString::number(Support().userOptionPrompt(title, ask, typed, QStringLiteral("Mount"))),
            expected);
        QCOMPARE(script.seen().size(), 1);
        QCOMPARE(script.seen()[0].title, title);
        QCOMPARE(script.seen()[0].informative, ask);
        QCOMPARE(script.seen()[0].buttons,
                 (name ? QStringList{"OK", "Cancel"} : QStringList{typed, "Mount"}));
        QCOMPARE(shown, name ? QStringLiteral("KT1234") : QString());
    }
};

TAPEDESK_TEST_MAIN(UiTest)
#include "tst_ui.moc"
