// ctest-timeout: 120
// What TapeDesk relies on in the simulator: itdt's lines and exit statuses
// (tst_real_ltfs compares ltfs, mkltfs and ltfsck with the real ones), the
// drive held by the ltfs daemon after umount, and the injected faults. The
// drives are tape61.. so that a mount uses this test's own mount points.

#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "tools/ProcessRunner.h"

#include <QElapsedTimer>
#include <QStringDecoder>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

const QByteArray kLibrary =
    "[drive]\nid = tape61\nmodel = ULTRIUM-HH8\nfirmware = F1A2\nserial = 1013000161\naddress = H1-B0-T0-L0\n"
    "loaded = yes\ncartridge = yes\nbarcode = TD0061\nformatted = yes\nvolume = VOL61\n"
    "[drive]\nid = tape62\nmodel = ULTRIUM-HH9\nfirmware = N2B4\nserial = 1013000162\naddress = H1-B0-T1-L0\n"
    "loaded = yes\ncartridge = yes\nformatted = no\n"
    "[drive]\nid = tape63\nmodel = ULTRIUM-TD9\nfirmware = N2B4\nserial = 1013000163\naddress = H1-B0-T2-L0\n"
    "[drive]\nid = /dev/IBMtape64\nmodel = ULTRIUM-HH8\nfirmware = F1A2\nserial = 1013000164\n"
    "address = H1-B0-T3-L0\nloaded = yes\ncartridge = yes\nbarcode = TD0064\nformatted = yes\n";
const QString kStray = QStringLiteral("/tmp/ltfs/mnt/63/copied-too-early.txt");

struct Run
{
    int status = -1; // 128 + the signal after a death by signal
    QByteArray out;
    QByteArray err;
};

// `command` through /bin/sh with the simulator first on PATH, so the exit
// status tells a death by signal too.
Run sh(const QString &command, const QByteArray &fault = {})
{
    if (!fault.isEmpty())
        qputenv("TAPESIM_FAIL", fault);
    const ProcessResult r =
        runProcess(QStringLiteral("/bin/sh"),
                   {"-c", QStringLiteral("PATH=%1:$PATH; %2; exit $?").arg(simBinDir(), command)},
                   StreamMode::Separate, {}, 5000);
    qunsetenv("TAPESIM_FAIL");
    return {r.exitStatus, r.out, r.err};
}

int barcodeRead(const QString &device)
{
    return sh(QStringLiteral("itdt -f %1 readattr -p 0 -a 0x806").arg(device)).status;
}

} // namespace

class SimTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        resetSimulator();
        QFile state(makeDir(QStringLiteral("tapesim")) + QStringLiteral("/state.ini"));
        QVERIFY(state.open(QIODevice::WriteOnly));
        state.write(kLibrary);
        for (const char *point : {"/tmp/ltfs/mnt/61", "/tmp/ltfs/mnt/62", "/tmp/ltfs/mnt/63"})
            QDir().mkpath(QString::fromLatin1(point));
    }
    void cleanup() { QFile::remove(kStray); }

    void linesAndStatuses_data()
    {
        // Run after `setup`; the status, what stdout holds ("-": nothing at
        // all), and the pieces of stderr, in order, the last one ending it.
        QTest::addColumn<QString>("setup");
        QTest::addColumn<QString>("command");
        QTest::addColumn<QByteArray>("fault");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("out");
        QTest::addColumn<QByteArrayList>("err");
        const auto row = [](const char *tag, const char *setup, const char *command, const char *fault,
                            int status, const char *out, const QByteArrayList &err) {
            QTest::newRow(tag) << QString::fromLatin1(setup) << QString::fromLatin1(command)
                               << QByteArray(fault) << status << QByteArray(out) << err;
        };
        const char *mount61 = "ltfs /tmp/ltfs/mnt/61 -o devname=61 -o eject";
        row("scan", "", "itdt scan", "", 0,
            "Scanning SCSI Bus ...\n#0 tape61 - [ULTRIUM-HH8]-[F1A2] S/N:1013000161 H1-B0-T0-L0\n", {});
        row("barcode, the second word", "", "itdt -f tape61 readattr -p 0 -a 0x806 -d /dev/stdout", "", 0,
            "\nBarcode: TD0061 ", {});
        row("blank cartridge", "", "itdt -f tape62 readattr -p 0 -a 0x806", "", 5, "\nExit with code: 5\n",
            {});
        row("no cartridge", "", "itdt -f tape63 load", "", 4, "\nExit with code: 4\n", {});
        row("busy while mounted", mount61, "itdt -f tape61 load", "", 8, "\nExit with code: 8\n", {});
        row("format, drive held after umount",
            "ltfs /tmp/ltfs/mnt/61 -o devname=61 -o eject && umount /tmp/ltfs/mnt/61",
            "mkltfs --device=61 --force", "", 8, "-",
            {"LTFS30205E RESERVE (6) returns Device or resource busy.\nLTFS15023I Formatting failed.\n"});
        row("mount point not empty", "touch /tmp/ltfs/mnt/63/copied-too-early.txt",
            "ltfs /tmp/ltfs/mnt/63 -o devname=61 && mount | grep -c ltfs:", "", 1, "0\n",
            {" LTFS14123W The main function of FUSE returned error (1).\n"});
        row("mount table", mount61, "mount", "", 0,
            "\nltfs:61 on /tmp/ltfs/mnt/61 type fuse "
            "(rw,nosuid,nodev,relatime,user_id=0,group_id=0,default_permissions,allow_other)\n",
            {});
        row("umount unlists at once", mount61, "umount -v /tmp/ltfs/mnt/61 && mount | grep -c ltfs:", "", 1,
            "0\n", {"umount: /tmp/ltfs/mnt/61 unmounted\n"});
        row("exit code fault, ltfs by device path", "", "ltfs /tmp/ltfs/mnt/62 -o devname=/dev/IBMtape64",
            "IBMtape64:ltfs=1", 1, "-", {" LTFS14013E Cannot mount the volume.\n"});
        // Regression: a fault named by a device path missed runs given its short name.
        row("fault by device path, run by short name", "", "mkltfs --device=IBMtape64 --force",
            "/dev/IBMtape64:mkltfs=9", 9, "-", {"LTFS15023I Formatting failed.\n"});
        row("fault on any drive", "", "itdt -f tape62 dump", "tape61:load=3,*:dump=4", 4, "", {});
        row("silent", "", "itdt -f tape61 load", "*:load=silent", 0, "-", {});
        row("hang, killed when the time is up", "", "itdt -f tape61 load", "*:load=hang", -1,
            "Initializing device...\n", {});
    }

    void linesAndStatuses()
    {
        QFETCH(QString, setup);
        QFETCH(QString, command);
        QFETCH(QByteArray, fault);
        QFETCH(int, status);
        QFETCH(QByteArray, out);
        QFETCH(QByteArrayList, err);
        QVERIFY(setup.isEmpty() || sh(setup).status == 0);
        const Run r = sh(command, fault);
        QCOMPARE(r.status, status);
        QVERIFY2(out == "-" ? r.out.isEmpty() : r.out.contains(out), r.out.left(2000).constData());
        QVERIFY(status < 0 || !r.out.startsWith("Initializing") ||
                r.out.endsWith("Exit with code: " + QByteArray::number(status) + '\n'));
        qsizetype at = 0;
        for (const QByteArray &piece : err) {
            at = r.err.indexOf(piece, at);
            QVERIFY2(at >= 0, (piece + " not in:\n" + r.err).constData());
        }
        QVERIFY2(err.isEmpty() ? r.err.isEmpty() : r.err.endsWith(err.constLast()), r.err.constData());
    }

    // As the real ltfs with -o eject: the daemon holds the drive for
    // TAPESIM_UNMOUNT_DELAY seconds after umount, then ejects and exits.
    void theDaemonEjectsAfterHoldingTheDrive()
    {
        QCOMPARE(sh(QStringLiteral("ltfs /tmp/ltfs/mnt/61 -o devname=61 -o eject")).status, 0);
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(sh(QStringLiteral("TAPESIM_UNMOUNT_DELAY=1.5 umount /tmp/ltfs/mnt/61")).status, 0);
        QCOMPARE(sh(QStringLiteral("itdt -f tape61 unload")).status, 8);
        QVERIFY(waitUntil([] { return barcodeRead(QStringLiteral("tape61")) == 5; }, 10000));
        QVERIFY(timer.elapsed() >= 1400);
    }

    void faultsChangeNothing()
    {
        QCOMPARE(sh(QStringLiteral("itdt -f tape61 unload"), "tape61:unload=6").status, 6);
        QCOMPARE(barcodeRead(QStringLiteral("tape61")), 0);
        // A crash prints about half of the run's lines and saves nothing.
        const Run scan = sh(QStringLiteral("itdt scan"), "*:scan=crash");
        QVERIFY2(scan.status == 128 + 11 || scan.status == 128 + 6, QByteArray::number(scan.status));
        QVERIFY(scan.out.startsWith("Scanning SCSI Bus ...\n"));
        QVERIFY(scan.out.count("\n#") < 4 && !scan.out.contains("Exit with code"));
        const Run format = sh(QStringLiteral("mkltfs --device=62"), "62:mkltfs=crash");
        QVERIFY(format.status > 128 && format.err.startsWith("LTFS15000I "));
        QCOMPARE(barcodeRead(QStringLiteral("tape62")), 5);
    }

    void garbage()
    {
        const Run g = sh(QStringLiteral("itdt scan"), "*:scan=garbage");
        QCOMPARE(g.status, 0);
        for (const QByteArray &stream : {g.out, g.err}) {
            QStringDecoder utf8(QStringConverter::Utf8);
            [[maybe_unused]] const QString text = utf8.decode(stream);
            QVERIFY(utf8.hasError());
            QVERIFY(stream.size() - stream.lastIndexOf('\n') > 1 << 20); // one line of over 1 MiB, no end
        }
    }
};

TAPEDESK_TEST_MAIN(SimTest)
#include "tst_sim.moc"
