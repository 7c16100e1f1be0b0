// ctest-timeout: 90
// The main loop as the operator meets it: start-up, scan, selection, the
// clear button, and the refusal of every action without preferences.

#include "drives/DriveStateStore.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "support/WorkflowFixture.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"
#include "ui/DriveTableModel.h"
#include "ui/ViewController.h"

#include <QLabel>
#include <QPlainTextEdit>
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

} // namespace

class MainWindowTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { clearStore(); }

    void startWithEmptyStoreWarnsAndDoesNotScan()
    {
        ViewController vc;
        vc.viewDidLoad({QStringLiteral("tapedesk")});
        vc.show();
        QVERIFY(waitForPane(vc, QStringLiteral("Looks like preferences settings could be wrong.")));
        QVERIFY(waitForIdle(vc));
        QCOMPARE(paneText(vc), QStringLiteral("\nLooks like preferences settings could be wrong."));
        QCOMPARE(vc.driveModel()->rowCount(), 0);
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
        QCOMPARE(vc.selectedDrive.get()->id(), QStringLiteral("tape1"));
        QVERIFY(waitForStatus(vc.ui.btnRetriveLog, QStringLiteral("In Process Button")));
        vc.ui.tableView->selectRow(2);
        QVERIFY(waitForPane(vc, QStringLiteral("tape5 Selected")));
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("UNMOUNT"));
        // Clicking empty space clears the selection but keeps the drive.
        vc.ui.tableView->clearSelection();
        QCoreApplication::processEvents();
        QCOMPARE(vc.selectedDrive.get()->id(), QStringLiteral("tape5"));
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
};

TAPEDESK_TEST_MAIN(MainWindowTest)
#include "tst_mainwindow.moc"
