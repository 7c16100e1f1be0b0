// ctest-timeout: 120
// The real tapedesk-cli against the simulator: each row one command line, its
// exit status and what it prints; then two processes on one drive, a signal,
// and the fleet playbook. The program runs with no display and no platform
// plugin set.

#include "support/TestMain.h"
#include "support/WindowHarness.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <csignal>

using namespace tapedesk::test;

namespace {

// Drives of their own, so no mount point is shared with other tests.
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

} // namespace

class CliTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { freshCase(kLibrary); }

    void commands_data()
    {
        QTest::addColumn<bool>("mountFirst");  // tape71 mounted by a run before
        QTest::addColumn<QByteArray>("fault"); // "delay": the unmount waits
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("status");
        // One of standard output's lines begins so (standard error's when it is empty).
        QTest::addColumn<QString>("line");
        const auto row = [](const char *tag, bool mountFirst, const char *fault, const char *arguments,
                            int status, const char *line) {
            QTest::newRow(tag) << mountFirst << QByteArray(fault) << QString::fromUtf8(arguments).split(' ')
                               << status << QString::fromUtf8(line);
        };
        row("mount", false, "", "mount 71 --yes", 0, "Mount Complete");
        row("mount asks first", false, "", "mount 71", 3, "Refused: the question above needs --yes.");
        row("mount twice", true, "", "mount 71 --yes", 3, "tape71 is already mounted; unmount it first.");
        row("unmount waits for ltfs", true, "delay", "unmount tape71", 0, "End unMountDrive");
        row("format blank, eject", false, "", "format 72 --name AB1234 --then eject", 0,
            "--volume-name= AB1234");
        row("format by serial, --force, mount", false, "",
            "format 1013000171 --name AB1234 --then mount --force", 0, "Mount Complete");
        row("format needs --then", false, "", "format 72 --name AB1234", 3,
            "Refused: format needs --then mount or --then eject (what follows it).");
        row("dump", false, "", "dump 71 --to DIR", 0, "Contact Corvel Support At ");
        row("recover", false, "", "recover 93 --yes", 0, "Volume Recovered");
        row("mount --yes leaves ltfsck to recover", false, "", "mount 93 --yes", 1, "Recovery canceled");
        row("unknown drive", false, "", "test nosuch --yes", 2, "  tape72  name 72  serial 1013000172");
        // What is wrong with the command line is said before anything runs.
        row("unknown command", false, "", "frobnicate 71", 2, "Unknown command: frobnicate");
        row("no drive", false, "", "test --yes", 2, "test needs a DRIVE: tapedesk-cli test");
        row("format needs --name", false, "", "format 72 --then eject", 3,
            "Refused: format needs --name NAME");
        row("--then sideways", false, "", "format 72 --name AB1234 --then up", 2,
            "--then takes mount or eject, not up");
        row("unmount of a tape not mounted", false, "", "unmount 71", 3,
            "tape71 is not mounted by TapeDesk.");
        row("recover of a mounted tape", true, "", "recover 71 --yes", 3,
            "tape71 is mounted; unmount it first.");
        row("paths set, one wrong", false, "", "paths --mkltfs /nowhere/mkltfs", 1,
            "mkltfs not found at /nowhere/mkltfs");
    }
    void commands()
    {
        QFETCH(bool, mountFirst);
        QFETCH(QByteArray, fault);
        QFETCH(QStringList, arguments);
        QFETCH(int, status);
        QFETCH(QString, line);
        if (mountFirst)
            QCOMPARE(cli({"mount", "71", "--yes"}).status, 0);
        arguments.replaceInStrings(QRegularExpression(QStringLiteral("^DIR$")),
                                   makeDir(QStringLiteral("saved")));
        if (fault == "delay")
            qputenv("TAPESIM_UNMOUNT_DELAY", "4"); // the daemon writes its index after umount
        QFile::remove(simLogPath());

        const Result r = cli(arguments);
        qunsetenv("TAPESIM_UNMOUNT_DELAY");
        const QStringList lines = (r.out.isEmpty() ? r.err : r.out).trimmed().split(QLatin1Char('\n'));
        QVERIFY2(r.status == status && std::any_of(lines.cbegin(), lines.cend(),
                                                   [&](const QString &l) { return l.startsWith(line); }),
                 qPrintable(r.out + r.err));
        // The console (the runner's banners) never reaches standard output.
        QVERIFY(!r.out.contains(QStringLiteral("START ERROR")));
        // Refused before anything changed: only the scan and the mount table ran.
        if (status == 3 && !mountFirst) {
            for (const QStringList &run : simInvocations(simLogPath()))
                QVERIFY2(run.contains(QStringLiteral("scan")) || run.first() == QStringLiteral("mount"),
                         qPrintable(run.join(' ')));
        }
        if (fault == "delay") {
            QVERIFY(r.out.contains(QStringLiteral("Waiting for un-mount to complete, please wait...")));
            // A passing run's verdict and reason, for the playbooks that read them.
            const Result scan = cli({QStringLiteral("--json"), QStringLiteral("scan")});
            const QJsonObject o = QJsonDocument::fromJson(scan.out.toUtf8()).object();
            QCOMPARE(o.value(QStringLiteral("verdict")).toString(), QStringLiteral("success"));
            QCOMPARE(o.value(QStringLiteral("reason")).toString(),
                     QStringLiteral("Scan Complete: 3 drives listed"));
            QVERIFY(!scan.out.contains(QStringLiteral("\"mounted\":true")));
        }
        if (arguments.first() == QStringLiteral("dump"))
            QCOMPARE(QDir(arguments.at(3)).entryList({QStringLiteral("*.blz")}).size(), 1);
    }

    // One JSON object whose verdict is the operation's own: a firmware load
    // whose itdt died before it reported anything failed, although the scan
    // before it reported code 0.
    void jsonVerdictOfAKilledTool()
    {
        const QString firmware = makeDir(QStringLiteral("fw")) + QStringLiteral("/drive.fmrz");
        QVERIFY(QFile(firmware).open(QIODevice::WriteOnly));
        qputenv("TAPESIM_FAIL", "tape71:ucode=crash");
        const Result r = cli({"--json", "firmware", "71", "--file", firmware, "--yes"});
        qunsetenv("TAPESIM_FAIL");
        QCOMPARE(r.status, 1);
        const QJsonObject o = QJsonDocument::fromJson(r.out.toUtf8()).object();
        const QString reason = QStringLiteral("itdt ucode was killed by signal 11");
        QCOMPARE(o.value(QStringLiteral("verdict")).toString(), QStringLiteral("failed"));
        QCOMPARE(o.value(QStringLiteral("reason")).toString(), reason);
        QCOMPARE(o.value(QStringLiteral("exitStatus")).toInt(), 1);
        QCOMPARE(o.value(QStringLiteral("transcript")).toArray().last().toString(), reason);
        const QJsonArray tools = o.value(QStringLiteral("tools")).toArray();
        QCOMPARE(tools.first()[QStringLiteral("code")].toString(), QStringLiteral("0"));
        QCOMPARE(tools.last()[QStringLiteral("code")].toString(), QString());
    }

    // One drive, one operation: a second process is refused while the first
    // runs on the drive; another drive is free meanwhile. A signal ends the
    // run with its tool.
    void oneOperationPerDriveAndSignals()
    {
        // The drive loading the tape, the test's first phase, once the drive is taken.
        const auto loading = [] {
            const QList<QStringList> runs = simInvocations(simLogPath());
            return !runs.isEmpty() && runs.last().endsWith(QStringLiteral("load"));
        };
        std::unique_ptr<QProcess> first(startCli({"test", "72", "--yes"}, "0.5"));
        QVERIFY(waitUntil(loading));
        const Result second = cli({"test", "72", "--yes"});
        QCOMPARE(second.status, 3);
        QVERIFY2(second.out.contains(QStringLiteral("in use by process %1 (Test)").arg(first->processId())),
                 qPrintable(second.out));
        QCOMPARE(cli({"validate", "71", "--yes"}).status, 0);
        QVERIFY(first->waitForFinished(30000));
        QCOMPARE(first->exitCode(), 0);

        QFile::remove(simLogPath());
        std::unique_ptr<QProcess> stopped(startCli({"test", "72", "--yes"}, "0.5"));
        QVERIFY(waitUntil(loading));
        const qsizetype runsBefore = simInvocations(simLogPath()).size();
        ::kill(static_cast<pid_t>(stopped->processId()), SIGTERM);
        QVERIFY(stopped->waitForFinished(10000));
        QCOMPARE(stopped->exitCode(), 143);
        // The test's later phases never start once the signal came.
        QCOMPARE(simInvocations(simLogPath()).size(), runsBefore);
        QCOMPARE(QProcess::execute(QStringLiteral("pgrep"), {QStringLiteral("-f"), simBinDir() + "/itdt"}),
                 1);
    }

    // The fleet playbook (docs/fleet/tapedesk.yml) run by ansible-playbook: it
    // sets the paths, finds the drive, mounts and unmounts it.
    void fleetPlaybook()
    {
        const QString ansible = QStandardPaths::findExecutable(QStringLiteral("ansible-playbook"));
        if (ansible.isEmpty())
            QSKIP("ansible-playbook is not on PATH (Debian package ansible-core)");
        // A library of one drive named 3: no other test mounts /tmp/ltfs/mnt/3. The
        // CLI finds mount and umount as an operator's shells would: on PATH.
        freshCase("[drive]\nid = tape3\nmodel = ULTRIUM-HH8\nfirmware = F1A2\nserial = 1013000303\n"
                  "address = H1-B0-T3-L0\nloaded = no\ncartridge = yes\nbarcode = TD0303\n"
                  "formatted = yes\nvolume = FLEET\n");
        const QString bin = simBinDir() + QLatin1Char('/');
        const QJsonObject vars{{QStringLiteral("tapedesk_cli"), QStringLiteral(TAPEDESK_BIN "/tapedesk-cli")},
                               {QStringLiteral("tapedesk_itdt"), bin + QStringLiteral("itdt")},
                               {QStringLiteral("tapedesk_ltfs"), bin + QStringLiteral("ltfs")},
                               {QStringLiteral("tapedesk_mkltfs"), bin + QStringLiteral("mkltfs")},
                               {QStringLiteral("tapedesk_output"), makeDir(QStringLiteral("output"))},
                               {QStringLiteral("tapedesk_drive"), QStringLiteral("tape3")}};
        QProcess playbook;
        playbook.setProcessChannelMode(QProcess::MergedChannels);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8")); // ansible refuses other encodings
        playbook.setProcessEnvironment(env);
        playbook.start(ansible, {QStringLiteral("-i"), QStringLiteral("localhost,"), QStringLiteral("-c"),
                                 QStringLiteral("local"),
                                 QStringLiteral(TAPEDESK_SOURCE_DIR "/docs/fleet/tapedesk.yml"),
                                 QStringLiteral("-e"), QString::fromUtf8(QJsonDocument(vars).toJson())});
        QVERIFY(playbook.waitForFinished(100000));
        QVERIFY2(playbook.exitStatus() == QProcess::NormalExit && playbook.exitCode() == 0,
                 playbook.readAll().constData());

        // It really mounted the tape once and unmounted it once.
        const QList<QStringList> runs = simInvocations(simLogPath());
        const auto count = [&](const QStringList &start) {
            return std::count_if(runs.cbegin(), runs.cend(),
                                 [&](const QStringList &run) { return run.mid(0, start.size()) == start; });
        };
        QCOMPARE(count({QStringLiteral("ltfs"), QStringLiteral("/tmp/ltfs/mnt/3")}), 1);
        QCOMPARE(count({QStringLiteral("umount")}), 1);
    }
};

TAPEDESK_TEST_MAIN(CliTest)
#include "tst_cli.moc"
