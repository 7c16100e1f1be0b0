// ctest-timeout: 90
// The Mount button on a mounted drive, against the simulator: umount once,
// then the real 3-second poll until the mount table no longer lists the
// volume. Each test waits for at least one poll, so they take seconds.

#include "operations/MountSteps.h"
#include "support/TestMain.h"
#include "ui/DriveTableModel.h"

#include <QLabel>
#include <QPlainTextEdit>
#include <QPointer>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QTimer>
#include <csignal>
#include <memory>
#include <vector>

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
    vc.engine.mountDrive();
    settle();
    vc.ui.rightScrollView->clear();
    QFile::remove(toolLogPath());
    return vc.engine.selectedDrive.get()->mounted() && vc.engine.isTapeMounted();
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
        QVERIFY(!vc.engine.selectedDrive.get()->mounted());
        QCOMPARE(vc.engine.selectedDrive.get()->record().label, QString());
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
        QVERIFY(!vc.engine.timer->isActive());
        QVERIFY(!vc.engine.isTapeMounted());
        QVERIFY(script.seen().isEmpty());
    }

    // Complete means released: the volume out of the mount table, and no ltfs
    // daemon left serving it. Until then each poll shows the waiting line on a
    // cleared pane, with the reason when it is not the plain wait; the record
    // stays. Once the cause goes, the next poll completes.
    void waitsUntilReleased_data()
    {
        QTest::addColumn<QByteArray>("unmountDelay");
        QTest::addColumn<QByteArray>("fault");
        QTest::addColumn<int>("nameHolderAfterMs");
        QTest::addColumn<QString>("reason"); // pattern of the line after the waiting line; "" for none
        const QString unreadable =
            QStringLiteral("^The mount table could not be read .*: the unmount waits until it can\\.$");
        QTest::newRow("daemon still writing the index")
            << QByteArray("4") << QByteArray() << 60000 << QString();
        QTest::newRow("mount fails") << QByteArray("0") << QByteArray("*:mount=5") << 60000 << unreadable;
        QTest::newRow("mount prints nothing")
            << QByteArray("0") << QByteArray("*:mount=silent") << 60000 << unreadable;
        QTest::newRow("daemon never exits")
            << QByteArray("100000") << QByteArray() << 2000 // named at the first poll
            << QStringLiteral(
                   "^Still waiting after \\d+ seconds: ltfs process (\\d+) has not released the drive "
                   "yet \\(\\S*/ltfs /tmp/ltfs/mnt/0 -o devname=0 -o eject\\)$");
    }

    void waitsUntilReleased()
    {
        QFETCH(QByteArray, unmountDelay);
        QFETCH(QByteArray, fault);
        QFETCH(int, nameHolderAfterMs);
        QFETCH(QString, reason);
        ViewController vc;
        QVERIFY(mountTape0(vc));
        vc.engine.holderReportIntervalMs = nameHolderAfterMs;
        qputenv("TAPESIM_UNMOUNT_DELAY", unmountDelay);
        if (!fault.isEmpty())
            qputenv("TAPESIM_FAIL", fault);
        QStringList lastWait; // the lines of the latest waiting pane
        QStringList recordDuringWait;
        QObject::connect(vc.ui.rightScrollView, &QPlainTextEdit::textChanged, &vc, [&] {
            const QString pane = paneText(vc);
            if (pane.startsWith(QStringLiteral("\n") + kWaiting) &&
                !pane.contains(QStringLiteral("Unmounting Tape Complete"))) {
                lastWait = pane.mid(1).split(QLatin1Char('\n'));
                recordDuringWait = storedMounts();
            }
        });
        vc.ui.btnMount->click();
        QVERIFY(waitUntil([&] { return lastWait.size() == (reason.isEmpty() ? 1 : 2); }, 10000));
        QVERIFY(!vc.ui.btnScan->isEnabled());
        QCOMPARE(recordDuringWait, QStringList{QStringLiteral("1013000101")});
        if (!reason.isEmpty()) {
            const QRegularExpressionMatch why = QRegularExpression(reason).match(lastWait.at(1));
            QVERIFY2(why.hasMatch(), qPrintable(lastWait.at(1)));
            // What the operator would do: end the process the pane names.
            if (why.lastCapturedIndex() == 1)
                QCOMPARE(::kill(why.captured(1).toInt(), SIGKILL), 0);
        }
        qunsetenv("TAPESIM_FAIL");
        QVERIFY(waitForPane(vc, QStringLiteral("End unMountDrive"), kPollsDoneMs));
        settle();
        QCOMPARE(paneText(vc), QStringLiteral("\n") + lastWait.join(QLatin1Char('\n')) + kCompletion);
        QCOMPARE(storedMounts(), QStringList());
        QCOMPARE(runsOf(QStringLiteral("umount")).size(), 1);
        QVERIFY(waitForIdle(vc));
    }

    // umount answers "target is busy" while processes work inside the
    // volume: each poll names them and asks umount again, so the unmount
    // completes by itself once the last one has gone.
    void busyVolumeNamesItsHoldersUntilFree_data()
    {
        QTest::addColumn<int>("holders");
        QTest::newRow("one holder") << 1;
        QTest::newRow("the set of holders changes") << 2;
    }

    void busyVolumeNamesItsHoldersUntilFree()
    {
        QFETCH(int, holders);
        ViewController vc;
        QVERIFY(mountTape0(vc));
        std::vector<std::unique_ptr<QProcess>> shells;
        for (int i = 0; i < holders; ++i) {
            auto &p = shells.emplace_back(std::make_unique<QProcess>());
            p->setWorkingDirectory(QStringLiteral("/tmp/ltfs/mnt/0"));
            p->start(QStringLiteral("sleep"), {QStringLiteral("60")});
            QVERIFY(p->waitForStarted());
        }
        // The simulated volume is not a real mount, so its umount is told to
        // answer as the real one would.
        qputenv("TAPESIM_FAIL", "tape0:umount=32");
        QStringList lastWait;
        QObject::connect(vc.ui.rightScrollView, &QPlainTextEdit::textChanged, &vc, [&] {
            const QString pane = paneText(vc);
            if (pane.startsWith(QStringLiteral("\n") + kWaiting))
                lastWait = pane.mid(1).split(QLatin1Char('\n'));
        });
        vc.ui.btnMount->click();
        while (!shells.empty()) {
            QStringList named;
            for (const auto &p : shells)
                named << QStringLiteral("The volume is busy: sleep (pid %1) holds /tmp/ltfs/mnt/0")
                             .arg(p->processId());
            QVERIFY2(waitUntil([&] { return lastWait.mid(1) == named; }, 10000),
                     qPrintable(lastWait.join('|')));
            QCOMPARE(storedMounts(), QStringList{QStringLiteral("1013000101")});
            if (shells.size() == 1)
                qunsetenv("TAPESIM_FAIL");
            shells.back()->kill();
            shells.back()->waitForFinished();
            shells.pop_back();
        }
        QVERIFY(waitForPane(vc, QStringLiteral("End unMountDrive"), kPollsDoneMs));
        settle();
        QVERIFY(paneText(vc).endsWith(kCompletion));
        QCOMPARE(storedMounts(), QStringList());
        QVERIFY(runsOf(QStringLiteral("umount")).size() >= 2);
    }

    void secondUnmountStopsTheFirstPoll()
    {
        ViewController vc;
        QVERIFY(mountTape0(vc));
        // Long enough for the second umount to find the line still listed.
        qputenv("TAPESIM_UNMOUNT_DELAY", "2");
        vc.engine.unMountDrive();
        const QPointer<QTimer> first = vc.engine.timer;
        QVERIFY(first && first->isActive());
        vc.engine.selectedDrive.set(vc.driveModel()->driveAt(0));
        vc.engine.unMountDrive();
        QVERIFY(vc.engine.timer != first.data());
        QVERIFY(!first || !first->isActive());
        QVERIFY(waitForPane(vc, QStringLiteral("End unMountDrive"), kPollsDoneMs));
        settle();
        QCOMPARE(paneText(vc), QStringLiteral("\nUnmounting Tape: /tmp/ltfs/mnt/0") + kCompletion);
        QVERIFY(!vc.engine.timer->isActive());
    }

    void driveNoLongerListedIsStillUnmountedAndForgotten()
    {
        ViewController vc;
        QVERIFY(mountTape0(vc));
        const DrivePtr tape0 = vc.engine.selectedDrive.get();
        driveList.clear(); // a rescan rebuilt the list meanwhile, without this drive
        vc.engine.unMountDrive();
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
        vc.engine.startProgress();
        settle();
        vc.engine.waitForUnMount();
        settle();
        QCOMPARE(paneText(vc), QStringLiteral("\nUnmounting Tape Complete\nEnd unMountDrive"));
        QCOMPARE(storedMounts(), QStringList{QStringLiteral("1013000101")});
        QVERIFY(waitForIdle(vc));
    }
};

TAPEDESK_TEST_MAIN(UnmountTest)
#include "tst_unmount.moc"
