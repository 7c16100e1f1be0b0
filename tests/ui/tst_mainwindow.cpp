// ctest-timeout: 90
// The main loop as the operator meets it: start-up and the first setup, scan,
// selection, the clear button, and the refusal of every action without
// preferences.

#include "Preferences/PreferencesViewController.h"
#include "Preferences/PreferencesWindowController.h"
#include "app/AppDelegate.h"
#include "drives/DriveStateStore.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "support/WorkflowFixture.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"
#include "ui/DriveTableModel.h"
#include "ui/ViewController.h"

#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTableView>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

const char *kTwoDriveScan = R"(printf 'Scanning SCSI Bus ...\n'
printf '#0 tape0 - [ULTRIUM-HH8]-[F1A2] S/N:1111111111 H1-B0-T0-L0\n'
printf '#1 tape1 - [ULTRIUM-TD9]-[N1K0] S/N:2222222222 H1-B0-T1-L0\n'
printf 'Exit with code: 0\n')";

QString fakeBin()
{
    return makeDir(QStringLiteral("fakebin"));
}

void useFakeTools(const QString &itdtBody)
{
    const QString bin = fakeBin();
    const QString itdt = writeScript(bin, QStringLiteral("itdt"), itdtBody);
    const QString ltfs = writeScript(bin, QStringLiteral("ltfs"), QStringLiteral("exit 0"));
    const QString mk = writeScript(bin, QStringLiteral("mkltfs"), QStringLiteral("exit 0"));
    setPaths(itdt, ltfs, mk, makeDir(QStringLiteral("out")));
}

const QString kPathsWrong = QStringLiteral("\nLooks like preferences settings could be wrong.");

// Where the defaults look after PATH. A host with a tape tool installed there
// cannot show the defaults of a host without one.
bool hostHasTapeTools()
{
    QStringList places;
    for (const char *folder : {"/usr/local/bin/", "/usr/bin/"}) {
        for (const char *tool : {"itdt", "ltfs", "mkltfs"})
            places << QString::fromLatin1(folder) + QString::fromLatin1(tool);
    }
    for (const QString &vendor : QDir(QStringLiteral("/opt")).entryList(QDir::Dirs | QDir::NoDotAndDotDot))
        places << QStringLiteral("/opt/") + vendor + QStringLiteral("/bin/itdt");
    return std::any_of(places.cbegin(), places.cend(), [](const QString &p) { return QFile::exists(p); });
}

// "$SIM" and "$HOME" in a row's texts stand for the simulator's folder and the
// test home.
QString expand(QString text)
{
    return text.replace(QStringLiteral("$SIM"), simBinDir())
        .replace(QStringLiteral("$HOME"), TestHome::path());
}

QStringList expand(const QStringList &texts)
{
    QStringList out;
    for (const QString &t : texts)
        out << expand(t);
    return out;
}

} // namespace

class MainWindowTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_path = qgetenv("PATH"); }
    void init() { clearStore(); }
    void cleanup() { qputenv("PATH", m_path); }

    void startUp_data()
    {
        QTest::addColumn<bool>("toolsOnPath");
        QTest::addColumn<bool>("documentsFolder");
        QTest::addColumn<QStringList>("stored");
        QTest::addColumn<QStringList>("launch");
        // The pane once start-up is over; the fields the preferences window
        // opens with (none: it stays closed); the pane's last line after Save.
        QTest::addColumn<QString>("startPane");
        QTest::addColumn<QStringList>("offered");
        QTest::addColumn<QString>("afterSave");

        const QStringList onSim = {QStringLiteral("$SIM/itdt"), QStringLiteral("$SIM/ltfs"),
                                   QStringLiteral("$SIM/mkltfs")};
        QTest::newRow("first start, tools on PATH: Save, then a scan")
            << true << true << QStringList() << QStringList() << kPathsWrong
            << onSim + QStringList{QStringLiteral("$HOME/Documents/corvel-lto-output")}
            << QStringLiteral("Scan Complete");
        QTest::newRow("no documents folder: output in the home folder")
            << true << false << QStringList() << QStringList() << kPathsWrong
            << onSim + QStringList{QStringLiteral("$HOME/corvel-lto-output")}
            << QStringLiteral("Scan Complete");
        QTest::newRow("after -c: a first start again, output stored but not offered")
            << true << true << onSim + QStringList{QStringLiteral("$HOME/old-output")}
            << QStringList{QStringLiteral("-c")} << kPathsWrong
            << onSim + QStringList{QStringLiteral("$HOME/Documents/corvel-lto-output")}
            << QStringLiteral("Scan Complete");
        QTest::newRow("nothing installed: the install folder names what is missing")
            << false << true << QStringList() << QStringList() << kPathsWrong
            << QStringList{QStringLiteral("/usr/local/bin/itdt"), QStringLiteral("/usr/local/bin/ltfs"),
                           QStringLiteral("/usr/local/bin/mkltfs"),
                           QStringLiteral("$HOME/Documents/corvel-lto-output")}
            << QStringLiteral("mkltfs not found at /usr/local/bin/mkltfs");
        QTest::newRow("stored but not valid: the wrong path is named, nothing opens")
            << true << true
            << QStringList{QStringLiteral("/opt/x/itdt"), QStringLiteral("$SIM/ltfs"),
                           QStringLiteral("$SIM/mkltfs"), QStringLiteral("$HOME/out")}
            << QStringList() << kPathsWrong + QStringLiteral("\nitdt not found at /opt/x/itdt")
            << QStringList() << QString();
    }

    void startUp()
    {
        QFETCH(bool, toolsOnPath);
        QFETCH(bool, documentsFolder);
        QFETCH(QStringList, stored);
        QFETCH(QStringList, launch);
        QFETCH(QString, startPane);
        QFETCH(QStringList, offered);
        QFETCH(QString, afterSave);
        if (!toolsOnPath && hostHasTapeTools())
            QSKIP("this host has a tape tool installed");

        resetSimulator();
        QDir(TestHome::path() + QStringLiteral("/Documents")).removeRecursively();
        QDir(TestHome::path() + QStringLiteral("/corvel-lto-output")).removeRecursively();
        if (documentsFolder)
            makeDir(QStringLiteral("Documents"));
        const QByteArray system = "/usr/bin:/bin";
        qputenv("PATH", toolsOnPath ? QFile::encodeName(simBinDir()) + ':' + system : system);
        stored = expand(stored);
        if (!stored.isEmpty())
            setPaths(stored[0], stored[1], stored[2], stored[3]);

        ViewController vc;
        AppDelegate delegate;
        delegate.attachMainWindow(vc);
        vc.viewDidLoad(QStringList{QStringLiteral("tapedesk")} + launch);
        vc.show();
        QVERIFY(waitForPane(vc, startPane.section(QLatin1Char('\n'), -1)));
        QVERIFY(waitForIdle(vc));
        QCOMPARE(paneText(vc), startPane);
        if (offered.isEmpty()) {
            QVERIFY(!delegate.preferencesController);
            QCOMPARE(vc.driveModel()->rowCount(), 0);
            return;
        }

        QVERIFY(delegate.preferencesController && delegate.preferencesController->isVisible());
        PreferencesViewController &pane = *delegate.preferencesController->pathsPane();
        offered = expand(offered);
        QCOMPARE((QStringList{pane.txtITDT->text(), pane.txtLTFS->text(), pane.txtMK->text(),
                              pane.txtOutput->text()}),
                 offered);
        pane.ui.btnSave->click();
        QVERIFY(waitForPane(vc, afterSave));
        QVERIFY(waitForIdle(vc));
        QVERIFY(paneText(vc).endsWith(afterSave));
        QVERIFY(QFileInfo(offered[3]).isDir());
        QCOMPARE(vc.driveModel()->rowCount(), afterSave == QStringLiteral("Scan Complete") ? 5 : 0);
    }

    void startWithValidPathsScansOnce()
    {
        useFakeTools(QStringLiteral("echo run >> \"$HOME/scan-count\"\n") +
                     QString::fromLatin1(kTwoDriveScan));
        ViewController vc;
        vc.viewDidLoad({QStringLiteral("tapedesk")});
        vc.show();
        QVERIFY(waitForPane(vc, QStringLiteral("Scan Complete")));
        QVERIFY(waitForIdle(vc));
        QCOMPARE(readFile(TestHome::path() + QStringLiteral("/scan-count")), QByteArray("run\n"));
        QCOMPARE(vc.driveModel()->rowCount(), 2);
        QCOMPARE(statusOf(vc.ui.btnScan), QStringLiteral("Complete Button"));
    }

    void scanListsDrivesThenRememberedMountedOnes()
    {
        useFakeTools(QString::fromLatin1(kTwoDriveScan));
        DriveRecord remembered;
        remembered.serialNumber = QStringLiteral("9999999999");
        remembered.id = QStringLiteral("tape9");
        remembered.name = QStringLiteral("9");
        remembered.info1 = QStringLiteral("Corvel LTO8 HH");
        DriveStateStore::saveDriveInfo(Drive(remembered));

        ViewController vc;
        QVERIFY(scanToEnd(vc));
        QCOMPARE(paneText(vc),
                 QStringLiteral("\nRunning Scan - Please Wait....\n.....Scan Executed\nScan Complete"));
        QCOMPARE(vc.driveModel()->rowCount(), 3);
        const QStringList first =
            vc.driveModel()->index(0, 0).data(DriveTableModel::LinesRole).toStringList();
        QCOMPARE(first, (QStringList{QStringLiteral("Drive1 (tape0)"), QStringLiteral("Corvel LTO8 HH"),
                                     QStringLiteral("FW: F1A2"), QStringLiteral("S/N:1111111111"),
                                     QStringLiteral("TAPE: ")}));
        QCOMPARE(vc.driveModel()->index(2, 0).data(DriveTableModel::MountedRole).toBool(), true);
        QCOMPARE(vc.driveModel()->index(1, 0).data(DriveTableModel::MountedRole).toBool(), false);
        QVERIFY(vc.driveModel()
                    ->index(2, 0)
                    .data(Qt::AccessibleTextRole)
                    .toString()
                    .startsWith(QStringLiteral("Drive3 (tape9)\nCorvel LTO8 HH")));
    }

    void scanWithMissingToolKeepsRows()
    {
        useFakeTools(QString::fromLatin1(kTwoDriveScan));
        ViewController vc;
        QVERIFY(scanToEnd(vc));
        ITDT_PATH.set(TestHome::path() + QStringLiteral("/no-such-itdt"));
        vc.ui.rightScrollView->clear();
        vc.btnScan();
        QVERIFY(
            waitForPane(vc, QStringLiteral("Scan Failed - make sure your preferences are set correctly")));
        QVERIFY(waitForIdle(vc));
        QCOMPARE(paneText(vc),
                 QStringLiteral("\nRunning Scan - Please Wait....\nScan Failed - make sure your "
                                "preferences are set correctly"));
        QCOMPARE(vc.driveModel()->rowCount(), 2);
        QCOMPARE(statusOf(vc.ui.btnScan), QStringLiteral("In Process Button"));
    }

    void selectionSetsLabelAndPane()
    {
        useFakeTools(QString::fromLatin1(kTwoDriveScan));
        DriveRecord remembered;
        remembered.serialNumber = QStringLiteral("5555555555");
        remembered.id = QStringLiteral("tape5");
        DriveStateStore::saveDriveInfo(Drive(remembered));
        ViewController vc;
        QVERIFY(scanToEnd(vc));
        vc.ui.tableView->selectRow(1);
        QVERIFY(waitForPane(vc, QStringLiteral("tape1 Selected")));
        QCOMPARE(paneText(vc), QStringLiteral("\nReady \ntape1 Selected"));
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("MOUNT"));
        QCOMPARE(vc.engine.selectedDrive.get()->id(), QStringLiteral("tape1"));
        QVERIFY(waitForStatus(vc.ui.btnRetriveLog, QStringLiteral("In Process Button")));
        vc.ui.tableView->selectRow(2);
        QVERIFY(waitForPane(vc, QStringLiteral("tape5 Selected")));
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("UNMOUNT"));
        // Clicking empty space clears the selection but keeps the drive.
        vc.ui.tableView->clearSelection();
        QCoreApplication::processEvents();
        QCOMPARE(vc.engine.selectedDrive.get()->id(), QStringLiteral("tape5"));
    }

    void clearButtonForgetsMountedRecordsOnly()
    {
        useFakeTools(QString::fromLatin1(kTwoDriveScan));
        DriveRecord remembered;
        remembered.serialNumber = QStringLiteral("7777777777");
        DriveStateStore::saveDriveInfo(Drive(remembered));
        ViewController vc;
        QVERIFY(scanToEnd(vc));
        vc.ui.btnClearPreferences->click();
        QVERIFY(waitForPane(vc, QStringLiteral("Mounted drives reset")));
        QVERIFY(paneText(vc).endsWith(QStringLiteral("Scan Complete\nMounted drives reset")));
        QVERIFY(!SettingsStore::contains(DriveStateStore::kMountedDrivesKey));
        QVERIFY(!SettingsStore::contains(QStringLiteral("7777777777_id")));
        QVERIFY(SettingsStore::text(PreferenceKeys::itdt).has_value());
        vc.ui.rightScrollView->clear();
        QVERIFY(scanToEnd(vc));
        QCOMPARE(vc.driveModel()->rowCount(), 2);
    }

private:
    QByteArray m_path;
};

TAPEDESK_TEST_MAIN(MainWindowTest)
#include "tst_mainwindow.moc"
