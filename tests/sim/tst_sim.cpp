// ctest-timeout: 120
// What TapeDesk relies on in the simulator: the real tools' output formats and
// exit statuses, the drive held by the ltfs daemon after umount, the injected
// faults, and a state that concurrent runs never corrupt. The drives here are
// tape61.. so that a mount uses this test's own mount points.

#include "drives/DriveParser.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "tools/ProcessRunner.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QScopeGuard>
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
    "loaded = no\ncartridge = no\n"
    "[drive]\nid = /dev/IBMtape64\nmodel = ULTRIUM-HH8\nfirmware = F1A2\nserial = 1013000164\n"
    "address = H1-B0-T3-L0\nloaded = yes\ncartridge = yes\nbarcode = TD0064\nformatted = yes\n";

const QStringList kReadBarcode{"readattr", "-p", "0", "-a", "0x806"};

// One finished run; `status` is 128 + the signal for a death by signal, as a
// shell reports it.
struct SimRun
{
    int status = -1;
    QByteArray out;
    QByteArray err;
    QList<QByteArray> errLines() const { return err.trimmed().split('\n'); }
    QByteArray lastOutLine() const { return out.trimmed().split('\n').constLast(); }
};

SimRun runSim(const QString &tool, const QStringList &args, const QString &fault = {},
              const QStringList &env = {})
{
    QProcess p;
    QProcessEnvironment e = QProcessEnvironment::systemEnvironment();
    e.insert(QStringLiteral("TAPESIM_SPEED"), QStringLiteral("0"));
    e.insert(QStringLiteral("TAPESIM_FAIL"), fault);
    for (const QString &kv : env)
        e.insert(kv.section(QLatin1Char('='), 0, 0), kv.section(QLatin1Char('='), 1));
    p.setProcessEnvironment(e);
    p.start(QStringLiteral("/bin/sh"),
            QStringList{"-c", "\"$0\" \"$@\"; exit $?", simBinDir() + QLatin1Char('/') + tool} + args);
    SimRun r;
    if (!p.waitForFinished(20000)) {
        p.kill();
        p.waitForFinished();
        return r;
    }
    return {p.exitCode(), p.readAllStandardOutput(), p.readAllStandardError()};
}

SimRun itdt(const QString &device, const QStringList &command, const QString &fault = {})
{
    return runSim(QStringLiteral("itdt"), QStringList{"-f", device} + command, fault);
}

int barcodeRead(const QString &device)
{
    return itdt(device, kReadBarcode).status;
}

QString mountPoint(const QString &name)
{
    const QString point = QStringLiteral("/tmp/ltfs/mnt/") + name;
    QDir().mkpath(point);
    return point;
}

SimRun ltfs(const QString &point, const QString &device, const QString &fault = {})
{
    return runSim(QStringLiteral("ltfs"), {point, "-o", "devname=" + device, "-o", "eject"}, fault);
}

QList<QByteArray> ltfsMountLines()
{
    QList<QByteArray> found;
    for (const QByteArray &line : runSim(QStringLiteral("mount"), {}).out.split('\n')) {
        if (line.startsWith("ltfs:"))
            found << line;
    }
    return found;
}

// An ltfs line without the hexadecimal thread id in front.
QByteArray withoutThreadId(const QByteArray &line)
{
    return line.mid(line.indexOf(' ') + 1);
}

bool validUtf8(const QByteArray &bytes)
{
    QStringDecoder decoder(QStringConverter::Utf8);
    [[maybe_unused]] const QString text = decoder.decode(bytes);
    return !decoder.hasError();
}

} // namespace

class SimTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        resetSimulator();
        QDir().mkpath(qEnvironmentVariable("TAPESIM_HOME"));
        QFile state(qEnvironmentVariable("TAPESIM_HOME") + QStringLiteral("/state.ini"));
        QVERIFY(state.open(QIODevice::WriteOnly));
        state.write(kLibrary);
    }

    void scanFeedsTheApplicationParser()
    {
        const ProcessResult r =
            runProcess(simBinDir() + QStringLiteral("/itdt"), {"scan"}, StreamMode::Separate);
        QVERIFY(r.out.startsWith("Scanning SCSI Bus ...\n#0 tape61 - [ULTRIUM-HH8]-[F1A2] S/N:1013000161 "));
        QVERIFY(r.out.endsWith("Exit with code: 0\n"));
        DriveList list;
        parseDriveTextToDrive(QString::fromUtf8(r.out), list);
        QStringList seen;
        for (const DrivePtr &d : list.snapshot()) {
            const DriveRecord rec = d->record();
            seen << rec.id + QLatin1Char('|') + rec.name + QLatin1Char('|') + rec.info1 + QLatin1Char('|') +
                        rec.info2 + QLatin1Char('|') + rec.info3;
        }
        QCOMPARE(seen, (QStringList{"tape61|61|Corvel LTO8 HH|S/N:1013000161|F1A2",
                                    "tape62|62|Corvel HH9|S/N:1013000162|N2B4",
                                    "tape63|63|Corvel TD9|S/N:1013000163|N2B4",
                                    "/dev/IBMtape64|IBMtape64|Corvel LTO8 HH|S/N:1013000164|F1A2"}));
    }

    void itdtEndsWithItsExitStatus_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("status");
        QTest::newRow("load") << QStringList{"-f", "tape61", "load"} << 0;
        QTest::newRow("global options in any order")
            << QStringList{"-w", "1", "-LP", "/tmp", "-R", "/tmp", "-f", "/dev/IBMtape64", "unload"} << 0;
        QTest::newRow("no cartridge") << QStringList{"-f", "tape63", "load"} << 4;
        QTest::newRow("unknown device") << QStringList{"-f", "tape9", "load"} << 3;
        QTest::newRow("short name is no itdt id") << QStringList{"-f", "61", "load"} << 3;
        QTest::newRow("unknown subcommand") << QStringList{"-f", "tape61", "frobnicate"} << 2;
        QTest::newRow("no device") << QStringList{"load"} << 2;
        QTest::newRow("blank cartridge has no barcode") << QStringList{"-f", "tape62"} + kReadBarcode << 5;
        QTest::newRow("firmware file missing or of another type")
            << QStringList{"-f", "tape61", "ucode", "/tmp/HH8_G3C1.bin"} << 7;
    }

    void itdtEndsWithItsExitStatus()
    {
        QFETCH(QStringList, args);
        QFETCH(int, status);
        const SimRun r = runSim(QStringLiteral("itdt"), args);
        QCOMPARE(r.status, status);
        QCOMPARE(r.lastOutLine(), "Exit with code: " + QByteArray::number(status));
        QVERIFY(r.err.isEmpty());
    }

    void itdtChangesTheCartridgeAndTheDrive()
    {
        const SimRun formatted = itdt(QStringLiteral("tape61"), kReadBarcode);
        QCOMPARE(formatted.out.split('\n').at(1).split(' ').at(1), QByteArray("TD0061"));
        QCOMPARE(itdt(QStringLiteral("tape61"), {"unload"}).status, 0);
        QCOMPARE(barcodeRead(QStringLiteral("tape61")), 5);
        QCOMPARE(itdt(QStringLiteral("tape61"), {"load"}).status, 0);
        QCOMPARE(itdt(QStringLiteral("tape61"), {"rmp"}).status, 0);
        QCOMPARE(barcodeRead(QStringLiteral("tape61")), 5);

        const SimRun test = itdt(QStringLiteral("/dev/IBMtape64"), {"standardtest"});
        QVERIFY(test.out.endsWith("Result: PASSED\nCode: OK\nExit with code: 0\n"));
        QCOMPARE(barcodeRead(QStringLiteral("/dev/IBMtape64")), 5);
        const SimRun system = itdt(QStringLiteral("tape62"), {"systemtest"});
        QCOMPARE(system.out.count(" KiB "), 5);
        QVERIFY(system.out.endsWith("Result: PASSED\nCode: OK\nExit with code: 0\n"));

        const QString results = TestHome::path() + QStringLiteral("/results/not/yet/there");
        for (int i = 0; i < 2; ++i)
            QCOMPARE(runSim(QStringLiteral("itdt"), {"-R", results, "-f", "tape62", "dump"}).status, 0);
        const QStringList dumps = QDir(results).entryList({QStringLiteral("1013000162_*.blz")}, QDir::Files);
        QCOMPARE(dumps.size(), 2);

        // The level comes from a four-character token of the file's name, else goes up by one.
        const QString firmware = makeDir(QStringLiteral("fw"));
        for (const char *name : {"HH8_G3C1.fmrz", "firmware.fm"})
            writeScript(firmware, QString::fromLatin1(name), {});
        QCOMPARE(itdt(QStringLiteral("tape61"), {"ucode", firmware + "/HH8_G3C1.fmrz"}).status, 0);
        QVERIFY(runSim(QStringLiteral("itdt"), {"scan"}).out.contains("#0 tape61 - [ULTRIUM-HH8]-[G3C1] "));
        QCOMPARE(itdt(QStringLiteral("tape61"), {"ucode", firmware + "/firmware.fm"}).status, 0);
        QVERIFY(runSim(QStringLiteral("itdt"), {"scan"}).out.contains("#0 tape61 - [ULTRIUM-HH8]-[G3C2] "));
    }

    void mkltfsFormatsOnceThenNeedsForce()
    {
        const SimRun first = runSim(QStringLiteral("mkltfs"), {"--device=62", "--tape-serial=ABC123"});
        QCOMPARE(first.status, 0);
        QVERIFY(first.out.isEmpty());
        QVERIFY(first.err.startsWith("LTFS15000I Starting mkltfs, LTFS version 2.4.8.4, log level 2.\n"
                                     "LTFS15003I Formatting device '62'.\n"));
        QVERIFY(first.err.contains("\nLTFS15013I Volume UUID is: "));
        QVERIFY(first.err.endsWith(".\n\nLTFS15019I Volume capacity is 17 TB.\n"
                                   "LTFS15024I Medium formatted successfully.\n"));

        const SimRun again = runSim(QStringLiteral("mkltfs"), {"--device=tape62"});
        QCOMPARE(again.status, 16);
        QVERIFY(again.err.endsWith("LTFS15049I Checking the medium (mount).\n"
                                   "LTFS15047E Medium is already formatted (0).\n"
                                   "LTFS15048I Need to specify -f or --force option to format this medium.\n"
                                   "LTFS15023I Formatting failed.\n"));

        const SimRun forced =
            runSim(QStringLiteral("mkltfs"), {"-d", "62", "-f", "-s", "XYZ789", "-n", "Again"});
        QCOMPARE(forced.status, 0);
        QVERIFY(forced.err.contains("LTFS15049I Checking the medium (load).\n"));
        QVERIFY(itdt(QStringLiteral("tape62"), kReadBarcode).out.contains("\nBarcode: XYZ789 "));
    }

    void mkltfsRefusals_data()
    {
        // Usage errors stop before "Formatting device" and print no "Formatting failed.".
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("lastLine");
        const QByteArray failed = "LTFS15023I Formatting failed.";
        QTest::newRow("short serial") << QStringList{"--device=62", "--tape-serial=ABC12"} << 16
                                      << QByteArray("LTFS15029E Tape serial must be 6 characters.");
        QTest::newRow("lower-case serial")
            << QStringList{"--device=62", "--tape-serial=abc123"} << 16
            << QByteArray("LTFS15030E Tape serial must contain only ASCII digits and capital letters.");
        QTest::newRow("no device") << QStringList{"--volume-name=x"} << 16
                                   << QByteArray("LTFS15022E A device name must be specified with --device.");
        QTest::newRow("no cartridge") << QStringList{"--device=63"} << 8 << failed;
        QTest::newRow("unknown device") << QStringList{"--device=7"} << 8 << failed;
        QTest::newRow("formatted, by device path") << QStringList{"--device=/dev/IBMtape64"} << 16 << failed;
    }

    void mkltfsRefusals()
    {
        QFETCH(QStringList, args);
        QFETCH(int, status);
        QFETCH(QByteArray, lastLine);
        const SimRun r = runSim(QStringLiteral("mkltfs"), args);
        QCOMPARE(r.status, status);
        QVERIFY(r.out.isEmpty());
        QCOMPARE(r.errLines().constLast(), lastLine);
        QCOMPARE(r.err.contains("Formatting device"), lastLine == "LTFS15023I Formatting failed.");
    }

    void ltfsMountsAFormattedCartridgeOnly()
    {
        const SimRun blank = ltfs(mountPoint(QStringLiteral("62")), QStringLiteral("62"));
        QCOMPARE(blank.status, 1);
        QCOMPARE(withoutThreadId(blank.errLines().at(blank.errLines().size() - 2)),
                 QByteArray("LTFS17168E Cannot read volume: medium is not partitioned."));
        QCOMPARE(withoutThreadId(blank.errLines().constLast()),
                 QByteArray("LTFS14013E Cannot mount the volume."));
        const QString missing = TestHome::path() + QStringLiteral("/nowhere");
        QVERIFY(
            ltfs(missing, QStringLiteral("61"))
                .err.contains("fuse: bad mount point `" + missing.toUtf8() + "': No such file or directory"));
        QVERIFY(ltfsMountLines().isEmpty());

        // Formatted without a serial: mounted as NO_BARCODE.
        QCOMPARE(runSim(QStringLiteral("mkltfs"), {"--device=62"}).status, 0);
        const SimRun r = ltfs(mountPoint(QStringLiteral("62")), QStringLiteral("tape62"));
        QCOMPARE(r.status, 0);
        QVERIFY(r.out.isEmpty());
        for (const QByteArray &line : r.errLines())
            QVERIFY2(line.left(line.indexOf(' ')).toUInt(nullptr, 16) > 0, line.constData());
        QVERIFY(
            r.err.contains(" LTFS11031I Volume mounted successfully. NO_BARCODE : Gen = 1 / (a, 5) -> (b, 5) "
                           "/ 1013000162.\n"));
        QCOMPARE(withoutThreadId(r.errLines().constLast()),
                 QByteArray("LTFS14113I Specified mount point is listed if succeeded."));
        QCOMPARE(ltfsMountLines(),
                 QList<QByteArray>{"ltfs:tape62 on /tmp/ltfs/mnt/62 type fuse (rw,nosuid,nodev,"
                                   "relatime,user_id=0,group_id=0,default_permissions,allow_other)"});
        QCOMPARE(ltfs(mountPoint(QStringLiteral("63")), QStringLiteral("tape62")).status, 1);

        // Files in the mount point: the success line, then FUSE refuses.
        const QString stray = mountPoint(QStringLiteral("63")) + QStringLiteral("/copied-too-early.txt");
        QFile(stray).open(QIODevice::WriteOnly);
        auto removeStray = qScopeGuard([&] { QFile::remove(stray); });
        const SimRun refused = ltfs(mountPoint(QStringLiteral("63")), QStringLiteral("tape61"));
        QCOMPARE(refused.status, 0);
        QVERIFY(refused.err.contains(" LTFS11031I Volume mounted successfully. TD0061 : "));
        QCOMPARE(refused.errLines().mid(refused.errLines().size() - 3, 2),
                 (QList<QByteArray>{"fuse: mountpoint is not empty",
                                    "fuse: if you are sure this is safe, use the 'nonempty' mount option"}));
        QCOMPARE(withoutThreadId(refused.errLines().constLast()),
                 QByteArray("LTFS14123W The main function of FUSE returned error (1)."));
        QCOMPARE(ltfsMountLines().size(), 1);
    }

    // As the real ltfs: umount unlists the volume at once, but the daemon (the
    // mounting command line, still running) writes the index and holds the
    // drive for TAPESIM_UNMOUNT_DELAY seconds, then ejects and exits.
    void theDaemonHoldsTheDriveAfterUmount()
    {
        const QString point = mountPoint(QStringLiteral("61"));
        QCOMPARE(ltfs(point, QStringLiteral("61")).status, 0);
        for (const char *command : {"load", "unload", "rmp", "systemtest"})
            QCOMPARE(itdt(QStringLiteral("tape61"), {QString::fromLatin1(command)}).status, 8);
        const QByteArray state =
            readFile(qEnvironmentVariable("TAPESIM_HOME") + QStringLiteral("/state.ini"));
        const qsizetype at = state.indexOf("daemon = ") + 9;
        const QString proc =
            QStringLiteral("/proc/") + QString::fromLatin1(state.mid(at, state.indexOf('\n', at) - at));
        QCOMPARE(readFile(proc + QStringLiteral("/cmdline")).replace('\0', ' '),
                 (simBinDir() + QStringLiteral("/ltfs ") + point + QStringLiteral(" -o devname=61 -o eject "))
                     .toUtf8());

        QElapsedTimer timer;
        timer.start();
        const SimRun u = runSim(QStringLiteral("umount"), {"-v", point}, {}, {"TAPESIM_UNMOUNT_DELAY=1.5"});
        QCOMPARE(u.status, 0);
        QCOMPARE(u.err, "umount: " + point.toUtf8() + " unmounted\n");
        QVERIFY(ltfsMountLines().isEmpty());
        QCOMPARE(itdt(QStringLiteral("tape61"), {"unload"}).status, 8);
        const SimRun format = runSim(QStringLiteral("mkltfs"), {"--device=61", "--force"});
        QVERIFY(format.err.endsWith("LTFS30205E RESERVE (6) returns Device or resource busy.\n"
                                    "LTFS15023I Formatting failed.\n"));
        QVERIFY(ltfs(point, QStringLiteral("61")).err.contains("LTFS30205E RESERVE (6)"));
        // Gone, or a zombie with no command line left.
        QVERIFY(waitUntil([&] { return readFile(proc + QStringLiteral("/cmdline")).isEmpty(); }, 10000));
        QVERIFY(timer.elapsed() >= 1400);
        QCOMPARE(barcodeRead(QStringLiteral("tape61")), 5); // -o eject: the cartridge left the drive

        // Anything that is not a simulated mount goes to the system's tools.
        QVERIFY(runSim(QStringLiteral("mount"), {}).out.contains(" on / type "));
        QVERIFY(runSim(QStringLiteral("umount"), {point}).err.startsWith("umount: "));
    }

    void writeProtectedCartridgeRefusesWrites()
    {
        QFile state(qEnvironmentVariable("TAPESIM_HOME") + QStringLiteral("/state.ini"));
        QVERIFY(state.open(QIODevice::Append));
        state.write("write-protected = yes\n"); // the last drive's
        state.close();
        QCOMPARE(itdt(QStringLiteral("/dev/IBMtape64"), {"rmp"}).status, 6);
        QCOMPARE(itdt(QStringLiteral("/dev/IBMtape64"), {"standardtest"}).status, 6);
        QCOMPARE(itdt(QStringLiteral("/dev/IBMtape64"), {"unload"}).status, 0);
    }

    void faultsHitTheirDriveByAnyOfItsNames()
    {
        const QString faults = QStringLiteral("tape62:load=3,*:dump=4,/dev/IBMtape64:mkltfs=9");
        QCOMPARE(itdt(QStringLiteral("tape61"), {"load"}, faults).status, 0);
        QCOMPARE(itdt(QStringLiteral("tape62"), {"load"}, faults).status, 3);
        QCOMPARE(itdt(QStringLiteral("tape62"), {"unload"}, faults).status, 0);
        QCOMPARE(itdt(QStringLiteral("/dev/IBMtape64"), {"dump"}, faults).status, 4);
        QCOMPARE(runSim(QStringLiteral("mkltfs"), {"--device=IBMtape64", "--force"}, faults).status, 9);
        QCOMPARE(runSim(QStringLiteral("mkltfs"), {"--device=62"}, QStringLiteral("61:mkltfs=9")).status, 0);
    }

    void anExitCodeFaultKeepsTheShapeAndChangesNothing()
    {
        const SimRun unload = itdt(QStringLiteral("tape61"), {"unload"}, QStringLiteral("tape61:unload=6"));
        QCOMPARE(unload.status, 6);
        QVERIFY(unload.out.startsWith("Initializing device...\n"));
        QCOMPARE(unload.lastOutLine(), QByteArray("Exit with code: 6"));
        QCOMPARE(barcodeRead(QStringLiteral("tape61")), 0);

        const SimRun format =
            runSim(QStringLiteral("mkltfs"), {"--device=62"}, QStringLiteral("tape62:mkltfs=8"));
        QCOMPARE(format.status, 8);
        QVERIFY(format.err.endsWith("LTFS15023I Formatting failed.\n"));
        QCOMPARE(barcodeRead(QStringLiteral("tape62")), 5);

        const SimRun mount = ltfs(mountPoint(QStringLiteral("64")), QStringLiteral("/dev/IBMtape64"),
                                  QStringLiteral("IBMtape64:ltfs=1"));
        QCOMPARE(mount.status, 1);
        QVERIFY(mount.err.endsWith(" LTFS14013E Cannot mount the volume.\n"));
        QVERIFY(ltfsMountLines().isEmpty());
    }

    void crashDiesHalfwayAndSavesNothing()
    {
        const SimRun scan = runSim(QStringLiteral("itdt"), {"scan"}, QStringLiteral("*:scan=crash"));
        QVERIFY2(scan.status == 128 + 11 || scan.status == 128 + 6, QByteArray::number(scan.status));
        QVERIFY(scan.out.startsWith("Scanning SCSI Bus ...\n"));
        QVERIFY(scan.out.count("\n#") < 4);
        QVERIFY(!scan.out.contains("Exit with code"));
        const SimRun format =
            runSim(QStringLiteral("mkltfs"), {"--device=62"}, QStringLiteral("62:mkltfs=crash"));
        QVERIFY(format.status > 128);
        QVERIFY(format.err.startsWith("LTFS15000I "));
        QCOMPARE(barcodeRead(QStringLiteral("tape62")), 5);
    }

    void garbageSilentAndHang()
    {
        qputenv("TAPESIM_FAIL", "*:scan=garbage");
        const ProcessResult g =
            runProcess(simBinDir() + QStringLiteral("/itdt"), {"scan"}, StreamMode::Separate);
        qunsetenv("TAPESIM_FAIL");
        QCOMPARE(g.exitStatus, 0);
        for (const QByteArray &stream : {g.out, g.err}) {
            QVERIFY(!validUtf8(stream));
            QVERIFY(stream.size() - stream.lastIndexOf('\n') > 1 << 20);
        }
        for (const QString &tool :
             {QStringLiteral("itdt"), QStringLiteral("mkltfs"), QStringLiteral("umount")}) {
            const QString command = tool == QStringLiteral("itdt") ? QStringLiteral("load") : tool;
            const SimRun r = runSim(tool, {"-f", "tape61", "load"}, "*:" + command + "=silent");
            QCOMPARE(r.status, 0);
            QCOMPARE(r.out + r.err, QByteArray());
        }
        qputenv("TAPESIM_FAIL", "tape61:load=hang");
        const ProcessResult hung = runProcess(simBinDir() + QStringLiteral("/itdt"), {"-f", "tape61", "load"},
                                              StreamMode::Separate, {}, 1500);
        qunsetenv("TAPESIM_FAIL");
        QCOMPARE(hung.out, QByteArray("Initializing device...\n"));
        QCOMPARE(hung.exitStatus, -1); // killed when the time was up
    }

    void logRecordsEveryRunsArguments()
    {
        const QString log = TestHome::path() + QStringLiteral("/calls.log");
        const QStringList args{"-R", "/out dir/\"q\"", "-f", "tape61", "dump"};
        runSim(QStringLiteral("itdt"), args, {}, {"TAPESIM_LOG=" + log});
        runSim(QStringLiteral("umount"), {"-v", "/not/mounted"}, {}, {"TAPESIM_LOG=" + log});
        QCOMPARE(simInvocations(log),
                 (QList<QStringList>{QStringList{"itdt"} + args, {"umount", "-v", "/not/mounted"}}));
    }

    // Without the state's lock one run would write back another's drive as it
    // was before, or a scan would read half a file.
    void concurrentRunsNeverLoseAChange()
    {
        const QStringList devices{"tape61", "tape62", "/dev/IBMtape64"};
        for (const QString &command : {QStringLiteral("unload"), QStringLiteral("load")}) {
            QList<QProcess *> procs;
            auto end = qScopeGuard([&] { qDeleteAll(procs); });
            for (int i = 0; i < 16; ++i) {
                procs << new QProcess;
                procs.last()->start(simBinDir() + QStringLiteral("/itdt"),
                                    i % 4 == 3 ? QStringList{"scan"}
                                               : QStringList{"-f", devices.at(i % 3), command});
            }
            for (QProcess *p : procs) {
                QVERIFY(p->waitForFinished(30000));
                QCOMPARE(p->exitCode(), 0);
                const QByteArray out = p->readAllStandardOutput();
                QVERIFY(!out.startsWith("Scanning") || out.count("\n#") == 4);
            }
            const int loaded = command == QStringLiteral("load") ? 0 : 5;
            QCOMPARE(barcodeRead(QStringLiteral("tape61")), loaded);
            QCOMPARE(barcodeRead(QStringLiteral("/dev/IBMtape64")), loaded);
        }
        QCOMPARE(QDir(qEnvironmentVariable("TAPESIM_HOME")).entryList(QDir::Files),
                 (QStringList{"state.ini", "state.lock"}));
    }
};

TAPEDESK_TEST_MAIN(SimTest)
#include "tst_sim.moc"
