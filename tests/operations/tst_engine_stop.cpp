// ctest-timeout: 60
// The operator's Stop while a tool hangs (the simulator's hang fault): each row
// starts an action, waits until its tool hangs, stops it and reads the end:
// the pane's last line, the failed status, no tool left, nothing run after it
// and the records as they were. The firmware update and an unconfirmed format
// refuse; an unmount's wait ends with the drive still recorded as mounted; a
// tool that ignores SIGTERM is ended by SIGKILL 5 s later, and no other action
// starts before.

#include "drives/DriveStateStore.h"
#include "support/EngineHarness.h"
#include "support/TestEnv.h"
#include "tools/ProcessRunner.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"

#include <QTest>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

const QByteArray kLibrary =
    "[drive]\nid = tape81\nmodel = ULTRIUM-HH8\nserial = 1013000181\ncartridge = yes\n"
    "formatted = yes\n[drive]\nid = tape82\nmodel = ULTRIUM-HH8\nserial = 1013000182\n"
    "cartridge = yes\n[drive]\nid = tape83\nmodel = ULTRIUM-HH8\nserial = 1013000183\n"
    "cartridge = yes\nformatted = yes\n";

QString simLog()
{
    return QString::fromUtf8(readFile(TestHome::path() + QStringLiteral("/sim.log")));
}

// `fault` is "DRIVE:COMMAND=MODE": a TAPESIM_FAIL entry, or MODE "delay" (the
// ltfs daemon holds the drive after umount; Stop comes once umount ran) or
// "ignore-term" (an itdt that ignores SIGTERM). `line` is the pane's last
// line, after "Stopped by the operator: " unless it is a refusal.
void row(const char *name, Action action, const char *fault, const QStringList &answers, const QString &line)
{
    QTest::newRow(name) << action << QString::fromLatin1(fault) << answers
                        << (line.startsWith(QStringLiteral("Stop refused"))
                                ? line
                                : "Stopped by the operator: " + line);
}

} // namespace

class EngineStopTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        QVERIFY(resetSimulatorTo(kLibrary));
        qunsetenv("TAPESIM_FAIL");
        qunsetenv("TAPESIM_UNMOUNT_DELAY");
        qputenv("TAPESIM_SPEED", "0");
        qputenv("TAPESIM_LOG", QFile::encodeName(TestHome::path() + QStringLiteral("/sim.log")));
        useSimulator();
        DriveStateStore::resetMountedDrives();
    }

    void stop_data()
    {
        QTest::addColumn<Action>("action");
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QStringList>("answers");
        QTest::addColumn<QString>("line");
        row("scan", Action::Scan, "tape81:scan=hang", {}, "itdt scan");
        row("mount: load", Action::Mount, "tape81:load=hang", {"0"}, "itdt load on tape81");
        row("mount: attribute read", Action::Mount, "tape81:readattr=hang", {"0"}, "itdt readattr on tape81");
        row("mount: ltfs", Action::Mount, "tape81:ltfs=hang", {"0"}, "ltfs on tape81");
        row("dump", Action::RetrieveLog, "tape81:dump=hang", {}, "itdt dump on tape81");
        row("standard test", Action::Test, "tape81:standardtest=hang", {"ok"}, "itdt standardtest on tape81");
        row("host validation", Action::HostValidation, "tape81:systemtest=hang", {"ok"},
            "itdt systemtest on tape81");
        row("firmware", Action::Upgrade, "tape81:ucode=hang", {"ok", "/tmp/HH8_G3C1.fmrz"},
            "Stop refused: a firmware update cut short can leave the drive unusable, so it runs to its end");
        row("format, declined", Action::Format, "tape82:mkltfs=hang", {"ABC123", "cancel"},
            "Stop refused: mkltfs goes on formatting the cartridge");
        row("format, confirmed", Action::Format, "tape82:mkltfs=hang", {"ABC123", "ok"},
            "mkltfs on tape82 - the cartridge is left unformatted");
        row("unmount wait", Action::Mount, "tape83:umount=delay", {},
            "the wait for the unmount of /tmp/ltfs/mnt/83 on tape83 - the volume may still be in use");
        row("SIGTERM ignored", Action::RetrieveLog, "tape81:dump=ignore-term", {}, "itdt dump on tape81");
    }

    void stop()
    {
        QFETCH(Action, action);
        QFETCH(QString, fault);
        QFETCH(QStringList, answers);
        QFETCH(QString, line);
        const QString mode = fault.section(QLatin1Char('='), 1);
        RecordingFace face;
        TapeEngine engine(face);
        engine.setLiveOutput(true);
        QStringList asked;
        QVERIFY(scanAndSelect(engine, face, fault.section(QLatin1Char(':'), 0, 0)));
        if (mode == QStringLiteral("ignore-term")) {
            const QString stub = QStringLiteral(
                "echo '\"dump\"' >>\"$TAPESIM_LOG\"; trap '' TERM; while :; do sleep 0.1; done");
            setPaths(writeScript(makeDir(QStringLiteral("stubborn")), QStringLiteral("itdt"), stub),
                     *LTFS_PATH.get(), *MKLTFS_PATH.get(), *OUTPUT_FOLDER.get());
        }
        if (mode == QStringLiteral("delay")) {
            qputenv("TAPESIM_UNMOUNT_DELAY", "60");
            answerWith({QStringLiteral("0")}, &asked);
            QVERIFY(performToEnd(engine, Action::Mount));
        } else if (mode == QStringLiteral("hang")) {
            qputenv("TAPESIM_FAIL", "*" + fault.mid(fault.indexOf(QLatin1Char(':'))).toLatin1());
        }
        const QByteArray storeBefore = readFile(SettingsStore::fileName());
        const QList<DrivePtr> listedBefore = driveList.snapshot();
        const DrivePtr selectedBefore = engine.selectedDrive.get();
        const bool mountedBefore = selectedBefore->mounted();
        const QString hung = '"' + fault.section(QLatin1Char(':'), 1).section(QLatin1Char('='), 0, 0) + '"';

        QFile::remove(TestHome::path() + QStringLiteral("/sim.log"));
        answerWith(answers, &asked);
        face.toolBytes.clear();
        engine.perform(action);
        QVERIFY(QTest::qWaitFor([&] { return simLog().contains(hung); }));
        const bool refused = line.startsWith(QStringLiteral("Stop refused"));
        QCOMPARE(engine.stop(), refused ? TapeEngine::StopResult::Refused : TapeEngine::StopResult::Stopped);
        QTRY_COMPARE(face.paneLines().constLast(), line);
        if (refused) { // the tool goes on until TapeDesk quits
            QVERIFY(face.busy && children::liveCount() > 0);
            // Quit once it is under way: a tool killed before its first line
            // printed nothing, which reads as a different verdict.
            QTRY_VERIFY(!face.toolBytes.isEmpty());
            children::killAll();
        } else {
            QCOMPARE(face.status.value(action == Action::Format ? Action::Mount : action), 1);
            QVERIFY(!face.busy);
        }
        if (mode == QStringLiteral("ignore-term")) {
            QVERIFY(children::liveCount() > 0);
            engine.perform(Action::Scan);
            QTRY_VERIFY(
                face.paneLines().constLast().startsWith(QStringLiteral("Not started: the stopped tool")));
        }
        QVERIFY(settle(engine, 10000));
        QCOMPARE(children::liveCount(), 0);
        QVERIFY2(simLog().trimmed().split(QLatin1Char('\n')).constLast().contains(hung),
                 qPrintable(simLog()));
        QCOMPARE(readFile(SettingsStore::fileName()), storeBefore);
        QCOMPARE(driveList.snapshot(), listedBefore);
        QCOMPARE(engine.selectedDrive.get(), selectedBefore);
        QCOMPARE(selectedBefore->mounted(), mountedBefore);
    }
};

TAPEDESK_ENGINE_TEST_MAIN(EngineStopTest)

#include "tst_engine_stop.moc"
