// ctest-timeout: 120
// Scan and mount against every fault the simulator injects (an exit code, a
// crash half-way, garbage, silence, a hang): the window survives, shows the
// verdict the rules give (an output without "code: " leaves the earlier code
// in force), ends its progress where the workflow ends, keeps painting while a
// tool hangs and loses nothing in the settings store.

#include "operations/FaultMatrix.h"
#include "support/TestMain.h"
#include "ui/DriveTableModel.h"

using namespace tapedesk;
using namespace tapedesk::test;

class FaultMatrixScanMountTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        freshSimulator();
        rememberAnotherDrive();
    }

    void cleanup()
    {
        qunsetenv("TAPESIM_FAIL");
        QVERIFY(waitUntil([] { return children::liveCount() == 0; }));
    }

    void scan_data() { addFaultRows(); }

    // The scan judges no code: any output is a completed scan of what it
    // lists, and only an empty one fails and keeps the table as it was.
    void scan()
    {
        QFETCH(QString, mode);
        ViewController vc;
        QVERIFY(openWithDriveSelected(vc, 0, QStringLiteral("tape0")));
        const int rowsBefore = vc.driveModel()->rowCount();
        QCOMPARE(rowsBefore, 6); // five drives of the library and the remembered one
        const auto storeBefore = storeContents();

        int listed = 0; // drive lines that reached stdout before the end
        QString code = QStringLiteral("0");
        QString status = QStringLiteral("Complete Button");
        QString last = QStringLiteral("Scan Complete");
        if (mode == kFaultCode) {
            code = QStringLiteral("3");
        } else if (mode == QStringLiteral("crash")) {
            listed = 2; // half of six lines: the header and two drives
        } else if (mode == QStringLiteral("silent")) {
            listed = rowsBefore - 1;
            status = QStringLiteral("In Process Button");
            last = QStringLiteral("Scan Failed - make sure your preferences are set correctly");
        }

        injectFault(QStringLiteral("*:scan"), mode);
        HangWatch watch(vc, [] { return simulatorRan(QStringLiteral("itdt"), QStringLiteral("scan")); });
        vc.ui.btnScan->click();
        QVERIFY(waitUntil([&] { return paneLines(vc).constLast() == last; }, 90000));
        QVERIFY(waitForIdle(vc));
        if (mode == QStringLiteral("hang")) {
            QVERIFY(watch.quitTheTool());
            QVERIFY(watch.paintsWhileHung() >= HangWatch::kPaints);
        }
        QCOMPARE(paneLines(vc).constFirst(), QStringLiteral("Running Scan - Please Wait...."));
        QCOMPARE(paneLines(vc).constLast(), last);
        QCOMPARE(vc.driveModel()->rowCount(), listed + 1);
        QCOMPARE(vc.engine.lastExitCode.get(), code);
        QCOMPARE(statusOf(vc.ui.btnScan), status);
        QCOMPARE(storeContents(), storeBefore);
    }

    void mount_data() { addFaultRows(); }

    // ltfs decides the mount through its standard error alone: without
    // "Volume mounted successfully. " nothing is mounted or recorded.
    void mount()
    {
        QFETCH(QString, mode);
        ViewController vc;
        QVERIFY(openWithDriveSelected(vc, 0, QStringLiteral("tape0")));
        const auto storeBefore = storeContents();

        injectFault(QStringLiteral("tape0:ltfs"), mode, 1);
        HangWatch watch(vc, [] { return simulatorRan(QStringLiteral("ltfs"), QString()); });
        DialogScript script;
        script.press(QStringLiteral("Ok"));
        vc.ui.btnMount->click();
        QVERIFY(waitUntil([] { return simulatorRan(QStringLiteral("ltfs"), QString()); }));
        QVERIFY(waitForPane(vc, QStringLiteral("Mount Error: Please check that a formated tape was inserted"),
                            90000));
        QVERIFY(waitForIdle(vc, 90000));
        QVERIFY(script.unexpected().isEmpty());

        if (mode == kFaultCode)
            QVERIFY(paneText(vc).contains(QStringLiteral("LTFS14013E Cannot mount the volume.")));
        if (mode == QStringLiteral("hang")) {
            QVERIFY(watch.quitTheTool());
            QVERIFY(watch.paintsWhileHung() >= HangWatch::kPaints);
        }
        QVERIFY(!paneText(vc).contains(QStringLiteral("Mount Complete")));
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("MOUNT"));
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Fail Button"));
        QVERIFY(!vc.engine.selectedDrive.get()->mounted());
        QVERIFY(!mountTableShows(kMountRoot + QStringLiteral("0")));
        QCOMPARE(storeContents(), storeBefore);
    }
};

TAPEDESK_TEST_MAIN(FaultMatrixScanMountTest)
#include "tst_faultmatrix_scanmount.moc"
