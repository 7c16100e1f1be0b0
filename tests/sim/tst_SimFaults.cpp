// ctest-timeout: 120
#include "sim/SimRun.h"
#include "support/TestMain.h"
#include "tools/ProcessRunner.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QObject>
#include <QStringDecoder>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

QString fail(const QString &faults)
{
    return QStringLiteral("TAPESIM_FAIL=") + faults;
}

bool validUtf8(const QByteArray &bytes)
{
    QStringDecoder decoder(QStringConverter::Utf8);
    const QString text = decoder.decode(bytes);
    return !decoder.hasError();
}

int countDrives(const QByteArray &scan)
{
    return int(scan.count("\n#"));
}

} // namespace

class TestSimFaults : public QObject
{
    Q_OBJECT

private slots:
    void init() { resetSimulator(); }

    void exitCodeFaultKeepsTheShapeAndChangesNothing()
    {
        const SimRun r = itdt({"-f", "tape0", "unload"}, {fail("tape0:unload=6")});
        QCOMPARE(r.status, 6);
        QCOMPARE(r.outLines().first(), QByteArray("Initializing device..."));
        QCOMPARE(r.outLines().last(), QByteArray("Exit with code: 6"));
        // Still loaded: the failed unload had no effect.
        QCOMPARE(itdt({"-f", "tape0", "readattr", "-p", "0", "-a", "0x806"}).status, 0);

        const SimRun format = runSim(QStringLiteral("mkltfs"), {"--device=1"}, {fail("tape1:mkltfs=8")});
        QCOMPARE(format.status, 8);
        QVERIFY(format.out.isEmpty());
        QVERIFY(format.err.endsWith("LTFS15023I Formatting failed.\n"));
        QCOMPARE(itdt({"-f", "tape1", "readattr", "-p", "0", "-a", "0x806"}).status, 5);

        const QString mnt = makeDir(QStringLiteral("mnt/IBMtape3"));
        const SimRun mount =
            runSim(QStringLiteral("ltfs"), {mnt, "-o", "devname=/dev/IBMtape3"}, {fail("IBMtape3:ltfs=1")});
        QCOMPARE(mount.status, 1);
        QVERIFY(mount.out.isEmpty());
        QVERIFY(mount.err.endsWith(" LTFS14013E Cannot mount the volume.\n"));
        QVERIFY(!runSim(QStringLiteral("mount"), {}).out.contains("ltfs:"));
    }

    void faultsMatchOnlyTheirDeviceAndCommand()
    {
        const QString faults = fail(QStringLiteral("tape1:load=3, *:dump=4"));
        QCOMPARE(itdt({"-f", "tape0", "load"}, {faults}).status, 0);
        QCOMPARE(itdt({"-f", "tape1", "load"}, {faults}).status, 3);
        QCOMPARE(itdt({"-f", "tape1", "unload"}, {faults}).status, 0);
        QCOMPARE(itdt({"-f", "/dev/IBMtape3", "dump"}, {faults}).status, 4);
        QCOMPARE(runSim(QStringLiteral("mkltfs"), {"--device=0", "--force"}, {fail("tape0:mkltfs=9")}).status,
                 9);
        QCOMPARE(runSim(QStringLiteral("mkltfs"), {"--device=1"}, {fail("tape0:mkltfs=9")}).status, 0);
    }

    void crashDiesBySignalHalfwayThrough()
    {
        const SimRun scan = itdt({"scan"}, {fail("*:scan=crash")});
        QVERIFY2(scan.status == 128 + 11 || scan.status == 128 + 6, QByteArray::number(scan.status));
        QVERIFY(scan.out.startsWith("Scanning SCSI Bus ...\n"));
        QVERIFY(!scan.out.contains("Exit with code"));
        QVERIFY(countDrives(scan.out) < 4);

        const SimRun format = runSim(QStringLiteral("mkltfs"), {"--device=1"}, {fail("1:mkltfs=crash")});
        QVERIFY(format.status > 128);
        QVERIFY(format.err.startsWith("LTFS15000I "));
        QVERIFY(!format.err.contains("LTFS15024I"));
        // A crash mid-format must not leave the cartridge formatted.
        QCOMPARE(itdt({"-f", "tape1", "readattr", "-p", "0", "-a", "0x806"}).status, 5);
    }

    void hangPrintsItsFirstLineAndWaitsToBeKilled()
    {
        QProcess p;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("TAPESIM_FAIL"), QStringLiteral("tape0:load=hang"));
        p.setProcessEnvironment(env);
        p.start(simBinDir() + QStringLiteral("/itdt"), {"-f", "tape0", "load"});
        QVERIFY(p.waitForStarted());
        QVERIFY(p.waitForReadyRead(5000));
        QVERIFY(!p.waitForFinished(1500));
        QCOMPARE(p.readAllStandardOutput(), QByteArray("Initializing device...\n"));
        p.kill();
        QVERIFY(p.waitForFinished(5000));
        QCOMPARE(p.exitStatus(), QProcess::CrashExit);
    }

    void garbageIsInvalidUtf8AndOneLongLine()
    {
        const ProcessResult r =
            runProcess(simBinDir() + QStringLiteral("/itdt"), {"scan"}, StreamMode::Separate);
        QVERIFY(validUtf8(r.out));

        qputenv("TAPESIM_FAIL", "*:scan=garbage");
        const ProcessResult g =
            runProcess(simBinDir() + QStringLiteral("/itdt"), {"scan"}, StreamMode::Separate);
        qunsetenv("TAPESIM_FAIL");
        for (const QByteArray &stream : {g.out, g.err}) {
            QVERIFY(stream.size() >= 1 << 20);
            QVERIFY(!validUtf8(stream));
            QVERIFY(!stream.endsWith('\n'));
            QVERIFY(stream.size() - stream.lastIndexOf('\n') > 1 << 20);
            QVERIFY(!stream.contains("Exit with code"));
        }
        QCOMPARE(itdt({"scan"}, {fail("*:scan=garbage")}).status, 0);
    }

    void silentPrintsNothing()
    {
        for (const QString &tool :
             {QStringLiteral("itdt"), QStringLiteral("mkltfs"), QStringLiteral("umount")}) {
            const QString command = tool == QStringLiteral("itdt") ? QStringLiteral("load") : tool;
            const SimRun r = runSim(tool, {"-f", "tape0", "load"}, {fail("*:" + command + "=silent")});
            QCOMPARE(r.status, 0);
            QVERIFY(r.out.isEmpty());
            QVERIFY(r.err.isEmpty());
        }
    }

    void logRecordsExactArguments()
    {
        const QString log = TestHome::path() + QStringLiteral("/calls.log");
        const QStringList args{"-R", "/out dir/\"q\"", "-f", "tape0", "dump"};
        itdt(args, {"TAPESIM_LOG=" + log});
        runSim(QStringLiteral("umount"), {"-v", "/not/mounted"}, {"TAPESIM_LOG=" + log});
        const QList<QByteArray> lines = readFile(log).trimmed().split('\n');
        QCOMPARE(lines.size(), 2);
        QCOMPARE(QJsonDocument::fromJson(lines.at(0)).array().toVariantList(),
                 QJsonArray::fromStringList(QStringList{"itdt"} + args).toVariantList());
        QCOMPARE(QJsonDocument::fromJson(lines.at(1)).array().toVariantList(),
                 QJsonArray::fromStringList({"umount", "-v", "/not/mounted"}).toVariantList());
    }

    // Two runs changing two drives at the same moment: without the lock one
    // would write back the other's drive as it was before.
    void simultaneousChangesAreNeverLost()
    {
        const QString both =
            QStringLiteral("\"$0\" -f tape0 $1 >/dev/null & \"$0\" -f /dev/IBMtape3 $1 >/dev/null & wait");
        for (int round = 0; round < 40; ++round) {
            const QString command = round % 2 ? QStringLiteral("load") : QStringLiteral("unload");
            QProcess sh;
            sh.start(QStringLiteral("/bin/sh"), {"-c", both, simBinDir() + QStringLiteral("/itdt"), command});
            QVERIFY(sh.waitForFinished(20000));
            const int expected = command == QStringLiteral("load") ? 0 : 5;
            for (const QString &device : {QStringLiteral("tape0"), QStringLiteral("/dev/IBMtape3")})
                QCOMPARE(itdt({"-f", device, "readattr", "-p", "0", "-a", "0x806"}).status, expected);
        }
    }

    void concurrentToolsNeverCorruptTheState()
    {
        QCOMPARE(countDrives(itdt({"scan"}).out), 5);
        const QStringList devices{"tape0", "tape1", "/dev/IBMtape3"};
        for (const QString &command : {QStringLiteral("unload"), QStringLiteral("load")}) {
            QList<QProcess *> procs;
            for (int i = 0; i < 24; ++i) {
                auto *p = new QProcess(this);
                const bool scan = i % 4 == 3;
                p->start(simBinDir() + QStringLiteral("/itdt"),
                         scan ? QStringList{"scan"} : QStringList{"-f", devices.at(i % 3), command});
                procs.append(p);
            }
            for (QProcess *p : procs) {
                QVERIFY(p->waitForFinished(30000));
                QCOMPARE(p->exitCode(), 0);
                const QByteArray out = p->readAllStandardOutput();
                if (out.startsWith("Scanning"))
                    QCOMPARE(countDrives(out), 5);
                delete p;
            }
            // Every drive took the change: no run overwrote another's.
            const int expected = command == QStringLiteral("load") ? 0 : 5;
            for (const QString &device : devices)
                QCOMPARE(itdt({"-f", device, "readattr", "-p", "0", "-a", "0x806"}).status,
                         device == QStringLiteral("tape1") ? 5 : expected);
        }
        const QStringList left = QDir(TestHome::path() + QStringLiteral("/tapesim")).entryList(QDir::Files);
        QCOMPARE(left, (QStringList{"state.ini", "state.lock"}));
    }
};

TAPEDESK_TEST_MAIN(TestSimFaults)
#include "tst_SimFaults.moc"
