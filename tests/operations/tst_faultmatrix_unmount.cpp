// ctest-timeout: 150
// The unmount against every fault the simulator injects into umount. Whatever
// umount does, only the mount table decides: while it lists the volume the
// unmount keeps waiting (progress on, the record kept), and it completes at
// the first poll after the volume went by other means. Each case waits for
// two of the real 3-second polls.

#include "operations/FaultMatrix.h"
#include "support/TestMain.h"

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

// Every key the store held before, with the same value.
bool keepsEverything(const QMap<QString, QVariant> &before, const QMap<QString, QVariant> &after)
{
    for (auto it = before.cbegin(); it != before.cend(); ++it) {
        if (after.value(it.key()) != it.value())
            return false;
    }
    return true;
}

} // namespace

class FaultMatrixUnmountTest : public QObject
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

    void unmount_data() { addFaultRows(); }

    void unmount()
    {
        QFETCH(QString, mode);
        ViewController vc;
        QVERIFY(openWithDriveSelected(vc, 0, QStringLiteral("tape0")));
        const auto storeBeforeMount = storeContents();
        DialogScript script;
        script.press(QStringLiteral("Ok"));
        vc.ui.btnMount->click();
        QVERIFY(waitForPane(vc, QStringLiteral("Mount Complete")));
        QVERIFY(waitForIdle(vc));
        const QString point = kMountRoot + QStringLiteral("0");
        QVERIFY(mountTableShows(point));
        QVERIFY(SettingsStore::textList(DriveStateStore::kMountedDrivesKey)
                    .value_or(QStringList())
                    .contains(QStringLiteral("1013000101")));
        QFile::remove(toolLogPath());

        injectFault(QStringLiteral("tape0:umount"), mode);
        HangWatch watch(vc, [] { return simulatorRan(QStringLiteral("umount"), QString()); });
        vc.ui.btnMount->click(); // a mounted drive unmounts without a question
        QVERIFY(simulatorRan(QStringLiteral("umount"), QString()));
        if (mode == QStringLiteral("hang")) {
            QVERIFY(watch.quitTheTool());
            QVERIFY(watch.paintsWhileHung() >= HangWatch::kPaints);
        }

        // The volume is still there: the unmount waits, and says so.
        QVERIFY(waitForPane(vc, QStringLiteral("Waiting for un-mount to complete, please wait..."), 30000));
        QVERIFY(mountTableShows(point));
        QVERIFY(vc.ui.progressIndicator->isVisible());
        QVERIFY(!vc.ui.btnScan->isEnabled());
        QVERIFY(SettingsStore::textList(DriveStateStore::kMountedDrivesKey)
                    .value_or(QStringList())
                    .contains(QStringLiteral("1013000101")));
        // umount's "target is busy" (the failing code) is answered with who
        // holds the volume: here nobody this test could see.
        const QString busy = QStringLiteral("The volume is busy, but no process holding it");
        if (mode == kFaultCode)
            QVERIFY(waitForPane(vc, busy, 30000));

        // The operator unmounts it by hand; a later poll completes, once the
        // ltfs daemon has let go.
        qunsetenv("TAPESIM_FAIL");
        runProcess(simBinDir() + QStringLiteral("/umount"), {point}, StreamMode::Separate);
        QVERIFY(!mountTableShows(point));
        QVERIFY(waitForPane(vc, QStringLiteral("End unMountDrive"), 30000));
        QVERIFY(waitForIdle(vc));
        // The last waiting pane may still be one of the busy volume's, or one
        // whose mount table read failed under load (the wait then goes on, as
        // it should): both depend on when the polls fell.
        QStringList lines = paneLines(vc);
        lines.removeIf([&](const QString &line) {
            return line.startsWith(busy) ||
                   line.startsWith(QStringLiteral("The mount table could not be read"));
        });
        const QStringList expected{
            QStringLiteral("Waiting for un-mount to complete, please wait..."),
            QStringLiteral("Unmounting Tape Complete"), QStringLiteral("Removing Mounted Record"),
            QStringLiteral("Removed Mounted Record"), QStringLiteral("End unMountDrive")};
        QVERIFY2(lines == expected, qPrintable(lines.join(QStringLiteral(" | "))));
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Complete Button"));
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("MOUNT"));
        QVERIFY(keepsEverything(storeBeforeMount, storeContents()));
        QVERIFY(script.unexpected().isEmpty());
    }
};

TAPEDESK_TEST_MAIN(FaultMatrixUnmountTest)
#include "tst_faultmatrix_unmount.moc"
