#include "sim/SimRun.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"

#include <QElapsedTimer>
#include <QObject>
#include <QThread>

using namespace tapedesk::test;

namespace {

SimRun mkltfs(const QStringList &args, const QStringList &env = {})
{
    return runSim(QStringLiteral("mkltfs"), args, env);
}

SimRun ltfs(const QString &mountPoint, const QString &device, const QStringList &env = {})
{
    return runSim(QStringLiteral("ltfs"), {mountPoint, "-o", "devname=" + device, "-o", "eject"}, env);
}

QList<QByteArray> ltfsMountLines()
{
    QList<QByteArray> found;
    const QList<QByteArray> lines = runSim(QStringLiteral("mount"), {}).outLines();
    for (const QByteArray &line : lines) {
        if (line.startsWith("ltfs:"))
            found.append(line);
    }
    return found;
}

QByteArray ltfsMountLine(const QString &device, const QString &point)
{
    return "ltfs:" + device.toUtf8() + " on " + point.toUtf8() +
           " type fuse (rw,nosuid,nodev,relatime,user_id=0,group_id=0,default_permissions,allow_other)";
}

// Drops the hexadecimal thread id in front of an ltfs line.
QByteArray withoutThreadId(const QByteArray &line)
{
    return line.mid(line.indexOf(' ') + 1);
}

} // namespace

class TestSimLtfs : public QObject
{
    Q_OBJECT

private slots:
    void init() { resetSimulator(); }

    void formatBlankThenAgainNeedsForce()
    {
        const SimRun first = mkltfs({"--device=1", "--tape-serial=ABC123", "--volume-name=Photos"});
        QCOMPARE(first.status, 0);
        QVERIFY(first.out.isEmpty());
        QVERIFY(first.err.startsWith("LTFS15000I Starting mkltfs, LTFS version 2.4.8.4, log level 2.\n"
                                     "LTFS15003I Formatting device '1'.\n"));
        QVERIFY(first.err.endsWith(".\n\nLTFS15019I Volume capacity is 17 TB.\n"
                                   "LTFS15024I Medium formatted successfully.\n"));
        QVERIFY(first.err.contains("\nLTFS15013I Volume UUID is: "));
        QVERIFY(!first.err.contains("Formatting failed"));

        const SimRun second = mkltfs({"--device=tape1", "--tape-serial=ABC123"});
        QCOMPARE(second.status, 16);
        QVERIFY(second.out.isEmpty());
        QVERIFY(second.err.endsWith("LTFS15049I Checking the medium (mount).\n"
                                    "LTFS15047E Medium is already formatted (0).\n"
                                    "LTFS15048I Need to specify -f or --force option to format this medium.\n"
                                    "LTFS15023I Formatting failed.\n"));

        const SimRun forced = mkltfs({"-d", "1", "-f", "-s", "XYZ789", "-n", "Again"});
        QCOMPARE(forced.status, 0);
        QVERIFY(forced.out.isEmpty());
        QVERIFY(forced.err.contains("LTFS15049I Checking the medium (load).\n"));
        QVERIFY(forced.err.endsWith("LTFS15024I Medium formatted successfully.\n"));
        QVERIFY(itdt({"-f", "tape1", "readattr", "-p", "0", "-a", "0x806"})
                    .outLines()
                    .at(1)
                    .startsWith("Barcode: XYZ789 "));
    }

    void badTapeSerialsAreUsageErrors_data()
    {
        QTest::addColumn<QString>("serial");
        QTest::addColumn<QByteArray>("error");
        const QByteArray length = "LTFS15029E Tape serial must be 6 characters.";
        const QByteArray chars = "LTFS15030E Tape serial must contain only ASCII digits and capital letters.";
        QTest::newRow("short") << "ABC12" << length;
        QTest::newRow("long") << "ABC1234" << length;
        QTest::newRow("empty") << "" << length;
        QTest::newRow("lower case") << "abc123" << chars;
        QTest::newRow("punctuation") << "ABC-12" << chars;
        QTest::newRow("non-ASCII") << QStringLiteral("ABC12\u00c4") << length;
    }
    void badTapeSerialsAreUsageErrors()
    {
        QFETCH(QString, serial);
        QFETCH(QByteArray, error);
        const SimRun r = mkltfs({"--device=1", "--tape-serial=" + serial});
        QCOMPARE(r.status, 16);
        QVERIFY(r.out.isEmpty());
        QVERIFY2(r.errLines().contains(error), r.err.constData());
        QVERIFY(!r.err.contains("formatted successfully"));
    }

    void formatRefusals()
    {
        QCOMPARE(mkltfs({"--device=2"}).status, 8);
        QCOMPARE(mkltfs({"--device=7"}).status, 8);
        QCOMPARE(mkltfs({"--volume-name=x"}).status, 16);
        QCOMPARE(mkltfs({"--device=1", "--bogus"}).status, 16);
        const SimRun r = mkltfs({"--device=/dev/IBMtape3"});
        QCOMPARE(r.status, 16);
        QVERIFY(r.err.contains("LTFS15003I Formatting device '/dev/IBMtape3'."));
    }

    void blankCartridgeDoesNotMount()
    {
        const QString mnt = makeDir(QStringLiteral("mnt/1"));
        const SimRun r = ltfs(mnt, QStringLiteral("1"));
        QCOMPARE(r.status, 1);
        QVERIFY(r.out.isEmpty());
        const QList<QByteArray> lines = r.errLines();
        QCOMPARE(withoutThreadId(lines.at(lines.size() - 2)),
                 QByteArray("LTFS17168E Cannot read volume: medium is not partitioned."));
        QCOMPARE(withoutThreadId(lines.last()), QByteArray("LTFS14013E Cannot mount the volume."));
        QVERIFY(ltfsMountLines().isEmpty());
    }

    void missingMountPointFailsLikeFuse()
    {
        const QString missing = TestHome::path() + QStringLiteral("/nowhere");
        const SimRun r = ltfs(missing, QStringLiteral("0"));
        QCOMPARE(r.status, 1);
        QVERIFY(
            r.err.contains("fuse: bad mount point `" + missing.toUtf8() + "': No such file or directory"));
        QVERIFY(ltfsMountLines().isEmpty());
    }

    void mountIsListedUntilUmount()
    {
        const QString mnt = makeDir(QStringLiteral("mnt/0"));
        const SimRun r = ltfs(mnt, QStringLiteral("0"));
        QCOMPARE(r.status, 0);
        QVERIFY(r.out.isEmpty());
        const QList<QByteArray> lines = r.errLines();
        for (const QByteArray &line : lines)
            QVERIFY2(QByteArray(line.left(line.indexOf(' '))).toUInt(nullptr, 16) > 0, line.constData());
        QVERIFY(r.err.contains(" LTFS11031I Volume mounted successfully. TD0001 : Gen = 1 / (a, 5) -> (b, 5) "
                               "/ 1013000101.\n"));
        QVERIFY(r.err.contains(" LTFS17227I Tape attribute: Barcode = TD0001                          .\n"));
        QCOMPARE(withoutThreadId(lines.last()),
                 QByteArray("LTFS14113I Specified mount point is listed if succeeded."));
        QCOMPARE(ltfsMountLines(), QList<QByteArray>{ltfsMountLine(QStringLiteral("0"), mnt)});
        QCOMPARE(ltfs(makeDir(QStringLiteral("mnt/other")), QStringLiteral("tape0")).status, 1);

        const SimRun u = runSim(QStringLiteral("umount"), {"-v", mnt});
        QCOMPARE(u.status, 0);
        QCOMPARE(u.err, "umount: " + mnt.toUtf8() + " unmounted\n");
        QVERIFY(ltfsMountLines().isEmpty());
    }

    void formattedWithoutSerialMountsAsNoBarcode()
    {
        QCOMPARE(mkltfs({"--device=1"}).status, 0);
        const QString mnt = makeDir(QStringLiteral("mnt/1"));
        const SimRun r = ltfs(mnt, QStringLiteral("tape1"));
        QCOMPARE(r.status, 0);
        QVERIFY(r.err.contains(" Volume mounted successfully. NO_BARCODE : Gen = 1 "));
        QCOMPARE(ltfsMountLines(), QList<QByteArray>{ltfsMountLine(QStringLiteral("tape1"), mnt)});
    }

    // As the real ltfs: umount unlists the volume at once, but the daemon
    // (the mounting command line, still running) writes the index and holds
    // the drive for TAPESIM_UNMOUNT_DELAY seconds, then ejects and exits.
    void daemonHoldsTheDriveAfterUmount()
    {
        const QString mnt = makeDir(QStringLiteral("mnt/IBMtape3"));
        QCOMPARE(ltfs(mnt, QStringLiteral("/dev/IBMtape3")).status, 0);
        const QByteArray state = readFile(TestHome::path() + QStringLiteral("/tapesim/state.ini"));
        const qsizetype at = state.indexOf("daemon = ");
        QVERIFY(at > 0);
        const QByteArray pid = state.mid(at + 9, state.indexOf('\n', at) - at - 9);
        const QString proc = QStringLiteral("/proc/") + QString::fromLatin1(pid);
        QCOMPARE(readFile(proc + QStringLiteral("/cmdline")).replace('\0', ' '),
                 (simBinDir() + QStringLiteral("/ltfs ") + mnt +
                  QStringLiteral(" -o devname=/dev/IBMtape3 -o eject "))
                     .toUtf8());
        QElapsedTimer timer;
        timer.start();
        const SimRun u = runSim(QStringLiteral("umount"), {"-v", mnt}, {"TAPESIM_UNMOUNT_DELAY=1.5"});
        QCOMPARE(u.status, 0);
        QCOMPARE(u.err, "umount: " + mnt.toUtf8() + " unmounted\n");
        QVERIFY(ltfsMountLines().isEmpty());
        QCOMPARE(itdt({"-f", "/dev/IBMtape3", "unload"}).status, 8);
        const SimRun format = mkltfs({"--device=IBMtape3", "--force"});
        QVERIFY(format.status != 0);
        QVERIFY(format.err.contains("LTFS30205E RESERVE (6) returns Device or resource busy.\n"));
        QVERIFY(format.err.endsWith("LTFS15023I Formatting failed.\n"));
        QCOMPARE(ltfs(mnt, QStringLiteral("IBMtape3")).status, 1);
        // Gone, or a zombie with no command line left.
        QVERIFY(waitUntil([&] { return readFile(proc + QStringLiteral("/cmdline")).isEmpty(); }, 10000));
        QVERIFY(timer.elapsed() >= 1400);
        // -o eject: the cartridge left the drive.
        QCOMPARE(itdt({"-f", "/dev/IBMtape3", "readattr", "-p", "0", "-a", "0x806"}).status, 5);
    }

    void nonEmptyMountPointRefusedByFuseAfterSuccess()
    {
        const QString mnt = makeDir(QStringLiteral("mnt/stray"));
        QFile stray(mnt + QStringLiteral("/copied-too-early.txt"));
        QVERIFY(stray.open(QIODevice::WriteOnly));
        stray.close();
        const SimRun r = ltfs(mnt, QStringLiteral("tape0"));
        QCOMPARE(r.status, 0);
        QVERIFY(r.err.contains(" LTFS11031I Volume mounted successfully. TD0001 : "));
        const QList<QByteArray> lines = r.errLines();
        QCOMPARE(lines.mid(lines.size() - 3, 2),
                 (QList<QByteArray>{"fuse: mountpoint is not empty",
                                    "fuse: if you are sure this is safe, use the 'nonempty' mount option"}));
        QCOMPARE(withoutThreadId(lines.last()),
                 QByteArray("LTFS14123W The main function of FUSE returned error (1)."));
        QVERIFY(ltfsMountLines().isEmpty());
    }

    void otherMountsPassThroughToTheSystem()
    {
        const SimRun list = runSim(QStringLiteral("mount"), {});
        QCOMPARE(list.status, 0);
        QVERIFY(list.out.contains(" on / type "));
        const SimRun u = runSim(QStringLiteral("umount"), {makeDir(QStringLiteral("plain"))});
        QVERIFY(u.status != 0);
        QVERIFY(u.err.startsWith("umount: "));
    }
};

TAPEDESK_TEST_MAIN(TestSimLtfs)
#include "tst_SimLtfs.moc"
