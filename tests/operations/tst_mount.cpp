// ctest-timeout: 60
// The Mount button on an unmounted drive, against the simulator: the whole
// pane transcript, the label, the button's status, the drive's flags, the
// mounted-drive record and which tools ran.

#include "operations/MountSteps.h"
#include "operations/Texts.h"
#include "support/TestMain.h"
#include "tools/ToolPaths.h"
#include "ui/DriveTableModel.h"

#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <unistd.h>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

const QString kQuestion = QStringLiteral(
    "Please check tape is fully seated in the drive and correct type  (ex. LTO-7 tape in LTO-7 drive). "
    "Tape must be formatted. Please check and format if needed before mounting");

// What every mount shows up to the attribute read of drive `id`.
QString transcriptUpToAttributeRead(const QString &id)
{
    return QStringLiteral("\nMounting Tape\n      Loading Media\n      Getting Tape Address\n"
                          "Starting getSelectedDriveAddress for: ") +
           id;
}

QString transcriptUpToLtfs(const QString &id, const QString &name)
{
    return transcriptUpToAttributeRead(id) + QStringLiteral("\n/tmp/ltfs/mnt/ ") + name +
           QStringLiteral("\ndevname= ") + name;
}

const QString kLtfsFailed = QStringLiteral("\nMount Error: Please check that a formated tape was inserted\n");

// Presses Mount and answers the question with `answer`.
void pressMount(ViewController &vc, const QString &answer, DialogScript &script)
{
    script.press(answer);
    vc.ui.btnMount->click();
    settle();
}

// A one-drive library whose device id is unique to this process, so its mount
// point under the shared /tmp is this test's alone.
QByteArray ownDriveLibrary(const QString &id)
{
    return QStringLiteral("[drive]\nid = %1\nmodel = ULTRIUM-HH8\nfirmware = F1A2\nserial = 1013000199\n"
                          "address = H1-B0-T0-L0\nloaded = no\ncartridge = yes\nbarcode = OWN001\n"
                          "formatted = yes\nvolume = OWN\n")
        .arg(id)
        .toUtf8();
}

QString uniqueName(const char *stem)
{
    return QString::fromLatin1(stem) + QString::number(::getpid());
}

DrivePtr driveNamed(const QString &id, const QString &name, bool mounted)
{
    DriveRecord r;
    r.id = id;
    r.name = name;
    r.serialNumber = QStringLiteral("1013000777");
    r.mounted = mounted;
    return makeDrive(r);
}

} // namespace

class MountTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { freshSimulator(); }

    void formattedTapeMountsAndIsRecorded()
    {
        ViewController vc;
        QVERIFY(scanAndSelect(vc, 0));
        DialogScript script;
        pressMount(vc, QStringLiteral("Ok"), script);

        QCOMPARE(paneText(vc), transcriptUpToLtfs(QStringLiteral("tape0"), QStringLiteral("0")) +
                                   QStringLiteral("\n\nMount Complete"));
        QCOMPARE(script.seen().size(), 1);
        QCOMPARE(script.seen().first().title, QStringLiteral("Mount Tape"));
        QCOMPARE(script.seen().first().informative, kQuestion);
        QCOMPARE(script.seen().first().buttons,
                 (QStringList{QStringLiteral("Ok"), QStringLiteral("Cancel")}));

        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("UNMOUNT"));
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Complete Button"));
        QVERIFY(waitForIdle(vc));
        const DriveRecord drive = vc.engine.selectedDrive.get()->record();
        QVERIFY(drive.mounted);
        QCOMPARE(drive.address, QStringLiteral("TD0001"));
        QCOMPARE(drive.label, QStringLiteral("TD0001"));
        QCOMPARE(vc.driveModel()->index(0, 0).data(DriveTableModel::MountedRole).toBool(), true);
        QCOMPARE(vc.driveModel()->index(1, 0).data(DriveTableModel::MountedRole).toBool(), false);

        QCOMPARE(SettingsStore::textList(DriveStateStore::kMountedDrivesKey).value_or(QStringList()),
                 QStringList{QStringLiteral("1013000101")});
        QCOMPARE(SettingsStore::text(QStringLiteral("1013000101_name")).value_or(QStringLiteral("<absent>")),
                 QStringLiteral("0"));
        QCOMPARE(SettingsStore::text(QStringLiteral("1013000101_id")).value_or(QStringLiteral("<absent>")),
                 QStringLiteral("tape0"));
        QCOMPARE(SettingsStore::text(QStringLiteral("1013000101_a")).value_or(QStringLiteral("<absent>")),
                 QStringLiteral("TD0001"));

        // The real ltfs leaves stdout empty and reports on stderr only, so the
        // verdict rests on the attribute read's code and the stderr marker.
        QCOMPARE(lastStatusFeedBack.get(), QString());
        QCOMPARE(vc.engine.lastExitCode.get(), QStringLiteral("0"));
        QVERIFY(vc.engine.lastErrorOutput.get().contains(
            QStringLiteral(" LTFS11031I Volume mounted successfully. ")));

        const QList<QStringList> runs = toolRuns();
        QCOMPARE(runs.size(), 4);
        QCOMPARE(runs.at(0).last(), QStringLiteral("load"));
        QVERIFY(runs.at(1).contains(QStringLiteral("readattr")));
        QCOMPARE(runs.at(2),
                 (QStringList{QStringLiteral("ltfs"), QStringLiteral("/tmp/ltfs/mnt/0"), QStringLiteral("-o"),
                              QStringLiteral("devname=0"), QStringLiteral("-o"), QStringLiteral("eject")}));
        // The success line is confirmed by the mount table.
        QCOMPARE(runs.at(3), QStringList{QStringLiteral("mount")});
        QVERIFY(vc.engine.isTapeMounted());
        QVERIFY(script.unexpected().isEmpty());
    }

    void cancelRunsNoTool()
    {
        ViewController vc;
        QVERIFY(scanAndSelect(vc, 0));
        DialogScript script;
        pressMount(vc, QStringLiteral("Cancel"), script);
        QCOMPARE(script.seen().size(), 1);
        QVERIFY(toolRuns().isEmpty());
        QCOMPARE(paneText(vc), QString());
        QVERIFY(!vc.engine.selectedDrive.get()->mounted());
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("MOUNT"));
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Complete Button"));
        QVERIFY(!SettingsStore::contains(DriveStateStore::kMountedDrivesKey));
    }

    void attributeReadFailureStopsBeforeLtfs_data()
    {
        QTest::addColumn<int>("row");
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QString>("tail");
        QTest::newRow("blank cartridge, code 5")
            << 1 << QString()
            << QStringLiteral("\ngetSelectedDriveAddress has failed for: tape1\n      Mount Error\n"
                              "      Please check that a formatted tape was inserted");
        QTest::newRow("drive error, code 8")
            << 0 << QStringLiteral("tape0:readattr=8")
            << QStringLiteral("\ngetSelectedDriveAddress has failed for: tape0\n"
                              "      Getting Tape Address Failed\n      Mount Failed");
    }

    void attributeReadFailureStopsBeforeLtfs()
    {
        QFETCH(int, row);
        QFETCH(QString, fault);
        QFETCH(QString, tail);
        ViewController vc;
        QVERIFY(scanAndSelect(vc, row));
        if (!fault.isEmpty())
            qputenv("TAPESIM_FAIL", fault.toUtf8());
        DialogScript script;
        pressMount(vc, QStringLiteral("Ok"), script);

        const DriveRecord drive = vc.engine.selectedDrive.get()->record();
        // Without the error display: no error-table lines follow.
        QCOMPARE(paneText(vc), transcriptUpToAttributeRead(drive.id) + tail);
        QVERIFY(runsOf(QStringLiteral("ltfs")).isEmpty());
        QVERIFY(!drive.mounted);
        QCOMPARE(drive.address, QString());
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("MOUNT"));
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Fail Button"));
        QVERIFY(waitForIdle(vc));
        QVERIFY(!SettingsStore::contains(DriveStateStore::kMountedDrivesKey));
    }

    void ltfsWithoutVolumeMarkerFails_data()
    {
        QTest::addColumn<QString>("fakeLtfs");
        QTest::addColumn<QString>("stderrHolds");
        QTest::newRow("ltfs error, no marker")
            << QString() << QStringLiteral("LTFS14013E Cannot mount the volume.");
        QTest::newRow("marker without ' : '")
            << QStringLiteral("echo '5ec0 LTFS11031I Volume mounted successfully. TD0001' >&2\nexit 0")
            << QStringLiteral("Volume mounted successfully. TD0001");
        // The real ltfs over files left in the mount point: success, then FUSE
        // refuses and nothing is listed.
        QTest::newRow("success line, FUSE refuses")
            << QStringLiteral(
                   "echo '5f82 LTFS11031I Volume mounted successfully. TD0001 : Gen = 1 / (a, 5) -> "
                   "(b, 5) / 1013000101.' >&2\n"
                   "echo 'fuse: mountpoint is not empty' >&2\n"
                   "echo \"fuse: if you are sure this is safe, use the 'nonempty' mount option\" >&2\n"
                   "echo '5f82 LTFS14123W The main function of FUSE returned error (1).' >&2\nexit 0")
            << QStringLiteral("fuse: mountpoint is not empty\n");
    }

    void ltfsWithoutVolumeMarkerFails()
    {
        QFETCH(QString, fakeLtfs);
        QFETCH(QString, stderrHolds);
        ViewController vc;
        QVERIFY(scanAndSelect(vc, 0));
        if (fakeLtfs.isEmpty())
            qputenv("TAPESIM_FAIL", "tape0:ltfs=1");
        else
            LTFS_PATH.set(writeScript(makeDir(QStringLiteral("fakeltfs")), QStringLiteral("ltfs"), fakeLtfs));
        DialogScript script;
        pressMount(vc, QStringLiteral("Ok"), script);

        const QString stderrText = vc.engine.lastErrorOutput.get();
        QVERIFY2(stderrText.contains(stderrHolds), qPrintable(stderrText));
        QCOMPARE(paneText(vc),
                 transcriptUpToLtfs(QStringLiteral("tape0"), QStringLiteral("0")) + kLtfsFailed + stderrText);
        QVERIFY(!vc.engine.selectedDrive.get()->mounted());
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("MOUNT"));
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Fail Button"));
        QVERIFY(waitForIdle(vc));
        QVERIFY(!SettingsStore::contains(DriveStateStore::kMountedDrivesKey));
        QCOMPARE(vc.driveModel()->index(0, 0).data(DriveTableModel::MountedRole).toBool(), false);
    }

    void missingMountPointIsCreated()
    {
        const QString name = uniqueName("mp");
        const QString point = kMountRoot + name;
        QDir(point).removeRecursively();
        freshSimulator(ownDriveLibrary(QStringLiteral("tape") + name));
        ViewController vc;
        QVERIFY(scanAndSelect(vc, 0));
        QCOMPARE(vc.engine.selectedDrive.get()->name(), name);
        QVERIFY(!QFileInfo::exists(point));
        vc.engine.mountDrive();
        settle();
        QVERIFY(QFileInfo(point).isDir());
        QVERIFY2(paneText(vc).endsWith(QStringLiteral("\nMount Complete")), qPrintable(paneText(vc)));
        QVERIFY(vc.engine.selectedDrive.get()->mounted());
        QDir().rmdir(point);
    }

    // Files left in the unmounted mount point: nothing runs, the pane names
    // them and their size, and they stay where they are.
    void strayFilesInTheMountPointRefusedBeforeAnyTool()
    {
        const QString name = uniqueName("sf");
        const QString point = kMountRoot + name;
        QDir(point).removeRecursively();
        QDir().mkpath(point + QStringLiteral("/photos"));
        const QList<QPair<QString, QByteArray>> files{
            {point + QStringLiteral("/notes.txt"), "12345"},
            {point + QStringLiteral("/photos/a.jpg"), QByteArray(1000, 'x')}};
        for (const auto &[path, bytes] : files) {
            QFile f(path);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(bytes);
        }
        freshSimulator(ownDriveLibrary(QStringLiteral("tape") + name));
        ViewController vc;
        QVERIFY(scanAndSelect(vc, 0));
        DialogScript script;
        pressMount(vc, QStringLiteral("Ok"), script);
        QVERIFY(waitForIdle(vc));
        QCOMPARE(paneText(vc),
                 QStringLiteral("\nMounting Tape\nMount Error: ") + point +
                     QStringLiteral(" holds files although no tape is mounted there, probably "
                                    "written while the tape was not mounted: notes.txt, photos "
                                    "(1005 bytes in all). A mount would hide them. Move them "
                                    "away, then mount again; TapeDesk neither deletes nor moves "
                                    "them."));
        QVERIFY(runsOf(QStringLiteral("itdt")).isEmpty());
        QVERIFY(runsOf(QStringLiteral("ltfs")).isEmpty());
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Fail Button"));
        QVERIFY(!vc.engine.selectedDrive.get()->mounted());
        for (const auto &[path, bytes] : files)
            QCOMPARE(readFile(path), bytes);
        QDir(point).removeRecursively();
    }

    void mountPointThatCannotBeCreatedFailsWithoutLtfs()
    {
        const QString name = uniqueName("mf");
        const QString point = kMountRoot + name;
        QDir(point).removeRecursively();
        QDir().mkpath(kMountRoot);
        QFile blocker(point);
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        freshSimulator(ownDriveLibrary(QStringLiteral("tape") + name));
        ViewController vc;
        QVERIFY(scanAndSelect(vc, 0));
        vc.engine.mountDrive();
        settle();
        QFile::remove(point);
        QCOMPARE(paneText(vc), transcriptUpToLtfs(QStringLiteral("tape") + name, name) + kLtfsFailed +
                                   QStringLiteral("Cannot create the mount point ") + point);
        QVERIFY(runsOf(QStringLiteral("ltfs")).isEmpty());
        QVERIFY(!vc.engine.selectedDrive.get()->mounted());
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Fail Button"));
    }

    void devicePathMountsUnderItsLastComponent()
    {
        ViewController vc;
        QVERIFY(scanAndSelect(vc, 3));
        vc.engine.mountDrive();
        settle();
        QCOMPARE(paneText(vc),
                 transcriptUpToLtfs(QStringLiteral("/dev/IBMtape3"), QStringLiteral("IBMtape3")) +
                     QStringLiteral("\n\nMount Complete"));
        const QList<QStringList> ltfs = runsOf(QStringLiteral("ltfs"));
        QCOMPARE(ltfs.size(), 1);
        QCOMPARE(ltfs.first(), (QStringList{QStringLiteral("ltfs"), QStringLiteral("/tmp/ltfs/mnt/IBMtape3"),
                                            QStringLiteral("-o"), QStringLiteral("devname=/dev/IBMtape3"),
                                            QStringLiteral("-o"), QStringLiteral("eject")}));
        QCOMPARE(vc.engine.selectedDrive.get()->record().label, QStringLiteral("TD0004"));
        QCOMPARE(SettingsStore::text(QStringLiteral("1013000104_name")).value_or(QStringLiteral("<absent>")),
                 QStringLiteral("IBMtape3"));
        QVERIFY(vc.engine.isTapeMounted());
    }

    void mountStaysOnTheDriveItStartedWith()
    {
        ViewController vc;
        QVERIFY(scanAndSelect(vc, 0));
        const DrivePtr tape0 = vc.engine.selectedDrive.get();
        const DrivePtr tape1 = vc.driveModel()->driveAt(1);
        vc.engine.mountDrive();
        vc.engine.selectedDrive.set(tape1); // the operator's selection moves while the tools run
        settle();
        QVERIFY(paneText(vc).contains(QStringLiteral("Starting getSelectedDriveAddress for: tape0\n")));
        QVERIFY(paneText(vc).endsWith(QStringLiteral("\nMount Complete")));
        QVERIFY(tape0->mounted());
        QCOMPARE(tape0->record().address, QStringLiteral("TD0001"));
        QVERIFY(!tape1->mounted());
        QCOMPARE(tape1->record().address, QString());
        QCOMPARE(vc.engine.selectedDrive.get(), tape0);
        QCOMPARE(SettingsStore::textList(DriveStateStore::kMountedDrivesKey).value_or(QStringList()),
                 QStringList{QStringLiteral("1013000101")});
    }

    void driveNoLongerListedIsRecordedButNotMarked()
    {
        ViewController vc;
        QVERIFY(scanAndSelect(vc, 0));
        const DrivePtr tape0 = vc.engine.selectedDrive.get();
        driveList.clear(); // a rescan rebuilt the list meanwhile, without this drive
        vc.engine.mountDrive();
        settle();
        QVERIFY(paneText(vc).endsWith(QStringLiteral("\nMount Complete")));
        QVERIFY(!tape0->mounted());
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("UNMOUNT"));
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Complete Button"));
        QCOMPARE(SettingsStore::textList(DriveStateStore::kMountedDrivesKey).value_or(QStringList()),
                 QStringList{QStringLiteral("1013000101")});
        QCOMPARE(vc.driveModel()->index(0, 0).data(DriveTableModel::MountedRole).toBool(), false);
    }

    void unsafeNamesNeverReachATool_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("mounted");
        QTest::addColumn<QString>("shown");
        QTest::newRow("empty") << QString() << false << QStringLiteral("Mount Error: drive name \"\"");
        QTest::newRow("dot") << QStringLiteral(".") << false
                             << QStringLiteral("Mount Error: drive name \".\"");
        QTest::newRow("dot-dot, mounted")
            << QStringLiteral("..") << true << QStringLiteral("Unmount Error: drive name \"..\"");
        QTest::newRow("slash") << QStringLiteral("a/b") << false
                               << QStringLiteral("Mount Error: drive name \"a/b\"");
        QTest::newRow("line feed, mounted")
            << QStringLiteral("x\ny") << true << QStringLiteral("Unmount Error: drive name \"x\\x0ay\"");
    }

    void unsafeNamesNeverReachATool()
    {
        QFETCH(QString, name);
        QFETCH(bool, mounted);
        QFETCH(QString, shown);
        ViewController vc;
        vc.engine.selectedDrive.set(driveNamed(QStringLiteral("tape") + name, name, mounted));
        DialogScript script;
        vc.ui.btnMount->click();
        settle();
        const QString expected = QStringLiteral("\n") + shown +
                                 QStringLiteral(" cannot be used as a mount point under /tmp/ltfs/mnt/");
        QCOMPARE(paneText(vc), expected);
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Fail Button"));
        QVERIFY(script.seen().isEmpty());

        // The format workflow's ways in are refused the same way.
        vc.ui.rightScrollView->clear();
        if (mounted)
            vc.engine.unMountDrive();
        else
            vc.engine.mountDrive();
        settle();
        QCOMPARE(paneText(vc), expected);
        QVERIFY(vc.ui.btnScan->isEnabled());
        QVERIFY(toolRuns().isEmpty());
    }

    void isTapeMountedReadsTheMountTable()
    {
        freshSimulator(QByteArrayLiteral("[drive]\nid = tape10\nserial = 1013000110\ncartridge = yes\n"
                                         "formatted = yes\nloaded = yes\n"
                                         "[mount]\npoint = /tmp/ltfs/mnt/10\ndevice = 10\ndrive = tape10\n"));
        ViewController vc;
        const auto mountedFor = [&](const QString &name) {
            vc.engine.selectedDrive.set(driveNamed(QStringLiteral("tape") + name, name, false));
            return vc.engine.isTapeMounted();
        };
        QVERIFY(mountedFor(QStringLiteral("10")));
        // The exact mount point: /tmp/ltfs/mnt/1 is not /tmp/ltfs/mnt/10.
        QVERIFY(!mountedFor(QStringLiteral("1")));
        QVERIFY(!mountedFor(QString()));
    }

    // With tape10 mounted, tape1 is treated as the unmounted drive it is:
    // Format asks for the name at once, Test for the go-ahead.
    void prefixDriveIsNotMounted()
    {
        freshSimulator();
        QVERIFY(mountWithSimulator(QStringLiteral("10")));
        ViewController vc;
        QVERIFY(scanAndSelect(vc, 1));
        QCOMPARE(vc.engine.selectedDrive.get()->name(), QStringLiteral("1"));
        DialogScript script;
        // tape1 is an HH9, on which a format asks to proceed first.
        script.press(QStringLiteral("Proceed"))
            .press(QStringLiteral("Cancel"))
            .press(QStringLiteral("Cancel"));
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitForPane(vc, QStringLiteral("Format Canceled")));
        vc.btnRunTest();
        QVERIFY(waitUntil([&] { return script.pending() == 0; }));
        QCOMPARE(script.seen().size(), 3);
        QCOMPARE(script.seen()[1].title, QStringLiteral("Format Drive"));
        QCOMPARE(script.seen()[2].informative, ALERT_DESTRUCTIVE_RUN_TEST);
        QVERIFY(!paneText(vc).contains(QStringLiteral("un-mounted")));
        QVERIFY(runsOf(QStringLiteral("umount")).isEmpty());
    }
};

TAPEDESK_TEST_MAIN(MountTest)
#include "tst_mount.moc"
