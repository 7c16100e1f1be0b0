#include "drives/DriveParser.h"
#include "sim/SimRun.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "tools/ProcessRunner.h"

#include <QDir>
#include <QObject>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

const QStringList kReadBarcode{QStringLiteral("readattr"),   QStringLiteral("-p"),    QStringLiteral("0"),
                               QStringLiteral("-a"),         QStringLiteral("0x806"), QStringLiteral("-d"),
                               QStringLiteral("/dev/stdout")};

QStringList on(const QString &device, QStringList command)
{
    return QStringList{QStringLiteral("-f"), device} + command;
}

QByteArray lastLine(const SimRun &r)
{
    return r.outLines().last();
}

} // namespace

class TestSimItdt : public QObject
{
    Q_OBJECT

private slots:
    void init() { resetSimulator(); }

    void scanFeedsTheApplicationParser()
    {
        const ProcessResult r =
            runProcess(simBinDir() + QStringLiteral("/itdt"), {QStringLiteral("scan")}, StreamMode::Separate);
        QVERIFY(r.started);
        QVERIFY(r.out.startsWith("Scanning SCSI Bus ...\n"));
        QVERIFY(r.out.endsWith("Exit with code: 0\n"));

        DriveList list;
        parseDriveTextToDrive(QString::fromUtf8(r.out), list);
        const auto drives = list.snapshot();
        QCOMPARE(drives.size(), 5);
        const DriveRecord hh8 = drives.at(0)->record();
        QCOMPARE(hh8.id, QStringLiteral("tape0"));
        QCOMPARE(hh8.name, QStringLiteral("0"));
        QCOMPARE(hh8.info1, QStringLiteral("Corvel LTO8 HH"));
        QCOMPARE(hh8.info3, QStringLiteral("F1A2"));
        QCOMPARE(drives.at(1)->record().info1, QStringLiteral("Corvel HH9"));
        QCOMPARE(drives.at(2)->record().info1, QStringLiteral("Corvel TD9"));
        const DriveRecord path = drives.at(3)->record();
        QCOMPARE(path.id, QStringLiteral("/dev/IBMtape3"));
        QCOMPARE(path.name, QStringLiteral("IBMtape3"));

        QSet<QString> serials;
        for (const auto &d : drives) {
            const DriveRecord rec = d->record();
            QCOMPARE(rec.info2, QStringLiteral("S/N:") + rec.serialNumber);
            QCOMPARE(rec.serialNumber.size(), 10);
            serials.insert(rec.serialNumber);
        }
        QCOMPARE(serials.size(), 5);
    }

    void exitLineMatchesStatusOnEveryPath_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("status");
        QTest::newRow("load") << on("tape0", {"load"}) << 0;
        QTest::newRow("load without cartridge") << on("tape2", {"load"}) << 4;
        QTest::newRow("unload without cartridge") << on("tape2", {"unload"}) << 4;
        QTest::newRow("unknown device") << on("tape9", {"load"}) << 3;
        QTest::newRow("short name is not an itdt id") << on("0", {"load"}) << 3;
        QTest::newRow("unknown subcommand") << on("tape0", {"frobnicate"}) << 2;
        QTest::newRow("no subcommand") << QStringList{"-f", "tape0"} << 2;
        QTest::newRow("no device") << QStringList{"load"} << 2;
        QTest::newRow("bad open mode") << QStringList{"-w", "9", "-f", "tape0", "load"} << 2;
        QTest::newRow("option without value") << QStringList{"-f"} << 2;
        QTest::newRow("systemtest needs a cartridge") << on("tape2", {"systemtest"}) << 4;
        QTest::newRow("readattr without attribute") << on("tape0", {"readattr", "-p", "0"}) << 2;
    }
    void exitLineMatchesStatusOnEveryPath()
    {
        QFETCH(QStringList, args);
        QFETCH(int, status);
        const SimRun r = itdt(args);
        QCOMPARE(r.status, status);
        QCOMPARE(lastLine(r), "Exit with code: " + QByteArray::number(status));
        QVERIFY(r.err.isEmpty());
    }

    void globalOptionsInAnyOrder()
    {
        const QString out = makeDir(QStringLiteral("results"));
        const SimRun r = itdt({"-w", "1", "-LP", out, "-R", out, "-f", "/dev/IBMtape3", "unload"});
        QCOMPARE(r.status, 0);
        QCOMPARE(itdt(on("/dev/IBMtape3", kReadBarcode)).status, 5);
    }

    void readattrGivesBarcodeAsSecondWordOrCodeFive()
    {
        const SimRun formatted = itdt(on("tape0", kReadBarcode));
        QCOMPARE(formatted.status, 0);
        QCOMPARE(formatted.outLines().size(), 3);
        const QList<QByteArray> words = formatted.outLines().at(1).split(' ');
        QCOMPARE(words.at(1), QByteArray("TD0001"));

        const SimRun blank = itdt(on("tape1", kReadBarcode));
        QCOMPARE(blank.status, 5);
        QCOMPARE(lastLine(blank), QByteArray("Exit with code: 5"));

        const SimRun empty = itdt(on("tape2", kReadBarcode));
        QCOMPARE(empty.status, 5);

        QCOMPARE(itdt(on("tape0", {"unload"})).status, 0);
        QCOMPARE(itdt(on("tape0", kReadBarcode)).status, 5);
        QCOMPARE(itdt(on("tape0", {"load"})).status, 0);
        QCOMPARE(itdt(on("tape0", kReadBarcode)).status, 0);
    }

    void rmpAndStandardtestLeaveTheCartridgeBlank()
    {
        const SimRun rmp = itdt(on("tape0", {"rmp"}));
        QCOMPARE(rmp.status, 0);
        QCOMPARE(itdt(on("tape0", kReadBarcode)).status, 5);

        const SimRun test = itdt(on("/dev/IBMtape3", {"standardtest"}));
        QCOMPARE(test.status, 0);
        QVERIFY(test.out.contains("Result: PASSED\nCode: OK\nExit with code: 0\n"));
        QCOMPARE(itdt(on("/dev/IBMtape3", kReadBarcode)).status, 5);
    }

    void systemtestReportsFiveBlockSizes()
    {
        const SimRun r = itdt(on("tape1", {"systemtest"}));
        QCOMPARE(r.status, 0);
        QCOMPARE(r.out.count(" KiB "), 5);
        QVERIFY(r.out.endsWith("Result: PASSED\nCode: OK\nExit with code: 0\n"));
    }

    void dumpWritesDistinctBlzFilesIntoResultFolder()
    {
        const QString folder = QDir(makeDir(QStringLiteral("x"))).filePath(QStringLiteral("not/yet/there"));
        QCOMPARE(itdt({"-R", folder, "-f", "tape1", "dump"}).status, 0);
        QCOMPARE(itdt({"-R", folder, "-f", "tape1", "dump"}).status, 0);
        const QStringList files = QDir(folder).entryList({QStringLiteral("*.blz")}, QDir::Files);
        QCOMPARE(files.size(), 2);
        for (const QString &f : files) {
            QVERIFY(f.startsWith(QStringLiteral("1013000102_")));
            QVERIFY(!readFile(folder + QLatin1Char('/') + f).isEmpty());
        }
    }

    void ucodeChecksTheFileThenSetsTheLevel()
    {
        const QString dir = makeDir(QStringLiteral("fw"));
        writeScript(dir, QStringLiteral("HH8_G3C1.bin"), {});
        QCOMPARE(itdt(on("tape0", {"ucode", dir + "/HH8_G3C1.bin"})).status, 7);
        QCOMPARE(itdt(on("tape0", {"ucode", dir + "/missing.fmrz"})).status, 7);
        QCOMPARE(itdt(on("tape0", {"ucode"})).status, 2);

        writeScript(dir, QStringLiteral("HH8_G3C1.fmrz"), {});
        const SimRun ok = itdt(on("tape0", {"ucode", dir + "/HH8_G3C1.fmrz"}));
        QCOMPARE(ok.status, 0);
        QVERIFY(itdt({"scan"}).out.contains("#0 tape0 - [ULTRIUM-HH8]-[G3C1] "));

        writeScript(dir, QStringLiteral("firmware.fm"), {});
        QCOMPARE(itdt(on("tape0", {"ucode", dir + "/firmware.fm"})).status, 0);
        QVERIFY(itdt({"scan"}).out.contains("[ULTRIUM-HH8]-[G3C2] "));
    }

    void mountedDriveIsBusyAndWriteProtectionRefusesWrites()
    {
        const QString mnt = makeDir(QStringLiteral("mnt0"));
        QCOMPARE(runSim(QStringLiteral("ltfs"), {mnt, "-o", "devname=0"}).status, 0);
        for (const char *command : {"load", "unload", "rmp", "systemtest"})
            QCOMPARE(itdt(on("tape0", {QString::fromLatin1(command)})).status, 8);
        QCOMPARE(runSim(QStringLiteral("umount"), {mnt}, {"TAPESIM_UNMOUNT_DELAY=0"}).status, 0);
        // Free once the daemon has let go of the drive.
        QVERIFY(waitUntil([&] { return itdt(on("tape0", {"unload"})).status == 0; }, 5000));

        const QString state = TestHome::path() + QStringLiteral("/tapesim/state.ini");
        QByteArray text = readFile(state);
        const qsizetype tape1 = text.indexOf("id = tape1");
        QVERIFY(tape1 > 0);
        text.replace(text.indexOf("write-protected = no", tape1), 20, "write-protected = yes");
        QFile f(state);
        QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write(text);
        f.close();
        QCOMPARE(itdt(on("tape1", {"rmp"})).status, 6);
        QCOMPARE(itdt(on("tape1", {"standardtest"})).status, 6);
        QCOMPARE(itdt(on("tape1", {"unload"})).status, 0);
    }
};

TAPEDESK_TEST_MAIN(TestSimItdt)
#include "tst_SimItdt.moc"
