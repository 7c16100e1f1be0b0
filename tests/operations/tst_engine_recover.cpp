// ctest-timeout: 60
// When LTFS stopped under a mounted volume, against the simulator: the dead
// mount is named at the scan and unmounted at once; the cartridge it left
// unclosed refuses to mount until ltfsck, offered by the failed mount, has
// recovered it, and ltfsck's verdicts come from its exit status.

#include "drives/DriveStateStore.h"
#include "operations/TapeEngine.h"
#include "support/EngineHarness.h"
#include "support/TestEnv.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QTest>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {
// A row on tape91 mounts it first and kills its daemon; tape92's cartridge was
// left unclosed by a daemon that died under it.
const QByteArray kLibrary =
    "[drive]\nid = tape91\nmodel = ULTRIUM-HH8\nfirmware = F1A2\nserial = 1013000191\n"
    "address = H1-B0-T0-L0\ncartridge = yes\nbarcode = TD0091\nformatted = yes\n\n"
    "[drive]\nid = tape92\nmodel = ULTRIUM-HH8\nfirmware = F1A2\nserial = 1013000192\n"
    "address = H1-B0-T1-L0\ncartridge = yes\nbarcode = TD0092\nformatted = yes\nconsistent = no\n";

QString stateFile()
{
    return TestHome::path() + QStringLiteral("/tapesim/state.ini");
}
} // namespace

class EngineRecoverTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        resetSimulator();
        QDir().mkpath(TestHome::path() + QStringLiteral("/tapesim"));
        QFile state(stateFile());
        QVERIFY(state.open(QIODevice::WriteOnly) && state.write(kLibrary) > 0);
        SettingsStore::remove(DriveStateStore::kMountedDrivesKey);
        mountedDrives.set({});
        useSimulator();
    }
    void cleanup()
    {
        qunsetenv("TAPESIM_FAIL");
        resetSimulator();
    }

    void ltfsStoppedUnderTheVolume_data()
    {
        QTest::addColumn<QString>("drive");
        QTest::addColumn<Action>("action");
        QTest::addColumn<QByteArray>("fault");    // TAPESIM_FAIL for the action
        QTest::addColumn<QString>("ltfsFolder");  // where ltfs is set; "" the simulator's
        QTest::addColumn<QStringList>("answers"); // and the questions they answer:
        QTest::addColumn<QStringList>("asked");
        QTest::addColumn<QStringList>("lines"); // found in the last pane, in this order
        QTest::addColumn<int>("recoverStatus"); // -1: none shown
        QTest::addColumn<bool>("mounted");      // afterwards
        QTest::addColumn<bool>("consistent");   // no cartridge left unclosed afterwards
        const QStringList mountRecover{"Mount Tape", "Recover Volume"};
        const QString failure =
            QStringLiteral("LTFS11220E Medium check failed: extra blocks detected. Run ltfsck.");
        const QString explained =
            QStringLiteral("The volume was not closed: LTFS stopped while it was mounted");
        QTest::newRow("dead mount: named, unmounted at once")
            << "tape91" << Action::Mount << QByteArray() << QString() << QStringList() << QStringList()
            << QStringList{"Unmounting Tape: /tmp/ltfs/mnt/91", "Unmounting Tape Complete",
                           "End unMountDrive"}
            << -1 << false << false;
        QTest::newRow("recover, then mount")
            << "tape92" << Action::Mount << QByteArray() << QString() << QStringList{"0", "0", "0"}
            << (mountRecover + QStringList{"Volume Recovered"})
            << QStringList{"Mounting Tape", "Mount Complete"} << 0 << true << true;
        QTest::newRow("could not recover")
            << "tape92" << Action::Mount << QByteArray("tape92:ltfsck=4") << QString()
            << QStringList{"0", "0"} << mountRecover
            << QStringList{failure, explained, "ltfsck 92", "The cartridge may need reformatting"} << 1
            << false << false;
        QTest::newRow("device error")
            << "tape92" << Action::Mount << QByteArray("tape92:ltfsck=8") << QString()
            << QStringList{"0", "0"} << mountRecover
            << QStringList{failure, "could not use the drive (exit status 8"} << 1 << false << false;
        const QString bare = TestHome::path() + QStringLiteral("/bare");
        QTest::newRow("no ltfsck beside ltfs")
            << "tape92" << Action::Mount << QByteArray() << bare << QStringList{"0", "0"} << mountRecover
            << QStringList{failure, "ltfsck was not found at " + bare + "/ltfsck"} << 1 << false << false;
        QTest::newRow("cancel changes nothing")
            << "tape92" << Action::Mount << QByteArray() << QString() << QStringList{"0", "1"} << mountRecover
            << QStringList{failure, explained, "Recovery canceled"} << -1 << false << false;
        QTest::newRow("a mounted volume is never checked")
            << "tape91" << Action::Recover << QByteArray() << QString() << QStringList{"0"}
            << QStringList{"Recover Volume", "Recover Volume"}
            << QStringList{"Error: Tape needs to be un-mounted"} << 1 << true << false;
    }

    void ltfsStoppedUnderTheVolume()
    {
        QFETCH(QString, drive);
        QFETCH(Action, action);
        QFETCH(QByteArray, fault);
        QFETCH(QString, ltfsFolder);
        QFETCH(QStringList, answers);
        QFETCH(QStringList, asked);
        QFETCH(QStringList, lines);
        QFETCH(int, recoverStatus);
        QFETCH(bool, mounted);
        QFETCH(bool, consistent);
        const bool dead = drive == QStringLiteral("tape91");
        if (dead) {
            const QString point = QStringLiteral("/tmp/ltfs/mnt/91");
            QDir().mkpath(point);
            qputenv("TAPESIM_FAIL", "tape91:daemon=crash");
            QCOMPARE(QProcess::execute(simBinDir() + QStringLiteral("/ltfs"), {point, "-o", "devname=91"}),
                     0);
        }
        if (!ltfsFolder.isEmpty()) {
            QDir().mkpath(ltfsFolder);
            QVERIFY(QFile::link(simBinDir() + QStringLiteral("/ltfs"), ltfsFolder + QStringLiteral("/ltfs")));
            LTFS_PATH.set(ltfsFolder + QStringLiteral("/ltfs"));
        }
        qputenv("TAPESIM_FAIL", fault);
        QStringList questions;
        answerWith(answers, &questions);
        RecordingFace face;
        TapeEngine engine(face);
        QVERIFY(scanAndSelect(engine, face, drive));
        QCOMPARE(engine.selectedDrive.get()->record().ltfsStopped, dead);
        QCOMPARE(face.pane.contains(QStringLiteral("LTFS stopped unexpectedly")), dead);

        QElapsedTimer clock;
        clock.start();
        QVERIFY(performToEnd(engine, action));
        // Not the unmount's 3-second poll: no daemon is left to wait for.
        QVERIFY(clock.elapsed() < 2500 || !dead);
        QCOMPARE(questions, asked);
        qsizetype at = 0;
        for (const QString &line : lines) {
            at = face.pane.indexOf(line, at);
            QVERIFY2(at >= 0, qPrintable(line + QStringLiteral("\nnot in order in\n") + face.pane));
        }
        QCOMPARE(face.status.value(Action::Recover, -1), recoverStatus);
        QCOMPARE(engine.isTapeMounted(), mounted);
        QCOMPARE(readFile(stateFile()).contains("consistent = no"), !consistent);
    }
};

int main(int argc, char **argv)
{
    TestHome home;
    QCoreApplication app(argc, argv);
    configureApplication(app);
    EngineRecoverTest tc;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&tc, argc, argv);
}

#include "tst_engine_recover.moc"
