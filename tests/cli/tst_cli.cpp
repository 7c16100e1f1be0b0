// ctest-timeout: 120
// The real tapedesk-cli against the simulator: each row one command line, its
// exit status and what it prints; then two processes on one drive, and a
// signal. The program runs with no display and no platform plugin set.

#include "support/TestEnv.h"
#include "support/TestMain.h"
#include "support/WorkflowFixture.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <csignal>

using namespace tapedesk::test;

namespace {

// Two drives of their own, so no mount point is shared with other tests.
const QByteArray kLibrary =
    "[drive]\nid = tape71\nmodel = ULTRIUM-HH8\nfirmware = F1A2\nserial = 1013000171\n"
    "address = H1-B0-T0-L0\nloaded = yes\ncartridge = yes\nbarcode = TD0071\n"
    "formatted = yes\nvolume = VOL71\n\n"
    "[drive]\nid = tape72\nmodel = ULTRIUM-HH8\nfirmware = F1A2\nserial = 1013000172\n"
    "address = H1-B0-T1-L0\nloaded = yes\ncartridge = yes\nformatted = no\n\n"
    "[drive]\nid = tape93\nmodel = ULTRIUM-HH8\nfirmware = F1A2\nserial = 1013000193\n"
    "address = H1-B0-T2-L0\ncartridge = yes\nbarcode = TD0093\nformatted = yes\nconsistent = no\n";

QProcess *startCli(const QStringList &arguments, const QByteArray &speed = "0")
{
    auto *p = new QProcess;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(QStringLiteral("DISPLAY"));
    env.remove(QStringLiteral("QT_QPA_PLATFORM"));
    env.insert(QStringLiteral("TAPESIM_SPEED"), QString::fromLatin1(speed));
    p->setProcessEnvironment(env);
    p->start(QStringLiteral(TAPEDESK_BIN "/tapedesk-cli"), arguments);
    return p;
}

struct Result
{
    int status = -1;
    QString out;
    QString err;
};

Result cli(const QStringList &arguments)
{
    std::unique_ptr<QProcess> p(startCli(arguments));
    p->waitForFinished(60000);
    return {p->exitCode(), QString::fromUtf8(p->readAllStandardOutput()),
            QString::fromUtf8(p->readAllStandardError())};
}

bool mounted(const QString &name)
{
    return cli({QStringLiteral("--json"), QStringLiteral("scan")})
        .out.contains(QStringLiteral("\"mounted\":true,\"name\":\"%1\"").arg(name));
}

} // namespace

class CliTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        freshWorkflowCase();
        QDir().mkpath(TestHome::path() + QStringLiteral("/tapesim"));
        QFile state(TestHome::path() + QStringLiteral("/tapesim/state.ini"));
        QVERIFY(state.open(QIODevice::WriteOnly) && state.write(kLibrary) > 0);
    }
    void cleanup()
    {
        endWorkflowCase();
        resetSimulator();
    }

    void commands_data()
    {
        QTest::addColumn<QStringList>("before"); // a command run first, or none
        QTest::addColumn<QByteArray>("fault");   // TAPESIM_FAIL
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>(
            "line"); // one of standard output's lines begins so (standard error's when it is empty)
        const QStringList none;
        const QStringList mount{"mount", "71", "--yes"};
        QTest::newRow("scan") << none << QByteArray() << QStringList{"scan"} << 0 << "Scan Complete";
        QTest::newRow("mount") << none << QByteArray() << mount << 0 << "Mount Complete";
        QTest::newRow("mount asks first") << none << QByteArray() << QStringList{"mount", "71"} << 3
                                          << "Refused: the question above needs --yes.";
        QTest::newRow("mount twice") << mount << QByteArray() << mount << 3
                                     << "tape71 is already mounted; unmount it first.";
        QTest::newRow("unmount waits for ltfs")
            << mount << QByteArray("delay") << QStringList{"unmount", "tape71"} << 0 << "End unMountDrive";
        QTest::newRow("format blank, eject")
            << none << QByteArray() << QStringList{"format", "72", "--name", "AB1234", "--then", "eject"} << 0
            << "--volume-name= AB1234";
        QTest::newRow("format needs --force")
            << none << QByteArray() << QStringList{"format", "71", "--name", "AB1234", "--then", "eject"} << 3
            << "Tape is already formated";
        QTest::newRow("format --force, mount")
            << none << QByteArray()
            << QStringList{"format", "1013000171", "--name", "AB1234", "--then", "mount", "--force"} << 0
            << "Mount Complete";
        QTest::newRow("format needs --then")
            << none << QByteArray() << QStringList{"format", "72", "--name", "AB1234"} << 3
            << "Refused: format needs --then mount or --then eject (what follows it).";
        QTest::newRow("firmware") << none << QByteArray()
                                  << QStringList{"firmware", "71", "--file", "FW", "--yes"} << 0
                                  << "Firmware Update Complete";
        QTest::newRow("dump") << none << QByteArray() << QStringList{"dump", "71", "--to", "DIR"} << 0
                              << "Contact Corvel Support At ";
        QTest::newRow("test") << none << QByteArray() << QStringList{"test", "71", "--yes"} << 0
                              << "Standard Test Complete";
        QTest::newRow("test fails") << none << QByteArray("tape71:load=4")
                                    << QStringList{"test", "71", "--yes"} << 1
                                    << "TEST failed - Please try with another tape";
        QTest::newRow("test on a mounted tape") << mount << QByteArray() << QStringList{"test", "71", "--yes"}
                                                << 3 << "Error: Tape needs to be un-mounted";
        QTest::newRow("validate") << none << QByteArray() << QStringList{"validate", "72", "--yes"} << 0
                                  << "Host Validation Complete";
        QTest::newRow("recover") << none << QByteArray() << QStringList{"recover", "93", "--yes"} << 0
                                 << "Volume Recovered";
        QTest::newRow("mount --yes leaves ltfsck to recover")
            << none << QByteArray() << QStringList{"mount", "93", "--yes"} << 1 << "Recovery canceled";
        QTest::newRow("unknown drive") << none << QByteArray() << QStringList{"test", "nosuch", "--yes"} << 2
                                       << "  tape72  name 72  serial 1013000172";
    }
    void commands()
    {
        QFETCH(QStringList, before);
        QFETCH(QByteArray, fault);
        QFETCH(QStringList, arguments);
        QFETCH(int, status);
        QFETCH(QString, line);
        if (!before.isEmpty())
            QCOMPARE(cli(before).status, 0);
        const QString firmware = makeDir(QStringLiteral("fw")) + QStringLiteral("/drive.fmrz");
        QVERIFY(QFile(firmware).open(QIODevice::WriteOnly));
        arguments.replaceInStrings(QRegularExpression(QStringLiteral("^FW$")), firmware);
        arguments.replaceInStrings(QRegularExpression(QStringLiteral("^DIR$")),
                                   makeDir(QStringLiteral("saved")));
        if (fault == "delay")
            qputenv("TAPESIM_UNMOUNT_DELAY", "4"); // the daemon writes its index after umount
        else if (!fault.isEmpty())
            qputenv("TAPESIM_FAIL", fault);
        QFile::remove(simLogPath());

        const Result r = cli(arguments);
        qunsetenv("TAPESIM_UNMOUNT_DELAY");
        const QStringList lines = (r.out.isEmpty() ? r.err : r.out).trimmed().split(QLatin1Char('\n'));
        QVERIFY2(r.status == status && std::any_of(lines.cbegin(), lines.cend(),
                                                   [&](const QString &l) { return l.startsWith(line); }),
                 qPrintable(r.out + r.err));
        // The console (the runner's banners) never reaches standard output.
        QVERIFY(!r.out.contains(QStringLiteral("START ERROR")));
        // Refused before anything changed: only the scan, the mount table and
        // a format that found the tape already formatted ran.
        if (status == 3 && before.isEmpty()) {
            for (const QStringList &run : simInvocations(simLogPath())) {
                const bool reads =
                    run.contains(QStringLiteral("scan")) || run.first() == QStringLiteral("mount");
                QVERIFY2(reads || run.first() == QStringLiteral("mkltfs"), qPrintable(run.join(' ')));
            }
        }
        if (fault == "delay") {
            QVERIFY(r.out.contains(QStringLiteral("Waiting for un-mount to complete, please wait...")));
            QVERIFY(!mounted(QStringLiteral("71")));
        }
        if (arguments.first() == QStringLiteral("dump"))
            QCOMPARE(QDir(arguments.at(3)).entryList({QStringLiteral("*.blz")}).size(), 1);
    }

    void jsonScanIsOneObject()
    {
        const Result r = cli({QStringLiteral("--json"), QStringLiteral("scan")});
        QCOMPARE(r.status, 0);
        const QJsonObject o = QJsonDocument::fromJson(r.out.toUtf8()).object();
        QCOMPARE(o.value(QStringLiteral("verdict")).toString(), QStringLiteral("success"));
        QCOMPARE(o.value(QStringLiteral("drives")).toArray().size(), 3);
        QCOMPARE(o.value(QStringLiteral("transcript")).toArray().last().toString(),
                 QStringLiteral("Scan Complete"));
        QCOMPARE(o.value(QStringLiteral("tools")).toArray().first()[QStringLiteral("code")].toString(),
                 QStringLiteral("0"));
    }

    // One drive, one operation: a second process is refused while the first
    // runs on the drive; another drive is free meanwhile. A signal ends the
    // run with its tool.
    void oneOperationPerDriveAndSignals()
    {
        std::unique_ptr<QProcess> first(startCli({"test", "72", "--yes"}, "0.5"));
        const QString lockFile =
            qEnvironmentVariable("XDG_RUNTIME_DIR").isEmpty()
                ? TestHome::path() + QStringLiteral("/.local/state/tapedesk/drive-1013000172.lock")
                : qEnvironmentVariable("XDG_RUNTIME_DIR") + QStringLiteral("/tapedesk/drive-1013000172.lock");
        QVERIFY(waitUntil([&] { return !readFile(lockFile).isEmpty(); }));
        const Result second = cli({"test", "72", "--yes"});
        QCOMPARE(second.status, 3);
        QVERIFY2(second.out.contains(QStringLiteral("in use by process %1 (Test)").arg(first->processId())),
                 qPrintable(second.out));
        QCOMPARE(cli({"validate", "71", "--yes"}).status, 0);
        QVERIFY(first->waitForFinished(30000));
        QCOMPARE(first->exitCode(), 0);

        std::unique_ptr<QProcess> stopped(startCli({"test", "72", "--yes"}, "0.5"));
        // Stopped while the drive loads the tape, the test's first phase.
        QVERIFY(waitUntil([&] {
            const QList<QStringList> runs = simInvocations(simLogPath());
            return !runs.isEmpty() && runs.last().endsWith(QStringLiteral("load"));
        }));
        const qsizetype runsBefore = simInvocations(simLogPath()).size();
        ::kill(static_cast<pid_t>(stopped->processId()), SIGTERM);
        QVERIFY(stopped->waitForFinished(10000));
        QCOMPARE(stopped->exitCode(), 143);
        // The test's later phases never start once the signal came.
        QCOMPARE(simInvocations(simLogPath()).size(), runsBefore);
        QCOMPARE(QProcess::execute(QStringLiteral("pgrep"), {QStringLiteral("-f"), simBinDir() + "/itdt"}),
                 1);
    }
};

TAPEDESK_TEST_MAIN(CliTest)
#include "tst_cli.moc"
