// ctest-timeout: 45
// The Mount button on a mounted drive, against the simulator: umount once,
// then the real 3-second poll until the mount table no longer lists the
// volume. Each test waits for at least one poll, so they take seconds.

#include "operations/MountSteps.h"
#include "support/TestMain.h"
#include "ui/DriveTableModel.h"

#include <QLabel>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QTimer>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

const QString kWaiting = QStringLiteral("Waiting for un-mount to complete, please wait...");
const QString kCompletion = QStringLiteral(
    "\nUnmounting Tape Complete\nRemoving Mounted Record\nRemoved Mounted Record\nEnd unMountDrive");
constexpr int kPollsDoneMs = 15000;

QStringList storedMounts()
{
    return SettingsStore::textList(DriveStateStore::kMountedDrivesKey).value_or(QStringList());
}

// tape0 mounted through TapeDesk's own mount, selected, pane and tool log emptied.
bool mountTape0(ViewController &vc)
{
    if (!scanAndSelect(vc, 0))
        return false;
    vc.mountDrive();
    settle();
    vc.ui.rightScrollView->clear();
    QFile::remove(toolLogPath());
    return vc.selectedDrive.get()->mounted() && vc.isTapeMounted();
}

} // namespace

class UnmountTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { freshSimulator(); }

    void volumeGoneAtOnceCompletesAtFirstPoll()
    {
        ViewController vc;
        QVERIFY(mountTape0(vc));
        QCOMPARE(storedMounts(), QStringList{QStringLiteral("1013000101")});
        DialogScript script;
        vc.ui.btnMount->click();
        settle();

        // Between umount and the first poll: the drive already shows as not
        // mounted, the record stays, and nothing can be started.
        QCOMPARE(paneText(vc), QStringLiteral("\nUnmounting Tape: /tmp/ltfs/mnt/0"));
        QVERIFY(!vc.ui.btnScan->isEnabled());
        QVERIFY(!vc.ui.tableView->isEnabled());
        QVERIFY(!vc.selectedDrive.get()->mounted());
        QCOMPARE(vc.selectedDrive.get()->record().label, QString());
        QCOMPARE(vc.driveModel()->index(0, 0).data(DriveTableModel::MountedRole).toBool(), false);
        QCOMPARE(storedMounts(), QStringList{QStringLiteral("1013000101")});
        QCOMPARE(runsOf(QStringLiteral("umount")),
                 (QList<QStringList>{
                     {QStringLiteral("umount"), QStringLiteral("-v"), QStringLiteral("/tmp/ltfs/mnt/0")}}));

        QVERIFY(waitForPane(vc, QStringLiteral("End unMountDrive"), kPollsDoneMs));
        settle();
        QCOMPARE(paneText(vc), QStringLiteral("\nUnmounting Tape: /tmp/ltfs/mnt/0") + kCompletion);
        QVERIFY(waitForIdle(vc));
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("MOUNT"));
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Complete Button"));
        QCOMPARE(storedMounts(), QStringList());
        QVERIFY(!vc.timer->isActive());
        QVERIFY(!vc.isTapeMounted());
        QVERIFY(script.seen().isEmpty());
    }

    void slowUnmountWaitsOnAClearedPanePerPoll()
    {
        ViewController vc;
        QVERIFY(mountTape0(vc));
        // The mount table keeps the line for 4 s after umount: the poll at 3 s
        // still sees it, the one at 6 s does not.
        qputenv("TAPESIM_UNMOUNT_DELAY", "4");
        int waitingPanes = 0;
        QStringList recordDuringWait;
        QObject::connect(vc.ui.rightScrollView, &QPlainTextEdit::textChanged, &vc, [&] {
            if (paneText(vc) == QStringLiteral("\n") + kWaiting) {
                ++waitingPanes;
                recordDuringWait = storedMounts();
            }
        });
        vc.ui.btnMount->click();
        QVERIFY(waitForPane(vc, QStringLiteral("End unMountDrive"), kPollsDoneMs));
        settle();
        QCOMPARE(waitingPanes, 1);
        QCOMPARE(recordDuringWait, QStringList{QStringLiteral("1013000101")});
        QCOMPARE(paneText(vc), QStringLiteral("\n") + kWaiting + kCompletion);
        QCOMPARE(storedMounts(), QStringList());
        QCOMPARE(runsOf(QStringLiteral("umount")).size(), 1);
        QVERIFY(waitForIdle(vc));
    }

    void secondUnmountStopsTheFirstPoll()
    {
        ViewController vc;
        QVERIFY(mountTape0(vc));
        // Long enough for the second umount to find the line still listed.
        qputenv("TAPESIM_UNMOUNT_DELAY", "2");
        vc.unMountDrive();
        const QPointer<QTimer> first = vc.timer;
        QVERIFY(first && first->isActive());
        vc.selectedDrive.set(vc.driveModel()->driveAt(0));
        vc.unMountDrive();
        QVERIFY(vc.timer != first.data());
        QVERIFY(!first || !first->isActive());
        QVERIFY(waitForPane(vc, QStringLiteral("End unMountDrive"), kPollsDoneMs));
        settle();
        QCOMPARE(paneText(vc), QStringLiteral("\nUnmounting Tape: /tmp/ltfs/mnt/0") + kCompletion);
        QVERIFY(!vc.timer->isActive());
    }

    void driveNoLongerListedIsStillUnmountedAndForgotten()
    {
        ViewController vc;
        QVERIFY(mountTape0(vc));
        const DrivePtr tape0 = vc.selectedDrive.get();
        driveList.clear(); // a rescan rebuilt the list meanwhile, without this drive
        vc.unMountDrive();
        settle();
        QVERIFY(tape0->mounted()); // no flag changes without the drive in the list
        QCOMPARE(tape0->record().label, QStringLiteral("TD0001"));
        QCOMPARE(runsOf(QStringLiteral("umount")).size(), 1);
        QVERIFY(waitForPane(vc, QStringLiteral("End unMountDrive"), kPollsDoneMs));
        settle();
        QCOMPARE(paneText(vc), QStringLiteral("\nUnmounting Tape: /tmp/ltfs/mnt/0") + kCompletion);
        QCOMPARE(storedMounts(), QStringList());
        QCOMPARE(vc.driveModel()->index(0, 0).data(DriveTableModel::MountedRole).toBool(), true);
    }

    void pollWithoutSelectionRemovesNothing()
    {
        DriveRecord remembered;
        remembered.serialNumber = QStringLiteral("1013000101");
        remembered.id = QStringLiteral("tape0");
        DriveStateStore::saveDriveInfo(Drive(remembered));
        ViewController vc;
        vc.startProgress();
        settle();
        vc.waitForUnMount();
        settle();
        QCOMPARE(paneText(vc), QStringLiteral("\nUnmounting Tape Complete\nEnd unMountDrive"));
        QCOMPARE(storedMounts(), QStringList{QStringLiteral("1013000101")});
        QVERIFY(waitForIdle(vc));
    }
};

TAPEDESK_TEST_MAIN(UnmountTest)
#include "tst_unmount.moc"
